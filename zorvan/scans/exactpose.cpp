// SPDX-License-Identifier: MIT
#include "zorvan/scans/exactpose.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cmath>

namespace Zorvan {

namespace {

constexpr double dFarTranslation = 1e5; // mm; floats step by 0.008 mm there

Position opposite(const Position& p) { return {-p[0], -p[1], -p[2]}; }

} // namespace

FramePose ToFramePose(const prereg::CTrafo& pose)
{
    std::array<Position, 3> rows{};
    Position position{};
    for (unsigned row = 0; row < 3; ++row) {
        for (unsigned column = 0; column < 3; ++column) rows[row][column] = static_cast<double>(pose(row, column));
        position[row] = static_cast<double>(pose(row, 3));
    }
    return FromRows(rows, position).value_or(FramePose{position});
}

prereg::CTrafo ToTrafo(const FramePose& pose)
{
    const auto rows = RotationRows(pose);
    const auto vector = [](const Position& p) { return Vector3(ToFloat(p[0]), ToFloat(p[1]), ToFloat(p[2])); };
    return {vector(rows[0]), vector(rows[1]), vector(rows[2]), vector(pose.position)};
}

FramePose ExactPoseOf(const ScanPose& scan)
{
    if (!scan.exact) return ToFramePose(scan.pose);
    const PoseRows& m = *scan.exact;
    std::array<Position, 3> rows{};
    for (std::size_t row = 0; row < 3; ++row) rows[row] = {m[row][0], m[row][1], m[row][2]};
    const Position position{m[0][3], m[1][3], m[2][3]};
    return FromRows(rows, position).value_or(FramePose{position});
}

ScanPose IdentityPose()
{
    ScanPose scan;
    scan.pose = prereg::CTrafo::Identity();
    return scan;
}

bool IsFar(const ScanPose& scan)
{
    const Vector3& t = scan.pose.GetTranslation();
    return std::max({std::abs(t.x), std::abs(t.y), std::abs(t.z)}) > dFarTranslation;
}

prereg::CTrafo PoseAbout(const ScanPose& scan, const Position& from, const Position& to)
{
    if (!scan.pose || (from == Position{} && to == Position{})) return scan.pose;
    return ToTrafo(WithoutShifts(ExactPoseOf(scan), opposite(from), opposite(to)));
}

prereg::CTrafo PoseAbout(const ScanPose& fix, const ScanPose& flt, const Position& fixShift, const Position& fltShift)
{
    const bool isShifted = fixShift != Position{} || fltShift != Position{};
    if (!isShifted && !IsFar(fix) && !IsFar(flt)) return fix.pose.GetInverse(true) * flt.pose;
    const FramePose pose = Compose(Inverse(ExactPoseOf(fix)), ExactPoseOf(flt));
    return ToTrafo(WithoutShifts(pose, opposite(fltShift), opposite(fixShift)));
}

void SetPose(ScanPose& scan, const FramePose& pose)
{
    const auto rows = RotationRows(pose);
    scan.exact.emplace();
    for (std::size_t row = 0; row < 3; ++row)
        (*scan.exact)[row] = {rows[row][0], rows[row][1], rows[row][2], pose.position[row]};
    scan.pose = ToTrafo(pose);
}

void SetPoseAbout(ScanPose& scan, const prereg::CTrafo& pose, const Position& from, const Position& to)
{
    scan.pose = pose;
    scan.exact.reset();
    if (!pose || (from == Position{} && to == Position{})) return;
    SetPose(scan, WithoutShifts(ToFramePose(pose), from, to));
}

} // namespace Zorvan
