// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace prereg {

/// A cell of a lattice; its centre is the cell times the cell size.
struct LatticeCell
{
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t z = 0;

    friend bool operator==(const LatticeCell&, const LatticeCell&) = default;
};

/// Cells of edge length `cellSize` around the multiples of it.
class ZORVAN_API CLattice
{
public:
    /// @param cellSize  mm
    explicit CLattice(float cellSize);

    /// Rounds to the nearest cell by the processor's approximate reciprocal of the cell size: at a cell's border, where
    /// the two differ, that decides.
    [[nodiscard]] LatticeCell CellOf(const kdtree::Vector<3>& p) const;
    /// CRC-32C of the three numbers.
    [[nodiscard]] static std::uint32_t Hash(const LatticeCell& cell);
    [[nodiscard]] kdtree::Range<3> BoxOf(const LatticeCell& cell) const;
    [[nodiscard]] float CellSize() const { return m_cellSize; }

private:
    float m_cellSize;
    float m_inverse;
};

/// A hash map from the cells of a lattice to records. Records stand in the order in which their cells were first met,
/// so walking them is a linear read and the same on every run.
template <typename Record>
class TLatticeMap
{
public:
    explicit TLatticeMap(float cellSize) : m_lattice(cellSize) {}

    [[nodiscard]] const CLattice& Lattice() const { return m_lattice; }
    [[nodiscard]] std::size_t Size() const { return m_cells.size(); }
    [[nodiscard]] const std::vector<Record>& Records() const { return m_records; }

    /// Makes room for so many cells.
    void Reserve(std::size_t n)
    {
        m_cells.reserve(n);
        m_records.reserve(n);
        if (2 * (n + 1) > m_table.size()) rebuildTable(std::bit_ceil(2 * (n + 1)));
    }

    /// The record of a cell, or of the cell of p; a new cell gets a default one. The reference holds until the next
    /// call.
    Record& At(const LatticeCell& cell) { return m_records[slotOf(cell)]; }
    Record& At(const kdtree::Vector<3>& p) { return At(m_lattice.CellOf(p)); }

    /// Null for a cell that is not known.
    [[nodiscard]] const Record* Find(const LatticeCell& cell) const
    {
        if (m_table.empty()) return nullptr;
        const std::uint32_t slot = m_table[placeOf(cell)];
        return slot == noRecord ? nullptr : &m_records[slot];
    }

    void Clear()
    {
        m_cells.clear();
        m_records.clear();
        m_table.clear();
    }

    /// Calls `keep(cell, record)` for each record in order, and drops those for which it is false.
    template <typename Keep>
    void Filter(Keep keep)
    {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < m_cells.size(); ++i) {
            if (!keep(m_cells[i], m_records[i])) continue;
            m_cells[kept] = m_cells[i];
            m_records[kept] = std::move(m_records[i]);
            ++kept;
        }
        if (kept == m_cells.size()) return;
        m_cells.resize(kept);
        m_records.resize(kept);
        rebuildTable(m_table.size());
    }

private:
    static constexpr std::uint32_t noRecord = 0xFFFFFFFF;
    static constexpr std::size_t firstTableSize = 16;

    std::size_t slotOf(const LatticeCell& cell)
    {
        // Points of a scan come line by line, many in the cell of the one before.
        if (m_last < m_cells.size() && m_cells[m_last] == cell) return m_last;
        // At most half full, so that runs of taken places stay short.
        if (2 * (m_cells.size() + 1) > m_table.size()) rebuildTable(std::max(firstTableSize, 2 * m_table.size()));
        std::uint32_t& slot = m_table[placeOf(cell)];
        if (slot == noRecord) {
            slot = static_cast<std::uint32_t>(m_cells.size());
            m_cells.push_back(cell);
            m_records.emplace_back();
        }
        m_last = slot;
        return slot;
    }

    // Where the table names the cell's record, or the free place where it would.
    [[nodiscard]] std::size_t placeOf(const LatticeCell& cell) const
    {
        const std::size_t mask = m_table.size() - 1;
        std::size_t place = CLattice::Hash(cell) & mask;
        while (m_table[place] != noRecord && !(m_cells[m_table[place]] == cell)) place = (place + 1) & mask;
        return place;
    }

    void rebuildTable(std::size_t size)
    {
        m_table.assign(size, noRecord);
        for (std::size_t i = 0; i < m_cells.size(); ++i) m_table[placeOf(m_cells[i])] = static_cast<std::uint32_t>(i);
    }

    CLattice m_lattice;
    std::vector<LatticeCell> m_cells;
    std::vector<Record> m_records;
    std::uint32_t m_last = 0;           ///< record that was asked for last
    std::vector<std::uint32_t> m_table; ///< open addressing; a power of two, at most half full
};

} // namespace prereg
