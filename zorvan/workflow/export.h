// SPDX-License-Identifier: MIT
#pragma once

/// Marks what a host may call of zorvan::workflow; everything else of that library stays hidden.
#if defined(_WIN32)
#if defined(ZORVAN_WORKFLOW_BUILDING)
#define ZORVAN_WORKFLOW_API __declspec(dllexport)
#else
#define ZORVAN_WORKFLOW_API __declspec(dllimport)
#endif
#else
#define ZORVAN_WORKFLOW_API __attribute__((visibility("default")))
#endif
