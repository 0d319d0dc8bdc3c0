// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/features/configurationfpfh.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/poseuncertainty.h"
#include "zorvan/workflow/registrationtable.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace prereg {

/// A file that was read.
struct RunInput
{
    std::string file; ///< without folder
    std::uint64_t uiBytes = 0;
    std::string sha1; ///< as sha1sum prints it; empty for a file that cannot be read
};

[[nodiscard]] ZORVAN_WORKFLOW_API RunInput DescribeInput(const std::filesystem::path& file);

/// What was done: with it a result can be filed, and made again. The same inputs give the same text but for the times.
struct RunRecord
{
    std::string command;                                           ///< "register"
    std::string version;                                           ///< of the program
    std::vector<std::pair<std::string, std::string>> options = {}; ///< that change the result, in a fixed order
    std::vector<RunInput> inputs = {};                             ///< as they were before results were written
    ConfigurationFPFH config = {};                                 ///< all settings, as they were used
    std::string times = {};                                        ///< for people
    std::vector<PoseUncertainty> uncertainties = {};               ///< of poses that were optimised together
};

/// As JSON: the above, what became of each scan, how well its pose is known, and what each pair says of it.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string RunRecordText(const RunRecord& record, const RegistrationTable& table);

} // namespace prereg
