// SPDX-License-Identifier: MIT
#include "zorvan/scans/laswriter.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/lasheader.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

namespace Zorvan {

namespace {

constexpr std::uint16_t uiHeaderBytes = 227;
constexpr std::size_t uiProjectAndVersion = 24; // bytes before the version
constexpr unsigned char uiOnlyReturn = 1U | 1U << 3U;

/// The finest power of ten in which the coordinates, about the shift, are 32 bits wide.
double scaleFor(const Scan& scan, double unitsPerMm)
{
    double most = 0.0;
    for (const Vector3& p : scan.points) {
        for (const float c : {p.x, p.y, p.z}) most = std::max(most, std::abs(static_cast<double>(c)));
    }
    most *= unitsPerMm;
    return most > 0.0 ? std::pow(10.0, std::ceil(std::log10(most / 2.1e9))) : 1.0;
}

void requireFinite(const Scan& scan, const std::filesystem::path& file)
{
    const auto isOff = [](const Vector3& p) {
        return !std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z);
    };
    const auto off = std::ranges::count_if(scan.points, isOff);
    if (off > 0)
        throw CInputError(file, std::to_string(off) + " points are not finite, and LAS has no place for them",
                          "write PLY or PCD");
}

class CLasBytes
{
public:
    CLasBytes(const Scan& scan, double unitsPerMm)
        : m_scan(scan),
          m_unitsPerMm(unitsPerMm),
          m_scale(scaleFor(scan, unitsPerMm)),
          m_format(scan.colours.empty() ? 0 : 2),
          m_isUnitRange(std::ranges::all_of(scan.intensities, [](float value) { return !(value > 1.0F); }))
    {
    }

    std::string Write()
    {
        m_bytes.reserve(uiHeaderBytes + m_scan.points.size() * LasPointBytes(m_format));
        appendHeader();
        for (std::size_t i = 0; i < m_scan.points.size(); ++i) appendPoint(i);
        return std::move(m_bytes);
    }

private:
    [[nodiscard]] double offset(std::size_t axis) const { return m_scan.shift[axis] * m_unitsPerMm; }

    [[nodiscard]] std::int32_t whole(std::size_t i, unsigned axis) const
    {
        return static_cast<std::int32_t>(
            std::lround(static_cast<double>(m_scan.points[i][axis]) * m_unitsPerMm / m_scale));
    }

    void appendHeader()
    {
        const auto count = static_cast<std::uint32_t>(m_scan.points.size());
        m_bytes += "LASF";
        m_bytes.resize(uiProjectAndVersion, '\0');
        m_bytes += '\1';
        m_bytes += '\2';
        appendText("zorvan");                    // system
        appendText("zorvan");                    // software
        AppendLittle(m_bytes, std::uint32_t{0}); // no date: same scan, same bytes
        AppendLittle(m_bytes, uiHeaderBytes);
        AppendLittle(m_bytes, std::uint32_t{uiHeaderBytes});
        AppendLittle(m_bytes, std::uint32_t{0}); // records of variable length
        m_bytes += static_cast<char>(m_format);
        AppendLittle(m_bytes, static_cast<std::uint16_t>(LasPointBytes(m_format)));
        for (const std::uint32_t value : {count, count, 0U, 0U, 0U, 0U}) AppendLittle(m_bytes, value); // by return
        for (int axis = 0; axis < 3; ++axis) AppendLittle(m_bytes, m_scale);
        for (std::size_t axis = 0; axis < 3; ++axis) AppendLittle(m_bytes, offset(axis));
        for (unsigned axis = 0; axis < 3; ++axis) appendRange(axis);
    }

    void appendText(std::string text)
    {
        text.resize(32, '\0');
        m_bytes += text;
    }

    void appendRange(unsigned axis)
    {
        std::int32_t low = m_scan.points.empty() ? 0 : std::numeric_limits<std::int32_t>::max();
        std::int32_t high = m_scan.points.empty() ? 0 : std::numeric_limits<std::int32_t>::min();
        for (std::size_t i = 0; i < m_scan.points.size(); ++i) {
            low = std::min(low, whole(i, axis));
            high = std::max(high, whole(i, axis));
        }
        for (const std::int32_t end : {high, low}) AppendLittle(m_bytes, end * m_scale + offset(axis));
    }

    void appendPoint(std::size_t i)
    {
        for (unsigned axis = 0; axis < 3; ++axis) AppendLittle(m_bytes, whole(i, axis));
        AppendLittle(m_bytes, m_scan.intensities.empty() ? std::uint16_t{0} : intensity(m_scan.intensities[i]));
        m_bytes += static_cast<char>(uiOnlyReturn);
        m_bytes.append(5, '\0'); // class, angle, user data, source
        if (m_format != 2) return;
        for (const std::uint8_t part : m_scan.colours[i]) AppendLittle(m_bytes, static_cast<std::uint16_t>(part * 257));
    }

    [[nodiscard]] std::uint16_t intensity(float value) const
    {
        const double scaled = static_cast<double>(value) * (m_isUnitRange ? 65535.0 : 1.0);
        return static_cast<std::uint16_t>(scaled > 0.0 ? std::min(scaled + 0.5, 65535.0) : 0.0); // false for NaN
    }

    const Scan& m_scan;
    double m_unitsPerMm;
    double m_scale;
    unsigned m_format;
    bool m_isUnitRange;
    std::string m_bytes;
};

} // namespace

std::string WriteLasBytes(const Scan& scan, const std::filesystem::path& file, double unitsPerMm)
{
    requireFinite(scan, file);
    return CLasBytes(scan, unitsPerMm).Write();
}

void WriteLas(const std::filesystem::path& file, const Scan& scan, double unitsPerMm)
{
    WriteFileAtomically(file, WriteLasBytes(scan, file, unitsPerMm));
}

} // namespace Zorvan
