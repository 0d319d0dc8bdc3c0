// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/workflow/documentfile.h"
#include "zorvan/workflow/documenttext.h"

#include <iostream>
#include <memory>
#include <string>

namespace tools {

namespace {

struct DumpOptions
{
    std::string file;
    GeneralOptions general;
};

int dump(const DumpOptions& options)
{
    options.general.Apply();
    std::cout << prereg::ToPrintable(prereg::ReadDocumentFile(options.file)) << '\n';
    return Done;
}

} // namespace

void AddDump(CCommand app)
{
    const auto options = std::make_shared<DumpOptions>();
    CCommand command = app.AddCommand("dump", "A saved document as text");
    command.AddOption("FILE", options->file, "A frozen document, such as session.zdoc").Required();
    options->general.AddTo(command, "Accepted for all commands; this one uses one");
    command.SetFooter("Binary values above 16 bytes are shown by their length; numbers have 6 digits.\n"
                      "Exit code 2: the file is no whole document.\n\n"
                      "Examples:\n"
                      "  zorvan dump session.zdoc\n"
                      "  zorvan dump session.zdoc | grep dMaxRMSE");
    command.SetAction([options] { return dump(*options); });
}

} // namespace tools
