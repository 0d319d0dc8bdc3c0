// SPDX-License-Identifier: MIT
#include "zorvan/numerics/clpsolver.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <numeric>
#include <stdexcept>

namespace Zorvan {

namespace {

constexpr double epsilon = std::numeric_limits<double>::epsilon();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double costsNothing = 1e-6;

// Simplex takes a small multiple of rows and columns. What takes a hundred times as much cycles, as far as one can say;
// under the rule of Bland, which cannot, only rounding goes on for ten thousand times.
constexpr long pivotsBeforeBland = 100;
constexpr long pivotsAtMost = 10000;

// What cancels down to its own rounding is zero. Otherwise a cost of 1e-17 enters and finds the programme unbounded.
// Right-hand sides keep more digits: callers shrink feasible sets by 1e-14 and want to see it.
constexpr double cancelled = 512.0 * epsilon;
constexpr double cancelledRight = 4.0 * epsilon;

double difference(double value, double amount, double negligible = cancelled)
{
    const double result = value - amount;
    return std::abs(result) < negligible * std::abs(amount) ? 0.0 : result;
}

auto placeOf(std::vector<int>& variables, int variable)
{
    return std::find(variables.begin(), variables.end(), variable);
}

} // namespace

CLPSolver::CLPSolver(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, const Eigen::VectorXd& c)
    : m_numRows(static_cast<int>(b.size())), m_numCols(static_cast<int>(c.size())), m_b(b)
{
    // Without rows, A may be 0 x 0.
    if (A.rows() != b.size() || (A.rows() > 0 && A.cols() != c.size()))
        throw std::invalid_argument("linear programme: A, b and c do not fit together");
    m_tableau = Eigen::MatrixXd::Zero(m_numRows, m_numCols + m_numRows);
    m_tableau.rightCols(m_numRows).setIdentity();
    if (m_numRows > 0) m_tableau.leftCols(m_numCols) = A;
    m_c = Eigen::VectorXd::Zero(m_numCols + m_numRows);
    m_c.head(m_numCols) = c;
}

bool CLPSolver::Run()
{
    if (m_status == LPNotYetRun) simplex(true);
    return m_status == LPOptimal || m_status == LPUnbounded;
}

Eigen::VectorXd CLPSolver::GetSolution(bool* unique) const
{
    if (unique != nullptr) *unique = true;
    if (m_status == LPUnbounded) return Eigen::VectorXd::Constant(m_numCols, infinity);
    if (m_status != LPOptimal) return {};
    if (unique != nullptr)
        *unique = std::none_of(m_nonBasic.begin(), m_nonBasic.end(),
                               [this](int variable) { return std::abs(m_c(variable)) < costsNothing; });
    return getBasicSolution().head(m_numCols);
}

Eigen::VectorXd CLPSolver::GetSlack() const
{
    if (m_status == LPUnbounded) return Eigen::VectorXd::Constant(m_numRows, infinity);
    if (m_status != LPOptimal) return {};
    return getBasicSolution().tail(m_numRows);
}

void CLPSolver::simplex(bool init)
{
    if (init && !initializeSimplex()) {
        m_status = LPInfeasible;
        return;
    }
    const long size = m_numRows + m_numCols + 1;
    Eigen::VectorXd ratios(m_numRows);
    for (long pivots = 0; pivots < pivotsAtMost * size; ++pivots) {
        m_useBland = pivots >= pivotsBeforeBland * size;
        int leaving = 0;
        int entering = 0;
        m_status = selectPivot(leaving, entering, ratios);
        if (m_status != LPRunning) return;
        pivot(leaving, entering);
    }
}

// The first of positive cost in the order of the list, which pivots shuffle; in the order of the numbers with Bland.
int CLPSolver::selectEntering() const
{
    int found = -1;
    for (const int variable : m_nonBasic) {
        if (!(m_c(variable) > 0.0) || (found >= 0 && variable > found)) continue;
        found = variable;
        if (!m_useBland) break;
    }
    return found;
}

LPStatusType CLPSolver::selectPivot(int& leaving, int& entering, Eigen::VectorXd& ratios) const
{
    entering = selectEntering();
    if (entering < 0) return LPOptimal;
    double smallest = infinity;
    for (int i = 0; i < m_numRows; ++i) {
        ratios(i) = m_tableau(i, entering) > 0.0 ? m_b(i) / m_tableau(i, entering) : infinity;
        const int variable = m_basic[static_cast<std::size_t>(i)];
        const bool isTie = m_useBland && ratios(i) == smallest && variable < leaving;
        if (!(ratios(i) < smallest) && !isTie) continue;
        smallest = ratios(i);
        leaving = variable;
    }
    return smallest == infinity ? LPUnbounded : LPRunning;
}

void CLPSolver::pivot(int leaving, int entering)
{
    const auto basic = placeOf(m_basic, leaving);
    const auto row = static_cast<Eigen::Index>(basic - m_basic.begin());
    const Eigen::VectorXd factors = m_tableau.col(entering);
    const double p = factors(row);
    const double cost = m_c(entering);

    for (Eigen::Index j = 0; j < m_tableau.cols(); ++j) {
        const double inRow = m_tableau(row, j);
        if (j == entering || inRow == 0.0) continue;
        m_c(j) = difference(m_c(j), inRow * cost / p);
        for (Eigen::Index r = 0; r < m_numRows; ++r) {
            if (r != row) m_tableau(r, j) = difference(m_tableau(r, j), factors(r) * inRow / p);
        }
    }
    for (Eigen::Index r = 0; r < m_numRows; ++r) {
        if (r != row) m_b(r) = difference(m_b(r), factors(r) * m_b(row) / p, cancelledRight);
    }
    m_tableau.col(entering).setZero();
    m_c(entering) = 0.0;
    m_tableau.row(row) /= p;
    m_tableau(row, entering) = 1.0;
    m_b(row) /= p;
    std::iter_swap(basic, placeOf(m_nonBasic, entering));
}

void CLPSolver::setSlackBasis()
{
    m_nonBasic.resize(static_cast<std::size_t>(m_tableau.cols()) - static_cast<std::size_t>(m_numRows));
    m_basic.resize(static_cast<std::size_t>(m_numRows));
    std::iota(m_nonBasic.begin(), m_nonBasic.end(), 0);
    std::iota(m_basic.begin(), m_basic.end(), static_cast<int>(m_nonBasic.size()));
}

bool CLPSolver::initializeSimplex()
{
    const auto smallest = std::min_element(m_b.begin(), m_b.end());
    if (smallest == m_b.end() || *smallest > 0.0) {
        setSlackBasis();
        return true;
    }
    const Eigen::VectorXd objective = m_c;
    beginAuxiliary(static_cast<int>(smallest - m_b.begin()));
    simplex(false);
    if (!(std::abs(getBasicSolution()(m_numCols)) < epsilon)) return false;
    dropAuxiliary(objective);
    return true;
}

// One more variable, subtracted from every left-hand side and to be made as small as possible: with it, all rows hold.
void CLPSolver::beginAuxiliary(int row)
{
    Eigen::MatrixXd extended(m_numRows, m_tableau.cols() + 1);
    extended << m_tableau.leftCols(m_numCols), Eigen::VectorXd::Constant(m_numRows, -1.0),
        m_tableau.rightCols(m_numRows);
    m_tableau = std::move(extended);
    m_c = Eigen::VectorXd::Zero(m_tableau.cols());
    m_c(m_numCols) = -1.0;
    setSlackBasis();
    pivot(m_basic[static_cast<std::size_t>(row)], m_numCols);
}

void CLPSolver::dropAuxiliary(const Eigen::VectorXd& objective)
{
    const int auxiliary = m_numCols;
    const auto basic = placeOf(m_basic, auxiliary);
    if (basic != m_basic.end()) {
        // It stayed in the basis at zero: any variable of its row may take the place; the largest rounds least.
        const auto row = static_cast<Eigen::Index>(basic - m_basic.begin());
        const auto size = [&](int variable) { return std::abs(m_tableau(row, variable)); };
        pivot(auxiliary,
              *std::max_element(m_nonBasic.begin(), m_nonBasic.end(), [&](int a, int b) { return size(a) < size(b); }));
    }
    m_nonBasic.erase(placeOf(m_nonBasic, auxiliary));
    for (auto* const list : {&m_nonBasic, &m_basic}) {
        for (int& variable : *list) variable -= variable > auxiliary ? 1 : 0;
    }
    Eigen::MatrixXd reduced(m_numRows, m_tableau.cols() - 1);
    reduced << m_tableau.leftCols(m_numCols), m_tableau.rightCols(m_numRows);
    m_tableau = std::move(reduced);
    m_c = objective;
    substituteBasic();
}

// The cost in terms of the non-basic variables alone.
void CLPSolver::substituteBasic()
{
    for (Eigen::Index row = 0; row < m_numRows; ++row) {
        const int variable = m_basic[static_cast<std::size_t>(row)];
        const double cost = m_c(variable);
        if (std::abs(cost) < epsilon) continue;
        for (Eigen::Index j = 0; j < m_c.size(); ++j) m_c(j) = difference(m_c(j), cost * m_tableau(row, j));
        m_c(variable) = 0.0;
    }
}

Eigen::VectorXd CLPSolver::getBasicSolution() const
{
    Eigen::VectorXd solution = Eigen::VectorXd::Zero(m_tableau.cols());
    for (Eigen::Index row = 0; row < m_numRows; ++row) solution(m_basic[static_cast<std::size_t>(row)]) = m_b(row);
    return solution;
}

} // namespace Zorvan
