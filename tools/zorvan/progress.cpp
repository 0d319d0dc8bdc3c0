#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <utility>

namespace tools {

namespace {

constexpr std::size_t uiWidth = 40;
constexpr double dFirstSeconds = 1.0; // before, a guess would jump about

} // namespace

CProgress::CProgress(std::string what, std::size_t steps, bool isQuiet)
    : m_what(std::move(what)),
      m_steps(std::max<std::size_t>(1, steps)),
      m_isShown(!isQuiet && ::isatty(STDERR_FILENO) != 0)
{
    draw();
}

CProgress::~CProgress() { Finish(); }

void CProgress::Finish()
{
    if (m_isShown) std::cerr << "\r\x1b[K" << std::flush;
    m_isShown = false;
}

void CProgress::Step()
{
    const std::size_t before = uiWidth * m_done / m_steps;
    m_done = std::min(m_done + 1, m_steps);
    // Of many small steps, only those that move the bar.
    if (m_steps <= uiWidth || uiWidth * m_done / m_steps != before) draw();
}

void CProgress::draw() const
{
    if (!m_isShown) return;
    const std::size_t filled = uiWidth * m_done / m_steps;
    std::cerr << '\r' << m_what << " [" << std::string(filled, '#') << std::string(uiWidth - filled, '.') << "] "
              << m_done << '/' << m_steps << timeLeft() << "\x1b[K" << std::flush;
}

std::string CProgress::timeLeft() const
{
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    if (m_done == 0 || m_done == m_steps || seconds < dFirstSeconds) return {};
    const double left = seconds * static_cast<double>(m_steps - m_done) / static_cast<double>(m_done);
    if (left < 90) return ", about " + std::to_string(std::lround(left)) + " s left";
    return ", about " + std::to_string(std::lround(left / 60)) + " min left";
}

} // namespace tools
