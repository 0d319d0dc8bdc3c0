// SPDX-License-Identifier: MIT
#include "pairoptions.h"

#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/sharedshift.h"

#include <array>
#include <vector>

namespace tools {

namespace {

/// About the shift (mm) of the scan.
Zorvan::Vector3 parsePoint(const std::string& option, const std::string& text, double mmPerUnit,
                           const Zorvan::Position& shift)
{
    std::vector<double> xyz = ParseNumbers(option, text, 3);
    std::array<float, 3> mm{};
    for (std::size_t k = 0; k < 3; ++k) mm[k] = Zorvan::ToFloat(xyz[k] * mmPerUnit - shift[k]);
    return {mm[0], mm[1], mm[2]};
}

Zorvan::Vector3 parseDirection(const std::string& option, const std::string& text)
{
    const Zorvan::Vector3 direction = Zorvan::Normalized(parsePoint(option, text, 1.0, {}));
    if (!(direction.LengthSq() > 0.0F)) throw Zorvan::CInputError(option + ": a direction has a length");
    return direction;
}

/// @param name  "fix" or "flt", as in the options
prereg::SensorKnowledge knowledge(const std::string& name, const std::string& sensor, const std::string& ray,
                                  const ScanFileOptions& files, const Zorvan::Position& shift)
{
    if (!sensor.empty() && !ray.empty())
        throw Zorvan::CInputError("--sensor-" + name + " and --ray-" + name + " say the same; give one of them");
    prereg::SensorKnowledge known;
    if (!ray.empty()) known.direction = parseDirection("--ray-" + name, ray);
    if (!sensor.empty())
        known.position = parsePoint("--sensor-" + name, sensor, files.dMmPerUnit, shift);
    else if (ray.empty() && !files.sensor.empty())
        known.position = parsePoint("--sensor", files.sensor, files.dMmPerUnit, shift);
    return known;
}

Zorvan::EMesh meshOf(const std::string& mesh, const char* name)
{
    if (mesh == "auto") return Zorvan::EMesh::Auto;
    return mesh == "both" || mesh == name ? Zorvan::EMesh::Model : Zorvan::EMesh::Scan;
}

Zorvan::ScanOptions readOptions(const ScanFileOptions& files, const std::string& option, const std::string& sensor,
                                Zorvan::EMesh eMesh)
{
    Zorvan::ScanOptions options = files.ToScanOptions();
    if (!sensor.empty()) {
        const std::vector<double> xyz = ParseNumbers(option, sensor, 3);
        options.sensor = {xyz[0], xyz[1], xyz[2]};
    }
    options.eMesh = eMesh;
    options.isShifted = true;
    return options;
}

} // namespace

void PairOptions::AddTo(CCommand command)
{
    command
        .AddOption("--mesh", mesh,
                   "Which file is a model, whose surface is meant and not its corners:\n"
                   "auto, fixed, floating, both or none (default auto: closed meshes, and those\n"
                   "with triangles of very different sizes)")
        .Among({"auto", "fixed", "floating", "both", "none"});
    command.AddOption("--sensor-fix", fixSensor,
                      "Where the sensor of FIX stood, x,y,z in file units and coordinates of FIX;\n"
                      "--sensor says so of both (default: found from the raster of the points)");
    command.AddOption("--sensor-flt", fltSensor, "The same of FLT, in its own coordinates");
    command.AddOption("--ray-fix", fixRay,
                      "Direction from FIX to a sensor far away, x,y,z, where no position is known");
    command.AddOption("--ray-flt", fltRay, "The same of FLT");
}

ScanPair PairOptions::Read(const std::string& fix, const std::string& flt, const ScanFileOptions& files,
                           const GeneralOptions& general, const Zorvan::Hooks& hooks) const
{
    const std::array names{fix, flt};
    const std::array how{ForFix(files), ForFlt(files)};
    ScanPair pair;
    const std::array scans{&pair.fix, &pair.flt};
    const auto read = [&](std::size_t i, const Zorvan::Hooks& ofFile) {
        *scans[i] = Zorvan::ReadScan(names[i], how[i], ofFile);
    };
    // Large files take their time one by one, and show how far they are.
    const bool areSmall = !Zorvan::IsReadThinned(fix, how[0].thin) && !Zorvan::IsReadThinned(flt, how[1].thin);
    hooks.Start("reading", 2);
    if (areSmall && general.uiNumThreads > 1) {
        Zorvan::ForEachTask(2, 2, [&](std::size_t i) { read(i, Zorvan::Hooks::None()); });
    } else {
        read(0, hooks);
        hooks.Start("reading", 2);
        hooks.Advance();
        read(1, hooks);
    }
    hooks.Finish();
    Tell(Zorvan::ShiftWords(Zorvan::ShareShift(scans), files.dMmPerUnit), general.isQuiet);
    return pair;
}

Zorvan::ScanOptions PairOptions::ForFix(const ScanFileOptions& files) const
{
    return readOptions(files, "--sensor-fix", fixSensor, meshOf(mesh, "fixed"));
}

Zorvan::ScanOptions PairOptions::ForFlt(const ScanFileOptions& files) const
{
    return readOptions(files, "--sensor-flt", fltSensor, meshOf(mesh, "floating"));
}

void PairOptions::Apply(const ScanFileOptions& files, const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt,
                        prereg::AlignOptions& options) const
{
    options.fixSensor = knowledge("fix", fixSensor, fixRay, files, fix.shift);
    options.fltSensor = knowledge("flt", fltSensor, fltRay, files, flt.shift);
}

} // namespace tools
