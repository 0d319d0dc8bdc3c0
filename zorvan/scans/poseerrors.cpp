// SPDX-License-Identifier: MIT
#include "zorvan/scans/poseerrors.h"

#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <map>
#include <numbers>
#include <sstream>
#include <utility>

namespace Zorvan {

namespace {

/// A scan of the truth with its estimated pose, or null.
struct Match
{
    const ScanPose* truth;
    const ScanPose* estimate;
    std::pair<std::size_t, std::size_t> frame; ///< clusters of estimate and truth: within both, poses compare
};

std::vector<Match> matchScans(const PosesFile& poses, const PosesFile& truth)
{
    std::vector<Match> matches;
    for (std::size_t i = 0; i < truth.clusters.size(); ++i) {
        for (const ScanPose& scan : truth.clusters[i].scans) {
            if (!scan.pose) continue;
            const auto [found, cluster] = poses.Find(scan.file);
            const bool hasPose = found != nullptr && found->pose;
            matches.push_back({&scan, hasPose ? found : nullptr, {cluster, i}});
        }
    }
    return matches;
}

// Through the half angle: the arc cosine would lose half of the digits near zero.
double degreesBetween(const prereg::CTrafo& a, const prereg::CTrafo& b)
{
    const prereg::Quaternion q = ~a.GetQuaternion() * b.GetQuaternion();
    const double half = std::atan2(std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z), std::abs(q.w));
    return 2.0 * half * 180.0 / 3.14159265358979;
}

/// In double precision. The shift is that of what comes to `middle` of the frame: at the origin of far coordinates an
/// error of a thousandth of a degree would be a hundred metres.
PoseError measureFar(const Match& match, const Match& reference, const Position& middle)
{
    const Position scanned = Transform(Inverse(ExactPoseOf(*match.estimate)), middle);
    const FramePose estimate = Compose(Inverse(ExactPoseOf(*reference.estimate)), ExactPoseOf(*match.estimate));
    const FramePose truth = Compose(Inverse(ExactPoseOf(*reference.truth)), ExactPoseOf(*match.truth));
    const Position a = Transform(estimate, scanned);
    const Position b = Transform(truth, scanned);
    const FramePose between = Compose(Inverse(estimate), truth);
    const auto& q = between.rotation;
    const double half = std::atan2(std::hypot(q[1], q[2], q[3]), std::abs(q[0]));
    return {match.truth->file, EPlace::Measured, 2.0 * half * 180.0 / std::numbers::pi,
            std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2])};
}

/// @param middle  of the frame of the estimates where that is far from the origin, else zeros
PoseError measure(const Match& match, const Match& reference, const Position& middle)
{
    const auto isFar = [](const Match& m) { return IsFar(*m.estimate) || IsFar(*m.truth); };
    if (middle != Position{} || isFar(match) || isFar(reference)) return measureFar(match, reference, middle);
    const prereg::CTrafo estimate = reference.estimate->pose.GetInverse(true) * match.estimate->pose;
    const prereg::CTrafo truth = reference.truth->pose.GetInverse(true) * match.truth->pose;
    const Vector3 shift = estimate.GetTranslation() - truth.GetTranslation();
    return {match.truth->file, EPlace::Measured, degreesBetween(estimate, truth), static_cast<double>(shift.Length())};
}

double median(std::vector<double> values)
{
    if (values.empty()) return 0.0;
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : 0.5 * (values[middle - 1] + values[middle]);
}

void summarize(PoseErrors& errors)
{
    std::vector<double> degrees;
    std::vector<double> shifts;
    for (const PoseError& scan : errors.scans) {
        if (scan.ePlace != EPlace::Measured) continue;
        degrees.push_back(scan.dDegrees);
        shifts.push_back(scan.dMm);
    }
    errors.uiMeasured = degrees.size();
    errors.dMedianDegrees = median(degrees);
    errors.dMedianMm = median(shifts);
    if (!degrees.empty()) errors.dWorstDegrees = *std::max_element(degrees.begin(), degrees.end());
    if (!shifts.empty()) errors.dWorstMm = *std::max_element(shifts.begin(), shifts.end());
    errors.isComplete = std::all_of(errors.scans.begin(), errors.scans.end(), [](const PoseError& scan) {
        return scan.ePlace == EPlace::Measured || scan.ePlace == EPlace::Reference;
    });
}

const char* wordFor(EPlace ePlace)
{
    switch (ePlace) {
    case EPlace::Reference:
        return "reference";
    case EPlace::Alone:
        return "alone in its cluster";
    default:
        return "no pose";
    }
}

} // namespace

PoseErrors ComparePoses(const PosesFile& poses, const PosesFile& truth)
{
    const std::vector<Match> matches = matchScans(poses, truth);
    std::map<std::pair<std::size_t, std::size_t>, std::vector<const Match*>> frames;
    for (const Match& match : matches) {
        if (match.estimate != nullptr) frames[match.frame].push_back(&match);
    }
    const Position middle = poses.shift;
    PoseErrors errors;
    for (const Match& match : matches) {
        if (match.estimate == nullptr) {
            errors.scans.push_back({match.truth->file, EPlace::Missing, 0, 0});
            continue;
        }
        const auto& frame = frames[match.frame];
        const bool isAlone = frame.size() == 1 && truth.clusters[match.frame.second].scans.size() > 1;
        if (frame.front() != &match)
            errors.scans.push_back(measure(match, *frame.front(), middle));
        else
            errors.scans.push_back({match.truth->file, isAlone ? EPlace::Alone : EPlace::Reference, 0, 0});
    }
    summarize(errors);
    return errors;
}

std::string TableText(const PoseErrors& errors)
{
    std::size_t width = 4;
    for (const PoseError& scan : errors.scans) width = std::max(width, ToShown(scan.file).size());
    const auto name = [width](const std::string& text) { return text + std::string(width - text.size() + 2, ' '); };
    std::ostringstream text;
    text << name("scan") << "   degrees         mm\n" << std::fixed << std::setprecision(5);
    for (const PoseError& scan : errors.scans) {
        text << name(ToShown(scan.file));
        if (scan.ePlace != EPlace::Measured)
            text << wordFor(scan.ePlace) << '\n';
        else
            text << std::setw(10) << scan.dDegrees << ' ' << std::setw(10) << scan.dMm << '\n';
    }
    return text.str();
}

std::string SummaryText(const PoseErrors& errors)
{
    const auto placed = std::count_if(errors.scans.begin(), errors.scans.end(), [](const PoseError& scan) {
        return scan.ePlace == EPlace::Measured || scan.ePlace == EPlace::Reference;
    });
    std::ostringstream text;
    text << placed << " of " << errors.scans.size() << " scans have a place";
    if (errors.uiMeasured > 0)
        text << std::fixed << std::setprecision(5) << "; median " << errors.dMedianDegrees << " degrees, "
             << errors.dMedianMm << " mm; worst " << errors.dWorstDegrees << " degrees, " << errors.dWorstMm << " mm";
    text << '\n';
    return text.str();
}

} // namespace Zorvan
