#include "zorvan/runtime/ctextprogressbar.h"

#include <algorithm>
#include <ostream>
#include <utility>

namespace Zorvan {

void AProgressMeter::Start(std::uint64_t totalSteps)
{
    const std::lock_guard lock(m_mutex);
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
    const auto reached = static_cast<std::uint64_t>(fraction * static_cast<double>(m_share));
    // A stage that starts anew gives nothing back: the parent never falls.
    if (reached <= m_passedOn) return;
    m_parent.Advance(reached - std::exchange(m_passedOn, reached));
}

CTextProgressBar::CTextProgressBar(std::ostream& out, std::string label) : m_out(out), m_label(std::move(label)) {}

void CTextProgressBar::show(double fraction)
{
    constexpr int iWidth = 40;
    const int percent = static_cast<int>(fraction * 100.0);
    if (std::exchange(m_percent, percent) == percent) return;

    const int marks = percent * iWidth / 100;
    const std::string number = std::to_string(percent);
    m_out << '\r' << m_label << " [" << std::string(static_cast<std::size_t>(marks), '#')
          << std::string(static_cast<std::size_t>(iWidth - marks), ' ') << "] " << std::string(3 - number.size(), ' ')
          << number << '%';
    if (percent == 100) m_out << '\n';
    m_out.flush();
}

} // namespace Zorvan
