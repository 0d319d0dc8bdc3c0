// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

namespace Zorvan {

/// The version of the library that is loaded, such as "0.1.0"; the headers that a host was built with may be of
/// another.
[[nodiscard]] ZORVAN_API const char* Version() noexcept;

} // namespace Zorvan
