// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/runtime/stopsignals.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/documenttext.h"
#include "zorvan/workflow/flagstore.h"

#include <iostream>
#include <limits>
#include <memory>
#include <string>

namespace tools {

namespace {

struct FlagsOptions
{
    std::string store = prereg::sDefaultStore;
    std::string name;
    std::string value;
    double dHold = std::numeric_limits<double>::infinity(); ///< seconds
    GeneralOptions general;
};

std::string placeOf(const FlagsOptions& options) { return options.name + " in the store " + options.store; }

void tellHold(const FlagsOptions& options, bool isHeldByOthers)
{
    std::string text = "set " + placeOf(options);
    if (options.dHold > 0.0)
        text += options.dHold > std::numeric_limits<double>::max()
                    ? "; it is held until Ctrl-C"
                    : "; it is held for " + Zorvan::ToText(options.dHold) + " s";
    else if (isHeldByOthers)
        text += "; it stays while another process holds the store";
    else
        text += ", but no other process holds the store, so the value is gone already; give --hold SECONDS";
    std::cout << prereg::ToPrintable(text) << std::endl; // flushed: scripts wait for this line
}

int setFlag(const FlagsOptions& options)
{
    options.general.Apply();
    if (!(options.dHold >= 0.0)) throw Zorvan::CInputError("--hold must be 0 or a positive number of seconds");
    const bson::element flag = prereg::ReadFlag(options.name, options.value);
    const bool isHeldByOthers = prereg::IsStoreHeld(options.store);
    const Zorvan::CStopSignals signals;
    Zorvan::CSharedFlags flags = prereg::OpenStore(options.store, [&] { return signals.ArePending(); });
    if (!flags.Set(flag))
        throw Zorvan::CInputError(placeOf(options) + ": too large; clear other flags or give a shorter value");
    tellHold(options, isHeldByOthers);
    if (options.dHold > 0.0) signals.WaitFor(options.dHold);
    return isHeldByOthers || options.dHold > 0.0 ? Done : NotEveryScan;
}

/// The whole store; empty when nobody holds it.
bson::object readAll(const FlagsOptions& options)
{
    if (!prereg::IsStoreHeld(options.store)) return {};
    return prereg::OpenStore(options.store).Get().children();
}

int answer(bool isThere, const FlagsOptions& options)
{
    if (isThere) return Done;
    Tell(prereg::ToPrintable("there is no " + placeOf(options)), options.general.isQuiet);
    return NotEveryScan;
}

int getFlag(const FlagsOptions& options)
{
    options.general.Apply();
    const bson::element flag = readAll(options).child(options.name);
    if (flag) std::cout << prereg::FlagText(flag) << '\n';
    return answer(static_cast<bool>(flag), options);
}

int listFlags(const FlagsOptions& options)
{
    options.general.Apply();
    if (!prereg::IsStoreHeld(options.store))
        Tell("no process holds the store " + prereg::ToPrintable(options.store) + ", so it is empty",
             options.general.isQuiet);
    std::cout << prereg::ToPrintable(readAll(options)) << '\n';
    return Done;
}

int clearFlags(const FlagsOptions& options)
{
    options.general.Apply();
    const bool isHeld = prereg::IsStoreHeld(options.store);
    if (!options.name.empty()) return answer(isHeld && prereg::OpenStore(options.store).Erase(options.name), options);
    if (isHeld) prereg::OpenStore(options.store).Clear();
    return Done;
}

using Action = int (*)(const FlagsOptions&);

CCommand addAction(CCommand flags, const std::string& verb, const std::string& help,
                   const std::shared_ptr<FlagsOptions>& options, Action action)
{
    CCommand command = flags.AddCommand(verb, help);
    command.AddOption("--store", options->store,
                      std::string("Name of the store (default ") + prereg::sDefaultStore + ")");
    options->general.AddTo(command, "Accepted for all commands; this one uses one");
    command.SetAction([options, action] { return action(*options); });
    return command;
}

void addSet(CCommand flags, const std::shared_ptr<FlagsOptions>& options)
{
    CCommand set = addAction(flags, "set", "Set a flag and hold it", options, setFlag);
    set.AddOption("NAME", options->name, "Name of the flag").Required();
    set.AddOption("VALUE", options->value, "Number, true, false, null, '\"word\"' or '{\"name\" : value, ...}'")
        .Required();
    set.AddOption("--hold", options->dHold,
                  "Seconds to keep the store alive (default: until Ctrl-C). With 0 the value lives\n"
                  "only while another process holds the store; exit code 1 when none does");
    set.SetFooter("Examples:\n"
                  "  zorvan flags set debug_icp true\n"
                  "  zorvan flags set ConfigurationFPFH '{\"dMaxRMSE\" : 0.1}' --hold 60\n"
                  "  zorvan flags set my_count 3 --hold 0");
}

} // namespace

void AddFlags(CCommand app)
{
    const auto options = std::make_shared<FlagsOptions>();
    CCommand command = app.AddCommand("flags", "The store of flags that running programs share: set, get, list, clear");
    command.RequireCommand();
    command.SetFooter(
        "A store lives as long as some process holds it. Settings under ConfigurationFPFH change the\n"
        "commands that name it with --store. Exit code 0: done; 1: there is no such flag; 2: wrong call.\n\n"
        "Examples:\n"
        "  zorvan flags set ConfigurationFPFH '{\"uiNumSamples\" : 2000}' --hold 60 &\n"
        "  zorvan flags list\n"
        "  zorvan flags clear ConfigurationFPFH");
    addSet(command, options);
    CCommand get = addAction(command, "get", "Print the value of a flag", options, getFlag);
    get.AddOption("NAME", options->name, "Name of the flag; also one inside another flag").Required();
    get.SetFooter("Exit code 1: there is no such flag.\n\nExamples:\n  zorvan flags get debug_icp\n"
                  "  zorvan flags get dMaxRMSE --store other.host");
    addAction(command, "list", "Print all flags", options, listFlags)
        .SetFooter("Examples:\n  zorvan flags list\n  zorvan flags list --store other.host");
    CCommand clear = addAction(command, "clear", "Remove a flag, or all", options, clearFlags);
    clear.AddOption("NAME", options->name, "Name of the flag (default: all)");
    clear.SetFooter("Exit code 1: there is no such flag.\n\nExamples:\n  zorvan flags clear debug_icp\n"
                    "  zorvan flags clear");
}

} // namespace tools
