// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace tools {

/// Exit codes of the program.
enum EExit : int
{
    Done = 0,
    NotEveryScan = 1, ///< finished, but not every scan found its place
    WrongInput = 2    ///< wrong call, unreadable input, or output that cannot be written
};

/// What a value must be. Each returns the option, so that conditions can be chained.
class COption
{
public:
    explicit COption(CLI::Option& option) : m_option(&option) {}

    COption& Required();
    COption& TakesOneValue();
    COption& Among(const std::vector<std::string>& values);
    COption& Positive();
    COption& Between(int iLowest, int iHighest);
    COption& Between(double dLowest, double dHighest);

private:
    CLI::Option* m_option;
};

/// A command and its options; a handle, valid as long as its CCommandLine. Parsing is CLI11's, whose templates take a
/// compiler longer than all else here: only commandline.cpp sees them.
class CCommand
{
public:
    CCommand(CLI::App& app, int& exitCode) : m_app(&app), m_exitCode(&exitCode) {}

    [[nodiscard]] CCommand AddCommand(const std::string& name, const std::string& help);
    /// @param names  such as "-o,--output", or one word without hyphens for an argument
    /// @param value  where it goes; must live until the command runs. Text, paths, numbers, optional numbers, lists of
    /// text
    template <typename T>
    COption AddOption(const std::string& names, T& value, const std::string& help);
    void AddFlag(const std::string& names, bool& value, const std::string& help);
    void SetFooter(const std::string& text);
    /// What the command does when the user calls it, once all is parsed. @param run  returns the exit code and throws
    ///                                                                              CInputError for wrong input
    void SetAction(std::function<int()> run);
    /// The user must name one of its commands.
    void RequireCommand();
    [[nodiscard]] bool IsGiven(const std::string& option) const;

private:
    CLI::App* m_app;
    int* m_exitCode;
};

/// The program: commands are added to its root, then one is run.
class CCommandLine
{
public:
    CCommandLine(const std::string& name, const std::string& help);
    ~CCommandLine();
    CCommandLine(const CCommandLine&) = delete;
    CCommandLine& operator=(const CCommandLine&) = delete;

    [[nodiscard]] CCommand Root();
    void SetVersion(std::function<std::string()> version);
    /// @return the exit code of the command. @throws CInputError for a call that cannot be understood, and what the
    ///         command throws
    int Run(int argc, const char* const* argv);
    /// The same for arguments in one text, as a shell would take it.
    int Run(const std::string& arguments);

private:
    template <typename... Arguments>
    int parse(const Arguments&... arguments);

    std::unique_ptr<CLI::App> m_app;
    int m_exitCode = Done;
};

} // namespace tools
