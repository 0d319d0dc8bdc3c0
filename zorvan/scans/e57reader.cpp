// SPDX-License-Identifier: MIT
#include "zorvan/scans/e57reader.h"

#include "zorvan/scans/e57document.h"
#include "zorvan/scans/e57pages.h"
#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

namespace Zorvan {

namespace {

constexpr std::size_t uiSectionHeader = 32;
constexpr std::size_t uiPacketHeader = 4; // of every kind
constexpr std::size_t uiDataHeader = 6;
constexpr unsigned uiPointSection = 1;
constexpr unsigned uiDataPacket = 1;

/// The bytes of each field of a scan, joined over all packets.
class CByteStreams
{
public:
    CByteStreams(CE57Pages& pages, const E57ScanHeader& header)
        : m_pages(pages), m_place(header.place), m_streams(header.fields.size())
    {
        const std::string section = pages.Read(m_place, uiSectionHeader);
        const auto length = LoadLittle<std::uint64_t>(section, 8);
        const auto data = LoadLittle<std::uint64_t>(section, 16);
        const std::uint64_t skipped = pages.ContentBefore(data) - pages.ContentBefore(m_place);
        if (static_cast<unsigned char>(section[0]) != uiPointSection || data < m_place || skipped < uiSectionHeader ||
            length < skipped)
            pages.Fail(m_place, "no points begin there");
        readPackets(data, length - skipped);
    }

    [[nodiscard]] const std::string& operator[](std::size_t field) const { return m_streams[field]; }

private:
    void readPackets(std::uint64_t place, std::uint64_t length)
    {
        const std::string packets = m_pages.Read(place, length);
        for (std::size_t at = 0; packets.size() - at >= uiPacketHeader;) {
            const std::size_t size = LoadLittle<std::uint16_t>(packets, at + 2) + std::size_t{1};
            if (size < uiPacketHeader || size > packets.size() - at)
                m_pages.Fail(place, "a packet of points is cut short");
            if (static_cast<unsigned char>(packets[at]) == uiDataPacket)
                takePacket(std::string_view(packets).substr(at, size));
            at += size;
        }
    }

    void takePacket(std::string_view packet)
    {
        const std::size_t count = packet.size() < uiDataHeader ? 0 : LoadLittle<std::uint16_t>(packet, 4);
        std::size_t at = uiDataHeader + 2 * count;
        if (count != m_streams.size() || at > packet.size())
            m_pages.Fail(m_place, "a packet of points has not as many fields as the header");
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t length = LoadLittle<std::uint16_t>(packet, uiDataHeader + 2 * i);
            if (length > packet.size() - at) m_pages.Fail(m_place, "a packet of points is cut short");
            m_streams[i] += packet.substr(at, length);
            at += length;
        }
    }

    CE57Pages& m_pages;
    std::uint64_t m_place;
    std::vector<std::string> m_streams;
};

/// The values of a field, one after another; those of an absent one are 0.
class CFieldValues
{
public:
    CFieldValues() = default;
    CFieldValues(const E57Field& field, std::string_view bytes) : m_field(&field), m_bytes(bytes) {}

    explicit operator bool() const { return m_field != nullptr; }
    [[nodiscard]] const E57Field& Field() const { return *m_field; }
    /// How many there are.
    [[nodiscard]] bool Has(std::uint64_t count) const { return m_field->bits * count <= m_bytes.size() * 8; }

    [[nodiscard]] double At(std::uint64_t i) const
    {
        switch (m_field->eKind) {
        case E57Field::EKind::Float32:
            return static_cast<double>(LoadLittle<float>(m_bytes, 4 * i));
        case E57Field::EKind::Float64:
            return LoadLittle<double>(m_bytes, 8 * i);
        default:
            return wholeAt(i) * m_field->scale + m_field->offset;
        }
    }

private:
    // Least significant bits first, without gaps between values.
    [[nodiscard]] double wholeAt(std::uint64_t i) const
    {
        std::uint64_t value = 0;
        std::uint64_t at = i * m_field->bits;
        for (unsigned taken = 0; taken < m_field->bits;) {
            const auto byte = static_cast<std::uint64_t>(static_cast<unsigned char>(m_bytes[at / 8]));
            const unsigned shift = at % 8;
            value |= (byte >> shift) << taken;
            taken += 8 - shift;
            at += 8 - shift;
        }
        if (m_field->bits < 64) value &= (std::uint64_t{1} << m_field->bits) - 1;
        return static_cast<double>(static_cast<std::int64_t>(value + static_cast<std::uint64_t>(m_field->minimum)));
    }

    const E57Field* m_field = nullptr;
    std::string_view m_bytes;
};

using Three = std::array<CFieldValues, 3>;

class CE57ScanReader
{
public:
    CE57ScanReader(CE57Pages& pages, const E57ScanHeader& header)
        : m_pages(pages),
          m_header(header),
          m_streams(pages, header),
          m_cartesian(three("cartesianX", "cartesianY", "cartesianZ")),
          m_spherical(three("sphericalRange", "sphericalAzimuth", "sphericalElevation")),
          m_normal(three("nor:normalX", "nor:normalY", "nor:normalZ")),
          m_colour(three("colorRed", "colorGreen", "colorBlue")),
          m_intensity(values("intensity")),
          m_invalid(values(hasAll(m_cartesian) ? "cartesianInvalidState" : "sphericalInvalidState"))
    {
    }

    Scan Read()
    {
        if (!hasAll(m_cartesian) && !hasAll(m_spherical)) m_pages.Fail(m_header.place, "the scan has no coordinates");
        // Values of no bits are all the same: such points take nothing, and their number could be any.
        const Three& place = hasAll(m_cartesian) ? m_cartesian : m_spherical;
        if (std::ranges::all_of(place, [](const CFieldValues& v) { return v.Field().bits == 0; }))
            m_pages.Fail(m_header.place, "all points stand at one place");
        std::vector<Position> places;
        places.reserve(m_header.points);
        for (std::uint64_t i = 0; i < m_header.points; ++i) {
            if (m_invalid && m_invalid.At(i) != 0.0) continue;
            places.push_back(placeOf(i));
            takeAttributes(i);
        }
        SetPoints(m_scan, places);
        m_scan.name = m_header.name;
        m_scan.pose = m_header.pose;
        if (m_scan.pose || !hasAll(m_cartesian))
            m_scan.sensor = FramePose{{-m_scan.shift[0], -m_scan.shift[1], -m_scan.shift[2]}};
        return std::move(m_scan);
    }

private:
    static bool hasAll(const Three& fields)
    {
        return std::ranges::all_of(fields, [](const CFieldValues& v) { return static_cast<bool>(v); });
    }

    [[nodiscard]] CFieldValues values(std::string_view name) const
    {
        const int found = m_header.Find(name);
        if (found < 0) return {};
        const auto index = static_cast<std::size_t>(found);
        const E57Field& field = m_header.fields[index];
        if (field.eKind == E57Field::EKind::Other) return {};
        CFieldValues result(field, m_streams[index]);
        if (!result.Has(m_header.points))
            m_pages.Fail(m_header.place, "truncated: " + std::to_string(m_header.points) +
                                             " points are promised, and " + field.name + " has fewer");
        return result;
    }

    [[nodiscard]] Three three(std::string_view a, std::string_view b, std::string_view c) const
    {
        return {values(a), values(b), values(c)};
    }

    [[nodiscard]] Position placeOf(std::uint64_t i) const
    {
        if (hasAll(m_cartesian)) return {m_cartesian[0].At(i), m_cartesian[1].At(i), m_cartesian[2].At(i)};
        const double range = m_spherical[0].At(i);
        const double azimuth = m_spherical[1].At(i);
        const double elevation = m_spherical[2].At(i);
        const double flat = range * std::cos(elevation);
        return {flat * std::cos(azimuth), flat * std::sin(azimuth), range * std::sin(elevation)};
    }

    void takeAttributes(std::uint64_t i)
    {
        if (hasAll(m_normal))
            m_scan.normals.emplace_back(ToFloat(m_normal[0].At(i)), ToFloat(m_normal[1].At(i)),
                                        ToFloat(m_normal[2].At(i)));
        if (hasAll(m_colour)) m_scan.colours.push_back({partOf(0, i), partOf(1, i), partOf(2, i)});
        if (m_intensity) m_scan.intensities.push_back(ToFloat(m_intensity.At(i)));
    }

    /// As a byte, within the limits of the file, or else those of the field.
    [[nodiscard]] std::uint8_t partOf(std::size_t k, std::uint64_t i) const
    {
        const E57Field& field = m_colour[k].Field();
        const double low = m_header.colourLimits[2 * k].value_or(
            field.eKind == E57Field::EKind::Integer ? static_cast<double>(field.minimum) * field.scale + field.offset
                                                    : 0.0);
        const double high = m_header.colourLimits[2 * k + 1].value_or(field.highest);
        const double part = (m_colour[k].At(i) - low) / (high - low) * 255.0;
        return static_cast<std::uint8_t>(part > 0.0 ? std::min(part + 0.5, 255.0) : 0.0); // false for NaN
    }

    CE57Pages& m_pages;
    const E57ScanHeader& m_header;
    CByteStreams m_streams;
    Three m_cartesian;
    Three m_spherical;
    Three m_normal;
    Three m_colour;
    CFieldValues m_intensity;
    CFieldValues m_invalid;
    Scan m_scan;
};

} // namespace

std::vector<Scan> ReadE57(std::string_view bytes, const std::filesystem::path& file)
{
    CE57Pages pages(bytes, file);
    const std::vector<E57ScanHeader> headers = ReadE57Document(pages.Xml(), file);
    std::vector<Scan> scans;
    std::uint64_t total = 0;
    std::size_t number = 0;
    for (const E57ScanHeader& header : headers) {
        ++number;
        total += header.points;
        // A point takes a bit at least; many scans could name the same section.
        if (total / 8 > bytes.size()) pages.Fail(header.place, "more points are promised than the file can hold");
        if (header.points == 0) continue;
        Scan scan = CE57ScanReader(pages, header).Read();
        scan.number = number;
        if (!scan.points.empty()) scans.push_back(std::move(scan));
    }
    if (scans.empty()) throw CInputError(file, "holds no point", "give a scan of a surface");
    return scans;
}

} // namespace Zorvan
