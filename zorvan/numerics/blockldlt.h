// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <array>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

namespace Zorvan {

/// A sparse symmetric matrix of 6 x 6 blocks, as poses that depend on each other make one, and its factor L D L^T: L
/// with identities on its diagonal, D of blocks. Blocks are eliminated in an order that keeps L sparse (P. Amestoy, T.
/// Davis and I. Duff, SIAM J. Matrix Anal. Appl. 17 (1996)). Cost grows with the blocks of L, not with the square of
/// their number. Same input, same bytes.
class ZORVAN_API CBlockLdlt
{
public:
    static constexpr std::size_t uiSize = 6;
    using Block = std::array<double, uiSize * uiSize>; ///< row-major
    using Places = std::vector<std::pair<std::size_t, std::size_t>>;

    /// Zeros, which may be added to on the diagonal and at these places, below it or above.
    CBlockLdlt(std::size_t numBlocks, const Places& offDiagonal);

    /// Adds a block, and off the diagonal its transpose at the mirrored place.
    /// @throws std::out_of_range for a place that was not announced
    void Add(std::size_t row, std::size_t column, const Block& block);
    /// A x.
    [[nodiscard]] std::vector<double> Times(std::span<const double> x) const;
    /// @return false when a block of D is not positive definite; there is no factor then
    [[nodiscard]] bool Factor();
    /// Solves A x = b from the factor; b is replaced by x.
    void Solve(std::span<double> b) const;
    /// Blocks on the diagonal of the inverse, from the factor, with those of the rest that L has places for and no
    /// others. Source: K. Takahashi, J. Fagan and M.-S. Chin, 8th PICA Conference (1973).
    [[nodiscard]] std::vector<Block> InverseDiagonal() const;

private:
    /// Below the diagonal, rows ascending.
    struct Column
    {
        std::vector<std::size_t> rows;
        std::vector<Block> blocks;
    };

    [[nodiscard]] Block& at(std::size_t row, std::size_t column);
    void eliminate(std::size_t column);

    std::vector<std::size_t> m_place; ///< of each block in the order of elimination
    std::vector<Column> m_given;      ///< the matrix in that order, with places for the factor
    std::vector<Block> m_givenDiagonal;
    std::vector<Column> m_factor;
    std::vector<Block> m_diagonal;        ///< D
    std::vector<Block> m_inverseDiagonal; ///< of D
};

} // namespace Zorvan
