// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <filesystem>
#include <stdexcept>
#include <string>

namespace Zorvan {

/// A wrong call or unreadable input. `what()` is the one line that the user reads: which file, where, why, what to do.
/// The program ends with exit code 2.
class ZORVAN_SCANS_API CInputError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;

    /// "FILE: WHY; ADVICE"
    CInputError(const std::filesystem::path& file, const std::string& why, const std::string& advice)
        : std::runtime_error(file.string() + ": " + why + "; " + advice)
    {
    }
};

} // namespace Zorvan
