// SPDX-License-Identifier: MIT
#include "virtualobject.h"

namespace tools {

Zorvan::Vector3 AVirtualObject::Normal(const Zorvan::Vector3& p) const
{
    constexpr float h = 0.02F;
    const auto slope = [&](const Zorvan::Vector3& step) { return Distance(p + step) - Distance(p - step); };
    return Zorvan::Normalized({slope({h, 0, 0}), slope({0, h, 0}), slope({0, 0, h})});
}

} // namespace tools
