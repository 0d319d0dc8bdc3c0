// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/scans/vectors.h"

#include <vector>

namespace tools {

/// What a sensor has to know of an object before it looks. Lengths in mm, in the object's coordinates.
struct ObjectTraits
{
    Zorvan::Vector3 middle;
    float radius = 0.0F;    ///< a ball of this radius around `middle` holds all that is to be seen
    double dSize = 0.0;     ///< longest side of the box around the object
    float steepest = 1.0F;  ///< outside, the field is at most this times the distance
    bool isOnTable = false; ///< seen from above (+z) only; what lies around it reaches beyond every view
    /// The motions that carry the object onto itself, the identity first. A pose is known only up to these.
    std::vector<prereg::CTrafo> symmetries{prereg::CTrafo::Identity()};
};

/// A thing to be scanned, as a signed distance field in millimetres: zero on the surface, negative inside, elsewhere at
/// most `steepest` times the distance. Const operations are safe from several threads.
class AVirtualObject
{
public:
    virtual ~AVirtualObject() = default;

    [[nodiscard]] virtual float Distance(const Zorvan::Vector3& p) const = 0;
    [[nodiscard]] virtual const ObjectTraits& GetTraits() const = 0;

    /// Unit normal of the surface of equal distance through p, outward.
    [[nodiscard]] Zorvan::Vector3 Normal(const Zorvan::Vector3& p) const;

protected:
    AVirtualObject() = default;
    AVirtualObject(const AVirtualObject&) = default;
    AVirtualObject& operator=(const AVirtualObject&) = default;
};

} // namespace tools
