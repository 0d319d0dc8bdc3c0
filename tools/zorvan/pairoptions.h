// SPDX-License-Identifier: MIT
#pragma once

#include "options.h"

#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/align.h"

#include <string>

namespace tools {

/// What a user may know of the two files of a pair, and the program would have to find out: which is a model, and how
/// their sensors looked.
struct PairOptions
{
    std::string mesh = "auto";
    std::string fixSensor;
    std::string fltSensor;
    std::string fixRay;
    std::string fltRay;

    void AddTo(CCommand command);
    /// How the two files are to be read. @param files  what holds for both @throws CInputError
    [[nodiscard]] Zorvan::ScanOptions ForFix(const ScanFileOptions& files) const;
    [[nodiscard]] Zorvan::ScanOptions ForFlt(const ScanFileOptions& files) const;
    /// @throws CInputError
    void Apply(const ScanFileOptions& files, prereg::AlignOptions& options) const;
};

} // namespace tools
