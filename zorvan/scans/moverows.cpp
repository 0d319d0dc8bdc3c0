// SPDX-License-Identifier: MIT
#include "zorvan/scans/moverows.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace Zorvan {

namespace {

template <typename T>
T loadAs(const char* from, bool isSwapped)
{
    std::array<char, sizeof(T)> raw{};
    std::memcpy(raw.data(), from, sizeof(T));
    if (isSwapped) std::reverse(raw.begin(), raw.end());
    return std::bit_cast<T>(raw);
}

template <typename T>
void storeAs(char* to, T value, bool isSwapped)
{
    auto raw = std::bit_cast<std::array<char, sizeof(T)>>(value);
    if (isSwapped) std::reverse(raw.begin(), raw.end());
    std::memcpy(to, raw.data(), sizeof(T));
}

double loadNumber(const char* from, EPlyType type, bool isSwapped)
{
    switch (type) {
    case EPlyType::Int8:
        return loadAs<std::int8_t>(from, isSwapped);
    case EPlyType::UInt8:
        return loadAs<std::uint8_t>(from, isSwapped);
    case EPlyType::Int16:
        return loadAs<std::int16_t>(from, isSwapped);
    case EPlyType::UInt16:
        return loadAs<std::uint16_t>(from, isSwapped);
    case EPlyType::Int32:
        return loadAs<std::int32_t>(from, isSwapped);
    case EPlyType::UInt32:
        return loadAs<std::uint32_t>(from, isSwapped);
    case EPlyType::Float32:
        return static_cast<double>(loadAs<float>(from, isSwapped));
    case EPlyType::Float64:
        return loadAs<double>(from, isSwapped);
    }
    return 0.0;
}

bool isFloat(EPlyType type) { return type == EPlyType::Float32 || type == EPlyType::Float64; }

} // namespace

CRowMover::CRowMover(const std::vector<RowField>& fields, bool isBigEndian, const CMovement& movement,
                     std::string_view head)
    : m_movement(movement), m_isBigEndian(isBigEndian)
{
    layOut(fields, false);
    if (isFar(head)) layOut(fields, true);
}

void CRowMover::layOut(const std::vector<RowField>& fields, bool isFar)
{
    m_inBytes = m_outBytes = 0;
    m_types.clear();
    m_isMoved.clear();
    m_pieces.clear();
    m_hasNewTypes = false;
    for (const RowField& field : fields) {
        const bool isPoint = field.eRole <= ERole::Z;
        EPlyType type = field.type;
        if (isPoint && (isFar || !isFloat(type))) type = EPlyType::Float64;
        if (field.eRole != ERole::Other && !isPoint && !isFloat(type)) type = EPlyType::Float32;
        m_types.push_back(type);
        m_isMoved.push_back(field.eRole != ERole::Other);
        const std::size_t outBytes = field.eRole == ERole::Other ? field.bytes : SizeOf(type);
        if (field.eRole == ERole::Other) {
            addPiece(m_inBytes, m_outBytes, field.bytes);
        } else {
            const auto role = static_cast<std::size_t>(field.eRole);
            (isPoint ? m_point : m_direction)[role % 3] = {m_inBytes, field.type, m_outBytes, type};
            m_hasDirection = m_hasDirection || !isPoint;
            m_hasNewTypes = m_hasNewTypes || type != field.type;
        }
        m_inBytes += field.bytes;
        m_outBytes += outBytes;
    }
}

void CRowMover::addPiece(std::size_t from, std::size_t to, std::size_t bytes)
{
    Piece* const last = m_pieces.empty() ? nullptr : &m_pieces.back();
    if (last != nullptr && last->from + last->bytes == from && last->to + last->bytes == to)
        last->bytes += bytes;
    else
        m_pieces.push_back({from, to, bytes});
}

bool CRowMover::isFar(std::string_view head) const
{
    std::vector<Position> places;
    for (std::size_t at = 0; at + m_inBytes <= head.size(); at += m_inBytes)
        places.push_back(m_movement.Point(load(head.data() + at, m_point)));
    return ShiftFor(places) != Position{};
}

Position CRowMover::load(const char* row, const Triple& values) const
{
    Position numbers{};
    const bool isSwapped = m_isBigEndian == (std::endian::native == std::endian::little);
    for (std::size_t k = 0; k < 3; ++k) numbers[k] = loadNumber(row + values[k].from, values[k].type, isSwapped);
    return numbers;
}

void CRowMover::store(char* row, const Triple& values, const Position& numbers) const
{
    const bool isSwapped = m_isBigEndian == (std::endian::native == std::endian::little);
    for (std::size_t k = 0; k < 3; ++k) {
        if (values[k].outType == EPlyType::Float64)
            storeAs(row + values[k].to, numbers[k], isSwapped);
        else
            storeAs(row + values[k].to, ToFloat(numbers[k]), isSwapped);
    }
}

void CRowMover::moveRow(const char* from, char* to) const
{
    for (const Piece& piece : m_pieces) std::memcpy(to + piece.to, from + piece.from, piece.bytes);
    store(to, m_point, m_movement.Point(load(from, m_point)));
    if (m_hasDirection) store(to, m_direction, m_movement.Direction(load(from, m_direction)));
}

void CRowMover::sayRows(std::string_view rows, IPointListener& listener) const
{
    for (std::size_t at = 0; at + m_inBytes <= rows.size(); at += m_inBytes) {
        const Position place = load(rows.data() + at, m_point);
        if (!m_hasDirection) {
            listener.TakePoint(place, nullptr);
            continue;
        }
        const Position normal = load(rows.data() + at, m_direction);
        listener.TakePoint(place, &normal);
    }
}

std::string CRowMover::moved(std::string_view rows) const
{
    const std::size_t count = rows.size() / m_inBytes;
    std::string out(count * m_outBytes, '\0');
    for (std::size_t i = 0; i < count; ++i) moveRow(rows.data() + i * m_inBytes, out.data() + i * m_outBytes);
    return out;
}

void CRowMover::Move(CMoveStream& stream, std::uint64_t count) const
{
    const std::size_t most = std::max<std::size_t>(1, CMoveStream::uiBlock / m_inBytes);
    while (count > 0) {
        const std::size_t rows = std::min<std::uint64_t>(count, most);
        Pass(stream, stream.Take(rows * m_inBytes));
        count -= rows;
    }
}

void CRowMover::Pass(CMoveStream& stream, std::string_view rows) const
{
    if (IPointListener* const listener = stream.Listener())
        sayRows(rows, *listener);
    else
        stream.Put(moved(rows));
}

} // namespace Zorvan
