// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"
#include "zorvan/verdict/cscanview.h"
#include "zorvan/verdict/supportplane.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace prereg {

/// What two scans say about a pose, in samples: points of each scan, equally far apart, looked up in the other.
struct PoseCounts
{
    unsigned uiSamples = 0;  ///< of both scans
    unsigned uiMatched = 0;  ///< on the other surface, normals agree
    unsigned uiInFront = 0;  ///< the other sensor saw through it
    unsigned uiSolid = 0;    ///< of these, with all samples around them: wider than any error of an edge
    unsigned uiDisputed = 0; ///< pixels in the middle of patches, see CountDisputed; of poses that else stand
    unsigned uiMissing = 0;  ///< the other sensor should have seen it, and saw nothing
    unsigned uiInGap = 0;    ///< the same in a gap of the other scan, where it says nothing
    unsigned uiTurned = 0;   ///< the same of steep surface that its sensor may not have faced, see CRangeImage::Faces
    unsigned uiOpposed = 0;  ///< on the other surface, which looks elsewhere
    unsigned uiTail = 0;     ///< near the other surface and like it, but further off than noise explains
    unsigned uiShallow = 0;  ///< near the other surface, off it, and unlike it
    unsigned uiTelling = 0; ///< of a twin, see PoseTwin: matches of the pose that it is the twin of and no box explains
    std::array<unsigned, 2> matchedOf{}; ///< matches among the samples of the fixed and of the floating scan

    [[nodiscard]] unsigned Contradictions() const { return uiInFront + uiMissing + uiOpposed; }
    /// Contradictions over contradictions and matches, in [0, 1]; 0 without any.
    [[nodiscard]] ZORVAN_API double Contradiction() const;
    /// Over tail and matches.
    [[nodiscard]] ZORVAN_API double TailShare() const;
    /// All that a motion to one side would leave fewer of, were the pose not held. What is shallow is none: there
    /// become fewer where the overlap shrinks.
    [[nodiscard]] int Misfits() const { return static_cast<int>(Contradictions() + uiTail + uiTurned); }
    /// Rivals are compared by it: matches, less what speaks against the pose.
    [[nodiscard]] ZORVAN_API double Score() const;
    /// Of several pairs together.
    ZORVAN_API PoseCounts& operator+=(const PoseCounts& other);

    friend bool operator==(const PoseCounts&, const PoseCounts&) = default;
};

/// Why a pose stands or falls.
enum class EFinding
{
    Consistent,
    Doubtful,    ///< more speaks against it than against right poses of good scans, less than against most wrong ones
    Invalid,     ///< there is no pose
    TooLittle,   ///< the scans hardly share surface
    SeenThrough, ///< surface of one scan where the other looked through
    SurfaceMissing,
    Opposed,
    Residuals,  ///< surfaces that come near do not meet
    Sliding,    ///< the pose may be moved and nothing contradicts it
    NotRuledOut ///< nothing contradicts it, whether surface is shared or not; see FindBoxTwins
};

/// A word or two: "consistent", "seen through".
[[nodiscard]] ZORVAN_API const char* FindingName(EFinding eFinding);

struct PoseVerdict
{
    EFinding eFinding = EFinding::Invalid;
    PoseCounts counts; ///< of a part of the samples for a pose that this part refuted

    [[nodiscard]] explicit operator bool() const { return eFinding == EFinding::Consistent; }
    /// One line for the user: the finding with its figure.
    [[nodiscard]] ZORVAN_API std::string ToString() const;
};

class CHold;

/// Weighs poses of one scan in the frame of another by what contradicts them: free space that the other sensor looked
/// through, surface that it should have seen, faces that look the other way. Agreement alone proves little: flat parts
/// agree in many poses.
///
///     const CScanView fix(fixSet), flt(fltSet);
///     const CPoseJudge judge(fix, flt);
///     const PoseVerdict verdict = judge.Judge(pose); // 1 ms; wrong ones take a tenth
///     if (!verdict) show(verdict.ToString());
///
/// Poses map floating into fixed coordinates, refined: half a spacing off is too far. A scan without a viewing ray
/// contradicts nothing. The views must outlive the judge. Immutable, safe to use from any thread; same views, same
/// counts.
class ZORVAN_API CPoseJudge
{
public:
    CPoseJudge(const CScanView& fix, const CScanView& flt);

    /// All counts on samples, on all of them.
    [[nodiscard]] PoseCounts Count(const CTrafo& pose) const;
    /// The same, or nothing where more samples than these contradict the pose: found out on part of them.
    [[nodiscard]] std::optional<PoseCounts> CountWithin(const CTrafo& pose, unsigned uiMostContradictions) const;
    /// The counts on an eighth of the samples, which cover the scans.
    [[nodiscard]] PoseCounts CountPart(const CTrafo& pose) const;
    /// The counts on so many samples that shares are good to a percent or two: for choosing what to refine.
    [[nodiscard]] PoseCounts Glance(const CTrafo& pose) const;
    /// The whole weighing, cheapest first: ends with the first finding that refutes the pose.
    [[nodiscard]] PoseVerdict Judge(const CTrafo& pose) const;
    /// The same by the samples alone: without patches that are disputed, and without the question whether the pose
    /// slides. What this refutes, Judge refutes.
    [[nodiscard]] PoseVerdict JudgeCounts(const CTrafo& pose) const;
    /// The finding for such counts, without the question whether the pose slides.
    [[nodiscard]] EFinding Weigh(const PoseCounts& counts) const;
    /// Moves the pose to and fro along each of the three directions that both surfaces together hold least, and returns
    /// the least growth of what speaks against it, in samples; counted no further than it takes to see whether it is
    /// enough. Growth after three quarters of the way counts twice. A pose that may leave to one side is not held.
    /// @param at  counts at the pose itself
    [[nodiscard]] int SlideGrowth(const CTrafo& pose, const PoseCounts& at) const;
    /// What growth is enough. Of samples two pixels apart; where each pixel of a spinning sensor's surface is one,
    /// there are as many more of them.
    [[nodiscard]] int MinSlideGrowth() const;
    /// How well the two surfaces hold the pose in the direction that they hold least, against the one that they hold
    /// best: in [0, 1], 0 for a ball or a plane.
    [[nodiscard]] double HoldRatio(const CTrafo& pose) const;
    /// Places where a part that is round, or nearly so, would fit as well: the pose turned about the axes that both
    /// surfaces together hold least. Rough: to be refined before they are judged. Mostly none.
    [[nodiscard]] std::vector<CTrafo> Turns(const CTrafo& pose) const;
    /// Adds what both surfaces hold of the pose.
    /// @param onto  from the fixed scan into the frame of the sum
    void AddHold(const CTrafo& pose, const CTrafo& onto, CHold& hold) const;
    /// A sample of either scan in the frame of the fixed one.
    struct PlacedSample
    {
        kdtree::Vector<3> point;
        kdtree::Vector<3> normal;
        bool isMatched = false;
    };
    /// All samples of both scans, put together at a pose.
    [[nodiscard]] std::vector<PlacedSample> Place(const CTrafo& pose) const;
    /// How far apart two poses put the floating scan, mm.
    [[nodiscard]] double Distance(const CTrafo& a, const CTrafo& b) const;

    [[nodiscard]] const CScanView& GetFix() const { return *m_sides[0].view; }
    [[nodiscard]] const CScanView& GetFlt() const { return *m_sides[1].view; }
    /// Of both scans: what Count looks at.
    [[nodiscard]] unsigned GetNumSamples() const
    {
        return static_cast<unsigned>(m_sides[0].samples.size() + m_sides[1].samples.size());
    }
    /// At least one scan has a ray that is known well enough to tell that surface is missing.
    [[nodiscard]] bool CanMissSurface() const { return m_canMiss; }
    /// A scan fills so few pixels that details which tell turns of an object apart may lie between them.
    [[nodiscard]] bool IsCoarse() const { return m_isCoarse; }
    /// Of the fixed scan, where a plane holds most of either: a table that both show, of which few samples are taken.
    [[nodiscard]] const std::optional<SupportPlane>& GetSupportPlane() const { return m_plane; }
    [[nodiscard]] double GetMatchLimit() const { return static_cast<double>(m_matchLimit); } ///< mm
    [[nodiscard]] double GetPixelSize() const { return static_cast<double>(m_pixel); } ///< of the coarser scan, mm

private:
    struct Sample
    {
        kdtree::Vector<3> point;
        kdtree::Vector<3> normal;
        std::uint32_t uiCell = 0; ///< in the raster of the samples; 0 for those of a scan without an image
    };
    /// Cells of the samples in front, of either side.
    using Fronts = std::array<std::vector<std::uint32_t>, 2>;
    struct Side
    {
        const CScanView* view = nullptr;
        std::vector<Sample> samples;   ///< in scan coordinates, shuffled: any stretch of them covers the scan
        std::vector<Sample> parts;     ///< the same, each part in the order of the scan: neighbours meet neighbours
        std::uint32_t uiRowLength = 0; ///< cells between a sample and the one below it
    };
    struct Hit;

    static constexpr std::size_t uiParts = 8; ///< of the samples; most wrong poses end after the first
    [[nodiscard]] static std::size_t firstOfPart(std::size_t size, std::size_t part) { return size * part / uiParts; }
    [[nodiscard]] CHold holdAt(const CTrafo& pose) const;
    [[nodiscard]] static float pixelOf(const CScanView& view);
    void takeSamples(Side& side) const;
    void thinSupportPlanes();
    static void shuffle(Side& side);
    [[nodiscard]] static Hit nearestInImage(const CRangeImage& image, CRangeImage::Pixel at, const Sample& moved);
    [[nodiscard]] Hit nearestInTree(const CScanView& view, const Sample& moved) const;
    [[nodiscard]] bool isMatchedIn(const CScanView& view, const CTrafo& toView, const Sample& sample) const;
    [[nodiscard]] std::span<const Sample> partOf(std::size_t side, std::size_t part) const;
    void countInImage(std::size_t side, std::span<const Sample> samples, const CTrafo& pose, PoseCounts& counts,
                      std::vector<std::uint32_t>& fronts) const;
    void countInTree(std::size_t side, std::span<const Sample> samples, const CTrafo& pose, PoseCounts& counts) const;
    [[nodiscard]] bool isInFrontOverCone(const CScanView& into, const CTrafo& pose, const Sample& sample) const;
    [[nodiscard]] bool isMatch(const Hit& hit) const;
    void addHit(const Hit& hit, std::size_t side, PoseCounts& counts) const;
    void countParts(const CTrafo& pose, std::size_t first, std::size_t last, PoseCounts& counts, Fronts& fronts) const;
    [[nodiscard]] unsigned countSolid(Fronts& fronts) const;
    [[nodiscard]] unsigned countDisputed(const CTrafo& pose) const;

    std::array<Side, 2> m_sides; ///< fixed, floating
    std::optional<SupportPlane> m_plane;
    float m_pixel = 0.0F;
    float m_matchLimit = 0.0F;
    float m_frontLimit = 0.0F;
    float m_nearSq = 0.0F;
    unsigned m_minMatched = 0;
    bool m_canMiss = false;
    bool m_isCoarse = false;
};

} // namespace prereg
