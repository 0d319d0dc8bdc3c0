// SPDX-License-Identifier: MIT
#include "zorvan/core/jointsystem.h"

#include "zorvan/numerics/blockldlt.h"
#include "zorvan/numerics/packedldlt.h"

#include <algorithm>
#include <functional>

namespace prereg {

namespace {

using Zorvan::CBlockLdlt;
using Zorvan::symsolvers::PackedSize;

constexpr std::size_t parameters = IJointSystem::uiParameters;

double at(const IJointSystem::Packed& packed, std::size_t row, std::size_t column)
{
    return packed[PackedSize(std::max(row, column)) + std::min(row, column)];
}

class CDenseJointSystem : public IJointSystem
{
public:
    explicit CDenseJointSystem(std::size_t numSets)
        : m_numUnknowns(parameters * (numSets - 1)), m_matrix(PackedSize(m_numUnknowns))
    {
    }

    void Clear(const SetPairs& /*pairs*/) override { std::fill(m_matrix.begin(), m_matrix.end(), 0.0); }

    void Add(std::size_t i, std::size_t j, const Packed& normal) override
    {
        addToDiagonal(i, normal);
        addToDiagonal(j, normal);
        addBetween(i, j, normal);
    }

    [[nodiscard]] std::vector<double> Residual(const std::vector<double>& b,
                                               const std::vector<double>& x) const override
    {
        std::vector<double> residual = b;
        const double* row = m_matrix.data();
        for (std::size_t i = 0; i < x.size(); row += ++i) {
            for (std::size_t j = 0; j < i; ++j) {
                residual[i] -= row[j] * x[j];
                residual[j] -= row[j] * x[i];
            }
            residual[i] -= row[i] * x[i];
        }
        return residual;
    }

    [[nodiscard]] bool Factor() override
    {
        m_factor = m_matrix;
        std::vector<double> work(m_numUnknowns);
        return Zorvan::symsolvers::LDLtFactor(m_factor.data(), static_cast<int>(m_numUnknowns), work.data());
    }

    void Solve(std::vector<double>& b) const override
    {
        Zorvan::symsolvers::LDLtSolve(m_factor.data(), b.data(), static_cast<int>(m_numUnknowns));
    }

    void Invert() override {}

    // Columns `first` and on of the inverse of L are zero above their diagonal, and the diagonal block needs no others:
    // for all sets together a sixth of the work of a whole inverse, six columns at a time.
    [[nodiscard]] Packed InverseBlock(std::size_t set) const override
    {
        const std::size_t first = parameters * (set - 1);
        std::vector<std::array<double, parameters>> columns(m_numUnknowns - first);
        Packed block{};
        for (std::size_t r = 0; r < columns.size(); ++r) {
            const double* row = m_factor.data() + PackedSize(first + r) + first;
            std::array<double, parameters> y{};
            if (r < parameters) y[r] = 1.0;
            for (std::size_t k = 0; k < r; ++k) {
                for (std::size_t c = 0; c < parameters; ++c) y[c] -= row[k] * columns[k][c];
            }
            columns[r] = y;
            for (std::size_t a = 0; a < parameters; ++a) {
                for (std::size_t b = 0; b <= a; ++b) block[PackedSize(a) + b] += y[a] * y[b] / row[r];
            }
        }
        return block;
    }

private:
    void addToDiagonal(std::size_t set, const Packed& normal)
    {
        if (set == 0) return;
        const std::size_t first = parameters * (set - 1);
        const double* source = normal.data();
        for (std::size_t r = 0; r < parameters; ++r) {
            double* target = m_matrix.data() + PackedSize(first + r) + first;
            for (std::size_t c = 0; c <= r; ++c) *target++ += *source++;
        }
    }

    void addBetween(std::size_t i, std::size_t j, const Packed& normal)
    {
        if (j == 0) return;
        for (std::size_t r = 0; r < parameters; ++r) {
            double* target = m_matrix.data() + PackedSize(parameters * (i - 1) + r) + parameters * (j - 1);
            for (std::size_t c = 0; c < parameters; ++c) *target++ -= at(normal, r, c);
        }
    }

    std::size_t m_numUnknowns;
    std::vector<double> m_matrix; ///< packed
    std::vector<double> m_factor;
};

class CSparseJointSystem : public IJointSystem
{
public:
    explicit CSparseJointSystem(std::size_t numSets) : m_numBlocks(numSets - 1), m_matrix(m_numBlocks, {}) {}

    void Clear(const SetPairs& pairs) override
    {
        CBlockLdlt::Places places;
        for (const auto& [i, j] : pairs)
            if (j > 0) places.emplace_back(i - 1, j - 1);
        m_matrix = CBlockLdlt(m_numBlocks, places);
    }

    void Add(std::size_t i, std::size_t j, const Packed& normal) override
    {
        CBlockLdlt::Block block;
        CBlockLdlt::Block negative;
        for (std::size_t k = 0; k < block.size(); ++k) {
            block[k] = at(normal, k / parameters, k % parameters);
            negative[k] = -block[k];
        }
        m_matrix.Add(i - 1, i - 1, block);
        if (j == 0) return;
        m_matrix.Add(j - 1, j - 1, block);
        m_matrix.Add(i - 1, j - 1, negative);
    }

    [[nodiscard]] std::vector<double> Residual(const std::vector<double>& b,
                                               const std::vector<double>& x) const override
    {
        std::vector<double> residual = m_matrix.Times(x);
        std::transform(b.begin(), b.end(), residual.begin(), residual.begin(), std::minus<>());
        return residual;
    }

    [[nodiscard]] bool Factor() override { return m_matrix.Factor(); }
    void Solve(std::vector<double>& b) const override { m_matrix.Solve(b); }
    void Invert() override { m_inverse = m_matrix.InverseDiagonal(); }

    [[nodiscard]] Packed InverseBlock(std::size_t set) const override
    {
        const CBlockLdlt::Block& block = m_inverse.at(set - 1);
        Packed packed{};
        for (std::size_t r = 0; r < parameters; ++r)
            for (std::size_t c = 0; c <= r; ++c) packed[PackedSize(r) + c] = block[parameters * r + c];
        return packed;
    }

private:
    std::size_t m_numBlocks;
    CBlockLdlt m_matrix;
    std::vector<CBlockLdlt::Block> m_inverse;
};

} // namespace

IJointSystem::~IJointSystem() = default;

std::unique_ptr<IJointSystem> IJointSystem::Make(std::size_t numSets, std::size_t maxDenseSets)
{
    if (numSets > maxDenseSets) return std::make_unique<CSparseJointSystem>(numSets);
    return std::make_unique<CDenseJointSystem>(numSets);
}

} // namespace prereg
