// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/workflow/fileinfo.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tools {

namespace {

struct InfoOptions
{
    std::vector<std::string> files;
    bool isJson = false;
    GeneralOptions general;
};

int info(const InfoOptions& options)
{
    options.general.Apply();
    std::vector<prereg::FileInfo> files;
    for (const std::string& file : options.files) {
        try {
            files.push_back(prereg::DescribeFile(file));
            if (!options.isJson) std::cout << prereg::ToText(files.back());
        } catch (const Zorvan::CInputError& error) {
            std::cerr << Zorvan::ToMessage(std::string("zorvan: ") + error.what()) << '\n';
        }
    }
    if (options.isJson) std::cout << prereg::ToJson(files) << '\n';
    return files.size() == options.files.size() ? Done : WrongInput;
}

} // namespace

void AddInfo(CCommand app)
{
    const auto options = std::make_shared<InfoOptions>();
    CCommand command = app.AddCommand("info", "What is in files of scans");
    command.AddOption("FILE", options->files, "Scans of any kind that is read").Required();
    command.AddFlag("--json", options->isJson, "Print a list with an entry a file");
    options->general.AddTo(command, "No effect");
    command.SetFooter(
        "Lengths and places are in the unit and the frame of the file. Spacing is the median distance of a\n"
        "point to its nearest neighbour, noise the standard deviation about curved patches.\n"
        "Exit code 2: a file cannot be read; the others are described all the same.\n\n"
        "Examples:\n"
        "  zorvan info scans/*.ply\n"
        "  zorvan info site.ptx --json");
    command.SetAction([options] { return info(*options); });
}

} // namespace tools
