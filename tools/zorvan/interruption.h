#pragma once

namespace tools {

/// While it lives, Ctrl-C does not end the program but is remembered, so that long work can stop and keep what it has.
/// A second Ctrl-C ends the program as usual. One at a time.
class CInterruption
{
public:
    CInterruption();
    ~CInterruption();
    CInterruption(const CInterruption&) = delete;
    CInterruption& operator=(const CInterruption&) = delete;

    [[nodiscard]] bool IsRequested() const;
    /// The same as a flag for work that polls one.
    [[nodiscard]] const bool& GetFlag() const;
};

} // namespace tools
