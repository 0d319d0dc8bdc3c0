// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/exchange/timage.h"

#include <string>

namespace Zorvan {

/// Writes a picture of 0xAARRGGBB, alpha not multiplied in, as PNG with 8 bits a channel; every value is kept.
/// @return false when the file cannot be written or the picture is empty
bool WritePng(const std::string& fileName, const TImage<unsigned int>& image);

} // namespace Zorvan
