// SPDX-License-Identifier: MIT
// A host's own function under the least-squares solver: how fast does a part cool, and to what temperature?

#include "zorvan/numerics/cnlssolver.h"

#include <cmath>
#include <cstdio>

namespace {

/// Residuals of T(t) = p0 + p1 exp(-p2 t). `Error` is all that an objective owes.
class CCooling : public Zorvan::CNLSObjectiveFunction
{
public:
    CCooling(const Eigen::VectorXd& minutes, const Eigen::VectorXd& degrees)
        : CNLSObjectiveFunction(3, static_cast<int>(minutes.size())), m_minutes(minutes), m_degrees(degrees)
    {
    }

    Eigen::VectorXd Error(const Eigen::VectorXd& p) override
    {
        return p(0) + p(1) * (-p(2) * m_minutes.array()).exp() - m_degrees.array();
    }

private:
    Eigen::VectorXd m_minutes;
    Eigen::VectorXd m_degrees;
};

} // namespace

int main()
{
    Eigen::VectorXd minutes(8);
    Eigen::VectorXd degrees(8);
    minutes << 0, 2, 4, 7, 10, 15, 20, 30;
    degrees << 80.1, 66.9, 57.0, 45.8, 41.4, 30.1, 25.8, 22.2; // the fifth was read wrongly

    CCooling cooling(minutes, degrees);
    cooling.AddEquality(Eigen::Vector3d(1, 1, 0), 80.0); // the part had 80 degrees when the clock started
    cooling.AddBounds(0, 15.0, 30.0);                    // the room
    cooling.AddBounds(1, 50.0, 65.0);                    // what the equality leaves: random starts must meet both
    cooling.AddBounds(2, 0.02, 0.5);
    Zorvan::CNLSSolver solver(cooling, /*robustness*/ true, /*numSamplerSteps*/ -1);
    Eigen::VectorXd x = Eigen::Vector3d(25, 55, 0.05);
    double rmse = 0.0;
    const auto result = solver.Run(x, rmse, 100, 0.001, /*multistarts*/ 3, Zorvan::CNLSSolver::Gibbs);
    if (result > Zorvan::CNLSSolver::SmallStepSize) return 1;

    const double variance = rmse * rmse * 8 / (8 - 2); // two parameters are free
    const Eigen::MatrixXd covariance = variance * cooling.GetCovariance(x, 1e-12);
    std::printf("room %.1f +- %.1f degrees, rate %.3f +- %.3f a minute, RMSE %.2f degrees\n", x(0),
                std::sqrt(covariance(0, 0)), x(2), std::sqrt(covariance(2, 2)), rmse);
    return 0;
}
