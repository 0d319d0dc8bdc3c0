// SPDX-License-Identifier: MIT
#include "zorvan/core/jointsystem.h"

#include "zorvan/numerics/packedldlt.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

using prereg::IJointSystem;
using Zorvan::symsolvers::AddNormalEquation;

constexpr std::size_t n = IJointSystem::uiParameters;

/// What one pair measures, of full rank.
IJointSystem::Packed randomEquations(std::mt19937& rng)
{
    std::uniform_real_distribution<double> draw(-1.0, 1.0);
    IJointSystem::Packed normal{};
    std::array<double, n> rhs{};
    for (std::size_t k = 0; k < 3 * n; ++k) {
        std::array<double, n> row{};
        for (double& value : row) value = draw(rng);
        AddNormalEquation(normal.data(), rhs.data(), row.data(), 0.0, static_cast<int>(n));
    }
    return normal;
}

/// A strip where each set touches the next three, and some far ones too.
IJointSystem::SetPairs stripWithLoops(std::size_t numSets)
{
    IJointSystem::SetPairs pairs;
    for (std::size_t i = 1; i < numSets; ++i)
        for (std::size_t j = 0; j < i; ++j)
            if (i - j <= 3 || (i * 7 + j * 13) % 97 == 0) pairs.emplace_back(i, j);
    return pairs;
}

TEST(JointSystem, SparseAndDenseAgree)
{
    for (const std::size_t numSets : {2U, 3U, 120U}) {
        const auto pairs = stripWithLoops(numSets);
        const auto dense = IJointSystem::Make(numSets, numSets);
        const auto sparse = IJointSystem::Make(numSets, 1);
        std::mt19937 rng(47110815);
        for (const auto& system : {dense.get(), sparse.get()}) system->Clear(pairs);
        for (const auto& [i, j] : pairs) {
            const auto normal = randomEquations(rng);
            for (const auto& system : {dense.get(), sparse.get()}) system->Add(i, j, normal);
        }
        std::vector<double> rhs(n * (numSets - 1));
        for (double& value : rhs) value = std::uniform_real_distribution<double>(-1.0, 1.0)(rng);
        std::vector<double> ofDense = rhs;
        std::vector<double> ofSparse = rhs;
        for (const auto& [system, x] : {std::pair{dense.get(), &ofDense}, {sparse.get(), &ofSparse}}) {
            ASSERT_TRUE(system->Factor());
            system->Solve(*x);
            system->Invert();
            for (const double left : system->Residual(rhs, *x)) EXPECT_NEAR(left, 0.0, 1e-9);
        }
        for (std::size_t k = 0; k < rhs.size(); ++k)
            EXPECT_NEAR(ofSparse[k], ofDense[k], 1e-6 * std::abs(ofDense[k]) + 1e-9);
        for (std::size_t set = 1; set < numSets; ++set) {
            const auto expected = dense->InverseBlock(set);
            const auto found = sparse->InverseBlock(set);
            for (std::size_t k = 0; k < found.size(); ++k) EXPECT_NEAR(found[k], expected[k], 1e-9) << set;
        }
    }
}

TEST(JointSystem, NeitherSolvesWhatNothingHolds)
{
    for (const std::size_t maxDense : {1U, 4U}) {
        std::mt19937 rng(47110815);
        const auto system = IJointSystem::Make(4, maxDense);
        system->Clear({{1, 0}, {3, 1}});
        for (const auto& [i, j] : {std::pair{1, 0}, {3, 1}}) system->Add(i, j, randomEquations(rng));
        EXPECT_FALSE(system->Factor()); // set 2 hangs nowhere
    }
}

} // namespace
