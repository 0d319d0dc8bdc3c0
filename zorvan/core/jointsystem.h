// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <array>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace prereg {

/// The normal equations of sets that move together: six unknowns for each but set 0, which stays where it is. A pair
/// acts on the difference of the unknowns of its sets. Not installed.
class ZORVAN_API IJointSystem
{
public:
    static constexpr std::size_t uiParameters = 6;
    using Packed = std::array<double, 21>;                             ///< lower triangle by rows
    using SetPairs = std::vector<std::pair<std::size_t, std::size_t>>; ///< the later set first, ascending

    /// Most sets with a dense factor. It is the quicker one while most of them touch, but grows with the third power:
    /// for 100 sets it takes some 30 ms, for 1,000 as many seconds.
    static constexpr std::size_t uiMaxDenseSets = 100;
    /// Dense up to so many sets, sparse for more; the solutions agree to rounding.
    [[nodiscard]] static std::unique_ptr<IJointSystem> Make(std::size_t numSets,
                                                            std::size_t maxDenseSets = uiMaxDenseSets);
    virtual ~IJointSystem();

    /// Zeros; only these pairs may be added to.
    virtual void Clear(const SetPairs& pairs) = 0;
    virtual void Add(std::size_t i, std::size_t j, const Packed& normal) = 0;
    /// b - A x.
    [[nodiscard]] virtual std::vector<double> Residual(const std::vector<double>& b,
                                                       const std::vector<double>& x) const = 0;
    /// @return false when the equations have no unique solution
    [[nodiscard]] virtual bool Factor() = 0;
    /// b is replaced by the solution. After `Factor`.
    virtual void Solve(std::vector<double>& b) const = 0;
    /// What `InverseBlock` needs. After `Factor`.
    virtual void Invert() = 0;
    /// The diagonal block of the inverse that belongs to a set from 1 on. May be called by several threads.
    [[nodiscard]] virtual Packed InverseBlock(std::size_t set) const = 0;

protected:
    IJointSystem() = default;
    IJointSystem(const IJointSystem&) = default;
    IJointSystem(IJointSystem&&) = default;
    IJointSystem& operator=(const IJointSystem&) = default;
    IJointSystem& operator=(IJointSystem&&) = default;
};

} // namespace prereg
