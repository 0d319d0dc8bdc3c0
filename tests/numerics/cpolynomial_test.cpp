// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cpolynomial.h"

#include "zorvan/numerics/lapackspectra.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

namespace Zorvan {
namespace {

constexpr double epsilon = std::numeric_limits<double>::epsilon();

/// @param coefficients  from the highest power on downwards
std::vector<double> realRoots(const std::vector<double>& c)
{
    if (c.size() == 3) return Polynomial::Roots2(c[0], c[1], c[2]);
    if (c.size() == 4) return Polynomial::Roots3(c[0], c[1], c[2], c[3]);
    return Polynomial::Roots4(c.at(0), c.at(1), c.at(2), c.at(3), c.at(4));
}

/// A product of linear factors, rounded once; from the highest power on downwards.
std::vector<double> expand(const std::vector<std::complex<double>>& roots)
{
    std::vector<std::complex<long double>> c{1.0L};
    for (const std::complex<long double> root : roots) {
        c.emplace_back(0.0L);
        for (std::size_t i = c.size(); i-- > 1;) c[i] -= root * c[i - 1];
    }
    std::vector<double> result;
    for (const auto& coefficient : c) result.push_back(double(coefficient.real()));
    return result;
}

/// How far a root may be moved by a rounding of every coefficient.
double rootError(const std::vector<double>& c, double root, int multiplicity)
{
    double terms = 0.0;
    CPolynomial p(std::vector<double>(c.rbegin(), c.rend()));
    for (std::size_t i = 0; i < c.size(); ++i) terms += std::abs(p[i]) * std::pow(std::abs(root), double(i));
    for (int m = 1; m <= multiplicity; ++m) p = p.Derivative() * (1.0 / m);
    return std::pow(epsilon * terms / std::abs(p(root)), 1.0 / multiplicity);
}

TEST(PolynomialRoots, AreTheOnesItWasMadeOfAsOftenAsItHasThem)
{
    std::mt19937 engine(47110815);
    std::uniform_int_distribution<int> draw(-9, 9);
    std::uniform_real_distribution<double> factor(0.5, 2.0);
    // Multiplicities of real roots; 0 stands for a pair of complex ones.
    const std::vector<std::vector<int>> patterns{{2},    {1, 1},    {0}, {3},    {2, 1}, {1, 1, 1}, {1, 0},      {0, 0},
                                                 {2, 0}, {1, 1, 0}, {4}, {3, 1}, {2, 2}, {2, 1, 1}, {1, 1, 1, 1}};
    for (int round = 0; round < 15000; ++round) {
        // Far apart for their size; together anywhere between 1e-60 and 1e60.
        const double scale = std::ldexp(factor(engine), draw(engine) * 22);
        std::vector<std::complex<double>> all;
        std::vector<double> real;
        for (const int multiplicity : patterns[std::size_t(round) % patterns.size()]) {
            double place = draw(engine) * scale;
            while (std::ranges::find(real, place) != real.end()) place = draw(engine) * scale;
            const std::complex<double> pair(place, scale * (1 + std::abs(draw(engine))));
            if (multiplicity == 0) all.insert(all.end(), {pair, std::conj(pair)});
            all.insert(all.end(), std::size_t(multiplicity), place);
            real.insert(real.end(), std::size_t(multiplicity), place);
        }
        std::ranges::sort(real);
        std::vector<double> c = expand(all);
        const double lead = factor(engine) * (round % 2 == 0 ? -1e20 : 1e-20);
        for (double& coefficient : c) coefficient *= lead;
        const std::vector<double> found = realRoots(c);
        ASSERT_EQ(found.size(), real.size()) << "round " << round << ", " << testing::PrintToString(real);
        for (std::size_t i = 0; i < real.size(); ++i) {
            const int multiplicity = int(std::ranges::count(real, real[i]));
            const double allowed = real[i] == 0.0 ? 0.0 : 8 * rootError(c, real[i], multiplicity);
            EXPECT_NEAR(found[i], real[i], allowed) << "round " << round << ", " << testing::PrintToString(real);
        }
    }
}

TEST(PolynomialRoots, AreTheRealEigenvaluesOfTheCompanionMatrix)
{
    std::mt19937 engine(47110815);
    std::normal_distribution<double> draw;
    int numReal = 0, numComplex = 0;
    for (int round = 0; round < 6000; ++round) {
        std::vector<double> c(std::size_t(3 + round % 3));
        for (double& coefficient : c) coefficient = draw(engine);
        TMatrix<double> companion(c.size() - 1, c.size() - 1);
        for (std::size_t j = 0; j + 1 < c.size(); ++j) companion(0, j) = -c[j + 1] / c[0];
        for (std::size_t i = 1; i + 1 < c.size(); ++i) companion(i, i - 1) = 1.0;
        std::vector<double> expected;
        double nearestToReal = 1.0;
        const lapack::TGeneralEigen<double> eigen(companion);
        for (const std::complex<double>& value : eigen.GetValues()) {
            if (value.imag() == 0.0)
                expected.push_back(value.real());
            else
                nearestToReal = std::min(nearestToReal, std::abs(value.imag() / value));
        }
        if (nearestToReal < 1e-6) continue;
        std::ranges::sort(expected);
        const std::vector<double> found = realRoots(c);
        ASSERT_EQ(found.size(), expected.size()) << "round " << round;
        for (std::size_t i = 0; i < found.size(); ++i)
            EXPECT_NEAR(found[i], expected[i], 1e-9 * (1.0 + std::abs(expected[i]))) << "round " << round;
        numReal += int(found.size());
        numComplex += int(c.size() - 1 - found.size());
    }
    EXPECT_GT(std::min(numReal, numComplex), 6000);
}

TEST(PolynomialRoots, KeepTheirDigitsOverAllScales)
{
    const struct
    {
        std::vector<double> coefficients, roots;
    } cases[] = {
        {{0, 0, 0, 2, -1}, {0.5}},
        {{0, 1, -3, 2}, {1, 2}},
        {{1e-300, 1, -1}, {-1e300, 1}},
        {{1e-320, 1, -1}, {1}}, // the other one is beyond all doubles
        {{1e-230, -1e113, 1e-65, -1e-65}, {}},
        {{1e200, -1e200, 1e-100}, {1e-300, 1}},
        {{1, -1e160, 1}, {1e-160, 1e160}},
        {{1, -1e100, 1, -1e-120}, {1e-120, 1e-100, 1e100}}, // 1e-120 comes out of terms of 1e-100
        {{1e-150, -1, 1, -1e-150}, {1e-150, 1, 1e150}},
        {{1e-250, 0, 1, 0}, {0}},
        {{1, 0, -5e15, 0, 4e30}, {-std::sqrt(4e15), -1e15 / std::sqrt(1e15), std::sqrt(1e15), std::sqrt(4e15)}},
        {{1, 0, 0, 0, -1e-200}, {-1e-50, 1e-50}},
        {{3, 0, 0, 0, 0}, {0, 0, 0, 0}},
        {{1, -2, 1 + 1e-8}, {}},
        {{1, -2, 1 + epsilon}, {1, 1}},
        {{1, -3, 3 - 1e-12, -1 + 1e-12}, {1, 1, 1}}, // exactly 1 and 1 -+ 1e-6, which no coefficient tells apart
        {{-1e-185, 1e260, 3, -1e-136, 1e211}, {-std::cbrt(1e-49)}},
        {{-1e-18, 1e33, 1e292, -1, 1e-188}, {-1e155, 1e155}},
        {{0, 0, 0}, {}},
        {{1, std::numeric_limits<double>::quiet_NaN(), 1}, {}},
        {{1, 1, -std::numeric_limits<double>::infinity()}, {}},
    };
    for (const auto& [coefficients, roots] : cases) {
        const std::vector<double> found = realRoots(coefficients);
        ASSERT_EQ(found.size(), roots.size()) << testing::PrintToString(coefficients) << testing::PrintToString(found);
        for (std::size_t i = 0; i < roots.size(); ++i)
            EXPECT_NEAR(found[i], roots[i], 8 * epsilon * std::abs(roots[i])) << testing::PrintToString(coefficients);
    }
}

// Small whole coefficients, which no operation rounds but the integral.
TEST(CPolynomial, ObeysTheLawsOfItsRing)
{
    std::mt19937 engine(47110815);
    std::uniform_int_distribution<int> draw(-4, 4);
    const auto random = [&](int most) {
        std::vector<double> c(std::size_t(std::uniform_int_distribution<int>(0, most)(engine)));
        for (double& coefficient : c) coefficient = draw(engine);
        return CPolynomial(c);
    };
    for (int round = 0; round < 300; ++round) {
        const CPolynomial a = random(6), b = random(4), c = random(5);
        for (const double x : {-2.0, 0.0, 0.5, 3.0})
            EXPECT_EQ(((a + b) * c - 2.0 * a)(x), (a(x) + b(x)) * c(x) - 2.0 * a(x));
        EXPECT_EQ((a * b).Derivative(), a.Derivative() * b + a * b.Derivative());
        EXPECT_EQ(a - a, CPolynomial());
        const CPolynomial back = a.Integral(5.0).Derivative() - a;
        for (const double rest : back.GetCoefficients()) EXPECT_NEAR(rest, 0.0, 4 * epsilon);
        EXPECT_EQ(a.Integral(5.0)(0.0), 5.0);
        const CPolynomial monic = b + CPolynomial{0, 0, 0, 0, 1};
        const auto [quotient, remainder] = a.DivideBy(monic);
        EXPECT_EQ(quotient * monic + remainder, a);
        EXPECT_LT(remainder.GetDegree(), monic.GetDegree());
    }
    EXPECT_EQ((CPolynomial{1, 2, 0, 0}).GetDegree(), 1);
    EXPECT_EQ(CPolynomial().GetDegree(), -1);
    EXPECT_EQ(CPolynomial::FromRoots(std::vector{1.0, -2.0}), (CPolynomial{-2, 1, 1}));
    EXPECT_THROW((void)CPolynomial{1.0}.DivideBy({}), std::domain_error);
}

} // namespace
} // namespace Zorvan
