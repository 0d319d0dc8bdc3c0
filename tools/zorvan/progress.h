#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace tools {

/// A bar on standard error that fills as steps are done, with the time left once some seconds have passed. Nothing is
/// written when standard error is no terminal, or when it is told to be quiet. `Finish`, or the end of its life, wipes
/// the line.
///
///     CProgress progress("scanning", views, options.isQuiet);
///     for (...) { work(); progress.Step(); }
class CProgress
{
public:
    CProgress(std::string what, std::size_t steps, bool isQuiet);
    ~CProgress();
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    void Step();
    void Finish();

private:
    void draw() const;
    /// ", about 12 s left" as the steps so far foretell it; empty while they tell nothing.
    [[nodiscard]] std::string timeLeft() const;

    std::string m_what;
    std::size_t m_steps;
    std::size_t m_done = 0;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    bool m_isShown;
};

} // namespace tools
