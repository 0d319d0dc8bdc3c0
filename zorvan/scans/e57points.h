// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/e57document.h"
#include "zorvan/scans/e57pages.h"
#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zorvan {

/// The packets with points in a section of an E57 file, one after another.
class CE57Packets
{
public:
    /// @param pages  must outlive this
    /// @throws CInputError when no section of points begins there
    CE57Packets(CE57Pages& pages, std::uint64_t place);

    /// Valid until the next call; empty behind the last. @throws CInputError
    [[nodiscard]] std::string_view Next();

private:
    /// What comes next, at least so many bytes of it where there are so many.
    std::string_view peek(std::size_t least);

    CE57Pages& m_pages;
    std::uint64_t m_place = 0;   ///< of the first packet
    std::uint64_t m_content = 0; ///< that is read next, in bytes of content
    std::uint64_t m_left = 0;    ///< bytes behind the buffer
    std::string m_buffer;
    std::size_t m_at = 0; ///< what of the buffer has been taken
};

/// The values of a field, one after another, of which those that have come and were not dropped are in memory.
class CE57Values
{
public:
    explicit CE57Values(const E57Field& field) : m_field(&field) {}

    [[nodiscard]] const E57Field& Field() const { return *m_field; }
    void Append(std::string_view bytes) { m_bytes += bytes; }
    /// Bytes of values that wait for those of other fields.
    [[nodiscard]] std::size_t NumBytes() const { return m_bytes.size() - m_bit / 8; }
    /// How many can be had.
    [[nodiscard]] std::uint64_t NumReady() const;
    void Drop(std::uint64_t count);
    /// @param i  below `NumReady()`
    [[nodiscard]] double At(std::uint64_t i) const;

private:
    [[nodiscard]] double wholeAt(std::uint64_t i) const;

    const E57Field* m_field;
    std::string m_bytes;
    std::uint64_t m_bit = 0; ///< where the first value begins
};

/// The points of a scan in an E57 file, one after another: some packets of them are in memory.
///
///     CE57Points points(pages, header);
///     while (points.Next()) use(points.Place());
class ZORVAN_SCANS_API CE57Points
{
public:
    /// @param pages, header  must outlive this
    /// @throws CInputError for a scan without coordinates
    CE57Points(CE57Pages& pages, const E57ScanHeader& header);

    /// Goes to the next point that is valid. Behind the last one, all of the section has been checked.
    /// @throws CInputError when there are fewer points than promised
    bool Next();

    [[nodiscard]] bool IsSpherical() const { return m_cartesian[0] == nullptr; }
    [[nodiscard]] bool HasNormals() const { return m_normal[0] != nullptr; }
    [[nodiscard]] bool HasColours() const { return m_colour[0] != nullptr; }
    [[nodiscard]] bool HasIntensities() const { return m_intensity != nullptr; }

    [[nodiscard]] Position Place() const;
    [[nodiscard]] Position Normal() const { return three(m_normal); }
    [[nodiscard]] Rgb Colour() const { return {partOf(0), partOf(1), partOf(2)}; }
    [[nodiscard]] double Intensity() const { return m_intensity->At(m_at); }

private:
    using Three = std::array<const CE57Values*, 3>;

    /// Takes the field from now on; null when the scan has none.
    const CE57Values* want(std::string_view name);
    /// All of them or none.
    Three wantThree(std::string_view a, std::string_view b, std::string_view c);
    [[nodiscard]] bool isKnown(std::string_view name) const;
    void fetch();
    void takePacket(std::string_view packet);
    [[nodiscard]] Position three(const Three& values) const;
    /// As a byte, within the limits of the file, or else those of the field.
    [[nodiscard]] std::uint8_t partOf(std::size_t k) const;
    [[noreturn]] void failShort(const E57Field& field) const;

    CE57Pages& m_pages;
    const E57ScanHeader& m_header;
    CE57Packets m_packets;
    std::vector<CE57Values> m_values;  ///< by field
    std::vector<std::size_t> m_wanted; ///< fields
    Three m_cartesian{};
    Three m_spherical{};
    Three m_normal{};
    Three m_colour{};
    const CE57Values* m_intensity = nullptr;
    const CE57Values* m_invalid = nullptr;
    std::uint64_t m_left;      ///< points that have not come
    std::uint64_t m_ready = 0; ///< points that can be had
    std::uint64_t m_next = 0;  ///< of them
    std::uint64_t m_at = 0;    ///< the point that is looked at
};

} // namespace Zorvan
