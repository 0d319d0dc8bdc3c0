// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/scans/scan.h"
#include "zorvan/workflow/session.h"

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace prereg {

/// A part of a saved session that may be missing: sessions of earlier versions have fewer.
[[nodiscard]] std::optional<bson::object> PartOf(const bson::object& document, std::string_view name);

/// Zeros where there is none. @throws std::exception for one that is no shift
[[nodiscard]] Zorvan::Position ReadShift(const bson::object& from);
/// Adds it, unless it is zero.
void AppendShift(bson::object& to, const Zorvan::Position& shift);

/// @param folder  of the session: files are named relative to it, so that a folder with scans and session can move
[[nodiscard]] bson::object FilesToObject(const std::vector<CSession::ScanFile>& files,
                                         const std::filesystem::path& folder);
/// @throws std::exception for another document
[[nodiscard]] std::vector<CSession::ScanFile> ReadFiles(const bson::object& document,
                                                        const std::filesystem::path& folder);

} // namespace prereg
