// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "tools/pictures/objsplit.h"
#include "zorvan/scans/showntext.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

namespace tools {

namespace {

struct ConvertOptions
{
    std::filesystem::path file;
    std::filesystem::path folder;
    GeneralOptions general;
};

int convert(const ConvertOptions& options)
{
    options.general.Apply();
    const ObjSplit split = SplitByMaterial(options.file, options.folder);
    for (const std::string& loss : split.losses) Tell(loss, false);
    for (const ObjPart& part : split.parts)
        std::cout << Zorvan::ToShown(part.file.string()) << ": vertices " << part.uiVertices << ", faces "
                  << part.uiFaces << (part.hasTexture ? ", with a texture\n" : ", of one colour\n");
    return split.losses.empty() ? Done : NotEveryScan;
}

} // namespace

void AddConvert(CCommand app)
{
    const auto options = std::make_shared<ConvertOptions>();
    CCommand command = app.AddCommand("convert", "A mesh in OBJ, split by material, with its textures");
    command.AddOption("IN.obj", options->file, "Mesh in OBJ, with MTL and PNG where it says").Required();
    command.AddOption("-o,--output", options->folder, "Folder for NAME.obj, NAME.mtl and NAME_MATERIAL.png").Required();
    options->general.AddTo(command, "Accepted for all commands; this one uses one");
    command.SetFooter(
        "Each material that has faces becomes a mesh of its own: NAME is that of IN.obj, and with several\n"
        "materials the material's behind it.\n"
        "Exit code 1: some faces or textures could not be taken over, with a line for each kind.\n\n"
        "Examples:\n"
        "  zorvan convert jaw.obj -o out");
    command.SetAction([options] { return convert(*options); });
}

} // namespace tools
