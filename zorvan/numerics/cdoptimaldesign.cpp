// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cdoptimaldesign.h"

#include "zorvan/numerics/cnlsobjectivefunction.h"
#include "zorvan/numerics/lapack.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Zorvan {

namespace {

using lapack::TCholesky;
using lapack::TPivotedQR;

constexpr unsigned uiSeed = 47110815;
/// Relative growth of the determinant below which an exchange is rounding.
constexpr double dLeastGain = 1e-10;

TMatrix<double> toMatrix(const Eigen::MatrixXd& a)
{
    return {static_cast<std::size_t>(a.rows()), static_cast<std::size_t>(a.cols()),
            std::vector<double>(a.data(), a.data() + a.size())};
}

Eigen::MatrixXd toEigen(const TMatrix<double>& a)
{
    return Eigen::MatrixXd::Map(a.data(), static_cast<Eigen::Index>(a.Rows()), static_cast<Eigen::Index>(a.Columns()));
}

/// A design on its way: chosen rows and what follows from them.
class CExchange
{
public:
    CExchange(const Eigen::MatrixXd& rows, std::vector<int> chosen, bool isRepeating)
        : m_rows(rows), m_chosen(std::move(chosen)), m_isRepeating(isRepeating)
    {
        update();
    }

    [[nodiscard]] double LogDeterminant() const { return m_logDeterminant; }
    [[nodiscard]] const std::vector<int>& Chosen() const { return m_chosen; }
    [[nodiscard]] double LargestVariance() const { return m_variances.maxCoeff(); }

    /// Makes the exchange that lets the determinant grow most.
    /// @return false when none does
    [[nodiscard]] bool Step()
    {
        double most = dLeastGain;
        std::size_t out = m_chosen.size();
        Eigen::Index in = 0;
        for (std::size_t k = 0; k < m_chosen.size(); ++k) {
            const int row = m_chosen[k];
            if (k > 0 && row == m_chosen[k - 1]) continue; // they are sorted
            // Growth by one row more and one less: Fedorov's delta, less the 1 of no change.
            const Eigen::VectorXd mixed = m_rows * m_solved.row(row).transpose();
            Eigen::ArrayXd gains =
                m_variances - m_variances(row) - m_variances * m_variances(row) + mixed.array().square();
            if (!m_isRepeating) gains(m_chosen) = 0.0;
            Eigen::Index best = 0;
            if (!(gains.maxCoeff(&best) > most)) continue;
            most = gains(best);
            out = k;
            in = best;
        }
        if (out == m_chosen.size()) return false;
        m_chosen[out] = static_cast<int>(in);
        update();
        return true;
    }

private:
    /// Computes all anew: small beside the search for the next exchange, and free of drift.
    void update()
    {
        std::ranges::sort(m_chosen);
        const Eigen::MatrixXd design = m_rows(m_chosen, Eigen::all);
        const TCholesky<double> information(toMatrix(design.transpose() * design));
        m_logDeterminant = information.LogDeterminant();
        if (!information) throw std::logic_error("a design that lost a parameter");
        m_solved = toEigen(information.Solve(toMatrix(m_rows.transpose()))).transpose();
        m_variances = (m_solved.array() * m_rows.array()).rowwise().sum();
    }

    const Eigen::MatrixXd& m_rows;
    std::vector<int> m_chosen;
    bool m_isRepeating;
    Eigen::MatrixXd m_solved;   ///< every row times the inverse of the information matrix
    Eigen::ArrayXd m_variances; ///< of a prediction at each candidate
    double m_logDeterminant = 0.0;
};

/// Draws from 0 .. size - 1.
std::size_t draw(std::mt19937& engine, std::size_t size) { return engine() % size; }

void fillUp(std::vector<int>& chosen, int numMeasurements, Eigen::Index numCandidates, bool isRepeating,
            std::mt19937& engine)
{
    std::vector<int> left;
    for (int row = 0; row < numCandidates; ++row)
        if (isRepeating || std::ranges::find(chosen, row) == chosen.end()) left.push_back(row);
    while (chosen.size() < static_cast<std::size_t>(numMeasurements)) {
        int& drawn = left[draw(engine, left.size())];
        chosen.push_back(drawn);
        if (isRepeating) continue;
        drawn = left.back();
        left.pop_back();
    }
}

} // namespace

CDOptimalDesign::CDOptimalDesign(CNLSObjectiveFunction& function, const Eigen::VectorXd& free)
{
    m_rows = function.Jacobian(free);
    m_rows.array().colwise() /= function.StdDev().array();
    // Units of the parameters are no reason to call one undetermined.
    const Eigen::VectorXd units = m_rows.colwise().norm();
    m_rows.array().rowwise() /= units.transpose().array();
    const TPivotedQR<double> qr(toMatrix(m_rows));
    m_isRegular = qr && m_rows.cols() > 0 && qr.GetRank() == m_rows.cols();
    if (!m_isRegular) return;
    m_rows = toEigen(qr.GetQ());
    const TMatrix<double> r = qr.GetR();
    for (const double scale : r.Diagonal()) m_logScale += 2.0 * std::log(std::abs(scale));
    m_logScale += 2.0 * units.array().log().sum();
}

/// As many as there are parameters: each the one farthest from the span of those before, after weighting.
std::vector<int> CDOptimalDesign::independentRows(const Eigen::VectorXd& weights) const
{
    const TPivotedQR<double> qr(toMatrix((m_rows.array().colwise() * weights.array()).matrix().transpose()));
    return {qr.GetColumnOrder().begin(), qr.GetColumnOrder().begin() + m_rows.cols()};
}

CDOptimalDesign::Design CDOptimalDesign::Compute(int numMeasurements, const Settings& settings,
                                                 const std::function<bool()>& isAborted) const
{
    if (!m_isRegular) return {};
    if (numMeasurements < m_rows.cols()) throw std::invalid_argument("a design needs a measurement for each parameter");
    if (!settings.isRepeating && numMeasurements > m_rows.rows())
        throw std::invalid_argument("a design without repetition needs enough candidates");

    Design best;
    best.dLogDeterminant = -std::numeric_limits<double>::infinity();
    std::mt19937 engine(uiSeed);
    Eigen::VectorXd weights = Eigen::VectorXd::Ones(m_rows.rows());
    bool isStopped = false;
    for (int start = 0; start < std::max(settings.iNumStarts, 1) && !isStopped; ++start) {
        std::vector<int> chosen = independentRows(weights);
        fillUp(chosen, numMeasurements, m_rows.rows(), settings.isRepeating, engine);
        CExchange exchange(m_rows, std::move(chosen), settings.isRepeating);
        do isStopped = isAborted && isAborted();
        while (!isStopped && exchange.Step());
        if (exchange.LogDeterminant() > best.dLogDeterminant) {
            best.dLogDeterminant = exchange.LogDeterminant();
            best.measurements = exchange.Chosen();
            best.dEfficiency = static_cast<double>(m_rows.cols()) / (numMeasurements * exchange.LargestVariance());
        }
        for (double& weight : weights) weight = static_cast<double>(engine()) + 1.0;
    }
    best.eStatus = isStopped ? EStatus::Aborted : EStatus::Success;
    best.dLogDeterminant += m_logScale;
    return best;
}

} // namespace Zorvan
