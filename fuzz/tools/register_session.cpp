// SPDX-License-Identifier: MIT
#include "fuzz/law.h"
#include "tests/support/temporaryfolder.h"
#include "tools/zorvan/commands.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/workflow/session.h"

#include "zorvan/documents/bson.h"
#include "zorvan/preregistration/settingsserialization.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// A patch of a bumpy surface that most seeds have as well.
std::string patch()
{
    std::string text;
    for (int i = 0; i < 49; ++i) {
        const int x = i % 7;
        const int y = i / 7;
        const double height = 0.4 * std::sin(x) + 0.4 * std::cos(1.3 * y);
        text += std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(height) + "\n";
    }
    return text;
}

void write(const fs::path& file, const std::string& bytes) { std::ofstream(file, std::ios::binary) << bytes; }

/// Whatever a user may ask for, here an input should take milliseconds. What is beyond the limits has to be refused.
bool asksForLongWork(const std::uint8_t* data, std::size_t size)
{
    constexpr unsigned uiMany = 100;
    try {
        const bson::object document = bson::object::unfreeze(data, size);
        const auto config = bson::from_object<prereg::ConfigurationFPFH>(document.child("configuration").as_object());
        const bool isLong = config.uiNumPolygons > uiMany || config.uiNumPolygonVertices > uiMany ||
                            config.uiNumNeighbors > uiMany || config.icpConfig.uiNumSamples > uiMany ||
                            config.icpConfig.uiMaxNumIterations > uiMany;
        return isLong && prereg::WhatIsWrongWithFields(config).empty();
    } catch (const std::exception&) {
        return false;
    }
}

/// Calls `zorvan register`. @return whether it came to an end with results
bool registerScans(const std::vector<std::string>& arguments)
{
    tools::CCommandLine program("zorvan", "");
    tools::AddRegister(program.Root());
    std::vector<const char*> words{"zorvan"};
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    try {
        const int exitCode = program.Run(static_cast<int>(words.size()), words.data());
        return exitCode == tools::Done || exitCode == tools::NotEveryScan;
    } catch (const Zorvan::CInputError& error) {
        Law(!std::string(error.what()).empty(), "a refusal says why");
        return false;
    }
}

std::size_t numScans(const fs::path& session) { return prereg::CSession::Load(session, nullptr).GetFiles().size(); }

std::size_t numPoses(const fs::path& file)
{
    std::size_t count = 0;
    for (const Zorvan::PoseCluster& cluster : Zorvan::ReadPoses(file).clusters) count += cluster.scans.size();
    return count;
}

/// The whole way of a session through the program, every other time with one more scan.
void goOnWith(const fs::path& folder, bool hasScan)
{
    std::vector<std::string> arguments{"register", "--session", folder / "given.zdoc", "-o", folder / "out", "--quiet"};
    for (const char* argument : {"--optimize", "--threads", "1", "--log", "fatal", "--store", ""})
        arguments.emplace_back(argument);
    if (hasScan) arguments.push_back(folder / "patch.xyz");

    if (!registerScans(arguments)) {
        Law(!fs::exists(folder / "out/session.zdoc") && !fs::exists(folder / "out/poses.json"),
            "a call that is refused leaves no results");
        return;
    }
    const std::size_t before = numScans(folder / "given.zdoc");
    const std::size_t after = numScans(folder / "out/session.zdoc");
    Law(after == before || (hasScan && after == before + 1), "a session that is written has all scans");
    Law(numPoses(folder / "out/poses.json") == after, "each scan stands among the poses");
}

} // namespace

/// A frozen document that is taken for a session to go on with.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TemporaryFolder folder;
    static const bool isReady = [] {
        write(folder / "patch.xyz", patch());
        std::cout.rdbuf(nullptr); // the table
        return true;
    }();
    if (asksForLongWork(data, size)) return 0;
    write(folder / "given.zdoc", std::string(reinterpret_cast<const char*>(data), size));
    fs::remove_all(folder / "out");
    goOnWith(folder.Path(), isReady && size % 2 == 0);
    return 0;
}
