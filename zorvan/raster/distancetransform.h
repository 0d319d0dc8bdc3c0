// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstdint>
#include <span>

namespace Zorvan::detail {

/// How far each pixel of a picture lies from the nearest that is set: exact Euclidean distances between centres, so 0
/// on a set pixel. Where no pixel is set, all distances are infinite.
/// @param mask       width * height bytes, row by row, each of which is set when it is not 0
/// @param distances  as many, in pixels: the float nearest to the root of the squared distance, an integer
/// @throws std::invalid_argument  when a side is negative or above 2^20, or an array has another size
/// Linear in the number of pixels, on the calling thread, with memory for a few rows besides the arrays.
///
/// Source: P. Felzenszwalb and D. Huttenlocher, Theory of Computing 8 (2012), in integers: parabolas are compared
/// without a division.
ZORVAN_API void ComputeDistanceTransform(std::span<const unsigned char> mask, int width, int height,
                                         std::span<float> distances);

/// The same as squared distances; -1 where no pixel is set.
ZORVAN_API void ComputeSquaredDistanceTransform(std::span<const unsigned char> mask, int width, int height,
                                                std::span<std::int64_t> squares);

} // namespace Zorvan::detail
