// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/workflow/settingsfile.h"

#include <iostream>
#include <memory>
#include <string>

namespace tools {

namespace {

struct SettingsCall
{
    std::string settings;
    std::string output;
    ScanFileOptions files; ///< only grid and scale
    GeneralOptions general;
};

int settings(const SettingsCall& call)
{
    call.general.Apply();
    if (!call.output.empty()) {
        Zorvan::RequireApart(call.output, {call.settings});
        Zorvan::RequireWritable(call.output);
    }
    const std::string text = prereg::SettingsText(call.files.ToGrid(), call.settings);
    if (call.output.empty())
        std::cout << text;
    else
        Zorvan::WriteFileAtomically(call.output, text);
    return Done;
}

} // namespace

void AddSettings(CCommand app)
{
    const auto call = std::make_shared<SettingsCall>();
    CCommand command = app.AddCommand("settings", "All settings as text, to edit and to give to --settings");
    command.AddOption("--grid", call->files.grid,
                      "What the commands choose for this point distance, in file units\n"
                      "(default: the library's own settings)");
    command.AddOption("--scale", call->files.dMmPerUnit, "Millimetres per unit of the scan files (default 1)");
    command.AddOption("--settings", call->settings, "Settings file to check and to merge in");
    command.AddOption("-o,--output", call->output, "File to write; without it the text is printed");
    call->general.AddTo(command, "Accepted for all commands; this one uses one");
    command.SetFooter("The text is a JSON-like document with a comment behind each value. A file for --settings\n"
                      "may hold any part of it; the settings of the ICP may stand inside icpConfig or beside it.\n\n"
                      "Examples:\n"
                      "  zorvan settings\n"
                      "  zorvan settings --grid 0.2 -o mine.txt\n"
                      "  zorvan settings --settings mine.txt");
    command.SetAction([call] { return settings(*call); });
}

} // namespace tools
