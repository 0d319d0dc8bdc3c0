// SPDX-License-Identifier: MIT
#include "options.h"

#include "zorvan/platform/clogger.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/flagstore.h"
#include "zorvan/workflow/settingsfile.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <string_view>
#include <thread>

namespace tools {

namespace {

constexpr std::array<std::string_view, 6> levels{"trace", "debug", "info", "warn", "error", "fatal"};

double positive(const std::string& option, double value)
{
    if (!(value > 0.0) || !std::isfinite(value))
        throw Zorvan::CInputError(option + " must be a positive number; leave it out for the default");
    return value;
}

} // namespace

void GeneralOptions::AddTo(CCommand command, const std::string& threadsHelp)
{
    command.AddOption("--threads", uiNumThreads, threadsHelp).Between(1, 1024);
    command.AddFlag("--quiet", isQuiet, "Print the result and errors only");
    command.AddOption("--log", logLevel, "What the library reports: trace, debug, info, warn, error or fatal");
}

void GeneralOptions::AddToShared(CCommand command)
{
    constexpr unsigned uiMostThreads = 8; // more hardly help two scans
    uiNumThreads = std::clamp(std::thread::hardware_concurrency(), 1U, uiMostThreads);
    AddTo(command, "Threads at most, by default one a processor, up to 8; the result does not\n"
                   "depend on it");
}

void GeneralOptions::Apply() const
{
    const std::string_view wanted = !logLevel.empty() ? std::string_view(logLevel) : isQuiet ? "error" : "warn";
    const auto* const found = std::find(levels.begin(), levels.end(), wanted);
    if (found == levels.end())
        throw Zorvan::CInputError("--log: \"" + logLevel + "\" is none of trace, debug, info, warn, error and fatal");
    Logging::SetLogLevel(static_cast<Logging::ELogLevel>(found - levels.begin()));
}

void ScanFileOptions::AddTo(CCommand command)
{
    command.AddOption("--scale", dMmPerUnit, "Millimetres per unit of the scan files; 1000 for metres (default 1)");
    command.AddOption("--grid", grid,
                      "Typical point distance, in file units; all settings grow with it (default auto)");
    command.AddOption("--sensor", sensor,
                      "Where the sensor stood, x,y,z in file units; computed normals turn toward it\n"
                      "(default: far along +z)");
}

Zorvan::ScanOptions ScanFileOptions::ToScanOptions() const
{
    Zorvan::ScanOptions options{positive("--scale", dMmPerUnit), std::nullopt};
    if (sensor.empty()) return options;
    const std::vector<double> xyz = ParseNumbers("--sensor", sensor, 3);
    options.sensor = {xyz[0], xyz[1], xyz[2]};
    return options;
}

std::optional<double> ScanFileOptions::ToGrid() const
{
    if (grid == "auto") return std::nullopt;
    return positive("--grid", ParseNumbers("--grid", grid, 1).front() * dMmPerUnit);
}

void SettingsOptions::AddTo(CCommand command)
{
    command.AddOption("--settings", file,
                      "File with settings that replace the automatic ones; zorvan settings prints all");
    command.AddOption("--store", store,
                      std::string("Store of flags whose settings count even more, such as ") + prereg::sDefaultStore +
                          ";\nsee zorvan flags (default: none)");
}

bson::object SettingsOptions::Read(bool isQuiet) const
{
    const bson::object fromFile = file.empty() ? bson::object() : prereg::ReadSettingsFile(file);
    const bson::object stored = prereg::ReadStoredSettings(store);
    if (stored) Tell("settings of the flag store " + store + " are in force: " + stored.dump(), isQuiet);
    return fromFile.update(stored);
}

void GpuOptions::AddTo(CCommand command)
{
    command.AddFlag("--gpu", isWanted,
                    "Compute features on the best OpenCL device (see zorvan devices); without one,\non the processor");
}

std::shared_ptr<prereg::CFPFHDataSource::GPUContext> GpuOptions::MakeContext(bool isQuiet) const
{
    if (!isWanted) return nullptr;
    auto context = std::make_shared<prereg::CFPFHDataSource::GPUContext>();
    if (*context) return context;
    Tell("--gpu: no OpenCL device that works; the processor computes the features", isQuiet);
    return nullptr;
}

std::vector<double> ParseNumbers(const std::string& option, const std::string& text, std::size_t count)
{
    std::vector<double> numbers;
    std::string_view rest = text;
    for (std::string_view word = Zorvan::NextWord(rest, ","); !word.empty(); word = Zorvan::NextWord(rest, ",")) {
        const std::optional<double> number = Zorvan::ParseNumber(word);
        if (!number || !std::isfinite(*number)) break;
        numbers.push_back(*number);
    }
    if (numbers.size() != count || !rest.empty())
        throw Zorvan::CInputError(option + ": \"" + text + "\" is not " + std::to_string(count) +
                                  (count == 1 ? " number" : " numbers with commas between"));
    return numbers;
}

std::string NameOf(const std::string& file) { return std::filesystem::path(file).filename().string(); }

void Tell(const std::string& text, bool isQuiet)
{
    if (!isQuiet && !text.empty()) std::cerr << Zorvan::ToMessage(text) << '\n';
}

} // namespace tools
