// SPDX-License-Identifier: MIT
#pragma once

#include "commandline.h"

#include "zorvan/documents/bson.h"
#include "zorvan/features/cfpfhdatasource_gpu.h"
#include "zorvan/scans/scanreader.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tools {

/// What every subcommand takes.
struct GeneralOptions
{
    bool isQuiet = false;
    unsigned uiNumThreads = 1;
    std::string logLevel; ///< empty: warn, or error when quiet

    /// @param threadsHelp  what the number of threads does in this subcommand
    void AddTo(CCommand command, const std::string& threadsHelp);
    /// For subcommands whose work threads share: as many as there are processors, up to 8, unless the user says more.
    void AddToShared(CCommand command);
    /// Passes the level on to the library. @throws CInputError for an unknown one
    void Apply() const;
};

/// How the files of scans are to be understood.
struct ScanFileOptions
{
    double dMmPerUnit = 1.0;
    std::string grid = "auto";
    std::string sensor;

    void AddTo(CCommand command);
    /// @throws CInputError when a value makes no sense
    [[nodiscard]] Zorvan::ScanOptions ToScanOptions() const;
    /// In millimetres; nothing for "auto". @throws CInputError
    [[nodiscard]] std::optional<double> ToGrid() const;
};

/// What the user sets by hand, in a file and through the store of flags.
struct SettingsOptions
{
    std::string file;
    std::string store; ///< empty: none is looked at

    void AddTo(CCommand command);
    /// Both in one document, the store's over the file's; empty when nothing is set. Says so when the store has some,
    /// unless `isQuiet`. @throws CInputError
    [[nodiscard]] bson::object Read(bool isQuiet) const;
};

/// Where features are computed.
struct GpuOptions
{
    bool isWanted = false;

    void AddTo(CCommand command);
    /// The best device, made ready. Null when none is wanted, and also when none works: the processor then does the
    /// work, and one line says so unless `isQuiet`.
    [[nodiscard]] std::shared_ptr<prereg::CFPFHDataSource::GPUContext> MakeContext(bool isQuiet) const;
};

/// Exactly `count` finite numbers, separated by commas. @throws CInputError that names the option
[[nodiscard]] std::vector<double> ParseNumbers(const std::string& option, const std::string& text, std::size_t count);

/// Of a scan: without its folder.
[[nodiscard]] std::string NameOf(const std::string& file);

/// One line on standard error for the user; nothing when `text` is empty or `isQuiet`.
void Tell(const std::string& text, bool isQuiet);

} // namespace tools
