// SPDX-License-Identifier: MIT
#include "zorvan/features/cpointfeaturehistogram.h"
#include "zorvan/features/cpointfeaturehistogram_referencetables.h"

#include "tests/support/logcapture.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <span>

namespace {

using prereg::CPointFeatureHistogram;
using prereg::detail::ReferenceSpline;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double radii[] = {0.8, 1.0, 1.5, 2.0, 3.0, 4.0, 5.2};

struct Row
{
    std::size_t bin;
    double values[std::size(radii)];
};

// What hosts know, to four decimals.
// clang-format off
const Row sphereRows[] = {
    {5, {1.0000, 1.0000, 1.0000, 1.0000, 1.0000, 1.0000, 1.0000}},
    {11, {0.0805, 0.0027, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
    {12, {0.3791, 0.1549, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
    {13, {0.2817, 0.4593, 0.0213, 0.0000, 0.0000, 0.0000, 0.0000}},
    {14, {0.1686, 0.2677, 0.6573, 0.3623, 0.0001, 0.0000, 0.0000}},
    {15, {0.0871, 0.1076, 0.2939, 0.5773, 0.8562, 0.7217, 0.5243}},
    {16, {0.0030, 0.0077, 0.0274, 0.0604, 0.1437, 0.2783, 0.4757}},
    {27, {0.0201, 0.0298, 0.0838, 0.1651, 0.4057, 0.7145, 1.0000}},
    {28, {0.2254, 0.3213, 0.8259, 0.8349, 0.5943, 0.2855, 0.0000}},
    {29, {0.3144, 0.5084, 0.0902, 0.0000, 0.0000, 0.0000, 0.0000}},
    {30, {0.1881, 0.1404, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
    {31, {0.2519, 0.0000, 0.0001, 0.0000, 0.0000, 0.0000, 0.0000}},
};

const Row cylinderRows[] = {
    {1, {0.0116, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
    {2, {0.1103, 0.0777, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
    {3, {0.1409, 0.1507, 0.1219, 0.0394, 0.0000, 0.0000, 0.0000}},
    {4, {0.1576, 0.1814, 0.2400, 0.2850, 0.2444, 0.1725, 0.0882}},
    {5, {0.1660, 0.1845, 0.2761, 0.3515, 0.5114, 0.6551, 0.8235}},
    {6, {0.1563, 0.1788, 0.2398, 0.2848, 0.2443, 0.1724, 0.0882}},
    {7, {0.1386, 0.1507, 0.1221, 0.0393, 0.0000, 0.0000, 0.0000}},
    {8, {0.1073, 0.0763, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
    {9, {0.0113, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
    {11, {0.0147, 0.0007, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
    {12, {0.1816, 0.0260, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
    {13, {0.1939, 0.2010, 0.0009, 0.0000, 0.0000, 0.0000, 0.0000}},
    {14, {0.1928, 0.2394, 0.2312, 0.0832, 0.0000, 0.0000, 0.0000}},
    {15, {0.2097, 0.2730, 0.3857, 0.4515, 0.3920, 0.2772, 0.1488}},
    {16, {0.2074, 0.2601, 0.3822, 0.4653, 0.6080, 0.7228, 0.8512}},
    {27, {0.2632, 0.3363, 0.4994, 0.6187, 0.8018, 0.9475, 1.0000}},
    {28, {0.2797, 0.3791, 0.4911, 0.3813, 0.1982, 0.0525, 0.0000}},
    {29, {0.2135, 0.2545, 0.0095, 0.0000, 0.0000, 0.0000, 0.0000}},
    {30, {0.1366, 0.0301, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
    {31, {0.1070, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000}},
};
// clang-format on

CPointFeatureHistogram sphere(double radius) { return CPointFeatureHistogram::Sphere(radius, 1.5, 0.3); }
CPointFeatureHistogram cylinder(double radius) { return CPointFeatureHistogram::Cylinder(radius, 1.5, 0.3); }

void expectRows(std::span<const Row> rows, CPointFeatureHistogram (*reference)(double))
{
    constexpr float rounding = 0.5e-4F + 1e-7F; // of the table, and of the bins
    for (std::size_t k = 0; k < std::size(radii); ++k) {
        CPointFeatureHistogram expected;
        for (const Row& row : rows) expected.AsArray()[row.bin] = static_cast<float>(row.values[k]);
        EXPECT_THAT(reference(radii[k]).AsArray(), testing::Pointwise(testing::FloatNear(rounding), expected.AsArray()))
            << radii[k];
    }
}

TEST(FeatureReferences, AreWhatHostsHaveComparedAgainst)
{
    expectRows(sphereRows, sphere);
    expectRows(cylinderRows, cylinder);
    EXPECT_EQ(sphere(5.2).AsArray()[27], 1.0F);
}

double at(const prereg::detail::ReferenceCubic& c, double x) { return ((x * c.c3 + c.c2) * x + c.c1) * x + c.c0; }

TEST(FeatureReferences, RunFromEndToEndWithoutSteps)
{
    constexpr double sixDigits = 2e-5; // of four coefficients below 30
    for (const std::span<const ReferenceSpline> splines :
         {std::span<const ReferenceSpline>(prereg::detail::sphereSplines),
          std::span<const ReferenceSpline>(prereg::detail::cylinderSplines)}) {
        for (const auto& [bin, knots, cubics] : splines) {
            ASSERT_EQ(knots.size(), cubics.size() + 1);
            EXPECT_EQ(knots.front(), 0.8);
            EXPECT_EQ(knots.back(), 5.2);
            for (std::size_t i = 1; i < cubics.size(); ++i)
                EXPECT_NEAR(at(cubics[i - 1], knots[i] - knots[i - 1]), cubics[i].c0, sixDigits) << bin << " " << i;
        }
    }
}

// Within a part the scale cancels, so the ratio of two bins tells which cubics they come from.
TEST(FeatureReferences, GoOnWithTheirEndsOutside)
{
    const auto ratio = [](const CPointFeatureHistogram& h, std::size_t a, std::size_t b) {
        return static_cast<double>(h.AsArray()[a] / h.AsArray()[b]);
    };
    const double below = static_cast<double>(0.79F) - 0.8;
    const prereg::detail::ReferenceCubic sphere11{0.0809087, -1.75341, 10.7798, -19.8379};
    const prereg::detail::ReferenceCubic cylinder5{0.165998, -0.00512669, 0.742238, -1.26484};
    EXPECT_NEAR(ratio(sphere(0.79), 11, 12), at(sphere11, below) / at(prereg::detail::sphere12[0], below), 1e-6);
    EXPECT_NEAR(ratio(cylinder(0.79), 5, 4), at(cylinder5, below) / at(prereg::detail::cylinder4[0], below), 1e-6);

    const double above = static_cast<double>(5.3F) - prereg::detail::knots13[12];
    EXPECT_NEAR(ratio(sphere(5.3), 15, 16),
                at(prereg::detail::sphere15[12], above) / at(prereg::detail::sphere16[12], above), 1e-6);
}

TEST(FeatureReferences, TakeTheRadiusInSinglePrecision)
{
    for (double radius = 0.81; radius < 5.2; radius += 0.01) {
        EXPECT_EQ(sphere(radius), sphere(static_cast<double>(static_cast<float>(radius))));
    }
}

TEST(FeatureReferences, SurviveAnyRadius)
{
    const support::LogCapture log;
    constexpr double inf = std::numeric_limits<double>::infinity();
    for (const double radius : {0.0, -1.0, 1e-300, 50.0, -1e300, 1e300, inf, -inf, std::nan("")}) {
        for (const auto& reference : {sphere(radius), cylinder(radius)}) {
            for (const float bin : reference.AsArray()) EXPECT_FALSE(bin < 0 || bin > 1) << radius;
        }
    }
    EXPECT_EQ(log.Messages().size(), 16U); // NaN is not outside
}

using Reference = CPointFeatureHistogram (*)(double, double, double);

std::vector<std::wstring> warningsOf(Reference reference, double radius, double fpfhRadius, double gridSize)
{
    const CPointFeatureHistogram made = reference(radius, 1.5, 0.3);
    const support::LogCapture log;
    EXPECT_EQ(reference(radius, fpfhRadius, gridSize), made); // the last two are only compared
    std::vector<std::wstring> texts;
    for (const auto& message : log.Messages()) {
        EXPECT_EQ(message.eLevel, Logging::ELogLevel::Warn);
        EXPECT_EQ(message.domain, L"QAV.PreRegistration.FPFH");
        texts.push_back(message.text);
    }
    return texts;
}

TEST(FeatureReferences, WarnOfWhatTheyWereNotMadeFor)
{
    const auto* grid = L"grid size is not 0.3 mm; expect inaccurate results";
    const auto* feature = L"FPFH radius is not 1.5 mm; expect inaccurate results";
    const auto* ball = L"sphere radius is outside defined interval [0.8 mm,5.2 mm]; expect inaccurate results";
    const auto* tube = L"cylinder radius is outside defined interval [0.8 mm,5.2 mm]; expect inaccurate results";
    const Reference sphereOf = CPointFeatureHistogram::Sphere;
    const Reference cylinderOf = CPointFeatureHistogram::Cylinder;
    for (const double radius : {0.8, 5.2}) {
        EXPECT_THAT(warningsOf(sphereOf, radius, 1.5, 0.3), IsEmpty());
        EXPECT_THAT(warningsOf(cylinderOf, radius, 1.5, 0.3), IsEmpty());
    }
    EXPECT_THAT(warningsOf(sphereOf, 2.0, 1.4, 0.3), ElementsAre(feature));
    EXPECT_THAT(warningsOf(cylinderOf, 2.0, 1.5, static_cast<double>(0.3F)), ElementsAre(grid));
    EXPECT_THAT(warningsOf(sphereOf, 0.79, 1.5, 0.3), ElementsAre(ball));
    EXPECT_THAT(warningsOf(cylinderOf, 5.21, 0, 0), ElementsAre(tube, grid, feature));
}

} // namespace
