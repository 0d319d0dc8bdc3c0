// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/runtime/ctextprogressbar.h"

#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>

namespace Zorvan {

/// How a caller stops a long operation, and hears how far it is. A value to pass around; the meter has to outlive it.
///
///     CTextProgressBar bar(std::cerr, "");
///     const Hooks hooks([&] { return isCancelled.load(); }, &bar);
///     if (search.Compute(hooks)) use(search.GetNextResult());
///
/// Without a question nothing stops the operation; without a meter nobody hears.
class Hooks
{
public:
    /// @param isAborted  asked now and then on the calling thread; once it says true the operation ends soon, with what
    ///                   it has; may be empty
    /// @param progress   started anew for each stage; null: none
    explicit Hooks(std::function<bool()> isAborted, AProgressMeter* progress = nullptr)
        : m_isAborted(std::move(isAborted)), m_progress(progress)
    {
    }
    /// Neither stops nor hears.
    [[nodiscard]] static Hooks None() { return Hooks({}); }

    [[nodiscard]] bool IsAborted() const { return m_isAborted && m_isAborted(); }
    [[nodiscard]] AProgressMeter* GetProgress() const { return m_progress; }

    // For the operation.
    void Start(std::string_view stage, std::uint64_t steps) const
    {
        if (m_progress != nullptr) m_progress->Start(steps, stage);
    }
    void Advance(std::uint64_t steps = 1) const
    {
        if (m_progress != nullptr) m_progress->Advance(steps);
    }
    void Finish() const
    {
        if (m_progress != nullptr) m_progress->Finish();
    }

private:
    std::function<bool()> m_isAborted;
    AProgressMeter* m_progress;
};

} // namespace Zorvan
