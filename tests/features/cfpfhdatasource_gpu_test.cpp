// SPDX-License-Identifier: MIT
#include "zorvan/features/cfpfhdatasource_gpu.h"

#include "tests/support/clouds.h"
#include "tests/support/computeservice.h"
#include "tests/support/logcapture.h"
#include "zorvan/features/cfpfhpointset.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>

namespace {

using prereg::CFPFHDataSource;
using prereg::CPointFeatureHistogram;
using support::BumpySurface;
using support::Surface;
using support::Vector3;

using GpuPtr = std::shared_ptr<CFPFHDataSource::GPUContext>;

constexpr double radius = 2.0;

// Compiling the kernels takes longer than running them: one context for all tests that only compute.
const GpuPtr& sharedContext()
{
    static const auto context = std::make_shared<CFPFHDataSource::GPUContext>();
    return context;
}

class GpuFeatures : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!*sharedContext()) GTEST_SKIP() << "no OpenCL device here; the package pocl-opencl-icd makes one";
    }
};

using FeatureByPlace = std::map<std::array<float, 3>, CPointFeatureHistogram>;

FeatureByPlace featuresOf(const CFPFHDataSource& source)
{
    FeatureByPlace features;
    for (std::size_t k = 0; k < source.GetNumFeatures(); ++k) {
        const Vector3& p = source.GetFeaturePointsV()[k];
        features[{p.x, p.y, p.z}] = source.GetFeaturesV()[k];
    }
    return features;
}

// An approximate reciprocal root is off by 1.5 * 2^-12 at most, which moves a cosine times 5 by at most 0.002 bins, so
// under 0.4 % of the pairs are near enough to an edge to fall into the next bin if cosines spread evenly. A point that
// sees few pairs can be off by more, but not the mean over a surface; an angle does not depend on the root.
void expectSame(const CFPFHDataSource& gpu, const CFPFHDataSource& cpu)
{
    const auto expected = featuresOf(cpu);
    const auto found = featuresOf(gpu);
    ASSERT_EQ(found.size(), expected.size());
    ASSERT_GT(found.size(), 100U);
    double meanDifference = 0.0;
    for (const auto& [place, feature] : expected) {
        const auto other = found.find(place);
        ASSERT_NE(other, found.end());
        double difference = 0.0;
        for (std::size_t bin = 0; bin < CPointFeatureHistogram::numBins; ++bin)
            difference += std::abs(double{feature.AsArray()[bin]} - other->second.AsArray()[bin]);
        EXPECT_LT(difference, 0.1) << place[0] << ' ' << place[1] << ' ' << place[2]; // of 3
        meanDifference += difference / static_cast<double>(expected.size());
    }
    EXPECT_LT(meanDifference, 2 * 2 * 0.004); // two parts, and a pair that moves leaves one bin and enters another
}

CFPFHDataSource makeSource(const GpuPtr& gpu, double grid = 0.3) { return {radius, grid, 2 * grid, 1, gpu}; }

Surface firstHalf(const Surface& all)
{
    Surface half;
    for (std::size_t i = 0; i < all.points.size(); ++i) {
        if (all.points[i].x > 0) continue;
        half.points.push_back(all.points[i]);
        half.normals.push_back(all.normals[i]);
    }
    return half;
}

TEST_F(GpuFeatures, AgreeWithThoseOfTheProcessor)
{
    auto s = BumpySurface(20000, 3);
    for (const float shift : {0.0F, 1000.0F}) { // far away, distances round more coarsely
        for (auto& p : s.points) p = p + Vector3(shift, 0, -shift);
        for (const double grid : {0.3, 0.0}) {
            auto gpu = makeSource(sharedContext(), grid);
            auto cpu = makeSource(nullptr, grid);
            ASSERT_TRUE(gpu.Load(s.points, s.normals, nullptr));
            ASSERT_TRUE(cpu.Load(s.points, s.normals, nullptr));
            expectSame(gpu, cpu);
        }
    }
}

TEST_F(GpuFeatures, OddNeighbourhoodsGiveTheSameValidPoints)
{
    // 11 and 12 points close together, a pile of coincident ones, and normals that are no normals.
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    Surface s;
    const auto heap = [&s](float x, unsigned n, float step, const Vector3& normal) {
        for (unsigned i = 0; i < n; ++i) {
            s.points.emplace_back(x + step * static_cast<float>(i), 0.0F, 0.0F);
            s.normals.push_back(normal);
        }
    };
    heap(0, 11, 0.1F, {0, 0, 1});
    heap(100, 12, 0.1F, {0, 0, 1});
    heap(200, 40, 0.0F, {0, 0, 1});
    heap(300, 40, 0.05F, {nan, 0, 1e30F});
    auto gpu = makeSource(sharedContext(), 0);
    auto cpu = makeSource(nullptr, 0);
    gpu.Load(s.points, s.normals, nullptr);
    cpu.Load(s.points, s.normals, nullptr);
    EXPECT_EQ(cpu.GetNumFeatures(), 12U + 40U) << "coincident points have counts, but no weights";
    const auto found = featuresOf(gpu);
    for (const auto& [place, feature] : featuresOf(cpu)) EXPECT_EQ(found.count(place), 1U) << place[0];
    EXPECT_EQ(gpu.GetNumFeatures(), cpu.GetNumFeatures());
}

TEST_F(GpuFeatures, AnUpdateKeepsWhatDidNotChange)
{
    const auto s = BumpySurface(20000, 7);
    const auto half = firstHalf(s);
    auto gpu = makeSource(sharedContext());
    auto cpu = makeSource(nullptr);
    gpu.Update(half.points, half.normals, nullptr);
    const auto before = featuresOf(gpu);
    for (CFPFHDataSource* source : {&gpu, &cpu}) source->Update(s.points, s.normals, nullptr);
    ASSERT_GT(gpu.GetNumFeatures(), before.size());
    const auto after = featuresOf(gpu);
    std::size_t kept = 0;
    for (const auto& [place, feature] : before) {
        const auto found = after.find(place);
        kept += found != after.end() && found->second == feature ? 1 : 0;
    }
    EXPECT_GT(kept, before.size() / 2) << "regions that did not change keep their features, bit for bit";
    cpu = makeSource(nullptr);
    cpu.Update(half.points, half.normals, nullptr);
    cpu.Update(s.points, s.normals, nullptr);
    expectSame(gpu, cpu);
}

// Points with nobody near: the limit is on how many there are, and this way they cost little.
Surface lonelyPoints(std::size_t n)
{
    Surface s;
    for (std::size_t i = 0; i < n; ++i) {
        s.points.emplace_back(static_cast<float>(i % 1000), static_cast<float>(i / 1000), 0.0F);
        s.normals.emplace_back(0.0F, 0.0F, 1.0F);
    }
    return s;
}

TEST_F(GpuFeatures, MoreThanALaunchTakesGoesToTheProcessor)
{
    for (const std::size_t n : {750000U, 750001U}) {
        std::size_t launches = 0;
        const support::ComputeService service([&](const std::string& operation) {
            launches += operation == "enqueue" ? 1 : 0;
            return true;
        });
        const auto s = lonelyPoints(n);
        const support::LogCapture log;
        CFPFHDataSource source(1.1, 0, 0, 2, std::make_shared<CFPFHDataSource::GPUContext>());
        ASSERT_TRUE(source.Load(s.points, s.normals, nullptr));
        const bool isTooLarge = n > 750000;
        EXPECT_EQ(launches, isTooLarge ? 0U : 2U);
        EXPECT_EQ(log.Has(L"FPFH-Features: point cloud update too large for GPU; falling back to CPU code"),
                  isTooLarge);
        EXPECT_EQ(source.GetFeaturePointsV().size(), n);
    }
}

TEST_F(GpuFeatures, AContextThatDoesNotComeUpIsEmpty)
{
    for (const std::string missing : {"device", "context", "queue", "program", "kernel"}) {
        const support::LogCapture log;
        const support::ComputeService service([&](const std::string& operation) { return operation != missing; });
        const auto context = std::make_shared<CFPFHDataSource::GPUContext>();
        EXPECT_FALSE(*context) << missing;
        EXPECT_EQ(log.Has(L"cannot be built"), missing == "program") << "the compiler's reason is logged";
        const auto s = BumpySurface(500, 1);
        EXPECT_THROW(makeSource(context).Load(s.points, s.normals, nullptr), std::logic_error) << missing;
    }
}

TEST_F(GpuFeatures, AFailingDeviceLosesNothing)
{
    const auto s = BumpySurface(20000, 7);
    const auto half = firstHalf(s);
    for (const std::string failing :
         {"buffer CubeIndicies", "buffer Normals", "buffer Output FPFH", "enqueue", "read"}) {
        bool isBroken = false;
        const support::ComputeService service([&](const std::string& operation) {
            if (isBroken && operation == failing) throw GPGPU::CGPGPUError(operation);
            return true;
        });
        auto source = makeSource(std::make_shared<CFPFHDataSource::GPUContext>());
        source.Update(half.points, half.normals, nullptr);
        const auto before = featuresOf(source);
        isBroken = true;
        EXPECT_THROW(source.Update(s.points, s.normals, nullptr), GPGPU::CGPGPUError) << failing;
        const auto between = featuresOf(source);
        EXPECT_GT(between.size(), before.size() / 2) << failing;
        for (const auto& [place, feature] : between) {
            const auto old = before.find(place);
            ASSERT_TRUE(old != before.end() && old->second == feature) << failing;
        }
        EXPECT_NO_THROW(prereg::CFPFHPointSet{source});
        isBroken = false;
        source.Update(s.points, s.normals, nullptr);
        auto fresh = makeSource(nullptr);
        fresh.Update(s.points, s.normals, nullptr);
        expectSame(source, fresh);
    }
}

} // namespace
