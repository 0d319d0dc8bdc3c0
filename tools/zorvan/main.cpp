// SPDX-License-Identifier: MIT
#include "commands.h"

#include "zorvan/scans/showntext.h"

#include "zorvan/platform/cpufeatures.h"

#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <system_error>

namespace {

int refuse(const std::string& why)
{
    std::cerr << Zorvan::ToMessage("zorvan: " + why) << '\n';
    return tools::WrongInput;
}

// A result that is being written must not get the number of a closed standard stream, or messages would go into it.
// What stands in can be read only, so that writing to it fails as to a closed one.
void occupyStandardStreams()
{
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = ::open("/dev/null", O_RDONLY);
    if (descriptor >= 0) ::close(descriptor);
}

/// @return the exit code, that of a failure when what was printed has not arrived
int withOutput(int exitCode)
{
    errno = 0;
    std::cout.flush();
    if (std::cout.good()) return exitCode;
    const std::string why = errno != 0 ? ": " + std::generic_category().message(errno) : "";
    return refuse("standard output cannot be written" + why + "; check where it goes");
}

/// With the vector unit in use, which the environment can choose (ZORVAN_SIMD).
std::string version() { return ZORVAN_VERSION " (" + std::string(Zorvan::NameOf(Zorvan::GetSimd())) + ")"; }

int run(int argc, char** argv)
{
    int exitCode = tools::Done;
    CLI::App app("Registers 3D surface scans.", "zorvan");
    app.require_subcommand(1);
    app.set_version_flag("--version", version);
    app.footer("zorvan COMMAND --help shows options and examples.");
    tools::AddAlign(app, exitCode);
    tools::AddJudge(app, exitCode);
    tools::AddRegister(app, exitCode);
    tools::AddApply(app, exitCode);
    tools::AddFeatures(app, exitCode);
    tools::AddFit(app, exitCode);
    tools::AddSimulate(app, exitCode);
    tools::AddEvaluate(app, exitCode);
    tools::AddSession(app, exitCode);
    tools::AddSettings(app, exitCode);
    tools::AddFlags(app, exitCode);
    tools::AddInfo(app, exitCode);
    tools::AddDump(app, exitCode);
    tools::AddCurve(app, exitCode);
    tools::AddOutline(app, exitCode);
    tools::AddConvert(app, exitCode);
    tools::AddDevices(app, exitCode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        return refuse(std::string(error.what()) + "; zorvan --help shows how to call it");
    }
    return exitCode;
}

} // namespace

int main(int argc, char** argv)
{
    occupyStandardStreams();
    std::signal(SIGPIPE, SIG_IGN); // a reader of messages that goes away does not end the work
    try {
        return withOutput(run(argc, argv));
    } catch (const std::bad_alloc&) {
        return refuse("not enough memory for this input; give a smaller one");
    } catch (const std::exception& error) {
        return refuse(error.what());
    }
}
