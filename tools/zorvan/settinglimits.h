#pragma once

#include "zorvan/documents/bson.h"

#include <string>

namespace tools {

/// What is wrong with the value of a setting, in words that follow its name ("needs a finite number"); empty when
/// nothing is.
/// @param setting  of the type that the setting has
[[nodiscard]] std::string WhatIsWrongWith(const bson::element& setting);

} // namespace tools
