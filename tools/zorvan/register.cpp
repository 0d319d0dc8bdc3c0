// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"
#include "progress.h"

#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/scans/filelock.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/sharedshift.h"
#include "zorvan/scans/stagingfolder.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/util/version.h"
#include "zorvan/workflow/registerresults.h"
#include "zorvan/workflow/registerscans.h"
#include "zorvan/workflow/runrecord.h"
#include "zorvan/workflow/session.h"
#include "zorvan/workflow/sessionlocks.h"
#include "zorvan/workflow/stagetimes.h"
#include "zorvan/workflow/startposes.h"

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tools {

namespace {

struct RegisterOptions
{
    std::vector<std::string> scans;
    std::string folder;
    std::string session;
    std::string initial;
    std::string exported; ///< ending of the file with all originals; empty: none is written
    bool isOptimized = false;
    bool isWeighed = false;
    bool isFirstFit = false;
    bool isKeptGoing = false; ///< without scans that cannot be read
    bool isWaiting = false;   ///< for the lock of another run
    bool hasScale = false;    ///< given by the user
    bool hasGrid = false;
    std::vector<std::string> refused; ///< scans that could not be read
    GeneralOptions general;
    ScanFileOptions files;
    SettingsOptions settings;
    GpuOptions gpu;
};

constexpr const char* sSession = "session.zdoc";

std::filesystem::path sessionOf(const RegisterOptions& options)
{
    return std::filesystem::path(options.folder) / sSession;
}

void checkCall(const RegisterOptions& options)
{
    if (options.scans.empty() && options.session.empty())
        throw Zorvan::CInputError("no scans: name some, or a --session to go on with");
    Zorvan::RequireDistinctNames(options.scans);
    if (options.isWeighed && options.isFirstFit)
        throw Zorvan::CInputError("--weighed and --first-fit contradict each other; give one of them");
    if (options.session.empty()) return;
    if (options.hasGrid || !options.settings.file.empty())
        throw Zorvan::CInputError(
            "--grid and --settings: a session keeps the settings it began with; leave them out, or begin "
            "a new one");
}

std::filesystem::path exportOf(const RegisterOptions& options)
{
    return std::filesystem::path(options.folder) / prereg::ExportName(options.exported);
}

/// Nothing that is read is replaced, but for the session that goes on in its own place; and nothing that a run has
/// written is taken for a scan.
void checkFiles(const RegisterOptions& options)
{
    std::vector<std::string> inputs = options.scans;
    inputs.push_back(options.initial);
    inputs.push_back(options.settings.file);
    Zorvan::RequireApart(sessionOf(options), inputs);
    inputs.push_back(options.session);
    for (const std::string& name : prereg::ResultNames(options.exported))
        if (name != sSession) Zorvan::RequireApart(std::filesystem::path(options.folder) / name, inputs);
    for (const std::string& scan : options.scans) {
        if (Zorvan::IsColouredResult(scan))
            throw Zorvan::CInputError(scan, "a merged or coloured cloud that zorvan has written, not a scan",
                                      "leave it out; align takes it, if it is meant");
    }
}

/// No other run goes on with the session, or writes into the folder, while the locks live.
std::vector<Zorvan::CFileLock> lockSessions(const RegisterOptions& options)
{
    return prereg::LockSessions(sessionOf(options), options.session,
                                [&](const std::string& file, const std::string& holder) {
                                    if (!options.isWaiting)
                                        throw Zorvan::CInputError(file, "in use by " + holder,
                                                                  "wait until it has ended, or call again with --wait");
                                    Tell("waiting for " + holder + ", which uses " + file, options.general.isQuiet);
                                });
}

void leaveOut(const std::string& why) { Tell("left out: " + why, false); }

/// @param known  shift of the scans that are there already
std::vector<Zorvan::SurfelScan> readScans(RegisterOptions& options, const Zorvan::Position& known,
                                          const Zorvan::Hooks& hooks)
{
    Zorvan::ScanOptions scanOptions = options.files.ToScanOptions();
    scanOptions.isShifted = true;
    Zorvan::ScansRead read;
    try {
        read = Zorvan::ReadTogether(options.scans, scanOptions, known, options.isKeptGoing, hooks);
    } catch (const Zorvan::CInputError& error) {
        if (options.isKeptGoing || options.scans.size() == 1) throw;
        throw Zorvan::CInputError(std::string(error.what()) + ", or leave it out: --keep-going");
    }
    for (const std::string& why : read.refused) leaveOut(why);
    options.refused = read.refused;
    for (const Zorvan::SurfelScan& scan : read.scans) Tell(scan.Warning(), options.general.isQuiet);
    Tell(Zorvan::ShiftWords(read.shift, options.files.dMmPerUnit), options.general.isQuiet);
    return std::move(read.scans);
}

/// The session to go on with. @throws CInputError also when one of the scans is in it already
prereg::CSession load(RegisterOptions& options, const prereg::CSession::Group& group)
{
    prereg::CSession session = prereg::CSession::Load(options.session, group);
    if (!options.hasScale) options.files.dMmPerUnit = session.GetMmPerUnit();
    for (const std::string& scan : options.scans) {
        if (session.Contains(NameOf(scan)) || session.Contains(Zorvan::NumberedName(NameOf(scan), 1).string()))
            throw Zorvan::CInputError(scan, "a scan of this name is in the session already", "rename it");
    }
    return session;
}

/// @param shift  of the session that goes on
prereg::RegisterOptions toOptions(const RegisterOptions& options, const prereg::CStartPoses& initial,
                                  const std::vector<Zorvan::SurfelScan>& scans,
                                  const std::optional<Zorvan::Position>& shift)
{
    prereg::RegisterOptions how;
    how.isOptimized = options.isOptimized;
    if (options.isWeighed || options.isFirstFit) how.isWeighed = options.isWeighed;
    how.isKeptGoing = options.isKeptGoing;
    prereg::CStartPoses::Found start = initial.For(scans, shift);
    how.startPoses = std::move(start.poses);
    how.frameShift = start.frameShift;
    how.uiNumTasks = options.general.uiNumThreads;
    how.gpu = options.gpu.MakeContext(options.general.isQuiet);
    how.dMmPerUnit = options.files.dMmPerUnit;
    how.stamp = prereg::StampNow(std::string("zorvan register ") + Zorvan::Version());
    if (!options.session.empty()) return how;
    how.dGrid = options.files.ToGrid();
    how.settings = options.settings.Read(options.general.isQuiet);
    return how;
}

/// @param times  of what is done before the registration
prereg::RegisterResult run(RegisterOptions& options, const prereg::CStartPoses& initial,
                           const Zorvan::CInterruption& interruption, prereg::CStageTimes& times)
{
    CProgress progress(options.general.isQuiet);
    const Zorvan::Hooks hooks = progress.Hooks(interruption);
    if (options.session.empty()) {
        const std::vector<Zorvan::SurfelScan> scans = readScans(options, {}, hooks);
        times.End("reading");
        return prereg::RegisterScans(scans, toOptions(options, initial, scans, {}), hooks);
    }
    auto scheduler = std::make_shared<Zorvan::CJobScheduler>(options.general.uiNumThreads);
    prereg::CSession session = load(options, scheduler->CreateJobGroup({}, {}));
    times.End("session");
    const std::vector<Zorvan::SurfelScan> scans = readScans(options, session.GetSharedShift(), hooks);
    times.End("reading");
    const prereg::RegisterOptions how = toOptions(options, initial, scans, session.GetShift());
    return prereg::RegisterScans(std::move(scheduler), std::move(session), scans, how, hooks);
}

std::vector<prereg::RunInput> describeInputs(const RegisterOptions& options)
{
    std::vector<prereg::RunInput> inputs;
    for (const std::string& scan : options.scans) inputs.push_back(prereg::DescribeInput(scan));
    for (const std::string& file : {options.session, options.initial, options.settings.file}) {
        if (!file.empty()) inputs.push_back(prereg::DescribeInput(file));
    }
    return inputs;
}

/// What was done, beside the poses.
std::string runRecordText(const RegisterOptions& options, const std::vector<prereg::RunInput>& inputs,
                          const prereg::RegisterResult& result, const std::string& times)
{
    const auto yesNo = [](bool is) { return std::string(is ? "yes" : "no"); };
    const prereg::RunRecord record{
        "register",
        Zorvan::Version(),
        {{"scale", Zorvan::ToText(options.files.dMmPerUnit, 9)},
         {"grid", options.files.grid},
         {"sensor", options.files.sensor},
         {"optimize", yesNo(options.isOptimized)},
         {"weighed", options.isFirstFit  ? "no"
                     : options.isWeighed ? "yes"
                                         : "auto"},
         {"stopped", yesNo(result.isStopped)}},
        inputs,
        result.session.GetRegistration().GetRegistrationConfig(),
        times,
        options.isOptimized
            ? prereg::JointUncertainties(result.session, result.table, result.scheduler->CreateJobGroup({}, {}))
            : std::vector<prereg::PoseUncertainty>()};
    return prereg::RunRecordText(record, result.table);
}

void tellOfExport(const RegisterOptions& options, const prereg::ExportOutcome& outcome, std::size_t all)
{
    if (options.exported.empty()) return;
    for (const std::filesystem::path& file : outcome.missing) leaveOut("not there any more: " + file.string());
    Tell(exportOf(options).string() + " holds " + std::to_string(outcome.uiScans) + " of the " + std::to_string(all) +
             " scans",
         options.general.isQuiet);
}

int registerScans(RegisterOptions options)
{
    // To a search, what the library warns of is everyday business, and its errors end in a verdict or a refusal.
    if (options.general.logLevel.empty()) options.general.logLevel = "fatal";
    options.general.Apply();
    checkCall(options);
    checkFiles(options);
    const std::filesystem::path folder = options.folder;
    const prereg::CStartPoses initial =
        options.initial.empty() ? prereg::CStartPoses()
                                : prereg::CStartPoses(options.initial, options.files.dMmPerUnit, options.scans);
    prereg::PrepareResults(folder);
    const std::vector<Zorvan::CFileLock> locks = lockSessions(options);
    if (!options.session.empty()) Zorvan::TidyStagingFolders(std::filesystem::path(options.session).parent_path());

    const std::vector<prereg::RunInput> inputs = describeInputs(options);
    prereg::CStageTimes times;
    const Zorvan::CInterruption interruption;
    prereg::RegisterResult result = run(options, initial, interruption, times);
    std::vector<std::string>& leftOut = result.table.leftOut;
    leftOut.insert(leftOut.begin(), options.refused.begin(), options.refused.end());
    times.Append(result.times);
    const auto record = [&] {
        times.End("results");
        return runRecordText(options, inputs, result, times.Words());
    };
    const prereg::ExportOutcome exported =
        prereg::WriteRegistration(folder, result.session, result.table, {options.exported, record});
    tellOfExport(options, exported, result.table.scans.size());

    Tell(result.settingsWords, options.general.isQuiet);
    for (const std::string& why : result.leftOut) leaveOut(why);
    Tell(times.Words(), options.general.isQuiet);
    if (result.isStopped)
        Tell(std::string(prereg::sStoppedWords) + "; --session " + sessionOf(options).string() + " goes on from there",
             false);
    std::cout << prereg::ToText(result.table);
    return options.refused.empty() && result.IsOneCluster() && !result.isStopped ? Done : NotEveryScan;
}

} // namespace

void AddRegister(CCommand app)
{
    const auto options = std::make_shared<RegisterOptions>();
    CCommand command = app.AddCommand("register", "Bring many scans into one frame");
    command.AddOption("SCAN", options->scans,
                      "Scans, best in the order in which they were taken: " + Zorvan::ReadFormats() +
                          "\n(all scans of a PTX or E57, whose own poses are tried first)");
    command
        .AddOption("-o,--output", options->folder,
                   "Folder for poses.json, merged.ply, report.html, session.zdoc and run.json")
        .Required();
    command.AddOption("--session", options->session, "A session.zdoc to go on with; the scans are added to it");
    command.AddOption("--initial", options->initial,
                      "Poses file with rough poses of some or all scans; they are tried before a\nsearch");
    command
        .AddOption("--export", options->exported,
                   "Write all points of the scans that are in the largest cluster, too:\n"
                   "e57 (scans with poses), ply, pcd or las (one cloud), as scans.e57 and so on;\n"
                   "they have to fit into memory, see zorvan apply")
        .Among({"e57", "ply", "pcd", "las"});
    command.AddFlag("--optimize", options->isOptimized,
                    "Refine all poses together afterwards; scans that do not agree with the others\nleave them");
    command.AddFlag("--weighed", options->isWeighed,
                    "Place scans where all pairs agree, and leave out what has several places: slower, for\n"
                    "parts that fit in many places (default: when a scan has plane faces, and where pairs\n"
                    "are at odds after merging)");
    command.AddFlag("--first-fit", options->isFirstFit, "Merge the first pairs that fit, whatever the scans");
    command.AddFlag("--keep-going", options->isKeptGoing,
                    "Leave out scans that cannot be read, instead of ending; those with too few points\n"
                    "or features are always left out");
    command.AddFlag("--wait", options->isWaiting,
                    "Wait for another run that uses the session or the folder, instead of ending");
    options->files.AddTo(command);
    options->settings.AddTo(command);
    options->gpu.AddTo(command);
    options->general.AddToShared(command);
    command.SetFooter("Ctrl-C and SIGTERM end the search and write what has been found.\n"
                      "Exit code 0: all scans are in one frame; 1: not all, or one was left out; 2: wrong call,\n"
                      "unreadable input or unwritable output.\n\n"
                      "Examples:\n"
                      "  zorvan register scans/*.ply -o out --optimize\n"
                      "  zorvan register bunny/*.ply --scale 1000 -o out\n"
                      "  zorvan register site.e57 --scale 1000 -o out --export e57\n"
                      "  zorvan register new.ply --session out/session.zdoc -o out2");
    command.SetAction([options, command] {
        options->hasScale = command.IsGiven("--scale");
        options->hasGrid = command.IsGiven("--grid");
        return registerScans(*options);
    });
}

} // namespace tools
