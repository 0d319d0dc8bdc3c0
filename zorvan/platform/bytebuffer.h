// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <memory>

namespace Zorvan {

/// Bytes without a value. Large buffers begin at a large page and lie in such pages where the system has them: filling
/// one for the first time then takes a quarter of the time (bench_bson), most of which goes to page faults otherwise.
[[nodiscard]] ZORVAN_API std::shared_ptr<unsigned char[]> MakeByteBuffer(std::size_t size);

} // namespace Zorvan
