// SPDX-License-Identifier: MIT
#pragma once

#include <Eigen/Core>

// Dense vectors cross the boundary of the library: what one side allocates the other may free. Eigen takes another
// allocator where it aligns to more than malloc does, as it does for AVX. Such a mixture would corrupt the heap at run
// time, so it stops here.
static_assert(EIGEN_DEFAULT_ALIGN_BYTES == 16,
              "zorvan aligns Eigen's vectors to 16 bytes: define EIGEN_MAX_ALIGN_BYTES=16 for all of your program");
