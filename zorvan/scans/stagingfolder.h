// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <filesystem>
#include <string>

namespace Zorvan {

/// A place for results in the making: a hidden folder beside where they will appear, with a random name that nobody
/// could have planted a link under.
///
///     CStagingFolder staging(folder);
///     WritePoses(staging / "poses.json", poses);
///     WritePly(staging / "merged.ply", merged);
///     staging.Publish(); // both are in `folder` now, over the old ones
///
/// All files appear, or none. A single file moves in one step. Several cannot, so the staging folder first gets a name
/// by which it promises that its files are whole; whoever stages in the same folder next keeps the promise of a run
/// that was killed between two moves. What a run left that was killed before its promise is removed. A lock that ends
/// with its process (flock) tells the staging folders of the dead from those of the living.
class ZORVAN_SCANS_API CStagingFolder
{
public:
    /// @throws CInputError when nothing can be written there
    explicit CStagingFolder(const std::filesystem::path& folder);
    CStagingFolder(const CStagingFolder&) = delete;
    CStagingFolder& operator=(const CStagingFolder&) = delete;
    /// Removes what was not published.
    ~CStagingFolder();

    [[nodiscard]] std::filesystem::path operator/(const std::filesystem::path& name) const { return m_path / name; }

    /// Moves the files to where they belong, in the order of their names. Once. @throws CInputError
    void Publish();

private:
    std::filesystem::path m_folder;
    std::filesystem::path m_path;
    int m_lock = -1;
    bool m_isPromised = false;
};

/// Completes or removes what killed runs have left in the folder; whoever stages there does that too.
ZORVAN_SCANS_API void TidyStagingFolders(const std::filesystem::path& folder);

/// The path at which a staged file will appear, for messages.
[[nodiscard]] ZORVAN_SCANS_API std::filesystem::path PublishedPath(const std::filesystem::path& staged);

/// The one line for a file, staged or not, that an error of the system keeps from being written. @throws CInputError
[[noreturn]] ZORVAN_SCANS_API void RefuseWriting(const std::filesystem::path& file, int error);

/// @throws CInputError when the name belongs to a folder or a device: renaming over a device would replace it, and over
///         a folder fail only after the work is done
ZORVAN_SCANS_API void RequireReplaceable(const std::filesystem::path& file);

} // namespace Zorvan
