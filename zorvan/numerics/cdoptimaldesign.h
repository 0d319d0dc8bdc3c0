// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/eigenabi.h"
#include "zorvan/platform/export.h"

#include <Eigen/Core>

#include <functional>
#include <vector>

namespace Zorvan {

class CNLSObjectiveFunction;

/// Which measurements of a least-squares problem say most about its parameters, when only some of them can be made.
///
///     CMyFit fit(allThatCouldBeMeasured);       // one residual a candidate
///     CDOptimalDesign design(fit, guess);
///     for (const int i : design.Compute(12).measurements) measure(i);
///
/// A design of n measurements is the better the larger det(J^T W J) over its rows is: the covariance ellipsoid of the
/// parameters has the least volume then. Rows are those of the function's Jacobian by the free variables, divided by
/// the standard deviations of the function. Where the Jacobian depends on the parameters, the design is the best at the
/// guess only. The determinant itself depends on the units of the parameters, the best design does not.
///
/// The search exchanges one measurement for a candidate as long as that helps, always the pair that helps most, from
/// several starts: one of rows that are most independent, the others random. It finds a design that no exchange
/// improves, not surely the best of all. The same input gives the same design. Source: Fedorov, Theory of Optimal
/// Experiments (1972).
class ZORVAN_API CDOptimalDesign
{
public:
    enum class EStatus
    {
        Success,
        Singular, ///< the candidates do not determine all parameters, or a row is not finite: the design is empty
        Aborted   ///< the best design so far
    };

    struct Settings
    {
        bool isRepeating = true; ///< whether a measurement may be made several times
        int iNumStarts = 10;     ///< at least 1
    };

    struct Design
    {
        EStatus eStatus = EStatus::Singular;
        std::vector<int> measurements; ///< ascending; those that are made several times stand there as often
        double dLogDeterminant = 0.0;  ///< of J^T W J over the design
        /// A bound from below for (determinant / largest one of any design of n measurements)^(1 / number of
        /// parameters), in (0, 1]. Near 1 there is nothing left to gain. Source: Atwood, Annals of Mathematical
        /// Statistics 40 (1969).
        double dEfficiency = 0.0;

        explicit operator bool() const { return eStatus != EStatus::Singular; }
    };

    /// @param function  asked here only
    /// @param free      the free variables at which the Jacobian is taken
    CDOptimalDesign(CNLSObjectiveFunction& function, const Eigen::VectorXd& free);

    /// @param numMeasurements  how many to choose
    /// @param isAborted        asked before each exchange; may be empty
    /// @throws std::invalid_argument for fewer measurements than parameters, and for more than candidates where none
    ///         may be repeated
    [[nodiscard]] Design Compute(int numMeasurements, const Settings& settings,
                                 const std::function<bool()>& isAborted = {}) const;
    [[nodiscard]] Design Compute(int numMeasurements) const { return Compute(numMeasurements, Settings{}); }

private:
    [[nodiscard]] std::vector<int> independentRows(const Eigen::VectorXd& weights) const;

    Eigen::MatrixXd m_rows;  ///< one a candidate, of a basis in which all candidates together are orthonormal
    double m_logScale = 0.0; ///< what the change of basis takes from the logarithm of the determinant
    bool m_isRegular = false;
};

} // namespace Zorvan
