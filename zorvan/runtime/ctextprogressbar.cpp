// SPDX-License-Identifier: MIT
#include "zorvan/runtime/ctextprogressbar.h"

#include <algorithm>
#include <cmath>
#include <ostream>
#include <utility>

namespace Zorvan {

namespace {

/// How many of `parts` whole parts are done. The quotient k / n may have been rounded down, which would hide part k:
/// the next larger number gives it back.
[[nodiscard]] std::uint64_t doneParts(double fraction, std::uint64_t parts)
{
    const double done = std::nextafter(fraction, 1.0);
    return done < 1.0 ? static_cast<std::uint64_t>(done * static_cast<double>(parts)) : parts;
}

} // namespace

void AProgressMeter::Start(std::uint64_t totalSteps, std::string_view stage)
{
    const std::lock_guard lock(m_mutex);
    begin(stage);
    m_totalSteps = totalSteps;
    m_doneSteps = 0;
    show(fraction());
}

void AProgressMeter::Advance(std::uint64_t steps)
{
    const std::lock_guard lock(m_mutex);
    m_doneSteps += std::min(steps, m_totalSteps - m_doneSteps);
    show(fraction());
}

double AProgressMeter::Fraction() const
{
    const std::lock_guard lock(m_mutex);
    return fraction();
}

double AProgressMeter::fraction() const
{
    if (m_totalSteps == 0) return 1.0;
    return static_cast<double>(m_doneSteps) / static_cast<double>(m_totalSteps);
}

void CStageProgressMeter::show(double fraction)
{
    const std::uint64_t reached = doneParts(fraction, m_share);
    // A stage that starts anew gives nothing back: the parent never falls.
    if (reached <= m_passedOn) return;
    m_parent.Advance(reached - std::exchange(m_passedOn, reached));
}

CTextProgressBar::CTextProgressBar(std::ostream& out, std::string label, EStyle eStyle)
    : m_out(out), m_label(std::move(label)), m_eStyle(eStyle)
{
}

CTextProgressBar::~CTextProgressBar()
{
    if (isDrawn()) finishLine();
}

void CTextProgressBar::begin(std::string_view stage)
{
    if (isDrawn()) finishLine(); // a shorter label would leave the end of the longer one
    if (!stage.empty()) m_label = stage;
    m_percent = -1;
    m_start = std::chrono::steady_clock::now();
}

void CTextProgressBar::finishLine()
{
    m_out << (m_eStyle == EStyle::Vanishing ? "\r\x1b[K" : "\n");
    m_out.flush();
}

std::string CTextProgressBar::timeLeft(double fraction) const
{
    constexpr double dFirstSeconds = 1.0; // before, a guess would jump about
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    if (fraction <= 0.0 || seconds < dFirstSeconds) return {};
    const double left = seconds * (1.0 - fraction) / fraction;
    if (left < 90) return ", about " + std::to_string(std::lround(left)) + " s left";
    return ", about " + std::to_string(std::lround(left / 60)) + " min left";
}

void CTextProgressBar::show(double fraction)
{
    constexpr int iWidth = 40;
    const auto percent = static_cast<int>(doneParts(fraction, 100));
    if (std::exchange(m_percent, percent) == percent) return;

    const int marks = percent * iWidth / 100;
    const std::string number = std::to_string(percent);
    m_out << '\r' << m_label << " [" << std::string(static_cast<std::size_t>(marks), '#')
          << std::string(static_cast<std::size_t>(iWidth - marks), ' ') << "] " << std::string(3 - number.size(), ' ')
          << number << '%';
    if (m_eStyle == EStyle::Vanishing) m_out << timeLeft(fraction) << "\x1b[K";
    m_out.flush();
    if (percent == 100) finishLine();
}

} // namespace Zorvan
