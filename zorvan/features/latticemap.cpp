// SPDX-License-Identifier: MIT
#include "zorvan/features/latticemap.h"

#include "zorvan/platform/simd.h"

#include <array>

namespace prereg {

CLattice::CLattice(float cellSize) : m_cellSize(cellSize), m_inverse(Zorvan::simd::ApproximateReciprocal(cellSize)) {}

LatticeCell CLattice::CellOf(const kdtree::Vector<3>& p) const
{
    using Zorvan::simd::Float4;
    std::array<std::int32_t, 4> cell;
    (Float4::Load(&p.x) * Float4::Set1(m_inverse)).StoreRounded(cell.data());
    return {cell[0], cell[1], cell[2]};
}

std::uint32_t CLattice::Hash(const LatticeCell& cell)
{
    using Zorvan::simd::Crc32;
    std::uint32_t crc = 0;
    for (const std::int32_t i : {cell.x, cell.y, cell.z}) crc = Crc32(crc, static_cast<std::uint32_t>(i));
    return crc;
}

kdtree::Range<3> CLattice::BoxOf(const LatticeCell& cell) const
{
    const kdtree::Vector<3> numbers(static_cast<float>(cell.x), static_cast<float>(cell.y), static_cast<float>(cell.z));
    const auto twice = 2.0F * (numbers * m_cellSize);
    const auto size = kdtree::Vector<3>::Filled(m_cellSize);
    return {0.5F * (twice - size), 0.5F * (twice + size)};
}

} // namespace prereg
