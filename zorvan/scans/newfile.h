// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace Zorvan {

/// A file that was not there before, written in steps.
class ZORVAN_SCANS_API CNewFile
{
public:
    /// @throws CInputError, as all others
    explicit CNewFile(const std::filesystem::path& file);
    CNewFile(const CNewFile&) = delete;
    CNewFile& operator=(const CNewFile&) = delete;
    ~CNewFile();

    void Write(std::string_view bytes) const;
    /// Over what has been written there.
    void WriteAt(std::uint64_t place, std::string_view bytes) const;
    /// The bytes are on the disk afterwards.
    void Close();

private:
    const std::filesystem::path m_file;
    int m_descriptor;
};

} // namespace Zorvan
