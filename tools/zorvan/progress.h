#pragma once

#include <cstddef>
#include <string>

namespace tools {

/// A bar on standard error that fills as steps are done. Nothing is written when standard error is no terminal, or when
/// it is told to be quiet. `Finish`, or the end of its life, wipes the line.
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

    std::string m_what;
    std::size_t m_steps;
    std::size_t m_done = 0;
    bool m_isShown;
};

} // namespace tools
