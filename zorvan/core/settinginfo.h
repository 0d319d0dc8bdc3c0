// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <string>

namespace prereg {

/// What a setting does when the data grow by a factor.
enum class EScaling
{
    None,             ///< ratios, counts, angles, distances between histograms
    Length,           ///< grows with them
    LengthIfPositive, ///< the same; 0 and below have a meaning of their own, and stay
    Area              ///< grows with the square of the factor
};

/// Whether a number below zero means anything.
enum class ESign
{
    Any,
    NotNegative
};

/// What there is to know of a setting besides its value.
struct SettingInfo
{
    const char* key;   ///< its name in documents, that of the field
    const char* unit;  ///< "mm", "count" ...; empty for a record of settings
    const char* words; ///< what it means, in a few words
    EScaling scaling = EScaling::None;
    ESign sign = ESign::Any;
    unsigned int most = 1000000; ///< of a count: more of anything would fill the memory or take days
};

/// What is wrong with a value, in words that follow the name of its setting: "needs a finite number"; empty when
/// nothing is.
[[nodiscard]] ZORVAN_API std::string WhatIsWrong(const SettingInfo& info, double value);
[[nodiscard]] ZORVAN_API std::string WhatIsWrong(const SettingInfo& info, unsigned int value);

/// Takes a value to data `factor` times as large.
void ScaleSetting(const SettingInfo& info, double factor, double& value);
inline void ScaleSetting(const SettingInfo& /*info*/, double /*factor*/, unsigned int& /*value*/) {}

} // namespace prereg
