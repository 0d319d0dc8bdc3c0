// SPDX-License-Identifier: MIT
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/pairverdict.h"

#include "tests/verdict/sphereobject.h"
#include "zorvan/verdict/verdictlimits.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

namespace {

using namespace prereg;
using support::Vector3;

CTrafo turn(const Vector3& axis, float degrees) { return {axis, degrees * 0.01745329F, Vector3()}; }

/// Two scans of an object, the second one turned about y, with the true pose of the second in the first.
struct Pair
{
    explicit Pair(const std::vector<support::Sphere>& spheres, float degrees = 40.0F, float noise = 0.02F)
        : fixSet(support::PointSet(support::ScanSpheres(spheres, CTrafo(), 0.2F, noise, 1))),
          fltSet(support::PointSet(support::ScanSpheres(spheres, turn({0, 1, 0}, degrees), 0.25F, noise, 2))),
          fix(fixSet),
          flt(fltSet),
          judge(fix, flt),
          truth(turn({0, 1, 0}, -degrees))
    {
    }

    CPointSet fixSet;
    CPointSet fltSet;
    CScanView fix;
    CScanView flt;
    CPoseJudge judge;
    CTrafo truth;
};

TEST(CPoseJudge, KeepsTheTruthAndRefutesEveryOtherTurn)
{
    const Pair pair(support::Cluster());
    EXPECT_TRUE(pair.judge.Judge(pair.truth)) << pair.judge.Judge(pair.truth).ToString();
    std::mt19937 rng(47110815);
    for (int i = 0; i < 500; ++i) {
        CTrafo pose = support::RandomPose(rng, 3.0F);
        if (pair.judge.Distance(pose, pair.truth) < 1.0) continue;
        EXPECT_FALSE(pair.judge.Judge(pose)) << i;
    }
    EXPECT_FALSE(pair.judge.Judge(CTrafo::Invalid()));
    EXPECT_EQ(pair.judge.Judge(pair.truth.Translate({500, 0, 0})).eFinding, EFinding::SurfaceMissing);
}

TEST(CPoseJudge, SeesWhatIsWrongWithAPose)
{
    // A third small sphere that only one of the objects has.
    std::vector<support::Sphere> object{{{0, 0, 0}, 8}, {{5, 5, 6}, 5}};
    const auto with = support::PointSet(support::ScanSpheres(object, CTrafo(), 0.2F, 0.02F, 1));
    object.pop_back();
    const auto without = support::PointSet(support::ScanSpheres(object, CTrafo(), 0.2F, 0.02F, 2));
    const CScanView a(with);
    const CScanView b(without);
    EXPECT_EQ(CPoseJudge(a, b).Judge(CTrafo()).eFinding, EFinding::SeenThrough);
    EXPECT_EQ(CPoseJudge(b, a).Judge(CTrafo()).eFinding, EFinding::SeenThrough);
    EXPECT_EQ(CPoseJudge(b, b).Judge(CTrafo()).eFinding, EFinding::Sliding); // a ball turns
    // Without its sensor a surface sees through nothing, but the other scan still does.
    const CScanView surface(with, {.isSurface = true});
    EXPECT_EQ(CPoseJudge(surface, b).Judge(CTrafo()).eFinding, EFinding::SeenThrough);
    EXPECT_EQ(CPoseJudge(surface, surface).Count(CTrafo()).Contradictions(), 0U);
}

TEST(CPoseJudge, IsRefutedByASmallPatchThatTheOtherSensorLookedThrough)
{
    // A bump that only one ball has: 1 % of what can be compared, but in one piece.
    const auto with = support::PointSet(support::ScanSpheres({{{0, 0, 0}, 9}, {{0, 0, 9}, 2}}, CTrafo(), 0.2F, 0, 1));
    const auto without = support::PointSet(support::ScanSpheres({{{0, 0, 0}, 9}}, CTrafo(), 0.2F, 0, 2));
    const CScanView a(with);
    const CScanView b(without);
    const PoseVerdict verdict = CPoseJudge(a, b).Judge(CTrafo());
    EXPECT_EQ(verdict.eFinding, EFinding::SeenThrough);
    EXPECT_LT(verdict.counts.Contradiction(), verdict::dMaxContradiction);
    EXPECT_GE(verdict.counts.uiSolid, verdict::uiMinSolid);
    EXPECT_LT(verdict.counts.uiSolid, verdict.counts.uiInFront); // the rim of the bump has samples beside it that match
}

TEST(CPoseJudge, DoubtsAPoseForTheMiddleOfAPatchThatIsTooSmallToRefuteIt)
{
    const auto block = [](float x, float y) {
        return support::Waves(x, y) + (std::abs(x) < 0.75F && std::abs(y) < 1.1F ? 3.0F : 0.0F);
    };
    const auto with = support::PointSet(support::RasterScan(block, 20.0F, 0.2F, 0.02F, 1));
    const auto without = support::PointSet(support::RasterScan(support::Waves, 20.0F, 0.2F, 0.02F, 2));
    const CScanView a(with);
    const CScanView b(without);
    const PoseVerdict verdict = CPoseJudge(a, b).Judge(CTrafo());
    ASSERT_GE(verdict.counts.uiSolid, verdict::uiDoubtfulSolid);
    ASSERT_LT(verdict.counts.uiSolid, verdict::uiMinSolid);
    EXPECT_LT(verdict.counts.Contradiction(), verdict::dMaxContradiction);
    EXPECT_EQ(verdict.eFinding, EFinding::Doubtful);
    EXPECT_EQ(JudgePoses(CPoseJudge(a, b), std::vector<CTrafo>{CTrafo()}).eVerdict, EPairVerdict::Ambiguous);
}

TEST(CPoseJudge, DoubtsOrRefutesAPoseForWindowsThatOnlyOneOfTwoBoxesHas)
{
    // A tilted face, and through its window the wall behind it: half a turn off, a box shows the like.
    const auto face = [](float x, float y) {
        return std::abs(x) > 9.0F || std::abs(y) > 12.0F ? NAN : 0.3F * x + (x < -8.0F ? 2.0F * (x + 8.0F) : 0.0F);
    };
    const auto scan = [&](float halfWindow, std::uint32_t seed) {
        const auto height = [&](float x, float y) {
            return std::abs(x - 3.0F) < halfWindow && std::abs(y - 2.0F) < 1.0F ? -9.0F : face(x, y);
        };
        return support::PointSet(support::RasterScan(height, 20.0F, 0.2F, 0.01F, seed));
    };
    const auto closedSet = scan(0.0F, 1);
    const CScanView closed(closedSet);
    for (const auto& [halfWindow, eFinding] :
         {std::pair(2.0F, EFinding::SeenThrough), std::pair(0.8F, EFinding::Doubtful)}) {
        const auto boredSet = scan(halfWindow, 2);
        const CScanView bored(boredSet);
        const PoseVerdict verdict = CPoseJudge(closed, bored).Judge(CTrafo());
        EXPECT_EQ(verdict.eFinding, eFinding) << verdict.ToString();
        EXPECT_LT(verdict.counts.Contradiction(), verdict::dMaxDoubt);
        EXPECT_EQ(CPoseJudge(bored, closed).Judge(CTrafo()).counts.uiDisputed, verdict.counts.uiDisputed);
        EXPECT_EQ(CPoseJudge(bored, bored).Judge(CTrafo()).counts.uiDisputed, 0U);
    }
}

TEST(CPoseJudge, HoldsNoGapOfTheDataAgainstAPose)
{
    const Vector3 gaps[] = {{4, 0, 0}, {-6, 3, 0}, {-2, -8, 0}, {0, 9, 0}};
    const auto torn = [&](float x, float y) {
        for (const Vector3& gap : gaps)
            if (std::hypot(x - gap.x, y - gap.y) < 2.5F) return NAN;
        return support::Waves(x, y);
    };
    const auto tornSet = support::PointSet(support::RasterScan(torn, 20.0F, 0.2F, 0.02F, 1));
    const auto wholeSet = support::PointSet(support::RasterScan(support::Waves, 20.0F, 0.2F, 0.02F, 2));
    const CScanView a(tornSet);
    const CScanView b(wholeSet);
    const PoseVerdict verdict = CPoseJudge(a, b).Judge(CTrafo());
    EXPECT_TRUE(verdict) << verdict.ToString();
    EXPECT_GT(verdict.counts.uiInGap, 100U);
    EXPECT_EQ(verdict.counts.uiDisputed, 0U); // nobody looked through them
}

TEST(CPoseJudge, FindsSurfaceThatShouldHaveBeenSeen)
{
    // The second scan has a plate beside the ball, which the first sensor would have seen.
    const std::vector<support::Sphere> ball{{{0, 0, 0}, 8}};
    const std::vector<support::Sphere> balls{{{0, 0, 0}, 8}, {{14, 0, 0}, 4}};
    const auto few = support::PointSet(support::ScanSpheres(ball, CTrafo(), 0.2F, 0.02F, 1));
    const auto more = support::PointSet(support::ScanSpheres(balls, CTrafo(), 0.2F, 0.02F, 2));
    const CScanView a(few);
    const CScanView b(more);
    EXPECT_EQ(CPoseJudge(a, b).Judge(CTrafo()).eFinding, EFinding::SurfaceMissing);
}

TEST(CPoseJudge, MissesSteepSurfaceOnlyWhereTheSensorSawSome)
{
    // The camera stands at -x: of the first ball it loses what is steep and looks to +x.
    const std::vector<support::Sphere> balls{{{-9, 0, 0}, 7}, {{9, 0, 0}, 7}};
    const support::Surface whole = support::ScanSpheres(balls, CTrafo(), 0.12F, 0.02F, 1);
    const auto lost = [&](float until) {
        support::Surface seen;
        for (std::size_t i = 0; i < whole.points.size(); ++i) {
            const Vector3& n = whole.normals[i];
            if (n.x > 0.5F && n.z < 0.64F && whole.points[i].x < until) continue;
            seen.points.push_back(whole.points[i]);
            seen.normals.push_back(n);
        }
        return support::PointSet(seen);
    };
    const auto byLight = lost(100.0F);
    const auto byFault = lost(0.0F);
    const auto all = support::PointSet(support::ScanSpheres(balls, CTrafo(), 0.12F, 0.02F, 2));
    const CScanView oneSided(byLight);
    const CScanView faulty(byFault);
    const auto faces = [](const CScanView& view, const Vector3& normal) {
        return view.GetImage().Faces(view.GetImage().GetFrame().Rotate(normal));
    };
    EXPECT_FALSE(faces(oneSided, {0.8F, 0, 0.6F}));
    EXPECT_TRUE(faces(oneSided, {-0.8F, 0, 0.6F}));
    EXPECT_TRUE(faces(oneSided, {0.6F, 0, 0.8F}));
    EXPECT_TRUE(faces(faulty, {0.8F, 0, 0.6F})) << "the second ball shows some";
    EXPECT_FALSE(faces(faulty, {0.95F, 0, 0.3F}));

    const PoseCounts counts = CPoseJudge(oneSided, CScanView(all)).Judge(CTrafo()).counts;
    EXPECT_GT(counts.uiTurned, counts.uiMissing) << "what is missed lies beside directions that were seen";
}

TEST(CPoseJudge, CountsWhatLookingAtEverySurfelCounts)
{
    const Pair pair(support::Cluster());
    const CTrafo wrong = turn({1, 1, 0}, 20) * pair.truth;
    for (const CTrafo& pose : {pair.truth, wrong}) {
        const CRangeImage& image = pair.fix.GetImage();
        const CRangeImage& other = pair.flt.GetImage();
        const CTrafo move = image.GetFrame() * pose * other.GetFrame().GetInverse(true);
        const double noise = std::hypot(pair.fix.GetSampling().dNoise, pair.flt.GetSampling().dNoise);
        const double front = verdict::dFrontPixels * pair.judge.GetPixelSize() + verdict::dFrontNoise * noise;
        unsigned matched = 0;
        unsigned inFront = 0;
        for (int y = 0; y < other.GetHeight(); y += 2) {
            for (int x = 0; x < other.GetWidth(); x += 2) {
                if (!other.IsFilled({x, y})) continue;
                const Vector3 p = move * other.GetSurfel({x, y}).point;
                const Vector3 n = move.Rotate(other.GetSurfel({x, y}).normal);
                const auto at = image.PixelAt(p);
                float highest = -1e30F;
                int around = 0;
                const CRangeImage::Surfel* nearest = nullptr;
                for (int v = 0; v < image.GetHeight(); ++v) {
                    for (int u = 0; u < image.GetWidth(); ++u) {
                        if (!image.IsFilled({u, v})) continue;
                        const CRangeImage::Surfel& surfel = image.GetSurfel({u, v});
                        if (std::abs(u - at.x) > 1 || std::abs(v - at.y) > 1) continue;
                        ++around;
                        highest = std::max(highest, surfel.point.z);
                        if (!nearest || DistanceSq(surfel.point, p) < DistanceSq(nearest->point, p)) nearest = &surfel;
                    }
                }
                const bool isInFront = around == 9 && static_cast<double>(p.z - highest) > front;
                inFront += isInFront;
                if (!nearest || isInFront) continue;
                const double near =
                    std::max(verdict::dNearPixels * pair.judge.GetPixelSize(), 2 * pair.judge.GetMatchLimit());
                matched += static_cast<double>((nearest->point - p).Length()) < near &&
                           static_cast<double>(std::abs(Dot(nearest->normal, p - nearest->point))) <=
                               pair.judge.GetMatchLimit() &&
                           Dot(nearest->normal, n) > static_cast<float>(verdict::dMatchCosine);
            }
        }
        const PoseCounts counts = pair.judge.Count(pose);
        EXPECT_NEAR(counts.matchedOf[1], matched, 3); // rounding in another order of poses
        EXPECT_GE(counts.uiInFront + 3, inFront);
        EXPECT_GT(matched, 100U);
    }
}

TEST(CPoseJudge, CountsNoFurtherThanItTakesToSeeThatTooMuchContradicts)
{
    const Pair pair(support::Cluster());
    for (const float degrees : {0.0F, 3.0F, 20.0F, 120.0F}) {
        const CTrafo pose = turn({1, 1, 0}, degrees) * pair.truth;
        const PoseCounts counts = pair.judge.Count(pose);
        EXPECT_EQ(counts.uiSamples, pair.judge.GetNumSamples());
        EXPECT_EQ(pair.judge.CountWithin(pose, counts.Contradictions()), counts) << degrees;
        const PoseVerdict byCounts = pair.judge.JudgeCounts(pose);
        const PoseVerdict whole = pair.judge.Judge(pose);
        EXPECT_EQ(byCounts.counts.Contradictions(), whole.counts.Contradictions()) << degrees;
        EXPECT_TRUE(byCounts || byCounts.eFinding == whole.eFinding) << degrees;
        if (degrees == 0.0F) continue;
        ASSERT_GT(counts.Contradictions(), 0U);
        EXPECT_EQ(pair.judge.CountWithin(pose, counts.Contradictions() - 1), std::nullopt) << degrees;
    }
}

TEST(CPoseJudge, TellsASurfaceThatSlidesFromOneThatHolds)
{
    const Pair pair(support::Cluster());
    const PoseCounts counts = pair.judge.Count(pair.truth);
    EXPECT_GE(pair.judge.SlideGrowth(pair.truth, counts), static_cast<int>(verdict::uiMinSlideGrowth));
    const Pair ball({{{0, 0, 0}, 8}});
    EXPECT_LT(ball.judge.SlideGrowth(ball.truth, ball.judge.Count(ball.truth)),
              static_cast<int>(verdict::uiMinSlideGrowth));
}

TEST(CPoseJudge, SeesThatAPoseMayLeaveToOneSide)
{
    // Waves along x; a wall that one scan shows stops the other, which does not show it, on its way to it only.
    const auto isInside = [](float x, float y) { return std::abs(x) <= 10.0F && std::abs(y) <= 10.0F; };
    const auto waves = [](float x) { return 1.5F * std::sin(0.5F * x) + 0.02F * x * x; };
    const auto wall = [&](float x, float y) { return isInside(x, y) ? waves(x) + (y < -6.0F ? 3.0F : 0.0F) : NAN; };
    const auto open = [&](float x, float y) { return isInside(x, y) && y > -6.0F ? waves(x) : NAN; };
    const auto fixSet = support::PointSet(support::RasterScan(wall, 12.0F, 0.2F, 0.02F, 1));
    const auto fltSet = support::PointSet(support::RasterScan(open, 12.0F, 0.2F, 0.02F, 2));
    const CScanView fix(fixSet);
    const CScanView flt(fltSet);
    const CPoseJudge judge(fix, flt);
    const auto contradictions = [&](float y) { return judge.Count(CTrafo().Translate({0, y, 0})).Contradictions(); };
    EXPECT_GT(contradictions(-1.5F), contradictions(0) + 2 * verdict::uiMinSlideGrowth);
    EXPECT_LT(contradictions(1.5F), contradictions(0) + verdict::uiMinSlideGrowth);
    EXPECT_EQ(judge.Judge(CTrafo()).eFinding, EFinding::Sliding);
}

TEST(JudgePoses, GivesEachOfTheFourVerdicts)
{
    const Pair pair(support::Cluster());
    const CTrafo wrong = turn({0, 0, 1}, 70) * pair.truth;
    const CTrafo far = pair.truth.Translate({12, 12, -25});
    const auto verdictOn = [&](const std::vector<CTrafo>& poses) { return JudgePoses(pair.judge, poses); };
    EXPECT_EQ(verdictOn({wrong, pair.truth, CTrafo::Invalid()}).eVerdict, EPairVerdict::Aligned);
    EXPECT_EQ(verdictOn({wrong, pair.truth}).explanations, std::vector<std::size_t>{1});
    EXPECT_EQ(verdictOn({wrong}).eVerdict, EPairVerdict::NotAligned);
    EXPECT_EQ(verdictOn({}).eVerdict, EPairVerdict::TooLittle);
    EXPECT_EQ(verdictOn({pair.truth, pair.truth.Translate({0.05F, 0, 0})}).eVerdict, EPairVerdict::Aligned);
    EXPECT_NE(verdictOn({far}).eVerdict, EPairVerdict::Aligned);

    // Six balls on a ring look the same at every sixth of a turn.
    std::vector<support::Sphere> ring{{{0, 0, 0}, 6}};
    for (int i = 0; i < 6; ++i) ring.push_back({turn({0, 0, 1}, 60.0F * static_cast<float>(i)) * Vector3(9, 0, 0), 3});
    const Pair turns(ring, 25.0F);
    const std::vector<CTrafo> sixths{turns.truth, turn({0, 0, 1}, 60) * turns.truth};
    const PairVerdict ambiguous = JudgePoses(turns.judge, sixths);
    EXPECT_EQ(ambiguous.eVerdict, EPairVerdict::Ambiguous) << ambiguous.ToString();
    EXPECT_EQ(ambiguous.explanations.size(), 2U);

    const Pair ball({{{0, 0, 0}, 8}});
    EXPECT_EQ(JudgePoses(ball.judge, std::vector<CTrafo>{ball.truth}).eVerdict, EPairVerdict::Ambiguous);
}

TEST(DecideOnPoses, IsNotSureOfAPoseThatOneThatFellOutdoes)
{
    const Pair pair(support::Cluster());
    const std::vector<CTrafo> poses{pair.truth, turn({0, 0, 1}, 70) * pair.truth};
    PoseVerdict best{EFinding::Consistent, {}};
    best.counts.uiMatched = 500;
    PoseVerdict fallen{EFinding::SeenThrough, {}};
    fallen.counts.uiInFront = 100;
    fallen.counts.uiMatched = 950; // scores 550
    EXPECT_EQ(DecideOnPoses(pair.judge, poses, {best, fallen}).eVerdict, EPairVerdict::Ambiguous);
    PoseVerdict sliding{EFinding::Sliding, {}};
    sliding.counts.uiMatched = 300; // more than half of the best score: the right one may be held badly
    EXPECT_EQ(DecideOnPoses(pair.judge, poses, {best, sliding}).explanations.size(), 2U);
    sliding.counts.uiMatched = 200;
    EXPECT_EQ(DecideOnPoses(pair.judge, poses, {best, sliding}).eVerdict, EPairVerdict::Aligned);
    PoseVerdict held{EFinding::Consistent, {}};
    held.counts.uiMatched = 100; // little, but nothing speaks against it, and it is held
    EXPECT_EQ(DecideOnPoses(pair.judge, poses, {best, held}).eVerdict, EPairVerdict::Ambiguous);
    fallen.counts.uiMatched = 850;
    EXPECT_EQ(DecideOnPoses(pair.judge, poses, {best, fallen}).eVerdict, EPairVerdict::Aligned);
    fallen.counts = {.uiMatched = 2100, .uiInFront = 1000}; // scores less, but most of the object agrees with itself
    EXPECT_EQ(DecideOnPoses(pair.judge, poses, {best, fallen}).eVerdict, EPairVerdict::Ambiguous);

    // Where nothing contradicts a place as it stands, a doubt about the pose refined there does not rule it out.
    const std::vector<CTrafo> beside{pair.truth, poses[1], poses[1]};
    PoseVerdict doubtful{EFinding::Doubtful, {}};
    doubtful.counts.uiMatched = 200;
    PoseVerdict open{EFinding::NotRuledOut, {}};
    open.counts.uiMatched = 100;
    EXPECT_EQ(DecideOnPoses(pair.judge, beside, {best, doubtful, open}).eVerdict, EPairVerdict::Ambiguous);
    EXPECT_EQ(DecideOnPoses(pair.judge, beside, {best, doubtful, doubtful}).eVerdict, EPairVerdict::Aligned);

    // What leaves the best pose standing does not rule out another one either.
    best.counts = {.uiMatched = 500, .uiMissing = 10};
    doubtful.counts = {.uiMatched = 400, .uiMissing = 15};
    EXPECT_EQ(DecideOnPoses(pair.judge, poses, {best, doubtful}).eVerdict, EPairVerdict::Ambiguous);
    doubtful.counts.uiMissing = 20;
    EXPECT_EQ(DecideOnPoses(pair.judge, poses, {best, doubtful}).eVerdict, EPairVerdict::Aligned);
    best.counts = {.uiMatched = 500};

    const auto pixel = static_cast<float>(pair.judge.GetPixelSize());
    const std::vector<CTrafo> twins{pair.truth, pair.truth.Translate({0.05F, 0, 0})};
    sliding.counts.uiMatched = 495;
    EXPECT_EQ(DecideOnPoses(pair.judge, twins, {best, sliding}).poses[0].eFinding, EFinding::Sliding);
    const std::vector<CTrafo> slid{pair.truth, pair.truth.Translate({5.0F * pixel, 0, 0})};
    sliding.counts = {.uiMatched = 450, .uiTail = 10};
    EXPECT_EQ(DecideOnPoses(pair.judge, slid, {best, sliding}).eVerdict, EPairVerdict::Ambiguous);
    sliding.counts = {.uiMatched = 450, .uiTail = 50}; // the best one is held against the motion there
    EXPECT_EQ(DecideOnPoses(pair.judge, slid, {best, sliding}).eVerdict, EPairVerdict::Aligned);
    sliding.counts = {.uiMatched = 480}; // a rougher fit, from which the better one looks like a way out
    EXPECT_EQ(DecideOnPoses(pair.judge, twins, {best, sliding}).eVerdict, EPairVerdict::Aligned);
}

TEST(JudgePoses, IsNeverSureWithoutAnyRay)
{
    const Pair pair(support::Cluster());
    const CScanView fix(pair.fixSet, {.isSurface = true});
    const CScanView flt(pair.fltSet, {.isSurface = true});
    const PairVerdict verdict = JudgePoses(CPoseJudge(fix, flt), std::vector<CTrafo>{pair.truth});
    EXPECT_EQ(verdict.eVerdict, EPairVerdict::Ambiguous);
    EXPECT_TRUE(verdict.isRayUnknown);
    EXPECT_EQ(JudgePoses(CPoseJudge(fix, pair.flt), std::vector<CTrafo>{pair.truth}).eVerdict, EPairVerdict::Aligned);
}

} // namespace
