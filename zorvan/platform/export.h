// SPDX-License-Identifier: MIT
#pragma once

/// Marks what a host may call; everything else of the shared library stays hidden.
#if defined(_WIN32)
#if defined(ZORVAN_BUILDING)
#define ZORVAN_API __declspec(dllexport)
#else
#define ZORVAN_API __declspec(dllimport)
#endif
#else
#define ZORVAN_API __attribute__((visibility("default")))
#endif
