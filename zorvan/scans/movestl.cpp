// SPDX-License-Identifier: MIT
#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/meshreader.h"
#include "zorvan/scans/movecolumns.h"
#include "zorvan/scans/moveformats.h"
#include "zorvan/scans/vectors.h"

#include <vector>

namespace Zorvan {

namespace {

constexpr std::size_t uiHeader = 84; // 80 bytes of text and the number of triangles
constexpr std::size_t uiTriangle = 50;
constexpr std::size_t uiVector = 12;

Position loadVector(std::string_view bytes)
{
    Position v{};
    for (std::size_t k = 0; k < 3; ++k) v[k] = static_cast<double>(LoadLittle<float>(bytes, 4 * k));
    return v;
}

void append(std::string& out, const Position& v)
{
    for (const double c : v) AppendLittle(out, ToFloat(c));
}

void moveText(CMoveStream& stream, const CMovement& movement)
{
    constexpr CMovedLine::Columns ofVertex{1, 2, 3};
    constexpr CMovedLine::Columns ofFacet{2, 3, 4};
    for (std::string_view text = stream.TakeLine(); !text.empty(); text = stream.TakeLine()) {
        CMovedLine line(text);
        const bool isVertex = line.Word(0) == "vertex" || line.Word(0) == "VERTEX";
        if (isVertex || line.NumWords() == 5) { // "facet normal 0 0 1"
            const CMovedLine::Columns& columns = isVertex ? ofVertex : ofFacet;
            const std::optional<Position> numbers = line.Numbers(columns);
            if (!numbers && isVertex) stream.FailLine("three numbers were expected");
            if (numbers) line.Replace(columns, isVertex ? movement.Point(*numbers) : movement.Direction(*numbers));
        }
        stream.Put(line.Text());
    }
}

void moveBinary(CMoveStream& stream, const CMovement& movement, std::vector<Position>& places)
{
    const std::uint32_t triangles = LoadLittle<std::uint32_t>(stream.Peek(uiHeader), 80);
    if (uiHeader + uiTriangle * std::uint64_t{triangles} > stream.Size())
        stream.Fail("truncated: the header promises " + std::to_string(triangles) + " triangles",
                    "write or copy it again");
    stream.Copy(uiHeader);
    std::string out;
    for (std::uint32_t i = 0; i < triangles; ++i) {
        const std::string_view in = stream.Take(uiTriangle);
        out.clear();
        append(out, movement.Direction(loadVector(in)));
        for (std::size_t corner = 1; corner <= 3; ++corner) {
            const Position place = movement.Point(loadVector(in.substr(corner * uiVector)));
            append(out, place);
            if (places.size() < 4096) places.push_back(place);
        }
        out += in.substr(4 * uiVector);
        stream.Put(out);
    }
    stream.CopyRest();
}

} // namespace

std::string MoveStl(CMoveStream& stream, const CMovement& movement)
{
    if (IsTextStl(stream.Peek(), stream.Size())) {
        moveText(stream, movement);
        return {};
    }
    if (stream.Size() < uiHeader) stream.Fail("truncated: this is no STL file", "write or copy it again");
    std::vector<Position> places;
    moveBinary(stream, movement, places);
    return ShiftFor(places) == Position{}
               ? ""
               : "binary STL holds single precision, which rounds coordinates as far from the origin as these";
}

} // namespace Zorvan
