// SPDX-License-Identifier: MIT
#include "zorvan/scans/pcdwriter.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/vectors.h"

#include <cstdint>

namespace Zorvan {

namespace {

/// The lines of the header that have a word for each field.
class CFieldLines
{
public:
    void Add(const std::string& name, char type, unsigned size)
    {
        m_names.append(" ").append(name);
        m_sizes.append(" ").append(std::to_string(size));
        m_types.append(" ").push_back(type);
        m_counts.append(" 1");
    }

    [[nodiscard]] std::string Text() const
    {
        return "FIELDS" + m_names + "\nSIZE" + m_sizes + "\nTYPE" + m_types + "\nCOUNT" + m_counts + "\n";
    }

private:
    std::string m_names;
    std::string m_sizes;
    std::string m_types;
    std::string m_counts;
};

std::string fieldsOf(const Scan& scan, bool isFar)
{
    CFieldLines lines;
    for (const char* const name : {"x", "y", "z"}) lines.Add(name, 'F', isFar ? 8 : 4);
    if (!scan.normals.empty()) {
        for (const char* const name : {"normal_x", "normal_y", "normal_z"}) lines.Add(name, 'F', 4);
    }
    if (!scan.colours.empty()) lines.Add("rgb", 'U', 4);
    if (!scan.intensities.empty()) lines.Add("intensity", 'F', 4);
    return lines.Text();
}

std::string viewOf(const Scan& scan, double factor)
{
    const FramePose view = scan.sensor.value_or(FramePose{{-scan.shift[0], -scan.shift[1], -scan.shift[2]}});
    std::string text = "VIEWPOINT";
    for (std::size_t axis = 0; axis < 3; ++axis)
        text.append(" ").append(ToText((view.position[axis] + scan.shift[axis]) * factor, 17));
    for (const double q : view.rotation) text.append(" ").append(ToText(q, 17));
    return text + "\n";
}

} // namespace

std::string WritePcdBytes(const Scan& scan, double unitsPerMm)
{
    const bool isFar = scan.shift != Position{};
    const std::string count = std::to_string(scan.points.size());
    std::string bytes = "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\n" + fieldsOf(scan, isFar) + "WIDTH " +
                        count + "\nHEIGHT 1\n" + viewOf(scan, unitsPerMm) + "POINTS " + count + "\nDATA binary\n";
    bytes.reserve(bytes.size() + scan.points.size() * (isFar ? 44 : 32));
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        for (unsigned axis = 0; axis < 3; ++axis) {
            const double place = (static_cast<double>(scan.points[i][axis]) + scan.shift[axis]) * unitsPerMm;
            if (isFar)
                AppendLittle(bytes, place);
            else
                AppendLittle(bytes, ToFloat(place));
        }
        for (unsigned axis = 0; axis < 3 && !scan.normals.empty(); ++axis) AppendLittle(bytes, scan.normals[i][axis]);
        if (!scan.colours.empty()) {
            const auto& [red, green, blue] = scan.colours[i];
            AppendLittle(bytes,
                         static_cast<std::uint32_t>(red) << 16U | static_cast<std::uint32_t>(green) << 8U | blue);
        }
        if (!scan.intensities.empty()) AppendLittle(bytes, scan.intensities[i]);
    }
    return bytes;
}

void WritePcd(const std::filesystem::path& file, const Scan& scan, double unitsPerMm)
{
    WriteFileAtomically(file, WritePcdBytes(scan, unitsPerMm));
}

} // namespace Zorvan
