// SPDX-License-Identifier: MIT
#include "zorvan/workflow/sidebyside.h"

#include <atomic>
#include <chrono>
#include <future>
#include <vector>

namespace prereg {

namespace {

void answer(std::vector<std::future<void>>& jobs, std::atomic<bool>& isAborted, const Zorvan::Hooks& hooks)
{
    for (std::future<void>& job : jobs) {
        while (job.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready)
            isAborted = hooks.IsAborted() || isAborted;
        hooks.Advance();
    }
}

} // namespace

void RunSideBySide(std::span<const Work> jobs, const CSession::Group& group, const Zorvan::Hooks& hooks)
{
    std::atomic<bool> isAborted = false;
    const Zorvan::Hooks jobHooks([&] { return isAborted.load(); });
    std::vector<std::future<void>> running;
    for (const Work& job : jobs) running.push_back(group->Schedule([&] { job(jobHooks); }));
    try {
        answer(running, isAborted, hooks);
    } catch (...) {
        isAborted = true;
        for (std::future<void>& job : running) job.wait();
        throw;
    }
    for (std::future<void>& job : running) job.get();
}

} // namespace prereg
