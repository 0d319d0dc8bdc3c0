// SPDX-License-Identifier: MIT
#include "zorvan/core/settinginfo.h"

#include <cmath>

namespace prereg {

std::string WhatIsWrong(const SettingInfo& info, double value)
{
    if (!std::isfinite(value)) return "needs a finite number";
    if (value < 0.0 && info.sign == ESign::NotNegative) return "needs a number that is not negative";
    return {};
}

std::string WhatIsWrong(const SettingInfo& info, unsigned int value)
{
    if (value > info.most) return "needs a whole number from 0 to " + std::to_string(info.most);
    return {};
}

void ScaleSetting(const SettingInfo& info, double factor, double& value)
{
    switch (info.scaling) {
    case EScaling::None:
        return;
    case EScaling::LengthIfPositive:
        if (value > 0.0) value *= factor;
        return;
    case EScaling::Length:
        value *= factor;
        return;
    case EScaling::Area:
        value *= factor * factor;
        return;
    }
}

} // namespace prereg
