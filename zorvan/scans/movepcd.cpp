// SPDX-License-Identifier: MIT
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/movecolumns.h"
#include "zorvan/scans/moveformats.h"
#include "zorvan/scans/moverows.h"
#include "zorvan/scans/pcdheader.h"
#include "zorvan/scans/pcdreader.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace Zorvan {

namespace {

constexpr std::array<std::string_view, 6> roleNames{"x", "y", "z", "normal_x", "normal_y", "normal_z"};

EPlyType typeOf(const PcdField& field)
{
    if (field.eType == EPcdType::Float) return field.size == 8 ? EPlyType::Float64 : EPlyType::Float32;
    const bool isSigned = field.eType == EPcdType::Signed;
    if (field.size == 1) return isSigned ? EPlyType::Int8 : EPlyType::UInt8;
    if (field.size == 2) return isSigned ? EPlyType::Int16 : EPlyType::UInt16;
    return isSigned ? EPlyType::Int32 : EPlyType::UInt32;
}

class CPcdMover
{
public:
    CPcdMover(CMoveStream& stream, const CMovement& movement)
        : m_stream(stream), m_movement(movement), m_header(ReadPcdHeader(stream.Peek(), stream.File(), stream.Size()))
    {
        for (std::size_t k = 0; k < roleNames.size(); ++k) m_fields[k] = m_header.Find(roleNames[k]);
        const auto isNumber = [this](std::size_t k) {
            const PcdField* const field = m_fields[k];
            return field != nullptr && field->count == 1 && (field->eType == EPcdType::Float || field->size <= 4);
        };
        if (!isNumber(0) || !isNumber(1) || !isNumber(2))
            m_stream.Fail("the header has no fields x, y and z with one value each", "export points");
        m_hasNormals = isNumber(3) && isNumber(4) && isNumber(5);
    }

    std::string Move()
    {
        const std::string header(m_stream.Take(m_header.bodyOffset));
        if (m_stream.Listener() != nullptr && m_header.sensor) m_stream.Listener()->TakeSensor(*m_header.sensor);
        switch (m_header.eData) {
        case EPcdData::Text:
            m_stream.Put(rewritten(header, nullptr));
            moveText();
            m_stream.CopyRest();
            return {};
        case EPcdData::Binary:
            moveRows(header);
            m_stream.CopyRest();
            return {};
        default:
            moveCompressed(header);
            return "written as binary without compression";
        }
    }

private:
    void moveText()
    {
        const auto columns = [&](std::size_t first) {
            CMovedLine::Columns found{};
            for (std::size_t k = 0; k < 3; ++k) found[k] = m_fields[first + k]->column;
            return found;
        };
        const CMovedLine::Columns point = columns(0);
        const auto normal = m_hasNormals ? std::optional(columns(3)) : std::nullopt;
        for (std::uint64_t left = m_header.points; left > 0;) {
            const std::string_view text = m_stream.TakeLine();
            if (text.empty()) m_stream.FailLine("truncated: a point is missing");
            CMovedLine line(text);
            if (line.NumWords() > 0) {
                if (!MoveColumns(line, point, normal, m_movement, m_stream))
                    m_stream.FailLine("the numbers of one point were expected");
                --left;
            }
            m_stream.Put(line.Text());
        }
    }

    [[nodiscard]] std::vector<RowField> fields() const
    {
        std::vector<RowField> rows;
        for (const PcdField& field : m_header.fields) {
            RowField row{ERole::Other, EPlyType::Float32, field.size * field.count};
            for (std::size_t k = 0; k < (m_hasNormals ? 6U : 3U); ++k) {
                if (m_fields[k] == &field) row = {static_cast<ERole>(k), typeOf(field), field.size};
            }
            rows.push_back(row);
        }
        return rows;
    }

    void moveRows(const std::string& header)
    {
        const std::string_view head = m_stream.Peek();
        const CRowMover rows(fields(), false, m_movement, head.substr(0, m_header.points * m_header.pointBytes));
        m_stream.Put(rewritten(header, &rows));
        rows.Move(m_stream, m_header.points);
    }

    /// Field by field in the file, so it is in memory as a whole; rows are made of it a block at a time.
    void moveCompressed(const std::string& header)
    {
        std::string body;
        while (m_stream.BytesLeft() > 0) body += m_stream.Take(m_stream.Peek().size());
        const std::string columns = ExpandPcd(m_header, body, m_stream.File());
        body = {};
        const std::uint64_t most = std::max<std::uint64_t>(1, CMoveStream::uiBlock / m_header.pointBytes);
        const CRowMover mover(fields(), false, m_movement, rowsOf(columns, 0, std::min(most, m_header.points)));
        m_stream.Put(rewritten(header, &mover));
        for (std::uint64_t begin = 0; begin < m_header.points; begin += most)
            mover.Pass(m_stream, rowsOf(columns, begin, std::min(begin + most, m_header.points)));
    }

    /// Points `begin` to `end` of a body that holds one field after another.
    [[nodiscard]] std::string rowsOf(std::string_view columns, std::uint64_t begin, std::uint64_t end) const
    {
        std::string rows((end - begin) * m_header.pointBytes, '\0');
        for (const PcdField& field : m_header.fields) {
            const std::size_t bytes = field.size * field.count;
            const std::size_t from = field.offset * m_header.points;
            for (std::uint64_t i = begin; i < end; ++i)
                rows.replace((i - begin) * m_header.pointBytes + field.offset, bytes, columns, from + i * bytes, bytes);
        }
        return rows;
    }

    /// The header with the view point moved, the data uncompressed, and other types where rows have them.
    [[nodiscard]] std::string rewritten(std::string_view header, const CRowMover* rows) const
    {
        std::string text;
        while (!header.empty()) {
            const std::size_t end = std::min(header.find('\n'), header.size() - 1) + 1;
            const std::string_view line = header.substr(0, end);
            header.remove_prefix(end);
            std::string_view rest = line;
            const std::string_view keyword = NextWord(rest);
            const bool isType = keyword == "SIZE" || keyword == "TYPE";
            if (keyword == "VIEWPOINT" && m_header.sensor)
                text += viewPoint();
            else if (keyword == "DATA" && m_header.eData == EPcdData::Compressed)
                text += "DATA binary\n";
            else if (!isType || rows == nullptr || !rows->HasNewTypes())
                text += line;
            if ((keyword == "FIELDS" || keyword == "COLUMNS") && rows != nullptr && rows->HasNewTypes())
                text += typeLines(*rows);
        }
        return text;
    }

    [[nodiscard]] std::string viewPoint() const
    {
        const FramePose view = Compose(m_movement.Pose(), *m_header.sensor);
        std::string text = "VIEWPOINT";
        for (const double c : view.position) text.append(1, ' ').append(ToExactText(c));
        for (const double c : view.rotation) text.append(1, ' ').append(ToExactText(c));
        return text + "\n";
    }

    [[nodiscard]] std::string typeLines(const CRowMover& rows) const
    {
        std::string sizes = "SIZE";
        std::string types = "TYPE";
        for (std::size_t i = 0; i < m_header.fields.size(); ++i) {
            const PcdField& field = m_header.fields[i];
            const bool isNew = rows.IsMoved(i) && rows.TypeOf(i) != typeOf(field);
            sizes.append(1, ' ').append(std::to_string(isNew ? SizeOf(rows.TypeOf(i)) : field.size));
            types += isNew || field.eType == EPcdType::Float ? " F" : field.eType == EPcdType::Signed ? " I" : " U";
        }
        return sizes + "\n" + types + "\n";
    }

    CMoveStream& m_stream;
    const CMovement& m_movement;
    PcdHeader m_header;
    std::array<const PcdField*, 6> m_fields{}; ///< by role
    bool m_hasNormals = false;
};

} // namespace

std::string MovePcd(CMoveStream& stream, const CMovement& movement) { return CPcdMover(stream, movement).Move(); }

} // namespace Zorvan
