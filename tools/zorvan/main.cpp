#include "commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <iostream>
#include <new>
#include <string>

namespace {

// File names and file contents reach the messages; neither may break the line or control the terminal.
std::string oneLine(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, ' ');
    return text;
}

int refuse(const std::string& why)
{
    std::cerr << "zorvan: " << oneLine(why) << '\n';
    return tools::WrongInput;
}

int run(int argc, char** argv)
{
    int exitCode = tools::Done;
    CLI::App app("Registers 3D surface scans.", "zorvan");
    app.require_subcommand(1);
    app.set_version_flag("--version", ZORVAN_VERSION);
    app.footer("zorvan COMMAND --help shows options and examples.");
    tools::AddAlign(app, exitCode);
    tools::AddRegister(app, exitCode);
    tools::AddFeatures(app, exitCode);
    tools::AddSimulate(app, exitCode);
    tools::AddEvaluate(app, exitCode);
    tools::AddSettings(app, exitCode);
    tools::AddFlags(app, exitCode);
    tools::AddDump(app, exitCode);
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
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc&) {
        return refuse("not enough memory for this input; give a smaller one");
    } catch (const std::exception& error) {
        return refuse(error.what());
    }
}
