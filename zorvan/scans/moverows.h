// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/movestream.h"
#include "zorvan/scans/plyheader.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zorvan {

/// What a value of a row is to a movement: a coordinate of its point or of its direction, or nothing.
enum class ERole
{
    X,
    Y,
    Z,
    DirectionX,
    DirectionY,
    DirectionZ,
    Other
};

struct RowField
{
    ERole eRole = ERole::Other;
    EPlyType type = EPlyType::Float32; ///< of what has a role
    std::size_t bytes = 0;
};

/// How rows of values that stand one behind another become rows with point and direction moved. What single precision
/// cannot hold where it is moved to, and whole numbers, become floating-point numbers that can.
class ZORVAN_SCANS_API CRowMover
{
public:
    /// @param fields  with each role once, or none of the three directions
    /// @param head    some rows, whole or cut off at their end, that show how far from the origin the points come
    CRowMover(const std::vector<RowField>& fields, bool isBigEndian, const CMovement& movement, std::string_view head);

    /// The type in which a field is written.
    [[nodiscard]] EPlyType TypeOf(std::size_t field) const { return m_types[field]; }
    [[nodiscard]] bool IsMoved(std::size_t field) const { return m_isMoved[field]; }
    [[nodiscard]] bool HasNewTypes() const { return m_hasNewTypes; }

    /// Takes so many rows from the stream and passes them on.
    void Move(CMoveStream& stream, std::uint64_t count) const;
    /// Puts whole rows moved, or says them to who listens to the stream.
    void Pass(CMoveStream& stream, std::string_view rows) const;

private:
    struct Value
    {
        std::size_t from = 0;
        EPlyType type = EPlyType::Float32;
        std::size_t to = 0;
        EPlyType outType = EPlyType::Float32;
    };
    using Triple = std::array<Value, 3>;
    struct Piece
    {
        std::size_t from = 0;
        std::size_t to = 0;
        std::size_t bytes = 0;
    };

    [[nodiscard]] bool isFar(std::string_view head) const;
    void layOut(const std::vector<RowField>& fields, bool isFar);
    void addPiece(std::size_t from, std::size_t to, std::size_t bytes);
    [[nodiscard]] Position load(const char* row, const Triple& values) const;
    void store(char* row, const Triple& values, const Position& numbers) const;
    void moveRow(const char* from, char* to) const;
    [[nodiscard]] std::string moved(std::string_view rows) const;
    void sayRows(std::string_view rows, IPointListener& listener) const;

    const CMovement& m_movement;
    bool m_isBigEndian;
    bool m_hasDirection = false;
    bool m_hasNewTypes = false;
    std::size_t m_inBytes = 0;
    std::size_t m_outBytes = 0;
    std::vector<EPlyType> m_types;
    std::vector<bool> m_isMoved;
    std::vector<Piece> m_pieces; ///< copied as they are
    Triple m_point;
    Triple m_direction;
};

} // namespace Zorvan
