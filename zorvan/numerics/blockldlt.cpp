// SPDX-License-Identifier: MIT
#include "zorvan/numerics/blockldlt.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <Eigen/OrderingMethods>
#include <Eigen/SparseCore>

#include <algorithm>
#include <set>
#include <stdexcept>

namespace Zorvan {

namespace {

using Matrix6 = Eigen::Matrix<double, 6, 6, Eigen::RowMajor>;
using Vector6 = Eigen::Matrix<double, 6, 1>;
using Pattern = Eigen::SparseMatrix<double>;

Eigen::Map<Matrix6> asMatrix(CBlockLdlt::Block& block) { return Eigen::Map<Matrix6>(block.data()); }
Eigen::Map<const Matrix6> asMatrix(const CBlockLdlt::Block& block) { return Eigen::Map<const Matrix6>(block.data()); }

/// The place of each block in an order of elimination with little fill.
std::vector<std::size_t> placesWithLittleFill(std::size_t numBlocks, const CBlockLdlt::Places& offDiagonal)
{
    std::vector<Eigen::Triplet<double>> entries;
    for (const auto& [row, column] : offDiagonal) {
        const auto r = static_cast<int>(row);
        const auto c = static_cast<int>(column);
        entries.emplace_back(r, c, 1.0);
        entries.emplace_back(c, r, 1.0);
    }
    for (int i = 0; i < static_cast<int>(numBlocks); ++i) entries.emplace_back(i, i, 1.0);
    const auto size = static_cast<Eigen::Index>(numBlocks);
    Pattern pattern(size, size);
    pattern.setFromTriplets(entries.begin(), entries.end());
    Eigen::PermutationMatrix<Eigen::Dynamic, Eigen::Dynamic, int> order;
    Eigen::AMDOrdering<int>()(pattern, order);
    std::vector<std::size_t> places(numBlocks);
    for (std::size_t i = 0; i < numBlocks; ++i)
        places[static_cast<std::size_t>(order.indices()[static_cast<Eigen::Index>(i)])] = i;
    return places;
}

/// Calls f(place of the row in `rows`, place of it in `all`) for those from the `first` of `rows` on, all of which
/// `all` has.
template <typename F>
void forEachShared(const std::vector<std::size_t>& rows, std::size_t first, const std::vector<std::size_t>& all, F f)
{
    std::size_t k = 0;
    for (std::size_t i = first; i < rows.size(); ++i) {
        while (all[k] != rows[i]) ++k;
        f(i, k);
    }
}

} // namespace

CBlockLdlt::CBlockLdlt(std::size_t numBlocks, const Places& offDiagonal)
    : m_place(placesWithLittleFill(numBlocks, offDiagonal)),
      m_given(numBlocks),
      m_givenDiagonal(numBlocks),
      m_diagonal(numBlocks),
      m_inverseDiagonal(numBlocks)
{
    std::vector<std::set<std::size_t>> below(numBlocks);
    for (const auto& [row, column] : offDiagonal) {
        const auto [first, last] = std::minmax(m_place.at(row), m_place.at(column));
        if (first != last) below[first].insert(last);
    }
    for (std::size_t column = 0; column < numBlocks; ++column) {
        auto& rows = below[column];
        m_given[column].rows.assign(rows.begin(), rows.end());
        m_given[column].blocks.resize(rows.size(), Block{});
        // What a column leaves to those after it, the nearest of them passes on.
        if (!rows.empty()) below[*rows.begin()].insert(std::next(rows.begin()), rows.end());
        rows.clear();
    }
}

CBlockLdlt::Block& CBlockLdlt::at(std::size_t row, std::size_t column)
{
    auto& [rows, blocks] = m_given[column];
    const auto found = std::lower_bound(rows.begin(), rows.end(), row);
    if (found == rows.end() || *found != row) throw std::out_of_range("no block was announced there");
    return blocks[static_cast<std::size_t>(found - rows.begin())];
}

void CBlockLdlt::Add(std::size_t row, std::size_t column, const Block& block)
{
    const std::size_t r = m_place.at(row);
    const std::size_t c = m_place.at(column);
    if (r == c)
        asMatrix(m_givenDiagonal[r]) += asMatrix(block);
    else if (r > c)
        asMatrix(at(r, c)) += asMatrix(block);
    else
        asMatrix(at(c, r)) += asMatrix(block).transpose();
}

std::vector<double> CBlockLdlt::Times(std::span<const double> x) const
{
    std::vector<std::size_t> blockAt(m_place.size());
    for (std::size_t i = 0; i < m_place.size(); ++i) blockAt[m_place[i]] = i;
    std::vector<double> product(x.size(), 0.0);
    const auto in = [&](std::size_t place) { return Eigen::Map<const Vector6>(x.data() + uiSize * blockAt[place]); };
    const auto out = [&](std::size_t place) { return Eigen::Map<Vector6>(product.data() + uiSize * blockAt[place]); };
    for (std::size_t column = 0; column < m_given.size(); ++column) {
        out(column) += asMatrix(m_givenDiagonal[column]) * in(column);
        const auto& [rows, blocks] = m_given[column];
        for (std::size_t k = 0; k < rows.size(); ++k) {
            out(rows[k]) += asMatrix(blocks[k]) * in(column);
            out(column) += asMatrix(blocks[k]).transpose() * in(rows[k]);
        }
    }
    return product;
}

bool CBlockLdlt::Factor()
{
    m_factor = m_given;
    m_diagonal = m_givenDiagonal;
    for (std::size_t column = 0; column < m_factor.size(); ++column) {
        const Eigen::LLT<Matrix6> pivot(asMatrix(m_diagonal[column]));
        if (pivot.info() != Eigen::Success) return false;
        asMatrix(m_inverseDiagonal[column]) = pivot.solve(Matrix6::Identity());
        eliminate(column);
    }
    return true;
}

/// Takes the column out of those after it, and divides it by its block of D.
void CBlockLdlt::eliminate(std::size_t column)
{
    const std::vector<std::size_t>& rows = m_factor[column].rows;
    std::vector<Block>& blocks = m_factor[column].blocks;
    const std::vector<Block> before = blocks;
    for (Block& block : blocks) asMatrix(block) = asMatrix(block) * asMatrix(m_inverseDiagonal[column]);
    for (std::size_t k = 0; k < rows.size(); ++k) {
        const Matrix6 right = asMatrix(before[k]).transpose();
        asMatrix(m_diagonal[rows[k]]).noalias() -= asMatrix(blocks[k]) * right;
        Column& target = m_factor[rows[k]];
        forEachShared(rows, k + 1, target.rows, [&](std::size_t i, std::size_t there) {
            asMatrix(target.blocks[there]).noalias() -= asMatrix(blocks[i]) * right;
        });
    }
}

void CBlockLdlt::Solve(std::span<double> b) const
{
    std::vector<Vector6> x(m_place.size());
    for (std::size_t i = 0; i < m_place.size(); ++i) x[m_place[i]] = Eigen::Map<Vector6>(b.data() + uiSize * i);
    for (std::size_t column = 0; column < m_factor.size(); ++column) {
        const auto& [rows, blocks] = m_factor[column];
        for (std::size_t k = 0; k < rows.size(); ++k) x[rows[k]].noalias() -= asMatrix(blocks[k]) * x[column];
    }
    for (std::size_t column = m_factor.size(); column-- > 0;) {
        const auto& [rows, blocks] = m_factor[column];
        x[column] = asMatrix(m_inverseDiagonal[column]) * x[column];
        for (std::size_t k = 0; k < rows.size(); ++k)
            x[column].noalias() -= asMatrix(blocks[k]).transpose() * x[rows[k]];
    }
    for (std::size_t i = 0; i < m_place.size(); ++i) Eigen::Map<Vector6>(b.data() + uiSize * i) = x[m_place[i]];
}

std::vector<CBlockLdlt::Block> CBlockLdlt::InverseDiagonal() const
{
    std::vector<Column> inverse = m_factor;
    std::vector<Block> diagonal = m_inverseDiagonal;
    for (std::size_t column = m_factor.size(); column-- > 0;) {
        const std::vector<std::size_t>& rows = m_factor[column].rows;
        const std::vector<Block>& blocks = m_factor[column].blocks;
        std::vector<Matrix6> sums(rows.size(), Matrix6::Zero());
        for (std::size_t k = 0; k < rows.size(); ++k) {
            sums[k].noalias() += asMatrix(diagonal[rows[k]]) * asMatrix(blocks[k]);
            const Column& done = inverse[rows[k]];
            forEachShared(rows, k + 1, done.rows, [&](std::size_t i, std::size_t there) {
                sums[i].noalias() += asMatrix(done.blocks[there]) * asMatrix(blocks[k]);
                sums[k].noalias() += asMatrix(done.blocks[there]).transpose() * asMatrix(blocks[i]);
            });
        }
        for (std::size_t k = 0; k < rows.size(); ++k) {
            asMatrix(inverse[column].blocks[k]) = -sums[k];
            asMatrix(diagonal[column]).noalias() += asMatrix(blocks[k]).transpose() * sums[k];
        }
    }
    std::vector<Block> answer(m_place.size());
    for (std::size_t i = 0; i < m_place.size(); ++i) answer[i] = diagonal[m_place[i]];
    return answer;
}

} // namespace Zorvan
