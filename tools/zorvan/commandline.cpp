// SPDX-License-Identifier: MIT
#include "commandline.h"

#include "zorvan/scans/inputerror.h"

#include <CLI/CLI.hpp>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <utility>

namespace tools {

COption& COption::Required()
{
    m_option->required();
    return *this;
}

COption& COption::TakesOneValue()
{
    m_option->expected(1);
    return *this;
}

COption& COption::Among(const std::vector<std::string>& values)
{
    m_option->check(CLI::IsMember(values));
    return *this;
}

COption& COption::Positive()
{
    m_option->check(CLI::PositiveNumber);
    return *this;
}

COption& COption::Between(int iLowest, int iHighest)
{
    m_option->check(CLI::Range(iLowest, iHighest));
    return *this;
}

COption& COption::Between(double dLowest, double dHighest)
{
    m_option->check(CLI::Range(dLowest, dHighest));
    return *this;
}

CCommand CCommand::AddCommand(const std::string& name, const std::string& help)
{
    return {*m_app->add_subcommand(name, help), *m_exitCode};
}

template <typename T>
COption CCommand::AddOption(const std::string& names, T& value, const std::string& help)
{
    return COption(*m_app->add_option(names, value, help));
}

template COption CCommand::AddOption(const std::string&, std::string&, const std::string&);
template COption CCommand::AddOption(const std::string&, std::filesystem::path&, const std::string&);
template COption CCommand::AddOption(const std::string&, std::vector<std::string>&, const std::string&);
template COption CCommand::AddOption(const std::string&, int&, const std::string&);
template COption CCommand::AddOption(const std::string&, unsigned&, const std::string&);
template COption CCommand::AddOption(const std::string&, std::size_t&, const std::string&);
template COption CCommand::AddOption(const std::string&, double&, const std::string&);
template COption CCommand::AddOption(const std::string&, std::optional<double>&, const std::string&);

void CCommand::AddFlag(const std::string& names, bool& value, const std::string& help)
{
    m_app->add_flag(names, value, help);
}

void CCommand::SetFooter(const std::string& text) { m_app->footer(text); }

void CCommand::SetAction(std::function<int()> run)
{
    m_app->callback([run = std::move(run), exitCode = m_exitCode] { *exitCode = run(); });
}

void CCommand::RequireCommand() { m_app->require_subcommand(1); }

bool CCommand::IsGiven(const std::string& option) const { return m_app->count(option) > 0; }

CCommandLine::CCommandLine(const std::string& name, const std::string& help)
    : m_app(std::make_unique<CLI::App>(help, name))
{
    m_app->require_subcommand(1);
    m_app->footer(name + " COMMAND --help shows options and examples.");
}

CCommandLine::~CCommandLine() = default;

CCommand CCommandLine::Root() { return {*m_app, m_exitCode}; }

void CCommandLine::SetVersion(std::function<std::string()> version)
{
    m_app->set_version_flag("--version", std::move(version));
}

template <typename... Arguments>
int CCommandLine::parse(const Arguments&... arguments)
{
    try {
        m_app->parse(arguments...);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return m_app->exit(error); // help or version was asked for
        throw Zorvan::CInputError(std::string(error.what()) + "; " + m_app->get_name() +
                                  " --help shows how to call it");
    }
    return m_exitCode;
}

int CCommandLine::Run(int argc, const char* const* argv) { return parse(argc, argv); }

int CCommandLine::Run(const std::string& arguments) { return parse(arguments); }

} // namespace tools
