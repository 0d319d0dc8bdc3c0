// SPDX-License-Identifier: MIT
#include "zorvan/scans/atomicfile.h"

#include "zorvan/scans/newfile.h"
#include "zorvan/scans/stagingfolder.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <system_error>

namespace Zorvan {

void RequireWritable(const std::filesystem::path& file)
{
    RequireReplaceable(file);
    const CStagingFolder staging(file.parent_path());
    const CNewFile probe(staging / file.filename());
}

void WriteFileAtomically(const std::filesystem::path& file, std::string_view bytes)
{
    WriteFileAtomically(file, bytes, Hooks::None());
}

bool WriteFileAtomically(const std::filesystem::path& file, std::string_view bytes, const Hooks& hooks)
{
    constexpr std::size_t uiBlock = 1U << 22U;
    RequireReplaceable(file);
    CStagingFolder staging(file.parent_path());
    CNewFile written(staging / file.filename());
    hooks.Start("writing", bytes.size());
    for (; !bytes.empty() && !hooks.IsAborted(); bytes.remove_prefix(std::min(uiBlock, bytes.size()))) {
        written.Write(bytes.substr(0, uiBlock));
        hooks.Advance(std::min(uiBlock, bytes.size()));
    }
    hooks.Finish();
    if (!bytes.empty()) return false;
    written.Close();
    staging.Publish();
    return true;
}

void MakeFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder)) RefuseWriting(folder, error ? error.value() : ENOTDIR);
}

} // namespace Zorvan
