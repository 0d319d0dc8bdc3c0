// SPDX-License-Identifier: MIT
#include "progress.h"

#include <unistd.h>

#include <iostream>

namespace tools {

CProgress::CProgress(bool isQuiet)
{
    using Bar = Zorvan::CTextProgressBar;
    if (!isQuiet && ::isatty(STDERR_FILENO) != 0) m_bar.emplace(std::cerr, "", Bar::EStyle::Vanishing);
}

Zorvan::Hooks CProgress::Hooks() { return Zorvan::Hooks({}, m_bar ? &*m_bar : nullptr); }

Zorvan::Hooks CProgress::Hooks(const Zorvan::CInterruption& interruption)
{
    return Zorvan::Hooks([&interruption] { return interruption.IsRequested(); }, m_bar ? &*m_bar : nullptr);
}

} // namespace tools
