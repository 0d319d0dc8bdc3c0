// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

/// All numbers that decide what counts for or against a pose, with the data that each was chosen on. Lengths are in
/// units of what was measured on the scans: noise (standard deviation along the normal), spacing, pixel of the range
/// image. "Kept aside" below means sets that played no part in the choice; benchmarks/README.md has the rates on these.
namespace prereg::verdict {

// How a scan is measured ------------------------------------------------------------------------------------------

constexpr std::size_t uiSpacingProbes = 2000; ///< the median of so many is good to some percent
constexpr std::size_t uiNoiseProbes = 400;
constexpr double dNoiseRadius = 3.0;    ///< spacings: some 28 neighbours, against six parameters of a quadric
constexpr double dNoisePerRadius = 0.1; ///< a noise above this share of the radius asks for a wider neighbourhood
constexpr int iMaxNoiseDoublings = 4;
constexpr std::size_t uiMinQuadricPoints = 12; ///< twice the parameters
constexpr std::size_t uiMaxQuadricPoints = 96; ///< more only take time

// The viewing ray ---------------------------------------------------------------------------------------------------

constexpr std::size_t uiRayProbes = 300;
constexpr double dRayRadius = 4.5; ///< spacings: on a surface 75 degrees off the ray the next line is 3.9 away
constexpr std::size_t uiMaxRayNeighbours = 64;
constexpr std::size_t uiRayDirections = 400; ///< over the half sphere: 7 degrees apart, as wide as a peak
/// q10 / q90 of the projected distances. Along the true ray it is 0.8 to 1 on the bunny, on figures and on machined
/// objects; on merged or thinned clouds 0.3 to 0.5 along any direction.
constexpr double dMinRegularity = 0.65;
/// The z axis needs no rival then: 94 of 94 scans in the frame of their sensor, none of them turned out of it.
constexpr double dSureRegularity = 0.95;
constexpr double dSureVisible = 0.95; ///< share of normals
/// As regular as the best: the visible normals decide. Up to three times as far from 1, and by no more than this.
constexpr double dRegularityTie = 0.015;
constexpr double dRegularityRounding = 0.002; ///< between perfect rasters
constexpr double dVisibleTie = 0.02;          ///< share of visible normals that makes no difference
constexpr double dVisibleCosine = 0.1;
constexpr double dMinMeanNormal = 0.5; ///< shorter, and the scan was not seen from one side: no ray at all
constexpr double dConeDegrees = 15.0; ///< about a guessed ray: what is said to be in front must be so all over the cone

// The range image -----------------------------------------------------------------------------------------------------

/// A raster of points leaves no pixel empty when it drifts against the pixels.
constexpr double dPixelPerSpacing = 1.25;
constexpr double dPixelGrowth = 1.4; ///< while the image is full of holes, as with lines of a lidar
constexpr int iMaxPixelGrowths = 6;
constexpr double dMinFilledNeighbours = 6.5; ///< of 8, in the mean over filled pixels: below, the pixels are too small
constexpr double dShadowDegrees = 30.0;      ///< between camera and light of a triangulating sensor
/// A side of the image that so many lines of surface reach within half a pixel, where hardly more do three pixels
/// further in, may be the end of the field of view, and the other sides too. So are the sides of 400 of 400 views of a
/// virtual jaw, 24 of 24 of parts on a table, and 3 of 262 of the bunny, figures and other parts.
constexpr int iMinCutPixels = 15;
constexpr double dMinCutStraightness = 0.8;

/// Of eight directions: beside a straight outline three meet surface, in a notch or a hole more.
constexpr int iGapDirections = 5;
constexpr double dGapCosine = 0.5;    ///< steeper surface turns away: its end is a silhouette or the wall of a bore
constexpr int iGapSteep = 1;          ///< of the eight: fitted normals err at edges
constexpr double dGapFlatness = 0.99; ///< length of the mean normal: above, they spread by 8 degrees, as on a plane

// What counts for and against a pose ----------------------------------------------------------------------------------

constexpr double dSampleStep = 2.0; ///< pixels of the coarser scan, between the samples of either
/// A pair with a scan that fills fewer pixels is sampled in each of them. Rings of a spinning sensor make 200 to 600
/// pixels of an object, and every second one leaves right poses short of matches (25 to 54 of a figure). Such a pair is
/// ambiguous at best: of a housing, half a turn off, 612 of 660 samples match and nothing speaks against it.
constexpr std::size_t uiFewPixels = 1500;
/// A point matches within this noise of both scans, or this share of a pixel where that is more: what curvature adds
/// between the points.
constexpr double dMatchNoise = 4.0;
constexpr double dMatchPixels = 0.25;
constexpr double dMatchCosine = 0.5;   ///< normals of a match differ by 60 degrees at most
constexpr double dOpposedCosine = 0.2; ///< by 78 degrees and more: another face of the object
constexpr double dNearPixels = 3.0;    ///< a point this near should match: it counts for the tail when it does not
constexpr double dFrontPixels = 3.0;   ///< in front of the highest of nine pixels by more: the sensor looked through it
constexpr double dFrontNoise = 5.0;
constexpr double dFacingCosine = 0.4; ///< flatter surface a sensor may lose
/// 50 degrees off the ray, and so ten degrees above the horizon of a camera that stands dShadowDegrees beside it:
/// steeper surface speaks against a pose where the sensor saw some that looks the same way.
constexpr double dSteepCosine = 0.64;
constexpr std::size_t uiMinFace = 30; ///< pixels or samples that make a face: a few stray points make none
constexpr std::size_t uiFacesInScan = 300;
constexpr double dMissingPixels = 2.5; ///< outside the silhouette: edges are lost too

// What a pose must pass -----------------------------------------------------------------------------------------------

constexpr unsigned uiMinMatched = 60;     ///< samples
constexpr double dMinMatchedShare = 0.02; ///< of the samples of the smaller scan
/// Of right poses with an overlap above 0.1 (606 of the bunny, figures and parts) 0.021 at most but for one; of 15,710
/// wrong ones 80 stay below, 78 of them on a flange that is right but for a detail at every sixth of a turn.
constexpr double dMaxContradiction = 0.03;
/// Scanners with other errors than noise show up to 0.083 at right poses; 126 of the wrong ones stay below.
constexpr double dMaxDoubt = 0.085;
/// An eighth of the samples refutes a pose by so many contradictions, and this multiple of the limit: a right pose at
/// the limit shows the multiple in less than one of 10,000 such draws.
constexpr unsigned uiMinEarlyContradictions = 15;
constexpr double dEarlyFactor = 3.0;
/// Samples in front whose eight neighbours are in front too. An edge errs by a pixel or two, a sample is two wide: such
/// strips hold none, and p^9 of the samples would be so by chance where a share p of them errs. Of 157 right poses of
/// the bunny, figures, parts and virtual objects none has any; a wrong one of the bracket that 97.6 % of what can be
/// compared speaks for has 41.
constexpr unsigned uiMinSolid = 4;
/// So many raise a doubt. Of 90 right poses of the bunny, figures and parts none has any; a housing turned about by
/// half a turn, whose window shows it, has 3.
constexpr unsigned uiDoubtfulSolid = 2;
/// Pixels that were looked through, from which on a patch is no chance of noise.
constexpr int iMinPatchRefuted = 3;
/// Pixels in the middle of disputed patches. None at 101 right poses of virtual objects above an overlap of 0.08. Of 14
/// wrong ones that nothing else spoke against, boxes half a turn off with a window or two, 10 have 24 to 152. Holes
/// that surface encloses are no proof: two right poses of parts on a table, their own shadows about them, have 917 and
/// 1,040.
constexpr unsigned uiDoubtfulDisputed = 4;
constexpr unsigned uiMinDisputed = 32; ///< 4 x 8; a doubt still lists the pose, and the right one beside it
/// Two spinning sensors nearer to each other than this share of their range, on axes less than 20 degrees apart, have
/// their rings, and the ends of what they looked over, in the same places whatever they saw. Of a part on a table four
/// such poses match four in five samples with hardly a contradiction, and all are wrong; neighbouring views of a lidar
/// that walks around an object in eleven steps lie 0.23 and more apart.
constexpr double dSamePlace = 0.2;
constexpr double dSameAxisCosine = 0.94;
constexpr double dMaxTail = 0.5;     ///< bunny: up to 0.45 where views were taken of a surface that had moved a little
constexpr double dSlidePixels = 6.0; ///< how far a pose is moved along what the surface holds least
/// Samples that speak against the pose after such a move, either way. Of right poses of the bunny, cow and homer 26 at
/// least (41), of a bracket and steps above an overlap of 0.3 in 20 of 25; of three wrong ones of these that nothing
/// else spoke against -38 to -1: they could be left to one side.
constexpr unsigned uiMinSlideGrowth = 25;
/// Of the way: half as many have to speak against the pose here already. A bracket (10555) was called aligned 1.5 mm
/// beside the truth, where the shallow faces that would hold it can be left for the truth and 2 more samples speak
/// against it after three quarters of the way, 24 at its end; of 351 right poses of the same run 5 have fewer than 12.
constexpr double dNearSlide = 0.75;
constexpr int iNearSlideWeight = 2;

constexpr double dWeakHold = 0.03; ///< of the strongest hold: an axis to turn about in search of rivals
/// Right poses of the bunny and figures hold 0.005 and more in nine of ten pairs, those of plane parts next to nothing:
/// a single proposal that passes does for the former, while of the latter there may be other poses as good.
constexpr double dFirmHold = 0.005;
/// A scan with more of its surface in one direction is a part, made of planes, and may fit in many places.
constexpr double dMaxPlaneShare = 0.25;
/// Of the samples that such a part is refined on first: as many as a cube shows of each of its faces, and fewer. Poses
/// of a part on a table that were left half a millimetre off the walls (tail 1,092 of 14,451, may slide) come to 86 of
/// 14,522.
constexpr double dMostOfADirection = 0.2;

/// Of a pose that is still to be refined; a degree or a spacing off, right ones stay far below.
constexpr double dMaxRoughContradiction = 0.3;
constexpr std::size_t uiMaxHopeful = 60; ///< proposals of the vote that are refined on all points

// What a list of poses says -------------------------------------------------------------------------------------------

/// Of the best score: a pose that something speaks against explains the scans as well from here on.
constexpr double dRivalShare = 0.9;
/// And one that nothing speaks against, but that may slide: on the flange, turns that hide its one detail match more
/// than the truth does, in 6 of 66 pairs without a contradiction; no wrong pose of the bunny and the figures stands at
/// all. One that is held as well is a rival with any score: beside 2 of 241 right answers on virtual objects (seeds
/// 9710 and 9900) one stands elsewhere with less than half, and beside a wrong one the truth does, with 0.36.
constexpr double dCleanRivalShare = 0.5;
/// Nor is one ruled out by contradictions of at most so many times the share that the best one has itself: on a gear
/// (10639) the best of several turns by teeth has 0.0298, the truth 0.046, and the limit lies between. Of 351 right
/// answers of that run none has such a rival, and one with three times.
constexpr double dAsDoubtful = 2.0;
/// Of its score: poses of the same place that come so near to the best one differ from it by chance. Where one of them
/// slides, the place is not held. Of 68 right poses of the bunny, figures and parts 1 has such a twin.
constexpr double dTwinShare = 0.98;
/// Times the matches of the best pose in another, which fell: the object agrees with itself by so much that the best
/// one proves little. Up to 2.0 at 68 right poses of the bunny, figures and parts; 12 at a wrong one of a housing,
/// where 5 percent of the samples match.
constexpr double dFallenMatches = 4.0;
constexpr double dContradictionWeight = 4.0; ///< in the score, against a match
constexpr double dDistinctPixels = 4.0;      ///< poses nearer to one another are one

// Spots that views divide about ---------------------------------------------------------------------------------------

constexpr std::size_t uiMinCamp = 2;      ///< views that show a spot, and that lack it: one may err
constexpr std::size_t uiMinSpotCells = 4; ///< samples side by side: wider than what an edge errs by
/// Of what lies about a spot, or of the spot itself: a gap in a ring of it spans less than a quarter turn.
constexpr double dMostOfSpot = 0.8;
/// A view that looks at a spot flatly shows the part of it that faces the sensor. None of what does is lost then.
constexpr double dShownOfSpot = 0.5;
constexpr double dLostOfShown = 0.1;
constexpr double dMaxSpotChance = 0.01; ///< spots that chance would bring about in an object

// Twins of a box ------------------------------------------------------------------------------------------------------

/// Two sides of a box that differ by less are one square, which quarter turns carry onto itself.
constexpr double dSquareShare = 0.05;
/// Contradictions over samples of a twin that a pixel or two will not bring right.
constexpr double dHopelessTwin = 0.06;
/// The same after a step to each side along all axes. Of 35 twins of brackets, housings and steps (seeds 10180 to
/// 10233) that came out below the limit all had 0.006 at most then.
constexpr double dHopelessSettledTwin = 0.01;
/// So far, in steps of dApartPixels to either side, a twin is looked for along an axis at whose end no face of the box
/// was seen. Three folded housings (10400, 10445, 10550): two needed 7 pixels.
constexpr int iApartSteps = 3;
constexpr double dApartPixels = 3.0;
/// Contradictions over samples of a twin that may be the truth. Of 13 housings and brackets that were folded onto their
/// other side (seeds 8300 and 9600), the right place, found in this way, has 0 to 0.0034.
constexpr double dTwinContradiction = 0.005;
/// Pixels from the face of the box, or from a plane, within which surface belongs to it.
constexpr double dTwinReach = 2.5;
/// A pose of which so much of what matches is no face of the box, nor carried onto surface by the turn, is no accident
/// of a box. Of the 13 wrong ones up to 0.34; of 44 right ones of the bracket and the steps that a twin is open for
/// 0.02 to 0.73, five above the limit.
constexpr double dTellingShare = 0.5;
/// Squared ratio of the half-axes of an ellipsoid: where it is flatter, hardly anything says where its middle lies.
constexpr double dFlattestEllipsoid = 0.01;

// How well a pose is known --------------------------------------------------------------------------------------------

constexpr double dPoseResidualNoise = 5.0; ///< deviations: of normal noise, one residual in two million is lost
constexpr double dPoseReach = 1.0;         ///< spacings along the surface: a point off its end has no match
constexpr double dPoseCosine = 0.966;    ///< normals of a match differ by 15 degrees at most: fitted ones err at edges
constexpr double dPoseNormalNoise = 2.0; ///< of the median angle: of normal noise, six in a hundred are lost
constexpr double dPoseLeastCosine = 0.9986; ///< 3 degrees, which a curved surface turns by between the points
/// Normals are fitted to neighbours within two or three spacings, so residuals this far apart have little in common.
constexpr double dPosePatch = 6.0;           ///< spacings
constexpr std::size_t uiPoseMinPatches = 12; ///< twice the parameters
/// Times what the noise of normals feigns as a hold: so much keeps a scan in each round where the one before has left
/// it. After eight rounds a motion that nothing but this noise holds has gone a quarter of its way; one that is held a
/// hundred times as much all but 1e-5 of it.
constexpr double dFeignedHold = 30.0;
constexpr int iAnchorRounds = 8;
constexpr double dPoseJointRest = 1e-3; ///< spacings, of a step of all scans together
constexpr int iPoseMaxSteps = 30;
constexpr std::size_t uiSettlePoints = 5000; ///< of one scan: they know the pose to a few hundredths of a pixel
constexpr double dPoseRest = 0.01;     ///< spacings: after a step below, residuals are noise and no longer the pose
constexpr double dPoseLastStep = 1e-4; ///< spacings
/// Deviations of independent noise, which are less than those of the pose: of all points, a step below is the last one.
/// Were it left out, deviations would grow by 3 %.
constexpr double dPoseStepInNoise = 0.25;
/// Of the matches lie beside edges, where fitted normals lean though nothing is there to hold. Of two views of a gear's
/// face, 9 %.
constexpr double dPoseEdgeShare = 0.1;
/// The pull against a weak hold is that of the hold, give or take so much. Of a bracket and a housing 0.75 to 1.24 of
/// it; of the gear's face a third of the shares lies below -2, a third beyond 2.
constexpr double dPoseHoldPlay = 0.3;
constexpr double dPoseLeastHold = 1e-5;    ///< of the best held direction: keeps deviations finite
constexpr double dPoseFreeSpacings = 0.25; ///< a motion of so much is said in words

} // namespace prereg::verdict
