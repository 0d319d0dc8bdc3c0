// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/cchanneltransfercurve.h"
#include "zorvan/platform/export.h"

#include <array>
#include <cstddef>
#include <utility>

namespace Zorvan {

/// A transfer curve for each channel of the colour class T, made by `T::CreateColorTransferCurve`.
template <typename T>
class CColorTransferCurve
{
public:
    explicit CColorTransferCurve(std::array<CChannelTransferCurve, 3> curves) : m_curves(std::move(curves)) {}

    /// @throws std::out_of_range above 2
    [[nodiscard]] CChannelTransferCurve& operator[](std::size_t channel) { return m_curves.at(channel); }
    [[nodiscard]] const CChannelTransferCurve& operator[](std::size_t channel) const { return m_curves.at(channel); }

private:
    std::array<CChannelTransferCurve, 3> m_curves;
};

namespace cs {

struct Range
{
    double dLo;
    double dHi;
};

/// The curve of one channel: channel 0 over the range `first`, 1 and 2 over `others`.
/// @throws std::invalid_argument "invalid channel index"
[[nodiscard]] ZORVAN_API CChannelTransferCurve MakeChannelTransferCurve(int channel, int degree, Range first,
                                                                        Range others);

template <typename T>
[[nodiscard]] CColorTransferCurve<T> MakeColorTransferCurve(int degree)
{
    return CColorTransferCurve<T>({T::CreateChannelTransferCurve(0, degree), T::CreateChannelTransferCurve(1, degree),
                                   T::CreateChannelTransferCurve(2, degree)});
}

} // namespace cs

} // namespace Zorvan
