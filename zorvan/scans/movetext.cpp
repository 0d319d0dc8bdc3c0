// SPDX-License-Identifier: MIT
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/movecolumns.h"
#include "zorvan/scans/moveformats.h"
#include "zorvan/scans/ptxreader.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace Zorvan {

namespace {

constexpr const char* sSeparators = ",;"; // of XYZ
constexpr CMovedLine::Columns first{0, 1, 2};
constexpr CMovedLine::Columns second{1, 2, 3};
constexpr CMovedLine::Columns next{3, 4, 5};

std::string lower(std::string_view word)
{
    std::string text(word);
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::uint64_t takeCount(CMoveStream& stream)
{
    CMovedLine line(stream.TakeLine());
    const std::optional<long long> count = ParseInteger(line.Word(0));
    if (!count || *count < 0 || *count > 2147483647 || line.NumWords() != 1)
        stream.FailLine("a count of points was expected");
    stream.Put(line.Text());
    return static_cast<std::uint64_t>(*count);
}

/// Empty lines are passed over and kept.
void takeEmptyLines(CMoveStream& stream)
{
    while (stream.BytesLeft() > 0) {
        const std::string_view ahead = stream.Peek(1);
        const std::size_t start = std::min(ahead.find_first_not_of(" \t\r\n"), ahead.size());
        if (start == 0) return;
        stream.Put(stream.Take(start));
    }
}

/// The place of the scanner, and its axes.
std::array<Position, 4> numbersOf(const std::array<std::string, 4>& scanner, const CMoveStream& stream)
{
    std::array<Position, 4> all{};
    for (std::size_t i = 0; i < scanner.size(); ++i) {
        const std::optional<Position> numbers = CMovedLine(scanner[i]).Numbers(first);
        if (!numbers) stream.FailLine("three numbers of the scanner were expected above");
        all[i] = *numbers;
    }
    return all;
}

/// The four lines of a PTX pose: its columns, and the shift.
FramePose takePose(CMoveStream& stream)
{
    std::array<Position, 3> rows{};
    Position shift{};
    for (std::size_t line = 0; line < 4; ++line) {
        const std::optional<Position> numbers = CMovedLine(stream.TakeLine()).Numbers(first);
        if (!numbers) stream.FailLine("four numbers of a pose were expected");
        if (line == 3) shift = *numbers;
        for (std::size_t row = 0; row < 3 && line < 3; ++row) rows[row][line] = (*numbers)[row];
    }
    const auto pose = FromRows(rows, shift);
    if (!pose) stream.FailLine("the pose above is no rotation (within 0.001)");
    return *pose;
}

void putCells(CMoveStream& stream, std::uint64_t cells)
{
    for (; cells > 0; --cells) {
        const std::string_view line = stream.TakeLine();
        if (line.empty()) stream.FailLine("the file is cut short");
        stream.Put(line);
    }
}

/// Cells at 0 0 0 are empty.
void tellCells(CMoveStream& stream, std::uint64_t cells)
{
    for (; cells > 0; --cells) {
        takeEmptyLines(stream);
        std::string_view line = stream.TakeLine();
        Position place{};
        for (double& c : place) {
            const std::optional<double> number = ParseNumber(NextWord(line, "\n"));
            if (!number) stream.FailLine("three numbers of a point were expected");
            c = *number;
        }
        if (place != Position{}) stream.Listener()->TakePoint(place, nullptr);
    }
}

std::string lineOf(const Position& numbers, const char* more)
{
    std::string text;
    for (const double number : numbers) {
        if (!text.empty()) text += ' ';
        text += ToExactText(number);
    }
    return text + more + "\n";
}

void putPose(CMoveStream& stream, const FramePose& pose)
{
    const auto rows = RotationRows(pose);
    for (std::size_t column = 0; column < 3; ++column)
        stream.Put(lineOf({rows[0][column], rows[1][column], rows[2][column]}, " 0"));
    stream.Put(lineOf(pose.position, " 1"));
}

} // namespace

std::string MoveXyz(CMoveStream& stream, const CMovement& movement)
{
    std::size_t columns = 0; // of the first line with numbers, as in reading
    for (std::string_view text = stream.TakeLine(); !text.empty(); text = stream.TakeLine()) {
        CMovedLine line(text, sSeparators);
        if (line.NumWords() > 0 && line.Word(0).front() != '#') {
            if (columns == 0) columns = line.NumWords();
            const bool hasNormal = columns >= 6;
            if (!MoveColumns(line, first, hasNormal ? std::optional(next) : std::nullopt, movement, stream))
                stream.FailLine("a number is missing, or a word is none");
        }
        stream.Put(line.Text());
    }
    return {};
}

std::string MovePts(CMoveStream& stream, const CMovement& movement)
{
    for (takeEmptyLines(stream); stream.BytesLeft() > 0; takeEmptyLines(stream)) {
        for (std::uint64_t count = takeCount(stream); count > 0; --count) {
            takeEmptyLines(stream);
            CMovedLine line(stream.TakeLine());
            if (!MoveColumns(line, first, {}, movement, stream))
                stream.FailLine("three numbers of a point were expected");
            stream.Put(line.Text());
        }
    }
    return {};
}

std::string MovePtx(CMoveStream& stream, const CMovement& movement)
{
    std::size_t number = 0;
    for (takeEmptyLines(stream); stream.BytesLeft() > 0; takeEmptyLines(stream)) {
        const std::uint64_t columns = takeCount(stream);
        const std::uint64_t cells = columns * takeCount(stream); // below 2^62
        std::array<std::string, 4> scanner;                      // its place, and its axes
        for (std::string& line : scanner) line = stream.TakeLine();
        const FramePose before = takePose(stream);
        const std::array<Position, 4> numbers = numbersOf(scanner, stream);
        ++number;
        if (IPointListener* const listener = stream.Listener()) {
            const auto place = PtxScanner(numbers);
            if (!place) stream.FailLine("the position of the scanner above is not finite");
            listener->BeginScan({number, {}, before});
            listener->TakeSensor(Compose(Inverse(before), *place));
            tellCells(stream, cells);
            continue;
        }
        const CMovement motion(movement.OfScan(number, before));
        for (std::size_t i = 0; i < scanner.size(); ++i) {
            CMovedLine line(scanner[i]);
            line.Replace(first, i == 0 ? motion.Point(numbers[i]) : motion.Direction(numbers[i]));
            stream.Put(line.Text());
        }
        putPose(stream, Compose(motion.Pose(), before));
        putCells(stream, cells);
    }
    return {};
}

std::string MoveObj(CMoveStream& stream, const CMovement& movement)
{
    for (std::string_view text = stream.TakeLine(); !text.empty(); text = stream.TakeLine()) {
        CMovedLine line(text);
        const std::string keyword = lower(line.Word(0));
        if (keyword == "v" || keyword == "vn") {
            const std::optional<Position> numbers = line.Numbers(second);
            if (!numbers) stream.FailLine("three numbers were expected");
            line.Replace(second, keyword == "v" ? movement.Point(*numbers) : movement.Direction(*numbers));
        }
        stream.Put(line.Text());
    }
    return {};
}

} // namespace Zorvan
