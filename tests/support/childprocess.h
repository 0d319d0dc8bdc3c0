// SPDX-License-Identifier: MIT
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>
#include <utility>

/// A forked process of the test. It ends without running the test program's own clean-up; one that still runs when the
/// object goes is killed. Fork before the test opens handles or starts threads: a child shares what is open.
class CChildProcess
{
public:
    explicit CChildProcess(const std::function<bool()>& body) noexcept : m_pid(::fork())
    {
        if (m_pid == 0) ::_exit(body() ? 0 : 1);
    }
    CChildProcess(CChildProcess&& other) noexcept : m_pid(std::exchange(other.m_pid, 0)) {}
    ~CChildProcess()
    {
        if (m_pid > 0) Kill();
    }

    /// @return whether the body returned true
    bool Succeeded()
    {
        int status = -1;
        ::waitpid(std::exchange(m_pid, 0), &status, 0);
        return status == 0;
    }
    void Kill()
    {
        ::kill(m_pid, SIGKILL);
        Succeeded();
    }
    [[nodiscard]] bool IsRunning() const { return ::waitpid(m_pid, nullptr, WNOHANG) == 0; }

    /// For the body: stays here until killed.
    static bool Stop() { return ::raise(SIGSTOP) == 0; }
    void WaitUntilStopped() const { ::waitpid(m_pid, nullptr, WUNTRACED); }

private:
    pid_t m_pid;
};

/// A name of kernel objects that no other run uses.
inline std::wstring UniqueName(const wchar_t* subject) { return subject + std::to_wstring(::getpid()); }
