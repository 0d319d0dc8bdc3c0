// SPDX-License-Identifier: MIT
#pragma once

// Not installed.

#include "zorvan/core/hooks.h"
#include "zorvan/workflow/session.h"

#include <functional>
#include <span>

namespace prereg {

/// A job; its hooks ask whether to stop.
using Work = std::function<void(const Zorvan::Hooks&)>;

/// Runs jobs on a group and waits for all, also when a hook throws: they work on what their caller owns. The caller's
/// hooks are asked on this thread alone, and hear of each job that has ended.
void RunSideBySide(std::span<const Work> jobs, const CSession::Group& group, const Zorvan::Hooks& hooks);

} // namespace prereg
