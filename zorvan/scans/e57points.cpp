// SPDX-License-Identifier: MIT
#include "zorvan/scans/e57points.h"

#include "zorvan/scans/littleendian.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Zorvan {

namespace {

constexpr std::size_t uiSectionHeader = 32;
constexpr std::size_t uiPacketHeader = 4; // of every kind
constexpr std::size_t uiDataHeader = 6;
constexpr unsigned uiPointSection = 1;
constexpr unsigned uiDataPacket = 1;
constexpr std::uint64_t uiReadBytes = 1U << 20U;               // at once
constexpr std::size_t uiMostWaiting = std::size_t{256} << 20U; // bytes of a field

} // namespace

CE57Packets::CE57Packets(CE57Pages& pages, std::uint64_t place) : m_pages(pages)
{
    const std::string section = pages.Read(place, uiSectionHeader);
    const auto length = LoadLittle<std::uint64_t>(section, 8);
    m_place = LoadLittle<std::uint64_t>(section, 16);
    m_content = pages.ContentBefore(m_place);
    const std::uint64_t skipped = m_content - pages.ContentBefore(place);
    if (static_cast<unsigned char>(section[0]) != uiPointSection || m_place < place || skipped < uiSectionHeader ||
        length < skipped)
        pages.Fail(place, "no points begin there");
    m_left = length - skipped;
    pages.Demand(m_place, m_left);
}

std::string_view CE57Packets::peek(std::size_t least)
{
    if (m_buffer.size() - m_at < least && m_left > 0) {
        m_buffer.erase(0, m_at);
        m_at = 0;
        const std::uint64_t more = std::min(m_left, uiReadBytes);
        m_buffer += m_pages.Read(m_pages.PlaceOf(m_content), more);
        m_content += more;
        m_left -= more;
    }
    return std::string_view(m_buffer).substr(m_at);
}

std::string_view CE57Packets::Next()
{
    for (std::string_view ahead = peek(uiPacketHeader); ahead.size() >= uiPacketHeader; ahead = peek(uiPacketHeader)) {
        const std::size_t size = LoadLittle<std::uint16_t>(ahead, 2) + std::size_t{1};
        ahead = peek(size);
        if (size < uiPacketHeader || size > ahead.size()) m_pages.Fail(m_place, "a packet of points is cut short");
        m_at += size;
        if (static_cast<unsigned char>(ahead[0]) == uiDataPacket) return ahead.substr(0, size);
    }
    return {};
}

std::uint64_t CE57Values::NumReady() const
{
    if (m_field->bits == 0) return std::numeric_limits<std::uint64_t>::max(); // all the same
    return (m_bytes.size() * 8 - m_bit) / m_field->bits;
}

void CE57Values::Drop(std::uint64_t count)
{
    m_bit += count * m_field->bits;
    const std::size_t bytes = m_bit / 8;
    if (2 * bytes < m_bytes.size()) return; // so that what waits is not moved with every packet
    m_bytes.erase(0, bytes);
    m_bit %= 8;
}

double CE57Values::At(std::uint64_t i) const
{
    switch (m_field->eKind) {
    case E57Field::EKind::Float32:
        return static_cast<double>(LoadLittle<float>(m_bytes, m_bit / 8 + 4 * i));
    case E57Field::EKind::Float64:
        return LoadLittle<double>(m_bytes, m_bit / 8 + 8 * i);
    default:
        return wholeAt(i) * m_field->scale + m_field->offset;
    }
}

// Least significant bits first, without gaps between values.
double CE57Values::wholeAt(std::uint64_t i) const
{
    std::uint64_t value = 0;
    std::uint64_t at = m_bit + i * m_field->bits;
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

CE57Points::CE57Points(CE57Pages& pages, const E57ScanHeader& header)
    : m_pages(pages),
      m_header(header),
      m_packets(pages, header.place),
      m_values(header.fields.begin(), header.fields.end()),
      m_cartesian(wantThree("cartesianX", "cartesianY", "cartesianZ")),
      m_left(header.points)
{
    if (IsSpherical()) m_spherical = wantThree("sphericalRange", "sphericalAzimuth", "sphericalElevation");
    const Three& place = IsSpherical() ? m_spherical : m_cartesian;
    if (place[0] == nullptr) pages.Fail(header.place, "the scan has no coordinates");
    // Values of no bits are all the same: such points take nothing, and their number could be any.
    if (std::ranges::all_of(place, [](const CE57Values* v) { return v->Field().bits == 0; }))
        pages.Fail(header.place, "all points stand at one place");
    m_normal = wantThree("nor:normalX", "nor:normalY", "nor:normalZ");
    m_colour = wantThree("colorRed", "colorGreen", "colorBlue");
    m_intensity = want("intensity");
    m_invalid = want(IsSpherical() ? "sphericalInvalidState" : "cartesianInvalidState");
    for (const std::size_t i : m_wanted)
        if (header.fields[i].bits * header.points / 8 > pages.Size()) failShort(header.fields[i]);
}

bool CE57Points::isKnown(std::string_view name) const
{
    const int found = m_header.Find(name);
    return found >= 0 && m_header.fields[static_cast<std::size_t>(found)].eKind != E57Field::EKind::Other;
}

const CE57Values* CE57Points::want(std::string_view name)
{
    if (!isKnown(name)) return nullptr;
    m_wanted.push_back(static_cast<std::size_t>(m_header.Find(name)));
    return &m_values[m_wanted.back()];
}

CE57Points::Three CE57Points::wantThree(std::string_view a, std::string_view b, std::string_view c)
{
    if (!isKnown(a) || !isKnown(b) || !isKnown(c)) return {};
    return {want(a), want(b), want(c)};
}

bool CE57Points::Next()
{
    while (m_left > 0) {
        if (m_next == m_ready) fetch();
        m_at = m_next++;
        --m_left;
        if (m_invalid == nullptr || m_invalid->At(m_at) == 0.0) return true;
    }
    for (std::string_view packet = m_packets.Next(); !packet.empty(); packet = m_packets.Next()) takePacket(packet);
    return false;
}

/// Forgets the points that were looked at, and reads until there are others.
void CE57Points::fetch()
{
    for (const std::size_t i : m_wanted) m_values[i].Drop(m_next);
    m_next = 0;
    const auto slowest = [this] {
        return *std::ranges::min_element(m_wanted, {}, [this](std::size_t i) { return m_values[i].NumReady(); });
    };
    for (m_ready = 0; m_ready == 0; m_ready = m_values[slowest()].NumReady()) {
        const std::string_view packet = m_packets.Next();
        if (packet.empty()) failShort(m_values[slowest()].Field());
        takePacket(packet);
    }
}

void CE57Points::takePacket(std::string_view packet)
{
    const std::size_t count = packet.size() < uiDataHeader ? 0 : LoadLittle<std::uint16_t>(packet, 4);
    std::size_t at = uiDataHeader + 2 * count;
    if (count != m_values.size() || at > packet.size())
        m_pages.Fail(m_header.place, "a packet of points has not as many fields as the header");
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t length = LoadLittle<std::uint16_t>(packet, uiDataHeader + 2 * i);
        if (length > packet.size() - at) m_pages.Fail(m_header.place, "a packet of points is cut short");
        if (m_left > 0 && std::ranges::find(m_wanted, i) != m_wanted.end())
            m_values[i].Append(packet.substr(at, length));
        if (m_values[i].NumBytes() > uiMostWaiting)
            m_pages.Fail(m_header.place, m_header.fields[i].name +
                                             " stands more than 256 MiB before other values of its "
                                             "points");
        at += length;
    }
}

Position CE57Points::three(const Three& values) const
{
    return {values[0]->At(m_at), values[1]->At(m_at), values[2]->At(m_at)};
}

Position CE57Points::Place() const
{
    if (!IsSpherical()) return three(m_cartesian);
    const auto [range, azimuth, elevation] = three(m_spherical);
    const double flat = range * std::cos(elevation);
    return {flat * std::cos(azimuth), flat * std::sin(azimuth), range * std::sin(elevation)};
}

std::uint8_t CE57Points::partOf(std::size_t k) const
{
    const E57Field& field = m_colour[k]->Field();
    const double low = m_header.colourLimits[2 * k].value_or(
        field.eKind == E57Field::EKind::Integer ? static_cast<double>(field.minimum) * field.scale + field.offset
                                                : 0.0);
    const double high = m_header.colourLimits[2 * k + 1].value_or(field.highest);
    const double part = (m_colour[k]->At(m_at) - low) / (high - low) * 255.0;
    return static_cast<std::uint8_t>(part > 0.0 ? std::min(part + 0.5, 255.0) : 0.0); // false for NaN
}

void CE57Points::failShort(const E57Field& field) const
{
    m_pages.Fail(m_header.place, "truncated: " + std::to_string(m_header.points) + " points are promised, and " +
                                     field.name + " has fewer");
}

} // namespace Zorvan
