#include "commands.h"
#include "gpu.h"
#include "interruption.h"
#include "options.h"
#include "progress.h"

#include "zorvan/numerics/quantile.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filelock.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/stagingfolder.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/featureset.h"
#include "zorvan/workflow/lookatposes.h"
#include "zorvan/workflow/registerresults.h"
#include "zorvan/workflow/session.h"
#include "zorvan/workflow/settingsfile.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tools {

namespace {

using Clock = std::chrono::steady_clock;

struct RegisterOptions
{
    std::vector<std::string> scans;
    std::string folder;
    std::string session;
    std::string initial;
    bool isOptimized = false;
    bool isKeptGoing = false; ///< without scans that cannot be read
    bool isWaiting = false;   ///< for the lock of another run
    bool hasScale = false;    ///< given by the user
    bool hasGrid = false;
    GeneralOptions general;
    ScanFileOptions files;
    SettingsOptions settings;
    GpuOptions gpu;
};

constexpr const char* sSession = "session.zdoc";

std::string nameOf(const std::string& file) { return std::filesystem::path(file).filename().string(); }

std::filesystem::path sessionOf(const RegisterOptions& options)
{
    return std::filesystem::path(options.folder) / sSession;
}

/// Remembers how long the stages took, for one line at the end.
class CStages
{
public:
    void End(const std::string& stage)
    {
        const double seconds = std::chrono::duration<double>(Clock::now() - m_start).count();
        m_words += (m_words.empty() ? "" : ", ") + stage + " " + Zorvan::ToText(seconds, 3) + " s";
        m_start = Clock::now();
    }
    [[nodiscard]] const std::string& Words() const { return m_words; }

private:
    Clock::time_point m_start = Clock::now();
    std::string m_words;
};

/// What all searches of a run share.
struct Merges
{
    const CInterruption& interruption;
    CProgress& progress;
    std::vector<double> errors; ///< RMSE of each (mm)

    /// The median, once there are enough to tell the noise of these scans.
    [[nodiscard]] std::optional<double> TypicalRmse() const
    {
        constexpr std::size_t uiEnough = 3;
        if (errors.size() < uiEnough) return std::nullopt;
        return Zorvan::Median(errors);
    }
};

/// The search for one pair of clusters, which Ctrl-C ends and which moves the bar when it is a merge.
class CWatchedSearch : public prereg::CRefinedPreRegistration
{
public:
    CWatchedSearch(CRefinedPreRegistration search, double grid, Merges& merges)
        : CRefinedPreRegistration(std::move(search)), m_grid(grid), m_merges(merges)
    {
    }

    bool Compute(std::function<bool()>) override
    {
        return CRefinedPreRegistration::Compute([this] { return m_merges.interruption.IsRequested(); });
    }

    prereg::ICPResult GetNextResult() override
    {
        constexpr double dCopyShare = 0.01;
        const prereg::ICPResult result = CRefinedPreRegistration::GetNextResult();
        m_merges.progress.Step();
        const auto error = static_cast<double>(result.GetError());
        // A scan that meets its own copy tells nothing of the noise.
        if (error > dCopyShare * m_grid) m_merges.errors.push_back(error);
        return result;
    }

private:
    double m_grid; ///< of the points (mm)
    Merges& m_merges;
};

void checkCall(const RegisterOptions& options)
{
    if (options.scans.empty() && options.session.empty())
        throw Zorvan::CInputError("no scans: name some, or a --session to go on with");
    std::set<std::string> names;
    for (const std::string& scan : options.scans) {
        if (!names.insert(nameOf(scan)).second)
            throw Zorvan::CInputError("two scans are named " + nameOf(scan) +
                              ", and poses are matched by file name; rename one of them");
    }
    if (options.session.empty()) return;
    if (options.hasGrid || !options.settings.file.empty())
        throw Zorvan::CInputError("--grid and --settings: a session keeps the settings it began with; leave them out, or begin "
                          "a new one");
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
    for (const char* name : prereg::resultFiles) {
        if (name != std::string(sSession)) Zorvan::RequireApart(std::filesystem::path(options.folder) / name, inputs);
    }
    for (const std::string& scan : options.scans) {
        if (Zorvan::IsColouredResult(scan))
            throw Zorvan::CInputError(scan, "a merged or coloured cloud that zorvan has written, not a scan",
                              "leave it out; align takes it, if it is meant");
    }
}

/// No other run goes on with the session, or writes into the folder, while the locks live.
std::vector<Zorvan::CFileLock> lockSessions(const RegisterOptions& options)
{
    const std::filesystem::path written = std::filesystem::canonical(options.folder) / sSession;
    std::set<std::filesystem::path> files{written}; // in one order, so that no two runs wait for each other
    if (!options.session.empty()) {
        const auto read = std::filesystem::weakly_canonical(std::filesystem::absolute(options.session));
        // Where we cannot write, no run of ours changes it.
        if (::access(read.parent_path().c_str(), W_OK) == 0) files.insert(read);
    }
    std::vector<Zorvan::CFileLock> locks;
    for (const std::filesystem::path& file : files) {
        locks.emplace_back(file, [&](const std::string& holder) {
            if (!options.isWaiting)
                throw Zorvan::CInputError(file, "in use by " + holder, "wait until it has ended, or call again with --wait");
            Tell("waiting for " + holder + ", which uses " + file.string(), options.general.isQuiet);
        });
    }
    return locks;
}

void leaveOut(const std::string& why) { Tell("left out: " + why, false); }

std::vector<Zorvan::SurfelScan> readScans(const RegisterOptions& options)
{
    const Zorvan::ScanOptions scanOptions = options.files.ToScanOptions();
    std::vector<Zorvan::SurfelScan> scans;
    CProgress progress("reading", options.scans.size(), options.general.isQuiet);
    for (const std::string& file : options.scans) {
        try {
            scans.push_back(Zorvan::LoadScan(file, scanOptions));
        } catch (const Zorvan::CInputError& error) {
            if (options.scans.size() == 1) throw;
            if (!options.isKeptGoing) throw Zorvan::CInputError(std::string(error.what()) + ", or leave it out: --keep-going");
            leaveOut(error.what());
        }
        progress.Step();
    }
    progress.Finish();
    if (scans.empty() && !options.scans.empty()) throw Zorvan::CInputError("none of the scans can be read; check the files");
    for (const Zorvan::SurfelScan& scan : scans) Tell(scan.Warning(), options.general.isQuiet);
    return scans;
}

/// The median of what suits each scan.
prereg::ConfigurationFPFH chooseSettings(const RegisterOptions& options, const std::vector<Zorvan::SurfelScan>& scans)
{
    const bson::object set = options.settings.Read(options.general.isQuiet);
    std::vector<double> grids;
    for (const Zorvan::SurfelScan& scan : scans) {
        const prereg::CPointSet points(scan.points.data(), scan.normals.data(), scan.points.size());
        grids.push_back(prereg::ChooseSettings(points, options.files.ToGrid()).dGrid);
    }
    const double grid = Zorvan::Median(std::move(grids));
    prereg::ConfigurationFPFH config = prereg::WithSettings(prereg::AllSettingsForGrid(grid), set);
    // Poses come from a search, so they are near when all points come into play.
    config.icpConfig.dInitialQueryRadiusScaling = prereg::SettingsForRefinement(config).dInitialQueryRadiusScaling;
    const double unit = options.files.dMmPerUnit;
    Tell("grid " + Zorvan::ToText(grid / unit) + " " + Zorvan::UnitName(unit) + (options.hasGrid ? "" : ": the median over the scans") +
             "; RMSE accepted up to " + Zorvan::ToText(config.icpConfig.dMaxRMSE / unit) + " " + Zorvan::UnitName(unit),
         options.general.isQuiet);
    return config;
}

/// Poses of one frame: that of the primary cluster of the file, or else of its first one.
class CInitialPoses
{
public:
    explicit CInitialPoses(const RegisterOptions& options)
    {
        if (options.initial.empty()) return;
        m_poses = Zorvan::ReadPoses(options.initial, options.files.dMmPerUnit);
        const auto isPrimary = [](const Zorvan::PoseCluster& cluster) { return cluster.isPrimary; };
        const auto primary = std::find_if(m_poses.clusters.begin(), m_poses.clusters.end(), isPrimary);
        if (primary != m_poses.clusters.end()) m_cluster = static_cast<std::size_t>(primary - m_poses.clusters.begin());
        const auto hasPose = [this](const std::string& scan) { return static_cast<bool>(Of(scan)); };
        if (std::none_of(options.scans.begin(), options.scans.end(), hasPose))
            throw Zorvan::CInputError(options.initial, "has no pose of any of the scans", "add some under their file names");
    }

    /// Invalid when the file has none.
    [[nodiscard]] prereg::CTrafo Of(const std::filesystem::path& scan) const
    {
        const auto [found, cluster] = m_poses.Find(scan);
        return found != nullptr && cluster == m_cluster ? found->pose : prereg::CTrafo::Invalid();
    }

private:
    Zorvan::PosesFile m_poses;
    std::size_t m_cluster = 0;
};

/// Nothing for one whose sizes do not suit the settings, when the run goes on without it.
std::shared_ptr<const prereg::CFPFHPointSet> computeFeatures(const RegisterOptions& options, const Zorvan::SurfelScan& scan,
                                                             const prereg::ConfigurationFPFH& config,
                                                             const prereg::GpuContext& gpu)
{
    try {
        return prereg::ComputeFeatureSet(scan, config, options.general.uiNumThreads, options.files.dMmPerUnit, gpu);
    } catch (const Zorvan::CInputError& error) {
        if (!options.isKeptGoing) throw;
        leaveOut(error.what());
        return nullptr;
    }
}

/// @return whether all scans could be added
bool addScans(const RegisterOptions& options, const std::vector<Zorvan::SurfelScan>& scans, const CInitialPoses& initial,
              prereg::CSession& session)
{
    const prereg::ConfigurationFPFH config = prereg::SettingsForSearch(session.GetRegistration().GetRegistrationConfig());
    const prereg::GpuContext gpu = options.gpu.MakeContext(options.general.isQuiet);
    CProgress progress("features", scans.size(), options.general.isQuiet);
    std::string refused;
    std::size_t added = 0;
    for (const Zorvan::SurfelScan& scan : scans) {
        const auto set = computeFeatures(options, scan, config, gpu);
        if (set && session.Add(scan, set, initial.Of(scan.file)))
            ++added;
        else if (set)
            refused += (refused.empty() ? "" : ", ") + scan.file.filename().string();
        progress.Step();
    }
    progress.Finish();
    if (!refused.empty()) leaveOut("too few points or features: " + refused);
    return added == options.scans.size();
}

/// @param share  of the polygons that the settings allow
prereg::CClusterRegistration::SearchFactory searchWith(Merges& merges, double share)
{
    return [&merges, share](const auto& fix, const auto& flt, const auto& config, const auto* oracle) {
        prereg::ConfigurationFPFH search = prereg::SettingsForSearch(config);
        search.uiNumPolygons = static_cast<unsigned>(std::ceil(share * search.uiNumPolygons));
        const auto judge = prereg::SettingsForMerging(config, merges.TypicalRmse());
        return std::make_unique<CWatchedSearch>(prereg::CRefinedPreRegistration(fix, flt, search, judge, oracle),
                                                config.dGridSize, merges);
    };
}

void run(const RegisterOptions& options, prereg::CSession& session, const CInterruption& interruption)
{
    // Most pairs of many scans have nothing in common, and most others are found soon.
    constexpr double dQuickShare = 0.25;
    prereg::CClusterRegistration& registration = session.GetRegistration();
    const auto numClusters = [&] { return registration.GetClusterIDs().size(); };
    CProgress progress("registering", std::max<std::size_t>(numClusters(), 1) - 1, options.general.isQuiet);
    Merges merges{interruption, progress, {}};
    for (const double share : {dQuickShare, 1.0}) {
        if (numClusters() < 2 || interruption.IsRequested()) break;
        registration.ForgetFailures();
        registration.SetSearch(searchWith(merges, share));
        registration.Run();
    }
    registration.SetSearch({});
}

void optimize(const RegisterOptions& options, prereg::CSession& session, const CInterruption& interruption)
{
    prereg::CClusterRegistration& registration = session.GetRegistration();
    registration.SetFitToPrimary(true);
    const std::vector<UniversalUniqueID> clusters = registration.GetClusterIDs();
    CProgress progress("optimizing", clusters.size(), options.general.isQuiet);
    for (const UniversalUniqueID& id : clusters) {
        if (registration.Size(id) > 1) registration.OptimizeRegistration(id, true, false, interruption.GetFlag());
        progress.Step();
    }
}

/// The session to go on with, or a new one, and the scans that are new to it.
std::pair<prereg::CSession, std::vector<Zorvan::SurfelScan>> begin(RegisterOptions& options, const prereg::CSession::Group& group,
                                                   CStages& stages)
{
    if (options.session.empty()) {
        std::vector<Zorvan::SurfelScan> scans = readScans(options);
        prereg::CSession session(chooseSettings(options, scans), options.files.dMmPerUnit, group);
        return {std::move(session), std::move(scans)};
    }
    prereg::CSession session = prereg::CSession::Load(options.session, group);
    stages.End("session");
    if (!options.hasScale) options.files.dMmPerUnit = session.GetMmPerUnit();
    for (const std::string& scan : options.scans) {
        if (session.Contains(nameOf(scan)))
            throw Zorvan::CInputError(scan, "a scan of this name is in the session already", "rename it");
    }
    return {std::move(session), readScans(options)};
}

int report(const prereg::RegistrationTable& table, bool isComplete)
{
    std::cout << Zorvan::ToText(table);
    const auto isWithFirst = [&](const prereg::ScanRow& scan) { return scan.cluster == table.scans.front().cluster; };
    return isComplete && std::all_of(table.scans.begin(), table.scans.end(), isWithFirst) ? Done : NotEveryScan;
}

/// The folder is there, and every result can be written into it.
void prepareFolder(const std::filesystem::path& folder)
{
    Zorvan::MakeFolder(folder);
    Zorvan::RequireWritable(folder / sSession);
    for (const char* name : prereg::resultFiles) Zorvan::RequireReplaceable(folder / name);
}

int registerScans(RegisterOptions options)
{
    // To a search, what the library warns of is everyday business, and its errors end in a verdict or a refusal.
    if (options.general.logLevel.empty()) options.general.logLevel = "fatal";
    options.general.Apply();
    checkCall(options);
    checkFiles(options);
    const std::filesystem::path folder = options.folder;
    const CInitialPoses initial(options);
    prepareFolder(folder);
    const std::vector<Zorvan::CFileLock> locks = lockSessions(options);
    if (!options.session.empty()) Zorvan::TidyStagingFolders(std::filesystem::path(options.session).parent_path());

    CStages stages;
    Zorvan::CJobScheduler scheduler(options.general.uiNumThreads);
    const prereg::CSession::Group group = scheduler.CreateJobGroup({}, {});
    const CInterruption interruption;
    auto [session, scans] = begin(options, group, stages);
    stages.End("reading");
    const bool isComplete = addScans(options, scans, initial, session);
    stages.End("features");
    run(options, session, interruption);
    stages.End("registration");
    if (options.isOptimized && !interruption.IsRequested()) {
        optimize(options, session, interruption);
        stages.End("optimization");
    }
    const prereg::RegistrationTable table = prereg::LookAtPoses(session, group);
    prereg::WriteRegistration(folder, session, table);
    stages.End("results");

    Tell(stages.Words(), options.general.isQuiet);
    if (interruption.IsRequested())
        Tell("stopped; this is what was found so far, and --session " + sessionOf(options).string() +
                 " goes on from there",
             false);
    return report(table, isComplete && !interruption.IsRequested());
}

} // namespace

void AddRegister(CLI::App& app, int& exitCode)
{
    const auto options = std::make_shared<RegisterOptions>();
    CLI::App* const command = app.add_subcommand("register", "Bring many scans into one frame");
    command->add_option("SCAN", options->scans, "Scans, best in the order in which they were taken");
    command
        ->add_option("-o,--output", options->folder, "Folder for poses.json, merged.ply, report.html and session.zdoc")
        ->required();
    command->add_option("--session", options->session, "A session.zdoc to go on with; the scans are added to it");
    command->add_option("--initial", options->initial,
                        "Poses file with rough poses of some or all scans; they are tried before a\nsearch");
    command->add_flag("--optimize", options->isOptimized,
                      "Refine all poses together afterwards; scans that do not agree with the others\nleave them");
    command->add_flag("--keep-going", options->isKeptGoing,
                      "Leave out scans that cannot be read, instead of ending; those with too few points\n"
                      "or features are always left out");
    command->add_flag("--wait", options->isWaiting,
                      "Wait for another run that uses the session or the folder, instead of ending");
    options->files.AddTo(*command);
    options->settings.AddTo(*command);
    options->gpu.AddTo(*command);
    options->general.AddTo(*command, "Threads that work; the result does not depend on it");
    command->footer("Ctrl-C and SIGTERM end the search and write what has been found.\n"
                    "Exit code 0: all scans are in one frame; 1: not all, or one was left out; 2: wrong call,\n"
                    "unreadable input or unwritable output.\n\n"
                    "Examples:\n"
                    "  zorvan register scans/*.ply -o out --optimize\n"
                    "  zorvan register bunny/*.ply --scale 1000 -o out\n"
                    "  zorvan register new.ply --session out/session.zdoc -o out2");
    command->callback([options, command, &exitCode] {
        options->hasScale = command->count("--scale") > 0;
        options->hasGrid = command->count("--grid") > 0;
        exitCode = registerScans(*options);
    });
}

} // namespace tools
