// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/scans/filelock.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/util/version.h"
#include "zorvan/workflow/lookatposes.h"
#include "zorvan/workflow/pairtable.h"
#include "zorvan/workflow/registerresults.h"
#include "zorvan/workflow/session.h"
#include "zorvan/workflow/sessionedit.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace tools {

namespace {

struct SessionOptions
{
    std::string file;
    std::string scan;
    GeneralOptions general;
};

/// A session with those who work for it.
struct Opened
{
    explicit Opened(const SessionOptions& options)
        : scheduler(options.general.uiNumThreads),
          group(scheduler.CreateJobGroup({}, {})),
          session(prereg::CSession::Load(options.file, group))
    {
    }

    Zorvan::CJobScheduler scheduler;
    prereg::CSession::Group group;
    prereg::CSession session;
};

void show(const prereg::CSession& session, const prereg::CSession::Group& group)
{
    std::cout << prereg::ToText(prereg::LookAtPoses(session, nullptr, group));
}

int list(const SessionOptions& options)
{
    options.general.Apply();
    const Opened opened(options);
    show(opened.session, opened.group);
    for (const prereg::CSession::ScanFile& scan : opened.session.GetFiles()) {
        if (scan.file.empty() || std::filesystem::exists(scan.file)) continue;
        Tell(scan.name + " is not at " + scan.file.string() + " any more", options.general.isQuiet);
    }
    std::cout << prereg::ToText(opened.session.GetJournal());
    return Done;
}

std::string nameOf(const SessionOptions& options) { return std::filesystem::path(options.scan).filename().string(); }

constexpr const char* sListShows = "zorvan session list shows its scans";

int showPairs(const SessionOptions& options)
{
    options.general.Apply();
    try {
        std::cout << prereg::PairTableText(Opened(options).session, nameOf(options));
    } catch (const std::invalid_argument& error) {
        throw Zorvan::CInputError(options.file, nameOf(options) + ": " + error.what(), sListShows);
    }
    return Done;
}

/// The session, changed in its place. @param change  throws std::invalid_argument for what cannot be done
template <typename Change>
int edit(const SessionOptions& options, const std::string& subject, const std::string& advice, const Change& change)
{
    options.general.Apply();
    const auto place = std::filesystem::weakly_canonical(std::filesystem::absolute(options.file));
    const Zorvan::CFileLock lock(place, [&](const std::string& holder) {
        throw Zorvan::CInputError(place, "in use by " + holder, "wait until it has ended");
    });
    const Opened opened(options);
    try {
        const std::string by = std::string("zorvan session ") + Zorvan::Version();
        const prereg::CSession changed = change(opened, prereg::StampNow(by));
        changed.Save(options.file);
        show(changed, opened.group);
    } catch (const std::invalid_argument& error) {
        throw Zorvan::CInputError(options.file, subject + error.what(), advice);
    }
    Tell("poses.json and the other results are those from before; zorvan register --session writes new ones",
         options.general.isQuiet);
    return Done;
}

using ScanEdit = prereg::CSession (*)(const prereg::CSession&, const std::string&, const prereg::CSession::Group&,
                                      const prereg::JournalStamp&);

int editScan(const SessionOptions& options, ScanEdit change)
{
    const std::string name = nameOf(options);
    return edit(options, name + ": ", sListShows, [&](const Opened& opened, const auto& stamp) {
        return change(opened.session, name, opened.group, stamp);
    });
}

int undo(const SessionOptions& options)
{
    return edit(options, "", "zorvan session list shows its journal",
                [](const Opened& opened, const auto& stamp) { return opened.session.Undone(opened.group, stamp); });
}

} // namespace

void AddSession(CCommand app)
{
    const auto options = std::make_shared<SessionOptions>();
    CCommand command = app.AddCommand("session", "What is in a session and was done to it, and changes to it");
    command.RequireCommand();
    command.SetFooter("Exit code 0: done; 2: wrong call, no session, no such scan, or nothing to take back.\n\n"
                      "Examples:\n"
                      "  zorvan session list out/session.zdoc\n"
                      "  zorvan session pairs out/session.zdoc view03.ply\n"
                      "  zorvan session remove out/session.zdoc view03.ply\n"
                      "  zorvan session undo out/session.zdoc");
    const auto add = [&](const char* name, const char* help) {
        CCommand sub = command.AddCommand(name, help);
        sub.AddOption("FILE", options->file, "A session.zdoc that register has written").Required();
        options->general.AddToShared(sub);
        return sub;
    };
    add("list", "Its scans, by cluster, how well they fit, and who did what to it, when and why").SetAction([options] {
        return list(*options);
    });
    CCommand pairs = add("pairs", "What searches have found for each pair of its scans: places, and how many samples "
                                  "match and contradict there. A run that goes on with the session builds on it");
    pairs.AddOption("SCAN", options->scan, "By its file name: only pairs of this one");
    pairs.SetAction([options] { return showPairs(*options); });
    add("undo", "Take back what the last register, remove or split did; again for the one before").SetAction([options] {
        return undo(*options);
    });
    const auto addEdit = [&](const char* name, const char* help, ScanEdit change) {
        CCommand sub = add(name, help);
        sub.AddOption("SCAN", options->scan, "The scan, by its file name").Required();
        sub.SetAction([options, change] { return editScan(*options, change); });
    };
    addEdit("remove", "Take a scan out; all others stay where they are", prereg::WithoutScan);
    addEdit("split", "Put a scan into a cluster of its own; the next register --session looks for its place anew",
            prereg::WithScanApart);
}

} // namespace tools
