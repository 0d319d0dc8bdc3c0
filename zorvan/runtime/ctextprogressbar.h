// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <mutex>
#include <string>
#include <string_view>

namespace Zorvan {

/// Hears how far a long computation is. `Advance` may be called from any thread; `show` is called by one at a time.
///
///     CTextProgressBar bar(std::cerr, "features");
///     bar.Start(parts.size());
///     for (const Part& part : parts) { compute(part); bar.Advance(1); }
///     bar.Finish();
class ZORVAN_API AProgressMeter
{
public:
    AProgressMeter() = default;
    AProgressMeter(const AProgressMeter&) = delete;
    AProgressMeter& operator=(const AProgressMeter&) = delete;
    virtual ~AProgressMeter() = default;

    /// Begins anew with `totalSteps` ahead; 0 means that there is nothing to do, which is all done.
    /// @param stage  what they are steps of, for the reader ("features"); empty: as before
    void Start(std::uint64_t totalSteps, std::string_view stage = {});
    /// Steps beyond the total do not count.
    void Advance(std::uint64_t steps);
    /// All is done, whatever was counted.
    void Finish() { Advance(UINT64_MAX); }
    /// In [0, 1].
    [[nodiscard]] double Fraction() const;

protected:
    /// @param fraction  done, in [0, 1]; never falls between two calls of `Start`
    virtual void show(double fraction) = 0;
    /// A stage begins; `show` follows.
    virtual void begin(std::string_view) {}

private:
    [[nodiscard]] double fraction() const;

    mutable std::mutex m_mutex;
    std::uint64_t m_totalSteps = 0;
    std::uint64_t m_doneSteps = 0;
};

/// One stage of a computation that several stages share: all of its steps are `share` steps of the parent.
class ZORVAN_API CStageProgressMeter : public AProgressMeter
{
public:
    /// @param parent  started by the caller; outlives the stage
    CStageProgressMeter(AProgressMeter& parent, std::uint64_t share) : m_parent(parent), m_share(share) {}

private:
    void show(double fraction) override;

    AProgressMeter& m_parent;
    const std::uint64_t m_share;
    std::uint64_t m_passedOn = 0;
};

/// Draws `label [#####     ]  50%` over itself with carriage returns, and a line end at 100 %. Writes only when the
/// picture changes. The label of a stage takes the place of the one before it. A stage that was not finished, since the
/// work was stopped or failed, ends its line as well. The caller decides whether the stream is a terminal.
class ZORVAN_API CTextProgressBar : public AProgressMeter
{
public:
    enum class EStyle
    {
        Line,     ///< stays, with a line end behind it
        Vanishing ///< shows the time left as well, and is wiped at 100 % and at the end of its life; for a terminal
    };

    CTextProgressBar(std::ostream& out, std::string label, EStyle eStyle = EStyle::Line);
    ~CTextProgressBar() override;

private:
    void show(double fraction) override;
    void begin(std::string_view stage) override;
    void finishLine();
    /// Whether an unfinished bar stands on the line.
    [[nodiscard]] bool isDrawn() const { return m_percent >= 0 && m_percent < 100; }
    /// ", about 12 s left" as the steps so far suggest; empty while they say too little.
    [[nodiscard]] std::string timeLeft(double fraction) const;

    std::ostream& m_out;
    std::string m_label;
    const EStyle m_eStyle;
    int m_percent = -1; ///< as drawn last
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

} // namespace Zorvan
