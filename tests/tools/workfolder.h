// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/temporaryfolder.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

/// A folder that lives as long as the test, with the program run inside it.
class WorkFolder : public TemporaryFolder
{
public:
    struct Outcome
    {
        int exitCode = -1; ///< -1 after a signal
        std::string out;
        std::string err;
    };

    /// The program runs as long as it takes; ctest ends what hangs.
    /// @param out  where its standard output goes
    /// @param how  what the shell puts before the program
    [[nodiscard]] Outcome Run(const std::string& arguments, const std::string& out = ">stdout.txt",
                              const std::string& how = "") const
    {
        const int status = std::system(commandFor(how, arguments, out + " 2>stderr.txt").c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Read("stdout.txt"), Read("stderr.txt")};
    }

    /// The program while the test goes on; killed at the end of its life.
    class Running
    {
    public:
        Running(const WorkFolder& folder, std::string name, const std::string& command)
            : m_folder(folder), m_name(std::move(name)), m_pid(::fork())
        {
            if (m_pid != 0) return;
            ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            ::_exit(127);
        }
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;
        ~Running()
        {
            if (m_pid <= 0) return;
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }

        [[nodiscard]] pid_t Pid() const { return m_pid; }
        /// Waits, however long, until the program has said the words. @return false when it has ended before
        [[nodiscard]] bool HasSaid(const std::string& words)
        {
            while (says().find(words) == std::string::npos) {
                if (m_pid <= 0) return false;
                if (::waitpid(m_pid, &m_status, WNOHANG) == m_pid) m_pid = 0;
                ::usleep(2000);
            }
            return true;
        }
        Outcome Ended()
        {
            if (m_pid > 0) ::waitpid(std::exchange(m_pid, 0), &m_status, 0);
            return {WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -1, m_folder.Read(m_name + ".out"),
                    m_folder.Read(m_name + ".err")};
        }

    private:
        [[nodiscard]] std::string says() const
        {
            return m_folder.Read(m_name + ".out") + m_folder.Read(m_name + ".err");
        }

        const WorkFolder& m_folder;
        std::string m_name;
        pid_t m_pid;
        int m_status = -1;
    };

    /// @param name  of the files with its output
    [[nodiscard]] Running Start(const std::string& name, const std::string& arguments) const
    {
        for (const char* stream : {".out", ".err"})
            std::filesystem::remove(*this / (name + stream)); // of an earlier one
        return {*this, name, commandFor("exec ", arguments, ">" + name + ".out 2>" + name + ".err")};
    }

private:
    [[nodiscard]] std::string commandFor(const std::string& how, const std::string& arguments,
                                         const std::string& redirection) const
    {
        return "cd " + Path().string() + " && " + how + ZORVAN_PROGRAM + " " + arguments + " " + redirection;
    }
};

/// Ended in one line that holds the words.
inline void ExpectRefused(const WorkFolder::Outcome& outcome, const std::string& words)
{
    EXPECT_EQ(outcome.exitCode, 2) << words << '\n' << outcome.out;
    EXPECT_NE(outcome.err.find(words), std::string::npos) << outcome.err << "not " << words;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
}
