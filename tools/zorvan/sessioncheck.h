#pragma once

#include "session.h"

#include <string>
#include <vector>

namespace tools {

/// What is wrong with a session that was read, in words for the user; empty when nothing is. All later work relies on
/// it: settings are within their limits; scans and clusters name each other; poses move without scaling, and they and
/// all points lie where floats still tell millimetres apart from squares that overflow; no surface is empty.
///
/// And the scans lie where their poses say: taken pair by pair, and where that does not hold a cluster together part by
/// part, an ICP that may not move them accepts their places. A file that holds the surface of one scan under the name
/// of another is recognised by that.
[[nodiscard]] std::string WhatIsWrongWith(const prereg::CClusterRegistration& registration,
                                          const std::vector<CSession::ScanFile>& files);

} // namespace tools
