// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/textnumber.h"

#include <chrono>
#include <string>

namespace prereg {

/// Remembers how long the stages of a run took, for one line at its end.
class CStageTimes
{
public:
    void End(const std::string& stage)
    {
        const auto now = std::chrono::steady_clock::now();
        m_words += (m_words.empty() ? "" : ", ") + stage + " " +
                   Zorvan::ToText(std::chrono::duration<double>(now - m_start).count(), 3) + " s";
        m_start = now;
    }
    /// "features 0.4 s, registration 1.2 s"
    [[nodiscard]] const std::string& Words() const { return m_words; }
    /// Those of another run, which has just ended, go behind these.
    void Append(const std::string& words)
    {
        if (!words.empty()) m_words += (m_words.empty() ? "" : ", ") + words;
        m_start = std::chrono::steady_clock::now();
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::string m_words;
};

} // namespace prereg
