// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/scan.h"

#include <cstddef>
#include <optional>
#include <string>

namespace Zorvan {

/// Which of several scans of a file it is; see `Scan`.
struct ScanHeading
{
    std::size_t number = 1;
    std::string name = {};
    std::optional<FramePose> pose = {};
};

/// Hears of the points of a file as they are walked through, in place of their being moved.
class IPointListener
{
public:
    virtual ~IPointListener() = default;
    /// What follows belongs to it. Formats that hold one scan a file do not say so.
    virtual void BeginScan(const ScanHeading& heading) = 0;
    /// In the frame of the scan and the unit of the file. @param normal  null where the file has none
    virtual void TakePoint(const Position& place, const Position* normal) = 0;
    /// Its frame in that of the points, when the file states it; comes before them.
    virtual void TakeSensor(const FramePose& sensor) = 0;
};

} // namespace Zorvan
