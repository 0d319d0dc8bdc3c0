// SPDX-License-Identifier: MIT
// The solver on published least-squares problems, as a table of Markdown: digits of agreement with the published
// minimum, iterations and result code, with numerical and with exact derivatives. No timing.
//
//   [ZORVAN_DATA=...] nls_problems

#include "tests/support/leastsquaresproblems.h"

#include "zorvan/numerics/cnlssolver.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>

namespace {

using support::EDerivatives;
using support::LeastSquaresProblem;
using Zorvan::CNLSSolver;

constexpr int maxIterations = 1000;
constexpr double initialDamping = 0.001;
constexpr double solvedSum = 1e-20; // of squares, where the minimum is zero

struct Row
{
    Eigen::VectorXd x;
    double sum = 0.0;
    int iterations = 0;
    CNLSSolver::EResult eResult = CNLSSolver::MaxIterExceeded;
};

Row solve(const LeastSquaresProblem& problem, const Eigen::VectorXd& start, EDerivatives derivatives)
{
    Row row;
    Logging::SetLogSink(
        [&row](const Logging::LogRecord& record) {
            const std::wstring text(record.text);
            std::swscanf(text.c_str(), L"(NLS) stopped after %d", &row.iterations);
        },
        Logging::ELogLevel::Info);
    support::CProblemObjective objective(problem, derivatives);
    CNLSSolver solver(objective, false, -1);
    row.x = start;
    double rmse = 0.0;
    row.eResult = solver.Run(row.x, rmse, maxIterations, initialDamping, 0, CNLSSolver::Gibbs);
    row.sum = problem.error(row.x).squaredNorm();
    Logging::SetLogSink(nullptr);
    return row;
}

/// Common digits of two numbers, up to the eleven that are published.
double digits(double found, double published)
{
    const double error = std::abs(found - published) / std::abs(published);
    return error >= 0.0 ? std::clamp(-std::log10(std::max(error, 1e-11)), 0.0, 11.0) : 0.0;
}

double digitsOfParameters(const Row& row, const LeastSquaresProblem& problem)
{
    double least = 11.0;
    for (Eigen::Index i = 0; i < row.x.size(); ++i) least = std::min(least, digits(row.x(i), problem.minimum(i)));
    return least;
}

void printAgreement(const Row& row, const LeastSquaresProblem& problem)
{
    if (problem.minimum.size() > 0)
        std::printf(" %.1f |", digitsOfParameters(row, problem));
    else if (problem.sumOfSquares > 0.0)
        std::printf(" %.1f |", std::min(digits(row.sum, problem.sumOfSquares), 9.0));
    else if (row.sum < solvedSum)
        std::printf(" zero |");
    else
        std::printf(" sum %.2g |", row.sum);
}

void printProblem(const LeastSquaresProblem& problem)
{
    for (std::size_t i = 0; i < problem.starts.size(); ++i) {
        if (i > 0 && problem.starts[i] == problem.starts[0]) continue;
        std::printf("| %s | %d, %d | %zu |", problem.name.c_str(), static_cast<int>(problem.starts[i].size()),
                    problem.numMeasurements, i + 1);
        for (const auto derivatives : {EDerivatives::Numerical, EDerivatives::Exact}) {
            const Row row = solve(problem, problem.starts[i], derivatives);
            printAgreement(row, problem);
            std::printf(" %d | %d |", row.iterations, row.eResult);
        }
        std::printf("\n");
    }
}

} // namespace

int main()
{
    std::puts(
        "| problem | n, m | start | digits, numerical derivatives | iterations | code | digits, exact derivatives | "
        "iterations | code |\n|---|---|---|---|---|---|---|---|---|");
    for (const LeastSquaresProblem& problem : support::MoreGarbowHillstromProblems()) printProblem(problem);
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) {
        std::fputs("ZORVAN_DATA is not set: without the sets of NIST\n", stderr);
        return 0;
    }
    for (const LeastSquaresProblem& problem : support::NistProblems(std::filesystem::path(data) / "nist"))
        printProblem(problem);
    return 0;
}
