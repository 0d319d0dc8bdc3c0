// SPDX-License-Identifier: MIT
#include "zorvan/scans/lasheader.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/littleendian.h"

#include <array>
#include <cmath>
#include <string>

namespace Zorvan {

namespace {

constexpr std::uint64_t uiMostPoints = 2147483647; // indices are 31 bits wide in the search tree
constexpr std::size_t uiHeaderBytes = 227;         // up to version 1.2
constexpr std::size_t uiHeaderBytes14 = 375;
constexpr unsigned uiCompressed = 0x80; // bit of the point format that LAZ sets
constexpr std::array<std::size_t, 11> pointBytes{20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};

/// Bytes of the header's fields.
enum ELasPlace : std::size_t
{
    Major = 24,
    Minor = 25,
    HeaderSize = 94,
    BodyOffset = 96,
    Format = 104,
    Stride = 105,
    Points = 107,
    Scale = 131,
    Offset = 155,
    Points14 = 247
};

class CLasHeaderParser
{
public:
    CLasHeaderParser(std::string_view bytes, const std::filesystem::path& file, std::uint64_t fileSize)
        : m_bytes(bytes), m_file(file), m_fileSize(fileSize)
    {
    }

    LasHeader Parse()
    {
        if (!m_bytes.starts_with("LASF")) fail(0, "does not begin with \"LASF\"", "check that it is a LAS file");
        requireHeader(uiHeaderBytes);
        parseVersion();
        parseFormat();
        m_header.bodyOffset = load<std::uint32_t>(BodyOffset);
        parseCount();
        parseNumbers(Scale, m_header.scale);
        parseNumbers(Offset, m_header.offset);
        for (const double scale : m_header.scale)
            if (scale == 0.0) fail(Scale, "a scale factor is 0");
        checkBodySize();
        return m_header;
    }

private:
    [[noreturn]] void fail(std::size_t place, const std::string& why,
                           const std::string& advice = "export the file again") const
    {
        throw CInputError(m_file, "byte " + std::to_string(place) + ": " + why, advice);
    }

    [[noreturn]] void failCut(const std::string& promised) const
    {
        throw CInputError(m_file,
                          "truncated: the header promises " + promised + ", the file has " +
                              std::to_string(m_fileSize) + " bytes",
                          "write or copy it again");
    }

    template <typename T>
    [[nodiscard]] T load(std::size_t place) const
    {
        return LoadLittle<T>(m_bytes, place);
    }

    void requireHeader(std::size_t size) const
    {
        if (m_bytes.size() < size) failCut("a header of " + std::to_string(size) + " bytes");
    }

    void parseVersion()
    {
        const unsigned major = load<std::uint8_t>(Major);
        m_header.minor = load<std::uint8_t>(Minor);
        if (major != 1 || m_header.minor > 4)
            fail(Major, "version " + std::to_string(major) + "." + std::to_string(m_header.minor),
                 "versions 1.0 to 1.4 are read");
        if (m_header.minor >= 4) requireHeader(uiHeaderBytes14);
    }

    void parseFormat()
    {
        m_header.format = load<std::uint8_t>(Format);
        m_header.stride = load<std::uint16_t>(Stride);
        if ((m_header.format & uiCompressed) != 0)
            fail(Format, "the points are compressed (LAZ)", "LAZ is not read: convert it to LAS");
        if (m_header.format >= pointBytes.size())
            fail(Format, "point format " + std::to_string(m_header.format), "formats 0 to 10 are read");
        if (m_header.stride < pointBytes[m_header.format])
            fail(Stride, "points of " + std::to_string(m_header.stride) + " bytes, and those of format " +
                             std::to_string(m_header.format) + " take " + std::to_string(pointBytes[m_header.format]));
    }

    // Version 1.4 leaves the old count at 0 for more points than it can hold, and for the new point formats.
    void parseCount()
    {
        m_header.points = load<std::uint32_t>(Points);
        if (m_header.minor >= 4 && load<std::uint64_t>(Points14) != 0) m_header.points = load<std::uint64_t>(Points14);
        if (m_header.points == 0) fail(Points, "the file holds no point", "give a scan of a surface");
        if (m_header.points > uiMostPoints)
            fail(Points, std::to_string(m_header.points) + " points, and at most 2147483647 are read",
                 "split the file");
    }

    void parseNumbers(std::size_t place, Position& numbers) const
    {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            numbers[axis] = load<double>(place + 8 * axis);
            if (!std::isfinite(numbers[axis])) fail(place + 8 * axis, "a scale factor or offset is not finite");
        }
    }

    // Everything after this check may allocate by the counts: they are no larger than the file.
    void checkBodySize() const
    {
        const std::size_t header = load<std::uint16_t>(HeaderSize);
        if (header < uiHeaderBytes || m_header.bodyOffset < header)
            fail(BodyOffset, "the points begin inside the header");
        const std::uint64_t end = m_header.bodyOffset + m_header.points * m_header.stride; // below 2^48
        if (end > m_fileSize)
            failCut(std::to_string(m_header.points) + " points of " + std::to_string(m_header.stride) +
                    " bytes behind byte " + std::to_string(m_header.bodyOffset));
    }

    std::string_view m_bytes;
    const std::filesystem::path& m_file;
    std::uint64_t m_fileSize;
    LasHeader m_header;
};

} // namespace

std::size_t LasPointBytes(unsigned format) { return pointBytes.at(format); }

std::optional<std::size_t> LasColourOffset(unsigned format)
{
    switch (format) {
    case 2:
        return 20;
    case 3:
    case 5:
        return 28;
    case 7:
    case 8:
    case 10:
        return 30;
    default:
        return std::nullopt;
    }
}

LasHeader ReadLasHeader(std::string_view bytes, const std::filesystem::path& file,
                        std::optional<std::uint64_t> fileSize)
{
    return CLasHeaderParser(bytes, file, fileSize.value_or(bytes.size())).Parse();
}

} // namespace Zorvan
