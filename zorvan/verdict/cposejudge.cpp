// SPDX-License-Identifier: MIT
#include "zorvan/verdict/cposejudge.h"

#include "zorvan/verdict/chold.h"
#include "zorvan/verdict/disputedpatches.h"
#include "zorvan/verdict/nearestpixel.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

constexpr std::size_t uiHoldSamples = 4000; ///< directions and shares of a hold need no more

bool hasFewPixels(const CScanView& view)
{
    return view.HasImage() && view.GetImage().GetNumFilled() < verdict::uiFewPixels;
}

bool isRayKnown(const CScanView& view)
{
    return view.GetRay().eKind == ERay::Found || view.GetRay().eKind == ERay::Given;
}

/// Whether the pose lays the patterns of two spinning sensors on each other: that they agree there says nothing.
bool isPatternOnPattern(const CPoseJudge& judge, const CTrafo& pose)
{
    if (!judge.GetFix().IsEven() || !judge.GetFlt().IsEven()) return false;
    // Both sensors stand in the origin of their scan.
    const float range = std::min(judge.GetFix().GetMiddle().Length(), judge.GetFlt().GetMiddle().Length());
    const Vector3 axis(0, 0, 1);
    return pose.GetTranslation().Length() < static_cast<float>(verdict::dSamePlace) * range &&
           Dot(pose.Rotate(axis), axis) > static_cast<float>(verdict::dSameAxisCosine);
}

/// The largest of the contradictions.
EFinding refutation(const PoseCounts& counts)
{
    if (counts.uiInFront >= std::max(counts.uiMissing, counts.uiOpposed)) return EFinding::SeenThrough;
    return counts.uiMissing >= counts.uiOpposed ? EFinding::SurfaceMissing : EFinding::Opposed;
}

} // namespace

/// The nearest surface to a sample, in any common frame.
struct CPoseJudge::Hit
{
    Vector3 point;
    Vector3 normal;
    float distSq = std::numeric_limits<float>::infinity();
    float residual = 0.0F; ///< along the normal
    float cosine = 0.0F;   ///< of the two normals

    void Measure(const Sample& moved)
    {
        residual = std::abs(Dot(normal, moved.point - point));
        cosine = Dot(normal, moved.normal);
    }
};

CPoseJudge::CPoseJudge(const CScanView& fix, const CScanView& flt)
    : m_pixel(std::max(pixelOf(fix), pixelOf(flt))),
      m_canMiss(isRayKnown(fix) || isRayKnown(flt)),
      m_isCoarse(hasFewPixels(fix) || hasFewPixels(flt))
{
    m_sides[0].view = &fix;
    m_sides[1].view = &flt;
    for (Side& side : m_sides) takeSamples(side);
    thinSupportPlanes();
    for (Side& side : m_sides) shuffle(side);
    const double noise = std::hypot(fix.GetSampling().dNoise, flt.GetSampling().dNoise);
    const auto pixel = static_cast<double>(m_pixel);
    m_matchLimit = static_cast<float>(std::max(verdict::dMatchNoise * noise, verdict::dMatchPixels * pixel));
    m_frontLimit = static_cast<float>(verdict::dFrontPixels * pixel + verdict::dFrontNoise * noise);
    const double near = std::max(verdict::dNearPixels * pixel, 2.0 * static_cast<double>(m_matchLimit));
    m_nearSq = static_cast<float>(near * near);
    const std::size_t smaller = std::min(m_sides[0].samples.size(), m_sides[1].samples.size());
    m_minMatched = std::max(verdict::uiMinMatched,
                            static_cast<unsigned>(verdict::dMinMatchedShare * static_cast<double>(smaller)));
}

std::span<const CPoseJudge::Sample> CPoseJudge::partOf(std::size_t side, std::size_t part) const
{
    const std::span<const Sample> all = m_sides[side].parts;
    const std::size_t first = firstOfPart(all.size(), part);
    return all.subspan(first, firstOfPart(all.size(), part + 1) - first);
}

inline CPoseJudge::Hit CPoseJudge::nearestInImage(const CRangeImage& image, CRangeImage::Pixel at, const Sample& moved)
{
    Hit hit;
    const detail::NearestPixel nearest = detail::FindNearestPixel(image, at, moved.point);
    if (nearest.surfel == nullptr) return hit;
    hit.distSq = nearest.distSq;
    hit.point = nearest.surfel->point;
    hit.normal = nearest.surfel->normal;
    hit.Measure(moved);
    return hit;
}

CPoseJudge::Hit CPoseJudge::nearestInTree(const CScanView& view, const Sample& moved) const
{
    Hit hit;
    Zorvan::NearestQuery query{moved.point, -1, m_nearSq};
    view.GetTree().FindNearest(query);
    if (query.index < 0) return hit;
    hit.point = view.GetPoints()[static_cast<std::size_t>(query.index)];
    hit.normal = view.GetNormals()[static_cast<std::size_t>(query.index)];
    hit.distSq = query.distSq;
    hit.Measure(moved);
    return hit;
}

bool CPoseJudge::isMatch(const Hit& hit) const
{
    return hit.distSq < m_nearSq && hit.residual <= m_matchLimit &&
           hit.cosine > static_cast<float>(verdict::dMatchCosine);
}

void CPoseJudge::addHit(const Hit& hit, std::size_t side, PoseCounts& counts) const
{
    if (isMatch(hit)) {
        ++counts.uiMatched;
        ++counts.matchedOf[side];
        return;
    }
    if (!(hit.distSq < m_nearSq)) return;
    const bool isOn = hit.residual <= m_matchLimit;
    const bool isAlike = hit.cosine > static_cast<float>(verdict::dMatchCosine);
    if (!isOn)
        ++(isAlike ? counts.uiTail : counts.uiShallow);
    else
        counts.uiOpposed += hit.cosine < static_cast<float>(verdict::dOpposedCosine);
}

bool CPoseJudge::isInFrontOverCone(const CScanView& into, const CTrafo& pose, const Sample& sample) const
{
    const Vector3 p = pose * sample.point;
    return std::all_of(into.GetImages().begin() + 1, into.GetImages().end(), [&](const CRangeImage& image) {
        const Vector3 moved = image.GetFrame() * p;
        return image.IsInFront(image.PixelAt(moved), moved.z - m_frontLimit);
    });
}

void CPoseJudge::countInImage(std::size_t side, std::span<const Sample> samples, const CTrafo& pose, PoseCounts& counts,
                              std::vector<std::uint32_t>& fronts) const
{
    const CScanView& into = *m_sides[1 - side].view;
    const CRangeImage& image = into.GetImage();
    const CTrafo toImage = image.GetFrame() * pose;
    const bool canMiss = isRayKnown(into);
    // In batches: a sample falls anywhere into the image, and the waits for it overlap.
    constexpr std::size_t batch = 16;
    std::array<Sample, batch> moved;
    std::array<CRangeImage::Pixel, batch> at;
    for (; !samples.empty(); samples = samples.subspan(std::min(batch, samples.size()))) {
        const std::size_t n = std::min(batch, samples.size());
        for (std::size_t k = 0; k < n; ++k) {
            moved[k] = {toImage * samples[k].point, toImage.Rotate(samples[k].normal)};
            at[k] = image.PixelAt(moved[k].point);
            image.Expect(at[k]);
        }
        for (std::size_t k = 0; k < n; ++k) {
            const bool isInside = image.Contains(at[k]);
            if (isInside && image.IsInFront(at[k], moved[k].point.z - m_frontLimit)) {
                if (!isInFrontOverCone(into, pose, samples[k])) continue;
                ++counts.uiInFront;
                fronts.push_back(samples[k].uiCell);
            } else if (canMiss && moved[k].normal.z > static_cast<float>(verdict::dFacingCosine) &&
                       image.IsMissing(at[k], moved[k].point.z, static_cast<float>(verdict::dMissingPixels))) {
                const bool isTurned = !image.Faces(moved[k].normal);
                ++(isTurned ? counts.uiTurned : image.IsInGap(at[k]) ? counts.uiInGap : counts.uiMissing);
            } else if (isInside) {
                addHit(nearestInImage(image, at[k], moved[k]), side, counts);
            }
        }
    }
}

void CPoseJudge::countInTree(std::size_t side, std::span<const Sample> samples, const CTrafo& pose,
                             PoseCounts& counts) const
{
    for (const Sample& sample : samples) {
        const Sample moved{pose * sample.point, pose.Rotate(sample.normal)};
        addHit(nearestInTree(*m_sides[1 - side].view, moved), side, counts);
    }
}

void CPoseJudge::countParts(const CTrafo& pose, std::size_t first, std::size_t last, PoseCounts& counts,
                            Fronts& fronts) const
{
    const CTrafo inverse = pose.GetInverse(true);
    for (std::size_t side = 0; side < 2; ++side) {
        const CTrafo& intoOther = side == 0 ? inverse : pose;
        for (std::size_t part = first; part < last; ++part) {
            const auto samples = partOf(side, part);
            counts.uiSamples += static_cast<unsigned>(samples.size());
            if (m_sides[1 - side].view->HasImage())
                countInImage(side, samples, intoOther, counts, fronts[side]);
            else
                countInTree(side, samples, intoOther, counts);
        }
    }
}

unsigned CPoseJudge::countSolid(Fronts& fronts) const
{
    unsigned solid = 0;
    for (std::size_t side = 0; side < 2; ++side) {
        std::vector<std::uint32_t>& cells = fronts[side];
        if (m_sides[side].uiRowLength == 0) continue; // samples without a raster
        std::sort(cells.begin(), cells.end());
        const auto isRowFull = [&](std::uint32_t middle) {
            const auto at = std::lower_bound(cells.begin(), cells.end(), middle - 1);
            return cells.end() - at >= 3 && *at == middle - 1 && *(at + 2) == middle + 1;
        };
        const std::uint32_t row = m_sides[side].uiRowLength;
        for (const std::uint32_t cell : cells)
            solid += isRowFull(cell) && isRowFull(cell - row) && isRowFull(cell + row);
    }
    return solid;
}

unsigned CPoseJudge::countDisputed(const CTrafo& pose) const
{
    unsigned disputed = 0;
    for (std::size_t side = 0; side < 2; ++side) {
        const CScanView& own = *m_sides[side].view;
        const CScanView& other = *m_sides[1 - side].view;
        if (m_isCoarse || !own.HasImage() || !isRayKnown(other)) continue;
        const CTrafo intoOther = side == 0 ? pose.GetInverse(true) : pose;
        const CTrafo toOther = other.GetImage().GetFrame() * intoOther * own.GetImage().GetFrame().GetInverse(true);
        disputed +=
            CountDisputed(own.GetImage(), other.GetImage(), toOther, {m_frontLimit, std::sqrt(m_nearSq), m_pixel});
    }
    return disputed;
}

PoseCounts CPoseJudge::Count(const CTrafo& pose) const
{
    PoseCounts counts;
    Fronts fronts;
    if (!pose) return counts;
    countParts(pose, 0, uiParts, counts, fronts);
    counts.uiSolid = countSolid(fronts);
    return counts;
}

std::optional<PoseCounts> CPoseJudge::CountWithin(const CTrafo& pose, unsigned uiMostContradictions) const
{
    PoseCounts counts;
    Fronts fronts;
    for (std::size_t part = 0; part < uiParts && pose; ++part) {
        countParts(pose, part, part + 1, counts, fronts);
        if (counts.Contradictions() > uiMostContradictions) return std::nullopt;
    }
    counts.uiSolid = countSolid(fronts);
    return counts;
}

PoseCounts CPoseJudge::CountPart(const CTrafo& pose) const
{
    PoseCounts counts;
    Fronts fronts;
    if (pose) countParts(pose, 0, 1, counts, fronts);
    return counts;
}

PoseCounts CPoseJudge::Glance(const CTrafo& pose) const
{
    constexpr unsigned uiEnough = 2000;
    PoseCounts counts;
    Fronts fronts;
    if (!pose) return counts;
    for (std::size_t part = 0; part < uiParts && counts.uiSamples < uiEnough; ++part) {
        countParts(pose, part, part + 1, counts, fronts);
        if (counts.Contradictions() >= verdict::uiMinEarlyContradictions &&
            counts.Contradiction() > verdict::dEarlyFactor * verdict::dMaxDoubt)
            break;
    }
    return counts;
}

EFinding CPoseJudge::Weigh(const PoseCounts& counts) const
{
    if (counts.uiMatched < m_minMatched) return EFinding::TooLittle;
    if (counts.Contradiction() > verdict::dMaxDoubt) return refutation(counts);
    if (counts.uiSolid >= verdict::uiMinSolid || counts.uiDisputed >= verdict::uiMinDisputed)
        return EFinding::SeenThrough;
    if (counts.TailShare() > verdict::dMaxTail) return EFinding::Residuals;
    const bool isDoubtful = counts.Contradiction() > verdict::dMaxContradiction ||
                            counts.uiSolid >= verdict::uiDoubtfulSolid ||
                            counts.uiDisputed >= verdict::uiDoubtfulDisputed;
    return isDoubtful ? EFinding::Doubtful : EFinding::Consistent;
}

PoseVerdict CPoseJudge::JudgeCounts(const CTrafo& pose) const
{
    if (!pose) return {};
    PoseVerdict verdict;
    Fronts fronts;
    countParts(pose, 0, 1, verdict.counts, fronts);
    if (verdict.counts.Contradictions() >= verdict::uiMinEarlyContradictions &&
        verdict.counts.Contradiction() > verdict::dEarlyFactor * verdict::dMaxDoubt) {
        verdict.eFinding = refutation(verdict.counts);
        return verdict;
    }
    countParts(pose, 1, uiParts, verdict.counts, fronts);
    verdict.counts.uiSolid = countSolid(fronts);
    verdict.eFinding = Weigh(verdict.counts);
    return verdict;
}

PoseVerdict CPoseJudge::Judge(const CTrafo& pose) const
{
    PoseVerdict verdict = JudgeCounts(pose);
    if (verdict || verdict.eFinding == EFinding::Doubtful) {
        verdict.counts.uiDisputed = countDisputed(pose);
        verdict.eFinding = Weigh(verdict.counts);
    }
    if (verdict && SlideGrowth(pose, verdict.counts) < MinSlideGrowth()) verdict.eFinding = EFinding::Sliding;
    const bool stands = verdict || verdict.eFinding == EFinding::Sliding;
    if (stands && isPatternOnPattern(*this, pose)) verdict.eFinding = EFinding::Doubtful;
    return verdict;
}

void CPoseJudge::AddHold(const CTrafo& pose, const CTrafo& onto, CHold& hold) const
{
    const bool isIntoFix = GetFix().HasImage();
    const std::size_t side = isIntoFix ? 1 : 0;
    const CScanView& into = *m_sides[1 - side].view;
    const CTrafo frame = into.HasImage() ? into.GetImage().GetFrame() : CTrafo();
    const CTrafo toFrame = frame * (isIntoFix ? pose : pose.GetInverse(true));
    const CTrafo back = onto * (isIntoFix ? CTrafo() : pose) * frame.GetInverse(true);
    const std::span<const Sample> samples = m_sides[side].samples;
    for (const Sample& sample : samples.first(std::min(samples.size(), uiHoldSamples))) {
        const Sample moved{toFrame * sample.point, toFrame.Rotate(sample.normal)};
        const Hit hit = into.HasImage() ? nearestInImage(into.GetImage(), into.GetImage().PixelAt(moved.point), moved)
                                        : nearestInTree(into, moved);
        if (isMatch(hit)) hold.Add(back * hit.point, back.Rotate(hit.normal), back.Rotate(moved.normal));
    }
}

CHold CPoseJudge::holdAt(const CTrafo& pose) const
{
    CHold hold(pose * GetFlt().GetMiddle(), GetFlt().GetRadius());
    AddHold(pose, CTrafo(), hold);
    return hold;
}

bool CPoseJudge::isMatchedIn(const CScanView& view, const CTrafo& toView, const Sample& sample) const
{
    const Sample moved{toView * sample.point, toView.Rotate(sample.normal)};
    if (!view.HasImage()) return isMatch(nearestInTree(view, moved));
    return isMatch(nearestInImage(view.GetImage(), view.GetImage().PixelAt(moved.point), moved));
}

std::vector<CPoseJudge::PlacedSample> CPoseJudge::Place(const CTrafo& pose) const
{
    std::vector<PlacedSample> placed;
    placed.reserve(m_sides[0].samples.size() + m_sides[1].samples.size());
    const auto into = [](const CScanView& view, const CTrafo& motion) {
        return view.HasImage() ? view.GetImage().GetFrame() * motion : motion;
    };
    const CTrafo toFlt = into(GetFlt(), pose.GetInverse(true));
    const CTrafo toFix = into(GetFix(), pose);
    for (const Sample& sample : m_sides[0].samples)
        placed.push_back({sample.point, sample.normal, isMatchedIn(GetFlt(), toFlt, sample)});
    for (const Sample& sample : m_sides[1].samples)
        placed.push_back({pose * sample.point, pose.Rotate(sample.normal), isMatchedIn(GetFix(), toFix, sample)});
    return placed;
}

double CPoseJudge::HoldRatio(const CTrafo& pose) const { return holdAt(pose).Ratio(); }

std::vector<CTrafo> CPoseJudge::Turns(const CTrafo& pose) const
{
    constexpr std::size_t uiAxes = 2;
    constexpr std::size_t uiSteps = 24;
    std::vector<CTrafo> turns = holdAt(pose).WeakTurns(uiAxes, uiSteps);
    for (CTrafo& turn : turns) turn = turn * pose;
    return turns;
}

int CPoseJudge::MinSlideGrowth() const
{
    constexpr double dPixelsOfSample = verdict::dSampleStep * verdict::dSampleStep;
    const bool isEven = GetFix().IsEven() || GetFlt().IsEven();
    return static_cast<int>(verdict::uiMinSlideGrowth * (IsCoarse() && isEven ? dPixelsOfSample : 1.0));
}

int CPoseJudge::SlideGrowth(const CTrafo& pose, const PoseCounts& at) const
{
    constexpr std::size_t uiDirections = 3;
    const int iEnough = MinSlideGrowth();
    const int before = CountPart(pose).Misfits();
    const auto growthAt = [&](const CTrafo& moved, int weight) {
        const int growth = weight * (CountPart(moved).Misfits() - before);
        return growth < iEnough ? weight * (Count(moved).Misfits() - at.Misfits()) : growth;
    };
    const CHold hold = holdAt(pose);
    const double way = verdict::dSlidePixels * GetPixelSize();
    int least = std::numeric_limits<int>::max();
    for (const auto& [step, weight] :
         {std::pair(way, 1), std::pair(verdict::dNearSlide * way, verdict::iNearSlideWeight)}) {
        for (const CTrafo& motion : hold.WeakestMotions(uiDirections, step)) {
            least = std::min(least, growthAt(motion * pose, weight));
            if (least < iEnough) return least;
        }
    }
    return least;
}

double CPoseJudge::Distance(const CTrafo& a, const CTrafo& b) const { return DistanceOfPoses(GetFlt(), a, b); }

} // namespace prereg
