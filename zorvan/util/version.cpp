// SPDX-License-Identifier: MIT
#include "zorvan/util/version.h"

namespace Zorvan {

const char* Version() noexcept { return ZORVAN_VERSION; }

} // namespace Zorvan
