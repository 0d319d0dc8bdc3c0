// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/scans/filelock.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/workflow/lookatposes.h"
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

int list(const SessionOptions& options)
{
    options.general.Apply();
    const Opened opened(options);
    std::cout << prereg::ToText(prereg::LookAtPoses(opened.session, nullptr, opened.group));
    return Done;
}

using Edit = prereg::CSession (*)(const prereg::CSession&, const std::string&, const prereg::CSession::Group&);

/// The session, changed in its place.
int edit(const SessionOptions& options, Edit change)
{
    options.general.Apply();
    const auto place = std::filesystem::weakly_canonical(std::filesystem::absolute(options.file));
    const Zorvan::CFileLock lock(place, [&](const std::string& holder) {
        throw Zorvan::CInputError(place, "in use by " + holder, "wait until it has ended");
    });
    const Opened opened(options);
    const std::string name = std::filesystem::path(options.scan).filename().string();
    try {
        const prereg::CSession changed = change(opened.session, name, opened.group);
        changed.Save(options.file);
        std::cout << prereg::ToText(prereg::LookAtPoses(changed, nullptr, opened.group));
    } catch (const std::invalid_argument& error) {
        throw Zorvan::CInputError(options.file, name + ": " + error.what(), "zorvan session list shows its scans");
    }
    Tell("poses.json and the other results are those from before; zorvan register --session writes new ones",
         options.general.isQuiet);
    return Done;
}

} // namespace

void AddSession(CCommand app)
{
    const auto options = std::make_shared<SessionOptions>();
    CCommand command = app.AddCommand("session", "What is in a session, and scans taken out of it");
    command.RequireCommand();
    command.SetFooter("Exit code 0: done; 2: wrong call, or no session or no such scan.\n\n"
                      "Examples:\n"
                      "  zorvan session list out/session.zdoc\n"
                      "  zorvan session remove out/session.zdoc view03.ply");
    const auto add = [&](const char* name, const char* help) {
        CCommand sub = command.AddCommand(name, help);
        sub.AddOption("FILE", options->file, "A session.zdoc that register has written").Required();
        options->general.AddTo(sub, "Threads that work; the result does not depend on it");
        return sub;
    };
    add("list", "Its scans, by cluster, and how well they fit").SetAction([options] { return list(*options); });
    const auto addEdit = [&](const char* name, const char* help, Edit change) {
        CCommand sub = add(name, help);
        sub.AddOption("SCAN", options->scan, "The scan, by its file name").Required();
        sub.SetAction([options, change] { return edit(*options, change); });
    };
    addEdit("remove", "Take a scan out; all others stay where they are", prereg::WithoutScan);
    addEdit("split", "Put a scan into a cluster of its own; the next register --session looks for its place anew",
            prereg::WithScanApart);
}

} // namespace tools
