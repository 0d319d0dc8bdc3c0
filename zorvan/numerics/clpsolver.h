// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/eigenabi.h"
#include "zorvan/platform/export.h"

#include <Eigen/Core>

#include <vector>

namespace Zorvan {

enum LPStatusType : int
{
    LPNotYetRun = -2,
    LPInfeasible = -1,
    LPRunning = 0, ///< stopped by the bound on the pivots, which only rounding errors or NaN can reach
    LPOptimal = 1,
    LPUnbounded = 2
};

/// Dense tableau simplex for small linear programmes: maximise c . x subject to A x <= b and x >= 0.
///
///     CLPSolver solver(A, b, c);
///     if (solver.Run() && solver.GetStatus() == LPOptimal) use(solver.GetSolution(nullptr));
///
/// All variables are non-negative, also those of a caller that thinks of free ones. `Run` is true for an unbounded
/// programme. Two phases with an auxiliary variable; the first variable of positive cost enters. That rule can cycle
/// where several rows tie, so after many pivots that of Bland takes over, which cannot. Source: Cormen, Leiserson,
/// Rivest and Stein, Introduction to Algorithms, 29.3 and 29.5; Bland, Math. of Operations Research 2 (1977).
class ZORVAN_API CLPSolver
{
public:
    /// @param A  m x n; @param b  m values; @param c  n values
    /// @throws std::invalid_argument when the sizes do not match
    CLPSolver(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, const Eigen::VectorXd& c);

    /// Solves the programme; a second call only repeats the answer. @return whether it is optimal or unbounded
    bool Run();
    [[nodiscard]] LPStatusType GetStatus() const { return m_status; }

    /// @param unique  null, or becomes false when another solution may be as good (a non-basic variable costs nothing)
    /// @return        the n variables; infinite when unbounded, empty when there is no solution
    [[nodiscard]] Eigen::VectorXd GetSolution(bool* unique) const;
    /// What each of the m rows lacks to its right-hand side; infinite when unbounded, empty when there is no solution.
    [[nodiscard]] Eigen::VectorXd GetSlack() const;

private:
    [[nodiscard]] bool initializeSimplex();
    void setSlackBasis();
    void beginAuxiliary(int row);
    void dropAuxiliary(const Eigen::VectorXd& objective);
    void substituteBasic();
    void simplex(bool init);
    [[nodiscard]] LPStatusType selectPivot(int& leaving, int& entering, Eigen::VectorXd& ratios) const;
    [[nodiscard]] int selectEntering() const;
    void pivot(int leaving, int entering);
    [[nodiscard]] Eigen::VectorXd getBasicSolution() const;

    int m_numRows;
    int m_numCols;
    std::vector<int> m_nonBasic;
    std::vector<int> m_basic; ///< the variable of each row
    Eigen::MatrixXd m_tableau;
    Eigen::VectorXd m_b;
    Eigen::VectorXd m_c; ///< of structural variables, then of slacks
    LPStatusType m_status = LPNotYetRun;
    bool m_useBland = false;
};

} // namespace Zorvan
