// SPDX-License-Identifier: MIT
#include "zorvan/raster/cpixelpolygon.h"

#include "tests/raster/masks.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>

namespace Zorvan {
namespace {

using namespace Testing;

constexpr unsigned uiSeed = 47110815;

/// Steps from pixel to pixel around the chain; -1 when two of them do not touch.
double lengthOf(const std::vector<ChainedPixel>& chain)
{
    double length = 0.0;
    for (std::size_t i = 0; i < chain.size(); ++i) {
        const unsigned int squared = chain[i].DistanceSq(chain[(i + 1) % chain.size()]);
        if (squared < 1 || squared > 2) return -1.0;
        length += std::sqrt(squared);
    }
    return length;
}

/// Everything that a traced region says of itself, beside the pixels that it has to have.
void expectRegion(const CPixelPolygon& polygon, const PixelSet& expected)
{
    const PixelSet chain = ChainOf(polygon);
    const PixelSet interior = InteriorOf(polygon);
    ASSERT_EQ(chain, MarginOf(expected));
    ASSERT_EQ(chain.size() + interior.size(), expected.size()) << "disjoint, and nothing is left out";
    ASSERT_EQ(PixelsOf(polygon), expected);
    ASSERT_EQ(polygon.GetArea(), static_cast<int>(expected.size()));
    const std::vector<ChainedPixel>& pixels = *polygon.getPixelChainPtr();
    ASSERT_EQ(Pixel(pixels.back().y, pixels.back().x), *expected.begin()) << "the first pixel closes the chain";
    const double length = expected.size() == 1 ? 2.0 * std::sqrt(M_PI) : lengthOf(pixels);
    ASSERT_NEAR(polygon.GetPerimeter(), length, 1e-5 * length);

    PixelSet visited;
    for (auto it = polygon.GetAreaAndMarginIterator(); it; ++it)
        ASSERT_TRUE(visited.emplace(it->y, it->x).second) << "twice";
    ASSERT_EQ(visited, expected);
}

/// Regions one after another, as floods find them.
void expectRegionsOf(const Mask& mask)
{
    PixelSet left = mask.Pixels();
    for (const CPixelPolygon& polygon : mask.Regions()) {
        ASSERT_FALSE(left.empty());
        const PixelSet region = Flood(left, *left.begin(), true);
        expectRegion(polygon, WithoutHoles(region));
        std::erase_if(left, [&](const Pixel& p) { return region.contains(p); });
    }
    ASSERT_TRUE(left.empty());
}

TEST(CPixelPolygon, FindsTheRegionsOfRandomMasks)
{
    std::mt19937 engine(uiSeed);
    for (int i = 0; i < 3000 && !testing::Test::HasFatalFailure(); ++i) expectRegionsOf(RandomMask(engine));
}

/// The first region of a random mask, somewhere.
CPixelPolygon randomRegion(std::mt19937& engine)
{
    const auto regions = RandomMask(engine).Regions();
    const auto draw = [&engine] { return static_cast<int>(engine() % 9) - 4; };
    return regions.empty() ? CPixelPolygon() : regions[engine() % regions.size()].Shift(draw(), draw());
}

PixelSet both(const PixelSet& a, const PixelSet& b, bool isUnion)
{
    PixelSet result;
    if (isUnion)
        std::ranges::set_union(a, b, std::inserter(result, result.end()));
    else
        std::ranges::set_intersection(a, b, std::inserter(result, result.end()));
    return result;
}

bool doBoxesMeet(const CPixelPolygon& a, const CPixelPolygon& b)
{
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0, u0 = 0, v0 = 0, u1 = 0, v1 = 0;
    if (!a.GetAABB(&x0, &y0, &x1, &y1) || !b.GetAABB(&u0, &v0, &u1, &v1)) return false;
    return std::max(x0, u0) <= std::min(x1, u1) && std::max(y0, v0) <= std::min(y1, v1);
}

TEST(CPixelPolygon, UnitesAndIntersectsAsMasksDo)
{
    std::mt19937 engine(uiSeed);
    int meeting = 0;
    int apart = 0;
    for (int i = 0; i < 2000 && !testing::Test::HasFatalFailure(); ++i) {
        const CPixelPolygon a = randomRegion(engine);
        const CPixelPolygon b = randomRegion(engine);
        const PixelSet inA = PixelsOf(a);
        const PixelSet inB = PixelsOf(b);
        const CPixelPolygon united = a.Union(b);
        if (doBoxesMeet(a, b))
            expectRegion(united, FirstRegion(both(inA, inB, true)));
        else
            EXPECT_TRUE(united.Empty());

        const PixelSet common = FirstRegion(both(inA, inB, false));
        const CPixelPolygon intersection = a.Intersect(b);
        EXPECT_EQ(intersection.Empty(), common.empty());
        if (!common.empty()) expectRegion(intersection, common);
        ++(common.empty() ? apart : meeting);
    }
    EXPECT_GT(meeting, 400);
    EXPECT_GT(apart, 400);
}

PixelSet grown(const PixelSet& pixels, const std::function<bool(int, int)>& filter)
{
    PixelSet result;
    for (const auto& [y, x] : pixels)
        for (int i = 0; i < 9; ++i)
            if (filter(x + i % 3 - 1, y + i / 3 - 1)) result.emplace(y + i / 3 - 1, x + i % 3 - 1);
    return result;
}

TEST(CPixelPolygon, DilatesAsMasksDo)
{
    std::mt19937 engine(uiSeed);
    const auto any = [](int, int) { return true; };
    const auto some = [](int x, int y) { return x > -3 && (x + 2 * y) % 7 != 0; };
    for (int i = 0; i < 150 && !testing::Test::HasFatalFailure(); ++i) {
        const CPixelPolygon region = randomRegion(engine);
        PixelSet all = PixelsOf(region);
        PixelSet filtered = ChainOf(region);
        for (unsigned int radius = 1; radius <= 7 && !region.Empty(); ++radius) {
            all = grown(all, any);
            filtered = grown(filtered, some);
            expectRegion(region.Dilate(radius), FirstRegion(all));
            const CPixelPolygon dilated = region.Dilate(radius, some);
            EXPECT_EQ(dilated.Empty(), filtered.empty());
            if (!filtered.empty()) expectRegion(dilated, FirstRegion(filtered));
        }
        EXPECT_EQ(PixelsOf(region.Dilate(0)), PixelsOf(region));
    }
}

TEST(CPixelPolygon, ClassifiesPixels)
{
    std::mt19937 engine(uiSeed);
    for (int i = 0; i < 300; ++i) {
        const CPixelPolygon a = randomRegion(engine);
        const CPixelPolygon b = randomRegion(engine);
        const PixelSet margin = ChainOf(a);
        const PixelSet interior = InteriorOf(a);
        int types = 0;
        for (int y = -12; y < 36; ++y)
            for (int x = -12; x < 36; ++x) {
                const int type = a.Empty() ? 0 : interior.contains({y, x}) ? 2 : margin.contains({y, x}) ? 1 : 4;
                EXPECT_EQ(a.Classify(x, y), type);
                EXPECT_EQ(a.IsInside({x, y}), type == 2);
                if (ChainOf(b).contains({y, x})) types |= type;
            }
        EXPECT_EQ(a.Classify(b), types);
        EXPECT_EQ(b.IsInside(a), types == CPixelPolygon::eInterior);

        std::multiset<Pixel> outside;
        for (auto it = a.GetMarginIterator(); it; ++it)
            for (const Pixel& p : {Pixel(it->y - 1, it->x), {it->y + 1, it->x}, {it->y, it->x - 1}, {it->y, it->x + 1}})
                if (!margin.contains(p) && !interior.contains(p)) outside.insert(p);
        std::multiset<Pixel> neighbours;
        for (const ChainedPixel& p : a.GetVonNeumannNeighborhood()) {
            neighbours.emplace(p.y, p.x);
            EXPECT_EQ((*p.label.get<std::shared_ptr<ChainedPixel>>())->DistanceSq(p), 1U);
        }
        EXPECT_EQ(neighbours, outside);
    }
}

TEST(CPixelPolygon, LooksAroundAPixelFromTheSideBehindTheStep)
{
    const auto neighbours = CPixelPolygon::Rectangle(5, 5, 6, 6).GetVonNeumannNeighborhood();
    const std::vector<ChainedPixel> expected{{5, 4}, {4, 5}, {4, 6}, {5, 7}, {6, 7}, {7, 6}, {7, 5}, {6, 4}};
    EXPECT_EQ(neighbours, expected);
}

TEST(CPixelPolygon, MeasuresSmallRegionsAsByHand)
{
    Mask mask(9, 3);
    for (int i = 0; i < 3; ++i) mask.At(4 + i, i) = 1; // a diagonal, there and back
    mask.At(0, 2) = 1;
    const auto regions = mask.Regions();
    ASSERT_EQ(regions.size(), 2U);
    EXPECT_EQ(regions[0].Size(), 4U);
    EXPECT_FLOAT_EQ(regions[0].GetPerimeter(), 4.0F * std::sqrt(2.0F));
    EXPECT_FLOAT_EQ(regions[0].GetRoundness(), 32.0F / 3.0F);
    EXPECT_EQ(regions[0].GetEnclosedArea(), -1) << "the chain passes the middle twice";
    EXPECT_EQ(regions[1].GetArea(), 1);
    EXPECT_FLOAT_EQ(regions[1].GetPerimeter(), 3.5449078F);
    EXPECT_EQ(regions[1].GetCenterOfGravity(), std::pair(0.0, 2.0));
    EXPECT_EQ(regions[1].GetRoundness(), 3.5449078F * 3.5449078F);

    const CPixelPolygon box = CPixelPolygon::Rectangle(7, -2, 1, 5);
    EXPECT_EQ(box.GetArea(), 30) << "the interior alone";
    EXPECT_EQ(box.GetEnclosedArea(), 30 - 26);
    EXPECT_EQ(box.GetPerimeter(), 26.0F);
    EXPECT_EQ(box.GetCenterOfGravity(), std::pair(4.0, 1.5));
    EXPECT_EQ(PixelsOf(box).size(), 56U);
    EXPECT_EQ(box.Repair().GetArea(), 56);
    EXPECT_TRUE(std::isnan(CPixelPolygon().GetCenterOfGravity().first));
}

TEST(CPixelPolygon, KeepsWhatCallersRelyOn)
{
    const CPixelPolygon a = CPixelPolygon::Rectangle(0, 0, 4, 4);
    const CPixelPolygon empty;
    EXPECT_TRUE(a.Union(empty).Empty() && empty.Union(a).Empty() && a.Intersect(empty).Empty());
    EXPECT_TRUE(a.Union(a.Shift(5, 0)).Empty()) << "the boxes do not meet";
    EXPECT_TRUE(a == empty && a == CPixelPolygon::Rectangle(0, 0, 0, 0)) << "one chain begins with the other";
    EXPECT_FALSE(a == a.Shift(1, 0));
    EXPECT_TRUE(a.Dilate(0) == a && a.Dilate(0).Size() == a.Size());

    CPixelPolygon copy = a;
    EXPECT_TRUE(copy.IsInside(2, 2));
    copy.Clear();
    EXPECT_TRUE(copy.Empty() && copy.GetArea() == 0 && copy.GetPerimeter() == a.GetPerimeter());
    EXPECT_TRUE(!copy.IsInside(2, 2) && copy.Classify(2, 2) == 0 && copy.getPixelChainPtr() == nullptr);
    EXPECT_FALSE(copy.GetMarginIterator() || copy.GetAreaIterator() || copy.GetAreaAndMarginIterator());
    EXPECT_FALSE(copy.GetAABB(nullptr, nullptr, nullptr, nullptr));

    auto it = a.GetAreaIterator();
    EXPECT_TRUE(it == a.GetAreaIterator());
    ++it;
    EXPECT_FALSE(it == a.GetAreaIterator());
    while (it) ++it;
    EXPECT_TRUE(it->x == -1 && ++it == it && !(it == AreaIterator()));
}

TEST(CPixelPolygon, MovesLabelsWhenItRepairs)
{
    std::mt19937 engine(uiSeed);
    for (int i = 0; i < 300; ++i) {
        CPixelPolygon region = randomRegion(engine);
        int number = 0;
        for (auto it = region.GetMarginIterator(); it; ++it) it->label = number++;
        const CPixelPolygon same = region.Repair();
        ASSERT_EQ(same.Size(), region.Size());
        number = 0;
        for (auto it = same.GetMarginIterator(); it; ++it) ASSERT_EQ(*it->label.get<int>(), number++);
    }
}

TEST(CPixelPolygon, IsEmptyWhereItCannotBeHeld)
{
    const CPixelPolygon a = CPixelPolygon::Rectangle(0, 0, 4, 4);
    EXPECT_TRUE(a.Shift(INT_MAX, 0).Empty() && a.Shift(0, INT_MIN).Empty());
    EXPECT_TRUE(CPixelPolygon::Rectangle(INT_MIN, 0, INT_MAX, 0).Empty());
    EXPECT_TRUE(CPixelPolygon::Rectangle(0, 0, 1 << 28, 1).Empty());
    EXPECT_TRUE(a.Union(a.Shift(1 << 28, 0)).Empty());
    EXPECT_TRUE(a.Dilate(UINT_MAX) == a && a.Dilate(1 << 20).Size() == a.Size()) << "a copy";
    EXPECT_TRUE(CPixelPolygon::RegionsOf(nullptr, 0, 5).empty() && CPixelPolygon::RegionsOf(nullptr, -1, -1).empty());

    CPixelPolygon broken = a; // a caller that does not keep to the rules gets something, and harms nobody
    broken.GetMarginIterator()->x = INT_MAX;
    broken.getPixelChainPtr()->back().y = INT_MIN;
    EXPECT_TRUE(broken.Repair().Empty() && broken.Union(a).Empty() && broken.Shift(1, 1).Empty());
    EXPECT_TRUE(broken.Dilate(1) == broken && !broken.GetVonNeumannNeighborhood().empty());
}

TEST(ChainedPixel, IsHashedAndOrderedByPlace)
{
    // By the digits of the two masked copies of the place, worked out in another language.
    EXPECT_EQ(ChainedPixel::hashFunc()(ChainedPixel(0, 0)), 52563385141521256U);
    EXPECT_EQ(ChainedPixel::hashFunc()(ChainedPixel(3, -7)), 17697276753453621848U);
    ChainedPixel p(3, 2);
    p.label = 5;
    EXPECT_TRUE(p == ChainedPixel(3, 2) && p < ChainedPixel(0, 3) && p < ChainedPixel(4, 2) && !(p < p));
    p.Clamp(4, 0, 9, 1);
    EXPECT_TRUE(p == ChainedPixel(4, 1));
    EXPECT_TRUE(ChainedPixel() == ChainedPixel(INT_MIN, INT_MIN));
    EXPECT_EQ(ChainedPixel(INT_MIN, 0).DistanceSq(INT_MAX, 3), 10U);
}

} // namespace
} // namespace Zorvan
