// SPDX-License-Identifier: MIT
#include "zorvan/scans/lasheader.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/moveformats.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace Zorvan {

namespace {

constexpr std::size_t uiScalePlace = 131; // of scales, offsets and bounds in the header

/// Where the direction of a waveform stands in a point, three floats; nothing for a format without.
std::optional<std::size_t> waveOffset(unsigned format)
{
    switch (format) {
    case 4:
        return 45;
    case 5:
        return 51;
    case 9:
        return 47;
    case 10:
        return 55;
    default:
        return std::nullopt;
    }
}

class CLasMover
{
public:
    CLasMover(CMoveStream& stream, const CMovement& movement)
        : m_stream(stream),
          m_movement(movement),
          m_header(ReadLasHeader(stream.Peek(), stream.File(), stream.Size())),
          m_scale(m_header.scale)
    {
        m_low.fill(std::numeric_limits<double>::infinity());
        m_high.fill(-std::numeric_limits<double>::infinity());
        // What is turned mixes the axes: all take the finest step.
        if (movement.IsTurned()) m_scale.fill(std::ranges::min(m_scale, {}, [](double s) { return std::abs(s); }));
    }

    void Move()
    {
        m_stream.Copy(m_header.bodyOffset);
        setOffset(m_stream.Peek(m_header.stride));
        const std::size_t most = std::max<std::size_t>(1, CMoveStream::uiBlock / m_header.stride);
        for (std::uint64_t left = m_header.points; left > 0;) {
            const std::size_t rows = std::min<std::uint64_t>(left, most);
            takeRows(m_stream.Take(rows * m_header.stride));
            left -= rows;
        }
        m_stream.CopyRest();
        m_stream.PutAt(uiScalePlace, numbers());
    }

private:
    /// Scales, offsets and bounds.
    [[nodiscard]] std::string numbers() const
    {
        std::string bytes;
        for (const double c : m_scale) AppendLittle(bytes, c);
        for (const double c : m_offset) AppendLittle(bytes, c);
        for (std::size_t k = 0; k < 3; ++k) {
            AppendLittle(bytes, m_high[k]);
            AppendLittle(bytes, m_low[k]);
        }
        return bytes;
    }

    void takeRows(std::string_view rows)
    {
        if (IPointListener* const listener = m_stream.Listener()) {
            for (std::size_t at = 0; at < rows.size(); at += m_header.stride)
                listener->TakePoint(placeOf(rows.substr(at, m_header.stride)), nullptr);
            return;
        }
        std::string moved(rows);
        for (std::size_t at = 0; at < moved.size(); at += m_header.stride) movePoint(moved.data() + at);
        m_stream.Put(moved);
    }

    [[nodiscard]] Position placeOf(std::string_view point) const
    {
        Position place{};
        for (std::size_t k = 0; k < 3; ++k)
            place[k] = LoadLittle<std::int32_t>(point, 4 * k) * m_header.scale[k] + m_header.offset[k];
        return place;
    }

    /// So that the whole numbers are small: near the first point, unless those of the file can stay.
    void setOffset(std::string_view point)
    {
        m_offset = m_movement.Point(m_movement.IsTurned() ? placeOf(point) : m_header.offset);
        if (!m_movement.IsTurned()) return;
        for (double& c : m_offset) c = std::round(c);
    }

    void movePoint(char* point)
    {
        const std::string_view bytes(point, m_header.stride);
        const Position place = m_movement.Point(placeOf(bytes));
        std::string raw;
        for (std::size_t k = 0; k < 3; ++k) {
            const double steps = std::round((place[k] - m_offset[k]) / m_scale[k]);
            if (!(std::abs(steps) <= std::numeric_limits<std::int32_t>::max()))
                m_stream.Fail("its points lie too far apart for whole numbers of 32 bits once they are moved",
                              "write it as PLY");
            AppendLittle(raw, static_cast<std::int32_t>(steps));
            const double written = steps * m_scale[k] + m_offset[k];
            m_low[k] = std::min(m_low[k], written);
            m_high[k] = std::max(m_high[k], written);
        }
        raw.copy(point, raw.size());
        if (const auto wave = waveOffset(m_header.format)) turnWave(point + *wave);
    }

    void turnWave(char* at) const
    {
        const std::string_view bytes(at, 12);
        Position direction{};
        for (std::size_t k = 0; k < 3; ++k) direction[k] = static_cast<double>(LoadLittle<float>(bytes, 4 * k));
        std::string raw;
        for (const double c : m_movement.Direction(direction)) AppendLittle(raw, ToFloat(c));
        raw.copy(at, raw.size());
    }

    CMoveStream& m_stream;
    const CMovement& m_movement;
    LasHeader m_header;
    Position m_scale;
    Position m_offset{};
    Position m_low{};
    Position m_high{};
};

} // namespace

std::string MoveLas(CMoveStream& stream, const CMovement& movement)
{
    CLasMover(stream, movement).Move();
    return {};
}

} // namespace Zorvan
