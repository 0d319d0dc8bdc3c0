// SPDX-License-Identifier: MIT
#include "zorvan/verdict/boxtwins.h"

#include "zorvan/verdict/normalprobes.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <numbers>
#include <optional>
#include <span>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Samples = std::vector<CPoseJudge::PlacedSample>;

constexpr float fAlong = 0.985F;      // cosine of 10 degrees: on a face of the box
constexpr float fAlongRough = 0.966F; // of 15 degrees: where face and edge meet
constexpr double dFirstStep = 1.5;    // pixels: as well as the faces of the box are known

/// One of the six directions that the faces of a box look in.
struct Side
{
    std::size_t axis = 0;
    float sign = 1.0F;
};

struct Box
{
    std::array<Vector3, 3> axes;
    std::array<float, 3> low{};
    std::array<float, 3> high{};
    std::size_t numTurns = 3;     ///< axes that it may be turned about, the first ones
    std::array<bool, 3> isOpen{}; ///< along an axis: at an end no face was seen, and the box may go on there

    [[nodiscard]] Vector3 Middle() const
    {
        Vector3 middle;
        for (std::size_t k = 0; k < 3; ++k) middle = middle + axes[k] * (0.5F * (low[k] + high[k]));
        return middle;
    }
    [[nodiscard]] bool IsOpen() const { return isOpen[0] || isOpen[1] || isOpen[2]; }
    [[nodiscard]] float Extent(std::size_t axis) const { return high[axis] - low[axis]; }
    [[nodiscard]] float Hull(const Side& side) const { return side.sign > 0 ? high[side.axis] : -low[side.axis]; }
    /// The face that a normal belongs to.
    [[nodiscard]] std::optional<Side> SideOf(const Vector3& normal, float cosine) const
    {
        for (std::size_t k = 0; k < 3; ++k) {
            const float along = Dot(normal, axes[k]);
            if (std::abs(along) > cosine) return Side{k, along > 0 ? 1.0F : -1.0F};
        }
        return std::nullopt;
    }
    /// How far out a point lies in the direction of a face.
    [[nodiscard]] float Level(const Side& side, const Vector3& point) const
    {
        return side.sign * Dot(point, axes[side.axis]);
    }
};

/// The direction, up to its sign, that most normals lie along; across `across` if that is given. Zero where there is
/// none.
Vector3 mainAxis(const Samples& samples, const Vector3* across)
{
    const auto level = [&](const Vector3& v) { return across ? v - *across * Dot(v, *across) : v; };
    CNormalProbes probes;
    for (std::size_t i = 0; i < samples.size(); i += CNormalProbes::StepFor(samples.size()))
        probes.Add(samples[i].normal);
    Vector3 best;
    std::uint32_t most = 0;
    for (std::size_t i = 0; i < probes.Size(); ++i) {
        const Vector3 flat = level(probes[i]);
        if (!(flat.Length() > fAlong)) continue;
        const Vector3 direction = flat * (1.0F / flat.Length());
        const std::uint32_t count = probes.CountEitherWay(direction, fAlong);
        if (count <= most) continue;
        most = count;
        best = direction;
    }
    for (const float cosine : {fAlong, 0.9962F, 0.9986F}) { // 10, 5 and 3 degrees
        Vector3 sum;
        for (const auto& sample : samples) {
            const float along = Dot(sample.normal, best);
            if (std::abs(along) > cosine) sum = sum + level(sample.normal) * (along > 0 ? 1.0F : -1.0F);
        }
        if (sum.Length() > 0) best = sum * (1.0F / sum.Length());
    }
    return best;
}

/// Levels of the surface that looks to a side, the outermost first.
std::vector<float> levelsOf(const Box& box, const Samples& samples, const Side& side)
{
    std::vector<float> levels;
    for (const auto& sample : samples)
        if (Dot(sample.normal, box.axes[side.axis]) * side.sign > fAlong)
            levels.push_back(box.Level(side, sample.point));
    std::sort(levels.begin(), levels.end(), std::greater<>());
    return levels;
}

/// Samples that make a face: a few stray points make none.
std::size_t faceSize(const Samples& samples)
{
    return std::max(verdict::uiMinFace, samples.size() / verdict::uiFacesInScan);
}

/// Where the object ends.
struct Hull
{
    float level = 0.0F;
    bool isFace = false;
};

/// On a side: its outermost face, or where none was seen there the points that lie furthest out.
Hull hullOf(const Box& box, const Samples& samples, const Side& side, float pixel)
{
    std::vector<float> all;
    for (const auto& sample : samples) all.push_back(box.Level(side, sample.point));
    const auto nth = all.begin() +
                     static_cast<std::ptrdiff_t>(std::min(all.size() - 1, std::max<std::size_t>(5, all.size() / 1000)));
    std::nth_element(all.begin(), nth, all.end(), std::greater<>());
    const std::vector<float> levels = levelsOf(box, samples, side);
    const std::size_t size = faceSize(samples);
    for (std::size_t i = 0; i + size < levels.size(); ++i) {
        if (levels[i] - levels[i + size] >= pixel) continue;
        std::size_t end = i;
        while (end < levels.size() && levels[i] - levels[end] < pixel) ++end;
        const float face = levels[(i + end) / 2];
        if (*nth > face + 2.0F * pixel) break;
        return {face, true};
    }
    return {*nth, false};
}

/// Whether most of the samples are faces of the box.
bool isMadeOfFaces(const Box& box, const Samples& samples)
{
    const auto faces = std::count_if(samples.begin(), samples.end(),
                                     [&](const auto& sample) { return box.SideOf(sample.normal, fAlong).has_value(); });
    return 2 * static_cast<std::size_t>(faces) > samples.size();
}

void setExtent(Box& box, const Samples& samples, float pixel)
{
    const bool isBox = isMadeOfFaces(box, samples);
    for (std::size_t k = 0; k < 3; ++k) {
        const Hull high = hullOf(box, samples, {k, 1.0F}, pixel);
        const Hull low = hullOf(box, samples, {k, -1.0F}, pixel);
        box.high[k] = high.level;
        box.low[k] = -low.level;
        box.isOpen[k] = isBox && !(high.isFace && low.isFace);
    }
}

/// What stands on a plane; nothing where that is next to nothing.
Samples onPlane(const SupportPlane& plane, const Samples& samples)
{
    Samples rest;
    for (const auto& sample : samples)
        if (Dot(plane.normal, sample.point) > plane.offset + plane.reach) rest.push_back(sample);
    return rest.size() > faceSize(samples) ? rest : Samples();
}

/// The box that the scans span, and the one of what stands on a table.
std::vector<Box> boxesOf(const CPoseJudge& judge, const Samples& samples)
{
    const auto pixel = static_cast<float>(judge.GetPixelSize());
    const auto& plane = judge.GetSupportPlane();
    Box box;
    box.axes[0] = plane ? plane->normal : mainAxis(samples, nullptr);
    box.axes[1] = mainAxis(samples, &box.axes[0]);
    box.axes[2] = Cross(box.axes[0], box.axes[1]);
    if (!(box.axes[2].Length() > fAlong)) return {};
    setExtent(box, samples, pixel);
    std::vector<Box> boxes{box};
    const Samples rest = plane ? onPlane(*plane, samples) : Samples();
    if (rest.empty()) return boxes;
    setExtent(box, rest, pixel);
    box.numTurns = 1; // else the table would come to lie above the part
    boxes.push_back(box);
    return boxes;
}

/// Turns that carry the box onto itself.
std::vector<CTrafo> turnsOf(const Box& box)
{
    constexpr float fHalf = std::numbers::pi_v<float>;
    std::vector<CTrafo> turns;
    const auto add = [&](std::size_t axis, float angle) {
        const CTrafo rotation(box.axes[axis], angle, Vector3());
        turns.push_back(rotation.Translate(box.Middle() - rotation.Rotate(box.Middle())));
    };
    for (std::size_t k = 0; k < box.numTurns; ++k) {
        add(k, fHalf);
        const float a = box.Extent((k + 1) % 3);
        const float b = box.Extent((k + 2) % 3);
        if (std::abs(a - b) > static_cast<float>(verdict::dSquareShare) * std::max(a, b)) continue;
        add(k, 0.5F * fHalf);
        add(k, -0.5F * fHalf);
    }
    return turns;
}

/// Counts at a pose, or nothing where more than so many samples contradict it.
using Counter = std::function<std::optional<PoseCounts>(const CTrafo& pose, unsigned uiMost)>;

/// Moves a twin to and fro along an axis of the box where that leaves fewer contradictions.
bool settleAlong(const Counter& count, const Vector3& axis, double step, PoseTwin& twin)
{
    bool isBetter = false;
    for (const double distance : {-step, step}) {
        const CTrafo moved = twin.pose.Translate(axis * static_cast<float>(distance));
        if (twin.counts.Contradictions() == 0) break;
        const auto counts = count(moved, twin.counts.Contradictions() - 1);
        if (!counts) continue;
        twin = {moved, *counts};
        isBetter = true;
    }
    return isBetter;
}

/// The same along all axes, until it gets no better. Returns whether the twin is not hopeless then: of its samples no
/// more than a share contradict it.
bool settleBySteps(const Counter& count, const Box& box, double step, double dMostShare, PoseTwin& twin)
{
    constexpr int iRounds = 3;
    bool isBetter = true;
    for (int round = 0; round < iRounds && isBetter; ++round) {
        isBetter = false;
        for (const Vector3& axis : box.axes)
            if (IsTwinContradicted(twin.counts)) isBetter = settleAlong(count, axis, step, twin) || isBetter;
        if (twin.counts.Contradictions() > dMostShare * twin.counts.uiSamples) return false;
    }
    return true;
}

/// Moves a twin along the axes that are open to where the least contradicts it. Where both scans show the same side in
/// the given pose and opposite ones in truth, the box is taken for thinner than it is by what no scan shows of its far
/// side, and the turned scan comes to lie inside of the other.
PoseTwin apart(const CPoseJudge& judge, const Box& box, PoseTwin twin)
{
    for (std::size_t k = 0; k < 3; ++k) {
        if (!box.isOpen[k]) continue;
        const CTrafo start = twin.pose;
        for (int step = -verdict::iApartSteps; step <= verdict::iApartSteps; ++step) {
            if (step == 0) continue;
            if (!IsTwinContradicted(twin.counts) || twin.counts.Contradictions() == 0) return twin;
            const double distance = step * verdict::dApartPixels * judge.GetPixelSize();
            const CTrafo moved = start.Translate(box.axes[k] * static_cast<float>(distance));
            const auto counts = judge.CountWithin(moved, twin.counts.Contradictions() - 1);
            if (counts) twin = {moved, *counts};
        }
    }
    return twin;
}

/// Nothing where too much contradicts it.
std::optional<PoseTwin> placed(const CPoseJudge& judge, const Box& box, const CTrafo& pose)
{
    const auto most = static_cast<unsigned>(verdict::dHopelessTwin * judge.GetNumSamples());
    if (box.IsOpen()) {
        const PoseTwin twin = apart(judge, box, {pose, judge.Count(pose)});
        return twin.counts.Contradictions() <= most ? std::optional(twin) : std::nullopt;
    }
    const auto counts = judge.CountWithin(pose, most);
    return counts ? std::optional(PoseTwin{pose, *counts}) : std::nullopt;
}

/// Most turns of most objects are far from a twin: an eighth of the samples shows it, before and after the first steps,
/// where it is twice as much as is too much.
bool isHopelessAtAGlance(const CPoseJudge& judge, const Box& box, const CTrafo& pose)
{
    if (box.IsOpen()) return false; // the twin may lie far off
    const Counter count = [&judge](const CTrafo& moved, unsigned uiMost) {
        const PoseCounts counts = judge.CountPart(moved);
        return counts.Contradictions() <= uiMost ? std::optional(counts) : std::nullopt;
    };
    PoseTwin twin{pose, judge.CountPart(pose)};
    if (twin.counts.Contradictions() > 2.0 * verdict::dHopelessTwin * twin.counts.uiSamples) return true;
    return !settleBySteps(count, box, dFirstStep * judge.GetPixelSize(), 2.0 * verdict::dHopelessSettledTwin, twin);
}

/// The twin at a pose, moved until nothing contradicts it, since the faces of the box are known to a pixel or two. No
/// further: where no surface is shared, nothing holds it. Nothing where too much contradicts it from the start, or
/// still after the first steps.
std::optional<PoseTwin> settled(const CPoseJudge& judge, const Box& box, const CTrafo& pose)
{
    if (isHopelessAtAGlance(judge, box, pose)) return std::nullopt;
    std::optional<PoseTwin> found = placed(judge, box, pose);
    if (!found) return std::nullopt;
    const Counter count = [&judge](const CTrafo& moved, unsigned uiMost) { return judge.CountWithin(moved, uiMost); };
    for (const double pixels : {dFirstStep, 0.75, 0.4}) {
        const double step = pixels * judge.GetPixelSize();
        if (!settleBySteps(count, box, step, verdict::dHopelessSettledTwin, *found)) return std::nullopt;
    }
    return found;
}

/// Whether there is surface near a place, looking the same way.
bool hasSurface(const CScanView& view, const CTrafo& toView, const Vector3& point, const Vector3& normal, float reach)
{
    const CRangeImage& image = view.GetImage();
    const CTrafo toImage = image.GetFrame() * toView;
    const Vector3 p = toImage * point;
    const Vector3 n = toImage.Rotate(normal);
    const CRangeImage::Pixel at = image.PixelAt(p);
    for (int y = at.y - 1; y <= at.y + 1; ++y) {
        for (int x = at.x - 1; x <= at.x + 1; ++x) {
            if (!image.Contains({x, y})) continue;
            const CRangeImage::Surfel& surfel = image.GetSurfel({x, y});
            if (DistanceSq(surfel.point, p) < reach * reach && Dot(surfel.normal, n) > 0.5F) return true;
        }
    }
    return false;
}

/// What of the surface that matches tells a pose from the twins of a box: all but the faces of the box, and but what
/// the turn carries onto surface that was seen. For a plane any of that level will do, since its other end may be
/// hidden.
class CTellingSurface
{
public:
    CTellingSurface(const CPoseJudge& judge, const CTrafo& pose, const Samples& samples, const Box& box)
        : m_judge(judge),
          m_back(pose.GetInverse(true)),
          m_samples(samples),
          m_box(box),
          m_reach(static_cast<float>(verdict::dTwinReach * judge.GetPixelSize()))
    {
        for (std::size_t k = 0; k < 3; ++k)
            for (const float sign : {1.0F, -1.0F}) m_levels.push_back(levelsOf(box, samples, {k, sign}));
    }

    /// In samples: were the turn the truth, they would match by chance.
    [[nodiscard]] unsigned Count(const CTrafo& turn) const
    {
        const auto tells = [&](const CPoseJudge::PlacedSample& sample) {
            return sample.isMatched && !isOnHull(sample) && !isKept(turn * sample.point, turn.Rotate(sample.normal));
        };
        return static_cast<unsigned>(std::count_if(m_samples.begin(), m_samples.end(), tells));
    }

private:
    [[nodiscard]] bool isOnHull(const CPoseJudge::PlacedSample& sample) const
    {
        const auto side = m_box.SideOf(sample.normal, fAlongRough);
        return side && std::abs(m_box.Level(*side, sample.point) - m_box.Hull(*side)) < m_reach;
    }
    [[nodiscard]] bool isKept(const Vector3& point, const Vector3& normal) const
    {
        if (const auto side = m_box.SideOf(normal, fAlongRough)) return hasPlane(*side, m_box.Level(*side, point));
        return hasSurface(m_judge.GetFix(), CTrafo(), point, normal, 2.0F * m_reach) ||
               hasSurface(m_judge.GetFlt(), m_back, point, normal, 2.0F * m_reach);
    }
    [[nodiscard]] bool hasPlane(const Side& side, float level) const
    {
        const std::vector<float>& levels = m_levels[2 * side.axis + (side.sign > 0 ? 0 : 1)];
        const auto first = std::lower_bound(levels.begin(), levels.end(), level + m_reach, std::greater<>());
        const auto last = std::upper_bound(first, levels.end(), level - m_reach, std::greater<>());
        return static_cast<std::size_t>(last - first) >= faceSize(m_samples);
    }

    const CPoseJudge& m_judge;
    CTrafo m_back;
    const Samples& m_samples;
    const Box& m_box;
    float m_reach;
    std::vector<std::vector<float>> m_levels;
};

} // namespace

std::vector<PoseTwin> FindBoxTwins(const CPoseJudge& judge, const CTrafo& pose, const Samples& samples)
{
    if (!judge.GetFix().HasImage() || !judge.GetFlt().HasImage()) return {};
    const auto matched = std::count_if(samples.begin(), samples.end(), [](const auto& s) { return s.isMatched; });
    std::vector<PoseTwin> twins;
    for (const Box& box : boxesOf(judge, samples)) {
        std::optional<CTellingSurface> surface; // mostly no twin is left that asks for it
        for (const CTrafo& turn : turnsOf(box)) {
            auto twin = settled(judge, box, turn * pose);
            if (!twin || IsTwinContradicted(twin->counts)) continue;
            if (!surface) surface.emplace(judge, pose, samples, box);
            twin->counts.uiTelling = surface->Count(turn);
            twin->isTold = twin->counts.uiTelling > verdict::dTellingShare * static_cast<double>(matched);
            twins.push_back(*twin);
        }
    }
    return twins;
}

} // namespace prereg
