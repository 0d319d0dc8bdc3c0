// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

namespace tools {

/// Exit codes of the program.
enum EExit : int
{
    Done = 0,
    NotEveryScan = 1, ///< finished, but not every scan found its place
    WrongInput = 2    ///< wrong call, unreadable input, or output that cannot be written
};

/// Each adds its subcommand with options and help. When the user calls it, it runs at the end of parsing and leaves the
/// exit code; wrong input is thrown as CInputError.
void AddAlign(CLI::App& app, int& exitCode);
void AddJudge(CLI::App& app, int& exitCode);
void AddRegister(CLI::App& app, int& exitCode);
void AddApply(CLI::App& app, int& exitCode);
void AddFeatures(CLI::App& app, int& exitCode);
void AddFit(CLI::App& app, int& exitCode);
void AddSimulate(CLI::App& app, int& exitCode);
void AddEvaluate(CLI::App& app, int& exitCode);
void AddSession(CLI::App& app, int& exitCode);
void AddSettings(CLI::App& app, int& exitCode);
void AddFlags(CLI::App& app, int& exitCode);
void AddInfo(CLI::App& app, int& exitCode);
void AddDump(CLI::App& app, int& exitCode);
void AddCurve(CLI::App& app, int& exitCode);
void AddOutline(CLI::App& app, int& exitCode);
void AddConvert(CLI::App& app, int& exitCode);
void AddDevices(CLI::App& app, int& exitCode);

} // namespace tools
