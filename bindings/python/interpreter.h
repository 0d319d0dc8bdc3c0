// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/runtime/ctextprogressbar.h"

#include <pybind11/pybind11.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <string>
#include <string_view>

namespace bindings {

namespace py = pybind11;

/// Gives up the interpreter's lock while it lives. When the interpreter has begun to end, a thread other than the one
/// that ends it stays in here for good: taking the lock would kill it in the middle of C++.
class CReleasedLock
{
public:
    CReleasedLock();
    ~CReleasedLock();
    CReleasedLock(const CReleasedLock&) = delete;
    CReleasedLock& operator=(const CReleasedLock&) = delete;

private:
    PyThreadState* m_state;
};

/// Takes the interpreter's lock while it lives, from any thread, also from one that has it. The end of the interpreter
/// waits for it. Empty when the interpreter has begun to end: then there is no lock, and nothing of Python may be
/// touched.
class CTakenLock
{
public:
    CTakenLock();
    ~CTakenLock();
    CTakenLock(const CTakenLock&) = delete;
    CTakenLock& operator=(const CTakenLock&) = delete;

    explicit operator bool() const { return m_isTaken; }

private:
    bool m_isTaken;
    PyGILState_STATE m_state{};
};

/// Hands what the library has logged since to `logging`, in the logger "zorvan" and those below it. Holds the lock.
void DeliverLog();

/// Work without the lock that does not ask to be stopped.
template <typename Work>
auto WithoutLock(const Work& work)
{
    struct Delivery
    {
        ~Delivery() { DeliverLog(); }
    } const delivery;
    const CReleasedLock released;
    return work();
}

/// One long call from Python: the hooks of the library, answered by the interpreter. Ctrl-C stops the work, which keeps
/// what it has; whatever else Python raises meanwhile stops it too, and is raised when it has ended.
class CLongCall : private Zorvan::AProgressMeter
{
public:
    /// @param progress  None, or called with a stage and the part of it that is done
    /// @param stop      None, or asked whether to stop
    CLongCall(const py::object& progress, const py::object& stop);

    /// Runs the work without the lock.
    template <typename Work>
    auto Run(const Work& work)
    {
        auto result = WithoutLock([&] { return work(Zorvan::Hooks([this] { return isAborted(); }, meter())); });
        raise();
        return result;
    }

private:
    using Clock = std::chrono::steady_clock;

    void begin(std::string_view stage) override;
    void show(double fraction) override;
    [[nodiscard]] bool isAborted();
    [[nodiscard]] AProgressMeter* meter() { return m_progress.is_none() ? nullptr : this; }
    void poll();
    /// Calls into Python; what that raises ends the work.
    template <typename Call>
    void guarded(const Call& call);
    void raise();

    const py::object& m_progress;
    const py::object& m_stop;
    std::string m_stage;
    Clock::time_point m_lastShown;
    Clock::time_point m_lastPoll;
    std::atomic<bool> m_isStopped = false;
    std::exception_ptr m_error; ///< guarded by the interpreter's lock
};

void AddInterpreter(py::module_& module);

} // namespace bindings
