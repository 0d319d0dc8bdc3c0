#pragma once

#include "zorvan/exchange/timage.h"

#include <filesystem>

namespace tools {

/// Reads any PNG as pixels of 0xAARRGGBB, alpha not multiplied in; 16 bits a channel become 8.
/// @throws CInputError also for a picture that promises more pixels than its bytes can hold
[[nodiscard]] Zorvan::TImage<unsigned int> ReadPng(const std::filesystem::path& file);

} // namespace tools
