// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/scan.h"

namespace Zorvan {

/// Hears of the points of a file as they are walked through, in place of their being moved.
class IPointListener
{
public:
    virtual ~IPointListener() = default;
    /// In the frame and unit of the file. @param normal  null where the file has none
    virtual void TakePoint(const Position& place, const Position* normal) = 0;
    /// Its frame in that of the points, when the file states it.
    virtual void TakeSensor(const FramePose& sensor) = 0;
};

} // namespace Zorvan
