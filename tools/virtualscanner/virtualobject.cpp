#include "virtualobject.h"

namespace tools {

Vector3 AVirtualObject::Normal(const Vector3& p) const
{
    constexpr float h = 0.02F;
    const auto slope = [&](const Vector3& step) { return Distance(p + step) - Distance(p - step); };
    return Normalized({slope({h, 0, 0}), slope({0, h, 0}), slope({0, 0, h})});
}

} // namespace tools
