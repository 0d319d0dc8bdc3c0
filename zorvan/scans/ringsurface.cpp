// SPDX-License-Identifier: MIT
#include "zorvan/scans/ringsurface.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

namespace Zorvan {

namespace {

constexpr double dDegree = std::numbers::pi / 180.0;
constexpr double dTiltAlong = 0.18; // radians: what noise may do to a normal, one standard deviation
constexpr double dWidestGap = 2.5;  // of the median: beyond, rings in between have met nothing
constexpr double dSteepestTilt = 85.0 * dDegree;
constexpr double dSteepestAlone = 45.0 * dDegree; // two rings with nothing above and below
constexpr double dBend = 25.0 * dDegree;          // beyond the tilts on both sides: a step, and no surface in between
constexpr double dBendAtEnd = 35.0 * dDegree;     // from the tilt on one side
constexpr double dTiltNoise = 3.0;                // standard deviations
constexpr std::size_t uiMostNodes = 50000000;

/// Straight line through values at places.
struct Line
{
    double value = 0.0;
    double slope = 0.0;
};

Line lineThrough(const RingPoint* first, const RingPoint* last, double place)
{
    double sum = 0.0;
    double sumX = 0.0;
    double sumXX = 0.0;
    double sumXY = 0.0;
    for (const RingPoint* p = first; p != last; ++p) {
        const double x = p->dAzimuth - place;
        const double y = 1.0 / p->dRange;
        sum += y;
        sumX += x;
        sumXX += x * x;
        sumXY += x * y;
    }
    const auto n = static_cast<double>(last - first);
    const double spread = sumXX - sumX * sumX / n;
    const double slope = spread > 0.0 ? (sumXY - sumX * sum / n) / spread : 0.0;
    return {(sum - slope * sumX) / n, slope};
}

Vector3 toVector(double x, double y, double z) { return {ToFloat(x), ToFloat(y), ToFloat(z)}; }

/// Towards the sensor, of surface whose range grows by such shares per radian of both angles.
Vector3 normalOf(double azimuth, double elevation, double growthAlong, double growthAcross)
{
    const double ca = std::cos(azimuth);
    const double sa = std::sin(azimuth);
    const double ce = std::cos(elevation);
    const double se = std::sin(elevation);
    const double along = growthAlong / ce;
    return Normalized(toVector(-ce * ca - along * sa - growthAcross * se * ca,
                               -ce * sa + along * ca - growthAcross * se * sa, -se + growthAcross * ce));
}

} // namespace

CRingSurface::CRingSurface(RingLines lines) : m_lines(std::move(lines))
{
    chooseColumns();
    if (m_columns == 0) return;
    m_nodes.resize(m_lines.rings.size() * m_columns);
    for (std::size_t ring = 0; ring < m_lines.rings.size(); ++ring) fitRing(ring);
    for (std::size_t ring = 0; ring + 1 < m_lines.rings.size(); ++ring) joinRings(ring);
    for (std::size_t ring = 0; ring < m_lines.rings.size(); ++ring)
        for (std::size_t column = 0; column < m_columns; ++column) slopeAcross(ring, column);
}

/// A line through n points within w to both sides has a slope good to noise / (0.58 w sqrt(n)); n = 2 w / step.
void CRingSurface::chooseColumns()
{
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    double elevation = 0.0;
    for (const Ring& ring : m_lines.rings) {
        if (ring.points.empty()) continue;
        low = std::min(low, ring.points.front().dAzimuth);
        high = std::max(high, ring.points.back().dAzimuth);
        elevation += ring.dElevation / static_cast<double>(m_lines.rings.size());
    }
    if (!(high >= low)) return;
    const double level = std::max(0.1, std::cos(elevation));
    const double along = m_lines.dRange * level * m_lines.dStep;
    const double even = std::sqrt(along * m_lines.dRange * m_lines.dGap);
    const double noisy = std::pow(m_lines.dNoise * std::sqrt(along) / (0.58 * std::sqrt(2.0) * dTiltAlong), 2.0 / 3.0);
    const double width = std::max(even, noisy);
    m_column = width / (m_lines.dRange * level);
    const double columns = std::floor((high - low) / m_column) + 1.0;
    if (!(columns * static_cast<double>(m_lines.rings.size()) < static_cast<double>(uiMostNodes))) return;
    m_columns = static_cast<std::size_t>(columns);
    m_first = 0.5 * (low + high) - 0.5 * m_column * (columns - 1.0);
    const double samples = std::max(1.0, 2.0 * width / along);
    m_tiltNoise = m_lines.dNoise * std::sqrt(2.0 / samples) / (m_lines.dRange * m_lines.dGap);
}

void CRingSurface::fitRing(std::size_t ring)
{
    for (std::size_t run = 0; run < m_lines.rings[ring].runs.size(); ++run) fitRun(ring, run);
}

void CRingSurface::fitRun(std::size_t ring, std::size_t run)
{
    const auto [begin, end] = m_lines.rings[ring].runs[run];
    const RingPoint* points = m_lines.rings[ring].points.data();
    const double first = points[begin].dAzimuth;
    const double last = points[end - 1].dAzimuth;
    if (last - first < m_column) return;
    const double half = 0.5 * m_lines.dStep; // a point stands for so much to both sides
    const auto byAzimuth = [](const RingPoint& p, double azimuth) { return p.dAzimuth < azimuth; };
    const double lowest = std::max(0.0, std::ceil((first - half - m_first) / m_column));
    for (auto column = static_cast<std::size_t>(lowest); column < m_columns; ++column) {
        const double place = azimuthOf(column);
        if (place > last + half) break;
        // At the ends of a run the window stays within it.
        const double from = std::max(first, std::min(place - m_column, last - 2.0 * m_column));
        const RingPoint* low = std::lower_bound(points + begin, points + end, from, byAzimuth);
        const RingPoint* high = std::lower_bound(low, points + end, from + 2.0 * m_column + 1e-12, byAzimuth);
        if (high - low < 3) continue;
        const Line line = lineThrough(low, high, place);
        if (line.value > 0.0) at(ring, column) = {line.value, line.slope, 0.0, run};
    }
}

double CRingSurface::gapAbove(std::size_t ring) const
{
    return m_lines.rings[ring + 1].dElevation - m_lines.rings[ring].dElevation;
}

/// Angle of the surface from one ring to the next one against the sphere about the sensor.
double CRingSurface::tiltUp(std::size_t lower, std::size_t column) const
{
    const double a = at(lower, column).dInverse;
    const double b = at(lower + 1, column).dInverse;
    return std::atan(2.0 * (a - b) / ((a + b) * gapAbove(lower)));
}

/// One surface bends little from one pair of rings to the next; where it ends in a step, the tilt in between is that of
/// nothing.
bool CRingSurface::isOneSurface(std::size_t lower, std::size_t column) const
{
    if (gapAbove(lower) > dWidestGap * m_lines.dGap) return false;
    const double tilt = tiltUp(lower, column);
    if (std::abs(tilt) > dSteepestTilt) return false;
    std::vector<double> beside;
    if (lower > 0 && at(lower - 1, column)) beside.push_back(tiltUp(lower - 1, column));
    if (lower + 2 < m_lines.rings.size() && at(lower + 2, column)) beside.push_back(tiltUp(lower + 1, column));
    std::erase_if(beside, [](double t) { return std::abs(t) > dSteepestTilt; });
    const double noise = dTiltNoise * m_tiltNoise;
    if (beside.empty()) return std::abs(tilt) < dSteepestAlone + noise;
    const auto [low, high] = std::minmax_element(beside.begin(), beside.end());
    const double bend = (beside.size() == 2 ? dBend : dBendAtEnd) + noise;
    return tilt > *low - bend && tilt < *high + bend;
}

void CRingSurface::joinRings(std::size_t lower)
{
    for (std::size_t column = 0; column < m_columns; ++column) {
        Node& node = at(lower, column);
        if (node && at(lower + 1, column)) node.isJoinedUp = isOneSurface(lower, column);
    }
}

/// Of the parabola through three rings, the middle one of which is this one where it can be.
void CRingSurface::slopeAcross(std::size_t ring, std::size_t column)
{
    const auto isJoined = [&](std::size_t lower) {
        return lower < m_lines.rings.size() && at(lower, column).isJoinedUp;
    };
    const auto slope = [&](std::size_t lower) {
        return (at(lower + 1, column).dInverse - at(lower, column).dInverse) / gapAbove(lower);
    };
    // `beyond` may lie below the lowest ring: then it wraps around, and is joined to nothing.
    const auto atEnd = [&](std::size_t lower, std::size_t beyond) {
        const double gap = gapAbove(lower);
        if (!isJoined(beyond)) return slope(lower);
        return slope(lower) + (slope(lower) - slope(beyond)) * gap / (gap + gapAbove(beyond));
    };
    Node& node = at(ring, column);
    const bool isUp = isJoined(ring);
    const bool isDown = isJoined(ring - 1);
    node.isHeld = isUp || isDown;
    if (isUp && isDown) {
        const double above = gapAbove(ring);
        const double below = gapAbove(ring - 1);
        node.dAcross = (slope(ring) * below + slope(ring - 1) * above) / (above + below);
    } else if (node.isHeld) {
        node.dAcross = isUp ? atEnd(ring, ring + 1) : atEnd(ring - 1, ring - 2);
    }
}

/// Between the columns beside the point, those that the surface under it reaches.
Vector3 CRingSurface::normalAt(const Ring& ring, std::size_t row, std::size_t run, double azimuth) const
{
    const double place = std::clamp((azimuth - m_first) / m_column, 0.0, static_cast<double>(m_columns - 1));
    const auto lower = static_cast<std::size_t>(place);
    double weights = 0.0;
    double along = 0.0;
    double across = 0.0;
    for (const std::size_t column : {lower, lower + 1}) {
        if (column == m_columns || !at(row, column).isHeld || at(row, column).uiRun != run) continue;
        const Node& node = at(row, column);
        const double weight = 1.001 - std::abs(place - static_cast<double>(column)); // never nothing, if it is alone
        weights += weight;
        along -= weight * node.dAlong / node.dInverse;
        across -= weight * node.dAcross / node.dInverse;
    }
    if (!(weights > 0.0)) return {};
    return normalOf(azimuth + m_lines.dMiddle, ring.dElevation, along / weights, across / weights);
}

prereg::Vectors CRingSurface::NormalsOf(std::size_t numPoints) const
{
    prereg::Vectors normals(numPoints);
    if (m_columns == 0) return normals;
    for (std::size_t row = 0; row < m_lines.rings.size(); ++row) {
        const Ring& ring = m_lines.rings[row];
        for (std::size_t run = 0; run < ring.runs.size(); ++run) {
            for (std::size_t i = ring.runs[run].first; i < ring.runs[run].second; ++i)
                normals[ring.points[i].uiIndex] = normalAt(ring, row, run, ring.points[i].dAzimuth);
        }
    }
    return normals;
}

/// Cubic between two rings, with their slopes.
CRingSurface::Node CRingSurface::between(std::size_t lower, std::size_t column, double t) const
{
    const Node& a = at(lower, column);
    const Node& b = at(lower + 1, column);
    const double gap = gapAbove(lower);
    const double step = b.dInverse - a.dInverse;
    const double c = a.dAcross * gap - step;
    const double d = step - b.dAcross * gap;
    Node node = a;
    node.dInverse = a.dInverse + t * step + t * (1.0 - t) * (c * (1.0 - t) + d * t);
    node.dAlong = a.dAlong + t * (b.dAlong - a.dAlong);
    node.dAcross = (step + (1.0 - 2.0 * t) * (c * (1.0 - t) + d * t) + t * (1.0 - t) * (d - c)) / gap;
    return node;
}

void CRingSurface::addSample(const Node& node, double azimuth, double elevation, SurfaceSamples& samples) const
{
    if (!(node.dInverse > 0.0)) return;
    const double turned = azimuth + m_lines.dMiddle;
    const double range = 1.0 / node.dInverse;
    samples.points.push_back(m_lines.sensor + toVector(range * std::cos(elevation) * std::cos(turned),
                                                       range * std::cos(elevation) * std::sin(turned),
                                                       range * std::sin(elevation)));
    samples.normals.push_back(normalOf(turned, elevation, -node.dAlong * range, -node.dAcross * range));
}

SurfaceSamples CRingSurface::Sample() const
{
    SurfaceSamples samples;
    for (std::size_t ring = 0; ring < m_lines.rings.size(); ++ring) {
        const double elevation = m_lines.rings[ring].dElevation;
        const double width = m_column * std::cos(elevation);
        for (std::size_t column = 0; column < m_columns; ++column) {
            const Node& node = at(ring, column);
            if (node.isHeld) addSample(node, azimuthOf(column), elevation, samples);
            if (!node.isJoinedUp) continue;
            const double gap = gapAbove(ring);
            const double steps = std::max(1.0, std::round(gap / width));
            for (std::size_t k = 1; static_cast<double>(k) < steps; ++k) {
                const auto step = static_cast<double>(k);
                addSample(between(ring, column, step / steps), azimuthOf(column), elevation + gap * step / steps,
                          samples);
            }
        }
    }
    return samples;
}

} // namespace Zorvan
