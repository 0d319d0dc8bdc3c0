// SPDX-License-Identifier: MIT
#include "zorvan/verdict/crangeimage.h"

#include "zorvan/core/radixsort.h"
#include "zorvan/platform/simd.h"
#include "zorvan/verdict/verdictlimits.h"

#include <numbers>
#include <utility>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

constexpr float fInfinity = std::numeric_limits<float>::infinity();

CTrafo axesAlong(const Vector3& direction)
{
    // Of a scan in the frame of its sensor the axes stay what they are.
    const Vector3 helper = std::abs(direction.x) < 0.9F ? Vector3(1, 0, 0) : Vector3(0, 1, 0);
    Vector3 v = Cross(direction, helper);
    v = v * (1.0F / v.Length());
    return {Cross(v, direction), v, direction, Vector3()};
}

kdtree::Range<3> boxOf(const Vectors& points, const CTrafo& frame)
{
    using Zorvan::simd::Float4;
    kdtree::Range<3> box = kdtree::EmptyRange();
    Float4 low = Float4::Load(&box.low.x);
    Float4 high = Float4::Load(&box.high.x);
    for (const Vector3& p : points) {
        if (!p.IsFinite()) continue;
        const Vector3 moved = frame * p;
        low = Min(low, Float4::Load(&moved.x));
        high = Max(high, Float4::Load(&moved.x));
    }
    low.Store(&box.low.x);
    high.Store(&box.high.x);
    return box;
}

CTrafo turned(const CTrafo& frame, double angle)
{
    return CTrafo(Vector3(0, 0, 1), static_cast<float>(-angle), Vector3()) * frame;
}

/// Points in the plane across the ray, sorted into coarse cells, to find what lies next to one of them.
class CPlaneCells
{
public:
    CPlaneCells(const Vectors& points, const CTrafo& frame, double cell) : m_cell(cell)
    {
        std::vector<std::pair<std::uint64_t, std::uint32_t>> order; // keys, and of which point
        order.reserve(points.size());
        for (std::size_t i = 0; i < points.size(); ++i) {
            if (!points[i].IsFinite()) continue;
            order.emplace_back(keyOf(frame * points[i], 0, 0), static_cast<std::uint32_t>(i));
        }
        Zorvan::RadixSort(order, [](const auto& one) { return one.first; });
        m_entries.reserve(order.size());
        for (const auto& [key, i] : order) m_entries.push_back({key, frame * points[i]});
    }

    [[nodiscard]] std::size_t Size() const { return m_entries.size(); }

    /// Offset to the nearest other point, as (x, y, 0); zero when there is none in the cells around.
    [[nodiscard]] Vector3 Nearest(std::size_t i) const
    {
        const Vector3& p = m_entries[i].point;
        float nearestSq = fInfinity;
        Vector3 nearest;
        for (int k = 0; k < 9; ++k) {
            const Entry first{keyOf(p, k % 3 - 1, k / 3 - 1), {}};
            for (auto it = std::lower_bound(m_entries.begin(), m_entries.end(), first);
                 it != m_entries.end() && it->key == first.key; ++it) {
                const Vector3 d(it->point.x - p.x, it->point.y - p.y, 0.0F);
                if (!(d.LengthSq() > 0.0F) || d.LengthSq() >= nearestSq) continue;
                nearestSq = d.LengthSq();
                nearest = d;
            }
        }
        return nearest;
    }

private:
    struct Entry
    {
        std::uint64_t key;
        Vector3 point;

        friend bool operator<(const Entry& a, const Entry& b) { return a.key < b.key; }
    };

    [[nodiscard]] std::uint64_t keyOf(const Vector3& p, int dx, int dy) const
    {
        const auto x = static_cast<std::int64_t>(std::floor(static_cast<double>(p.x) / m_cell)) + dx;
        const auto y = static_cast<std::int64_t>(std::floor(static_cast<double>(p.y) / m_cell)) + dy;
        return (static_cast<std::uint64_t>(y) << 32U) ^ static_cast<std::uint32_t>(x);
    }

    double m_cell;
    std::vector<Entry> m_entries;
};

/// Angle of the raster's lines in the plane across the ray, within 45 degrees of x; 0 where there is no raster.
double rasterAngle(const Vectors& points, const CTrafo& frame, double spacing)
{
    constexpr std::size_t uiProbes = 1500;
    constexpr double dMinResultant = 0.3;
    const CPlaneCells cells(points, frame, 2.0 * spacing);
    double real = 0.0;
    double imaginary = 0.0;
    std::size_t count = 0;
    for (std::size_t i = 0; i < cells.Size(); i += std::max<std::size_t>(1, cells.Size() / uiProbes)) {
        const Vector3 nearest = cells.Nearest(i);
        if (!(nearest.LengthSq() > 0.0F)) continue;
        // Lines and columns of a raster are the same up to quarter turns.
        const double angle = 4.0 * std::atan2(static_cast<double>(nearest.y), static_cast<double>(nearest.x));
        real += std::cos(angle);
        imaginary += std::sin(angle);
        ++count;
    }
    if (std::hypot(real, imaginary) < dMinResultant * static_cast<double>(count)) return 0.0;
    return std::atan2(imaginary, real) / 4.0;
}

/// What a spinning sensor in the origin of the scan looked over, as far as it shows: from its lowest to its highest
/// ring that met something, and from where these begin on the turn to where they end. What lies beyond may not have
/// been looked at.
class CSweep
{
public:
    explicit CSweep(const Vectors& points)
    {
        Vector3 sum;
        for (const Vector3& p : points) sum = p.IsFinite() ? sum + p : sum;
        m_middle = std::atan2(sum.y, sum.x);
        for (const Vector3& p : points) {
            if (!p.IsFinite()) continue;
            m_low = {std::min(m_low.x, turn(p)), std::min(m_low.y, rise(p)), 0.0F};
            m_high = {std::max(m_high.x, turn(p)), std::max(m_high.y, rise(p)), 0.0F};
        }
    }

    [[nodiscard]] bool Contains(const Vector3& p) const
    {
        return turn(p) >= m_low.x && turn(p) <= m_high.x && rise(p) >= m_low.y && rise(p) <= m_high.y;
    }

private:
    [[nodiscard]] float turn(const Vector3& p) const
    {
        return std::remainder(std::atan2(p.y, p.x) - m_middle, 2.0F * std::numbers::pi_v<float>);
    }
    [[nodiscard]] static float rise(const Vector3& p) { return std::atan2(p.z, std::hypot(p.x, p.y)); }

    float m_middle = 0.0F;
    Vector3 m_low = Vector3::Filled(fInfinity);
    Vector3 m_high = -Vector3::Filled(fInfinity);
};

/// For each pixel the height of a filled one near it: that of the nearest, give or take what two passes from neighbour
/// to neighbour err by.
std::vector<float> nearestHeights(const std::vector<CRangeImage::Surfel>& surfels, int width)
{
    std::vector<float> heights(surfels.size());
    std::vector<float> steps(surfels.size(), fInfinity);
    for (std::size_t at = 0; at < surfels.size(); ++at) {
        heights[at] = surfels[at].point.z;
        if (heights[at] > -fInfinity) steps[at] = 0.0F;
    }
    const auto size = static_cast<std::ptrdiff_t>(surfels.size());
    const auto take = [&](std::ptrdiff_t at, std::ptrdiff_t from) {
        if (from < 0 || from >= size) return;
        const auto to = static_cast<std::size_t>(at);
        const auto source = static_cast<std::size_t>(from);
        if (!(steps[source] + 1.0F < steps[to])) return;
        steps[to] = steps[source] + 1.0F;
        heights[to] = heights[source];
    };
    for (std::ptrdiff_t at = 0; at < size; ++at) {
        take(at, at - 1);
        take(at, at - width);
    }
    for (std::ptrdiff_t at = size - 1; at >= 0; --at) {
        take(at, at + 1);
        take(at, at + width);
    }
    return heights;
}

/// Each height becomes that of the highest cone over it. Cones stand on all heights and fall by the slope a pixel; two
/// passes carry them from neighbour to neighbour, in axial and diagonal steps, so they are up to 8 % off between these
/// directions.
void spreadCones(std::vector<float>& heights, int width, float slope)
{
    const float diagonal = std::numbers::sqrt2_v<float> * slope;
    const auto takeFromRow = [width, slope, diagonal](float* row, const float* from) {
        for (int x = 0; x < width; ++x) row[x] = std::max(row[x], from[x] - slope);
        for (int x = 1; x < width; ++x) row[x] = std::max(row[x], from[x - 1] - diagonal);
        for (int x = 0; x + 1 < width; ++x) row[x] = std::max(row[x], from[x + 1] - diagonal);
    };
    const std::ptrdiff_t numRows = static_cast<std::ptrdiff_t>(heights.size()) / width;
    const auto rowAt = [&](std::ptrdiff_t y) { return heights.data() + y * width; };
    for (std::ptrdiff_t y = 0; y < numRows; ++y) {
        float* const row = rowAt(y);
        if (y > 0) takeFromRow(row, rowAt(y - 1));
        for (int x = 1; x < width; ++x) row[x] = std::max(row[x], row[x - 1] - slope);
    }
    for (std::ptrdiff_t y = numRows - 1; y >= 0; --y) {
        float* const row = rowAt(y);
        if (y + 1 < numRows) takeFromRow(row, rowAt(y + 1));
        for (int x = width - 2; x >= 0; --x) row[x] = std::max(row[x], row[x + 1] - slope);
    }
}

/// Walks through a raster pixel by pixel and says where surface was met last along four lines that end in the pixel:
/// from beside it, and from the three pixels above it. Walked from the last pixel to the first, the other four.
class CNearestSurface
{
public:
    using Four = std::array<std::uint32_t, 4>;

    explicit CNearestSurface(int width)
        : m_width(static_cast<std::size_t>(width)), m_rowBefore(m_width + 2, none()), m_row(m_width + 2, none())
    {
    }

    /// Of a pixel that holds surface itself: that.
    const Four& Next(std::size_t at, bool isSurface)
    {
        if (m_x == m_width) {
            std::swap(m_rowBefore, m_row);
            m_x = 0;
        }
        ++m_x; // one pixel at each end of a row stays without surface
        Four& here = m_row[m_x];
        if (isSurface)
            here.fill(static_cast<std::uint32_t>(at));
        else
            here = {m_row[m_x - 1][0], m_rowBefore[m_x - 1][1], m_rowBefore[m_x][2], m_rowBefore[m_x + 1][3]};
        return here;
    }

private:
    static Four none() { return {CRangeImage::uiNone, CRangeImage::uiNone, CRangeImage::uiNone, CRangeImage::uiNone}; }

    std::size_t m_width;
    std::size_t m_x = 0;
    std::vector<Four> m_rowBefore;
    std::vector<Four> m_row;
};

} // namespace

CRangeImage::CRangeImage(const Vectors& points, const Vectors& normals, const Vector3& direction, double dSpacing,
                         bool isEven)
    : m_pixel(static_cast<float>(verdict::dPixelPerSpacing * dSpacing))
{
    m_frame = axesAlong(direction);
    m_frame = turned(m_frame, rasterAngle(points, m_frame, dSpacing));
    setFrame(points);
    for (int i = 0;; ++i) {
        rasterise(points);
        if (isEven || i == verdict::iMaxPixelGrowths || meanFilledNeighbours() >= verdict::dMinFilledNeighbours) break;
        m_pixel *= static_cast<float>(verdict::dPixelGrowth);
        setFrame(points);
    }
    findCuts(points);
    closeSinglePixels();
    storeSurfels(points, normals);
    findSteepSectors();
    computeCeilings();
    computeDistances();
    if (isEven) {
        // Nothing counts as missing where the sensor may not have looked: as if something hid it.
        const CSweep sweep(points);
        const CTrafo back = m_frame.GetInverse(true);
        const std::vector<float> heights = nearestHeights(m_surfels, m_width);
        for (std::size_t at = 0; at < heights.size(); ++at) {
            const std::size_t column = at % static_cast<std::size_t>(m_width);
            const std::size_t row = at / static_cast<std::size_t>(m_width);
            const float x = (static_cast<float>(column) + 0.5F) * m_pixel;
            const float y = (static_cast<float>(row) + 0.5F) * m_pixel;
            if (!sweep.Contains(back * Vector3(x, y, heights[at]))) m_shadows[at] = fInfinity;
        }
    }
    computeCompleteness();
    findGaps();
}

void CRangeImage::setFrame(const Vectors& points)
{
    constexpr float fMaxSide = 2000.0F; // pixels: an outlier far away must not cost memory
    m_frame = m_frame.GetRotationPart(true);
    const auto [low, high] = boxOf(points, m_frame);
    if (!(high.x >= low.x)) { // not a single finite point
        m_width = m_height = 2 * iMargin + 1;
        m_perPixel = 1.0F;
        return;
    }
    const Vector3 extent = high - low;
    m_pixel = std::max({m_pixel, std::max(extent.x, extent.y) / fMaxSide, std::numeric_limits<float>::min()});
    m_perPixel = 1.0F / m_pixel;
    const float border = (static_cast<float>(iMargin) + 0.5F) * m_pixel; // half a pixel: points in their middles
    m_frame = m_frame.Translate(Vector3(border - low.x, border - low.y, 0.0F));
    m_width = floorToInt(extent.x * m_perPixel + 0.5F) + 1 + 2 * iMargin;
    m_height = floorToInt(extent.y * m_perPixel + 0.5F) + 1 + 2 * iMargin;
    const auto slope = 1.0 / std::tan(verdict::dShadowDegrees * std::numbers::pi / 180.0);
    m_shadowSlope = static_cast<float>(slope) * m_pixel;
}

void CRangeImage::rasterise(const Vectors& points)
{
    const std::size_t size = static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height);
    m_indices.assign(size, uiNone);
    std::vector<float> heights(size, fEmpty);
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (!points[i].IsFinite()) continue;
        const Vector3 p = m_frame * points[i];
        const std::size_t at = Index(clamped(PixelAt(p)));
        if (p.z <= heights[at]) continue;
        heights[at] = p.z;
        m_indices[at] = static_cast<std::uint32_t>(i);
    }
}

double CRangeImage::meanFilledNeighbours() const
{
    std::size_t filled = 0;
    std::size_t neighbours = 0;
    for (int y = iMargin; y < m_height - iMargin; ++y) {
        for (int x = iMargin; x < m_width - iMargin; ++x) {
            if (m_indices[Index({x, y})] == uiNone) continue;
            ++filled;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) neighbours += m_indices[Index({x + dx, y + dy})] != uiNone;
        }
    }
    return filled == 0 ? 8.0 : static_cast<double>(neighbours) / static_cast<double>(filled) - 1.0;
}

void CRangeImage::closeSinglePixels()
{
    // A point that was not taken, or fell into the next pixel, is no hole of the object.
    constexpr int iMinNeighbours = 6;
    const std::vector<std::uint32_t> before = m_indices;
    for (int y = 1; y + 1 < m_height; ++y) {
        for (int x = 1; x + 1 < m_width; ++x) {
            if (before[Index({x, y})] != uiNone) continue;
            int filled = 0;
            std::uint32_t beside = uiNone;
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) {
                    const std::uint32_t index = before[Index({x + dx, y + dy})];
                    if (index == uiNone) continue;
                    ++filled;
                    if (beside == uiNone || (dx == 0) != (dy == 0)) beside = index;
                }
            }
            if (filled >= iMinNeighbours) m_indices[Index({x, y})] = beside;
        }
    }
}

void CRangeImage::storeSurfels(const Vectors& points, const Vectors& normals)
{
    m_surfels.assign(m_indices.size(), {Vector3(0, 0, fEmpty), Vector3()});
    for (std::size_t at = 0; at < m_indices.size(); ++at) {
        if (m_indices[at] == uiNone) continue;
        const Vector3 normal = m_frame.Rotate(normals[m_indices[at]]);
        // What was seen looks towards the sensor. Computed normals look along z where nobody knew better, and those of
        // steep surface away from a ray that is 30 degrees off.
        m_surfels[at] = {m_frame * points[m_indices[at]], normal.z < 0.0F ? -normal : normal};
        ++m_numFilled;
    }
}

unsigned CRangeImage::sectorOf(const Vector3& normal)
{
    const float turns = std::atan2(normal.y, normal.x) / (2.0F * std::numbers::pi_v<float>)+0.5F;
    return std::min(uiSectors - 1, static_cast<unsigned>(turns * static_cast<float>(uiSectors)));
}

void CRangeImage::findSteepSectors()
{
    std::array<std::size_t, uiSectors> counts{};
    for (const Surfel& surfel : m_surfels) {
        const bool isSteep = surfel.point.z > fEmpty && surfel.normal.z < static_cast<float>(verdict::dSteepCosine) &&
                             surfel.normal.z > static_cast<float>(verdict::dFacingCosine);
        if (isSteep) ++counts[sectorOf(surfel.normal)];
    }
    const std::size_t least = std::max(verdict::uiMinFace, m_numFilled / verdict::uiFacesInScan);
    for (unsigned k = 0; k < uiSectors; ++k) {
        if (counts[k] < least) continue;
        for (const unsigned near : {k, (k + 1) % uiSectors, (k + uiSectors - 1) % uiSectors})
            m_steepSectors |= 1U << near;
    }
}

void CRangeImage::computeCeilings()
{
    m_ceilings.assign(m_indices.size(), fInfinity);
    for (int y = 1; y + 1 < m_height; ++y) {
        for (int x = 1; x + 1 < m_width; ++x) {
            float highest = fEmpty;
            bool isFull = true;
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) {
                    const float z = m_surfels[Index({x + dx, y + dy})].point.z;
                    isFull = isFull && z > fEmpty;
                    highest = std::max(highest, z);
                }
            }
            if (isFull) m_ceilings[Index({x, y})] = highest;
        }
    }
}

void CRangeImage::computeDistances()
{
    m_outside.resize(m_indices.size());
    m_shadows.resize(m_indices.size());
    for (std::size_t at = 0; at < m_indices.size(); ++at) {
        m_shadows[at] = m_surfels[at].point.z;
        m_outside[at] = m_indices[at] != uiNone ? 0.0F : -fInfinity;
    }
    spreadCones(m_shadows, m_width, m_shadowSlope);
    spreadCones(m_outside, m_width, 1.0F); // the height of a cone over the surface is the distance, downwards
    for (float& outside : m_outside) outside = 0.0F - outside;
}

void CRangeImage::findCuts(const Vectors& points)
{
    // Where the field of view ends, the surface ends in a straight line along the raster: as long as the line a little
    // further in. A silhouette that only touches the box grows longer inwards.
    constexpr int iInwards = 3;
    const auto filledInColumn = [&](int x) {
        int filled = 0;
        for (int y = 0; y < m_height; ++y) filled += m_indices[Index({x, y})] != uiNone;
        return filled;
    };
    const auto filledInRow = [&](int y) {
        const auto first = m_indices.begin() + static_cast<std::ptrdiff_t>(Index({0, y}));
        return m_width - static_cast<int>(std::count(first, first + m_width, uiNone));
    };
    const int right = m_width - 1 - iMargin;
    const int top = m_height - 1 - iMargin;
    const std::array<int, 4> inner = {filledInColumn(iMargin + iInwards), filledInColumn(right - iInwards),
                                      filledInRow(iMargin + iInwards), filledInRow(top - iInwards)};
    const std::array<int, 4> outer = countOutermost(points);
    // Where it cuts one side it may cut the others as well, with hardly any surface there to show it.
    for (std::size_t side = 0; side < outer.size(); ++side)
        m_isPartial = m_isPartial || (outer[side] >= verdict::iMinCutPixels &&
                                      outer[side] >= verdict::dMinCutStraightness * inner[side]);
}

std::array<int, 4> CRangeImage::countOutermost(const Vectors& points) const
{
    // Not the pixels of the outermost column: of a box that ends somewhere within its last one they hold a sliver, and
    // miss half of a straight line that noise or thinning moves by a tenth of a pixel.
    const auto [low, high] = boxOf(points, m_frame);
    const float reach = 0.5F * m_pixel;
    const auto numRows = static_cast<std::size_t>(m_height);
    const auto numColumns = static_cast<std::size_t>(m_width);
    std::array<std::vector<std::uint8_t>, 4> isReached;
    for (std::size_t side = 0; side < isReached.size(); ++side)
        isReached[side].assign(side < 2 ? numRows : numColumns, 0);
    for (const Vector3& point : points) {
        if (!point.IsFinite()) continue;
        const Vector3 p = m_frame * point;
        const bool isAtEnd[] = {p.x < low.x + reach, high.x - reach < p.x, p.y < low.y + reach, high.y - reach < p.y};
        if (!(isAtEnd[0] || isAtEnd[1] || isAtEnd[2] || isAtEnd[3])) continue;
        const Pixel at = clamped(PixelAt(p));
        for (std::size_t side = 0; side < isReached.size(); ++side)
            if (isAtEnd[side]) isReached[side][static_cast<std::size_t>(side < 2 ? at.y : at.x)] = 1;
    }
    std::array<int, 4> counts{};
    for (std::size_t side = 0; side < counts.size(); ++side)
        counts[side] = static_cast<int>(std::count(isReached[side].begin(), isReached[side].end(), 1));
    return counts;
}

void CRangeImage::computeCompleteness()
{
    // What the outside does not reach is enclosed. Rows end in empty margins, so that from the end of one to the start
    // of the next is no way in.
    std::vector<std::uint8_t> isClosed(m_indices.size());
    for (std::size_t i = 0; i < m_indices.size(); ++i) isClosed[i] = static_cast<std::uint8_t>(m_indices[i] != uiNone);
    const auto width = static_cast<std::size_t>(m_width);
    std::vector<std::uint32_t> open{0};
    std::size_t numReached = 0;
    isClosed[0] = 1;
    while (!open.empty()) {
        const std::size_t at = open.back();
        open.pop_back();
        ++numReached;
        for (const std::size_t next : {at - 1, at + 1, at - width, at + width}) { // below 0 they are beyond the end
            if (next >= isClosed.size() || isClosed[next] != 0) continue;
            isClosed[next] = 1;
            open.push_back(static_cast<std::uint32_t>(next));
        }
    }
    const std::size_t covered = m_indices.size() - numReached;
    m_completeness = covered == 0 ? 0.0 : static_cast<double>(m_numFilled) / static_cast<double>(covered);
}

void CRangeImage::findGaps()
{
    // In order of the steps from surface to pixel: (1, 0), (1, 1), (0, 1), (-1, 1), and back.
    CNearestSurface nearest(m_width);
    std::vector<CNearestSurface::Four> firstFour(m_indices.size());
    for (std::size_t at = 0; at < m_indices.size(); ++at) firstFour[at] = nearest.Next(at, m_indices[at] != uiNone);
    nearest = CNearestSurface(m_width);
    m_isGap.assign(m_indices.size(), 0);
    for (std::size_t at = m_indices.size(); at-- > 0;) {
        const CNearestSurface::Four& lastFour = nearest.Next(at, m_indices[at] != uiNone);
        if (m_indices[at] == uiNone) m_isGap[at] = static_cast<std::uint8_t>(isGapBetween(firstFour[at], lastFour));
    }
}

bool CRangeImage::isGapBetween(const std::array<std::uint32_t, 4>& firstFour,
                               const std::array<std::uint32_t, 4>& lastFour) const
{
    const auto isNone = [](std::uint32_t i) { return i == uiNone; };
    const auto none = std::count_if(firstFour.begin(), firstFour.end(), isNone) +
                      std::count_if(lastFour.begin(), lastFour.end(), isNone);
    const int count = 8 - static_cast<int>(none);
    if (count < verdict::iGapDirections) return false;
    Vector3 sum;
    int steep = 0;
    for (const auto& four : {firstFour, lastFour}) {
        for (const std::uint32_t surface : four) {
            if (surface == uiNone) continue;
            const Vector3& normal = m_surfels[surface].normal;
            sum = sum + normal;
            steep += normal.z < static_cast<float>(verdict::dGapCosine);
        }
    }
    return steep <= verdict::iGapSteep &&
           sum.Length() < static_cast<float>(verdict::dGapFlatness) * static_cast<float>(count);
}

} // namespace prereg
