// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

/// Bytes on the heap of this test program: how much memory work needs, on any machine and under any sanitizer.
namespace livebytes {

/// Begins to watch from what is there now.
void Watch();
/// The most that has been there beyond that since.
[[nodiscard]] std::size_t Peak();

} // namespace livebytes
