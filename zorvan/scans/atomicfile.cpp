// SPDX-License-Identifier: MIT
#include "zorvan/scans/atomicfile.h"

#include "zorvan/scans/newfile.h"
#include "zorvan/scans/stagingfolder.h"

#include <cerrno>
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
    RequireReplaceable(file);
    CStagingFolder staging(file.parent_path());
    CNewFile written(staging / file.filename());
    written.Write(bytes);
    written.Close();
    staging.Publish();
}

void MakeFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder)) RefuseWriting(folder, error ? error.value() : ENOTDIR);
}

} // namespace Zorvan
