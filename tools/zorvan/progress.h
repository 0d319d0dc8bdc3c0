// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/runtime/ctextprogressbar.h"
#include "zorvan/runtime/interruption.h"

#include <optional>

namespace tools {

/// The bar of the program on standard error. There is none when that is no terminal, or the program is to be quiet.
class CProgress
{
public:
    explicit CProgress(bool isQuiet);

    /// For work that nothing stops.
    [[nodiscard]] Zorvan::Hooks Hooks();
    /// For work that Ctrl-C stops.
    [[nodiscard]] Zorvan::Hooks Hooks(const Zorvan::CInterruption& interruption);

private:
    std::optional<Zorvan::CTextProgressBar> m_bar;
};

} // namespace tools
