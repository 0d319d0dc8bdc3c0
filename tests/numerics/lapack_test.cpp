// SPDX-License-Identifier: MIT
#include "zorvan/numerics/lapackspectra.h"

#include <gtest/gtest.h>

#include <Eigen/Cholesky>
#include <Eigen/Eigenvalues>
#include <Eigen/LU>
#include <Eigen/SVD>

#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <string>

namespace Zorvan {
namespace {

using Matrix = Eigen::MatrixXd;
using Vector = Eigen::VectorXd;

// The wrappers' results, also those in single precision, are judged in double precision.
template <typename T>
TMatrix<T> toMatrix(const Matrix& a)
{
    return {std::size_t(a.rows()), std::size_t(a.cols()), std::vector<T>(a.data(), a.data() + a.size())};
}

template <typename T>
Matrix toEigen(const TMatrix<T>& a)
{
    return Eigen::Map<const Eigen::MatrixX<T>>(a.data(), Eigen::Index(a.Rows()), Eigen::Index(a.Columns()))
        .template cast<double>();
}

template <typename T>
Vector toEigen(const TVector<T>& x)
{
    return Eigen::Map<const Eigen::VectorX<T>>(x.data(), Eigen::Index(x.Size())).template cast<double>();
}

double distanceFromOrthonormal(const Matrix& q)
{
    return (q.transpose() * q - Matrix::Identity(q.cols(), q.cols())).norm();
}

double oneNorm(const Matrix& a) { return a.cwiseAbs().colwise().sum().maxCoeff(); }

/// A matrix and what is known of it.
struct Sample
{
    std::string name;
    Matrix a;
    int rank;
    double epsilon;

    [[nodiscard]] double Norm() const { return a.norm(); }
    /// What a few roundings an entry may amount to, relative to the norm.
    [[nodiscard]] double Rounding() const { return 10 * double(a.rows() + a.cols()) * epsilon; }
    /// Digits between the conditions in two norms, with half a digit for the estimate.
    [[nodiscard]] double NormSpread() const { return 0.5 + std::log10(rank); }
};

/// Sizes with and without blocks of LAPACK, of full rank and below, with columns of falling size, near both ends of the
/// range of numbers.
template <typename T>
std::vector<Sample> samples(bool isSquare)
{
    std::mt19937 engine(47110815);
    std::normal_distribution<double> draw;
    const auto random = [&](int m, int n) { return Matrix::NullaryExpr(m, n, [&] { return draw(engine); }).eval(); };
    std::vector<Sample> result;
    const auto add = [&](const std::string& name, const Matrix& a, int rank) {
        result.push_back({name, toEigen(toMatrix<T>(a)), rank, std::numeric_limits<T>::epsilon()});
    };
    for (const auto& [m, n] : {std::pair{1, 1}, {2, 2}, {9, 9}, {90, 90}, {80, 13}, {13, 80}}) {
        if (isSquare && m != n) continue;
        const int k = std::min(m, n);
        const std::string size = std::to_string(m) + " x " + std::to_string(n);
        add(size, random(m, n), k);
        for (const T scale :
             {std::sqrt(std::numeric_limits<T>::min()), std::sqrt(std::numeric_limits<T>::max()) / 1000})
            add(size + " of another scale", random(m, n) * double(scale), k);
        Matrix graded = random(m, n);
        for (int j = 0; j < n; ++j) graded.col(j) *= std::pow(std::numeric_limits<T>::epsilon(), 0.2 * j / n);
        add(size + " graded", graded, k);
        if (k > 5) add(size + " of rank 4", random(m, 4) * random(4, n), 4);
    }
    return result;
}

template <typename T>
class Lapack : public testing::Test
{
};
using Numbers = testing::Types<float, double>;
TYPED_TEST_SUITE(Lapack, Numbers);

TYPED_TEST(Lapack, SquareSystemsAreFactoredSolvedAndConditioned)
{
    using T = TypeParam;
    for (const Sample& s : samples<T>(true)) {
        SCOPED_TRACE(s.name);
        const double rounding = s.Rounding();
        const Matrix b = Matrix::Random(s.a.rows(), 3);
        const Matrix unit = toEigen(toMatrix<T>(s.a / s.Norm()));
        const Matrix positive =
            toEigen(toMatrix<T>(unit * unit.transpose() + Matrix::Identity(s.a.rows(), s.a.rows()) / 10.0));
        const lapack::TCholesky<T> cholesky(toMatrix<T>(positive.triangularView<Eigen::Lower>()));
        ASSERT_TRUE(cholesky);
        EXPECT_LE((toEigen(cholesky.GetL()) * toEigen(cholesky.GetL()).transpose() - positive).norm(), rounding);
        EXPECT_LE((positive * toEigen(cholesky.Solve(toMatrix<T>(b))) - b).norm(), 10 * rounding * b.norm());
        EXPECT_NEAR(cholesky.LogDeterminant(), positive.ldlt().vectorD().array().log().sum(), 100 * rounding);
        EXPECT_NEAR(std::log10(cholesky.GetCondition() / oneNorm(positive) / oneNorm(positive.inverse())), -0.4, 0.45);

        const lapack::TLU<T> lu(toMatrix<T>(s.a));
        const Matrix factors = toEigen(lu.GetFactors());
        const Matrix lower = factors.triangularView<Eigen::UnitLower>();
        const Matrix product = lower * factors.triangularView<Eigen::Upper>().toDenseMatrix();
        for (Eigen::Index i = 0; i < product.rows(); ++i)
            EXPECT_LE((product.row(i) - s.a.row(lu.GetRowOrder()[std::size_t(i)])).norm(), rounding * s.Norm());
        if (s.rank < s.a.rows()) {
            EXPECT_GE(lu.GetCondition(), 0.1 / s.epsilon);
            continue;
        }
        const Matrix x = toEigen(lu.Solve(toMatrix<T>(b * s.Norm())));
        EXPECT_LE((s.a * x - b * s.Norm()).norm(), 2 * rounding * s.Norm() * x.norm());
        // An estimate from below, and seldom by much.
        EXPECT_NEAR(std::log10(lu.GetCondition() / oneNorm(s.a) / oneNorm(s.a.inverse())), -0.4, 0.45);
        const lapack::TLU<T> ofUnit(toMatrix<T>(unit * 9.0));
        const double allowed = ofUnit.GetCondition() * rounding;
        EXPECT_NEAR(ofUnit.Determinant() / (unit * 9.0).determinant(), 1.0, allowed);
    }
}

TYPED_TEST(Lapack, OrthogonalFactorsAndRanksAreThoseOfTheMatrix)
{
    using T = TypeParam;
    for (const Sample& s : samples<T>(false)) {
        SCOPED_TRACE(s.name);
        const lapack::TPivotedQR<T> qr(toMatrix<T>(s.a));
        const Matrix q = toEigen(qr.GetQ());
        const Matrix product = q * toEigen(qr.GetR());
        EXPECT_LE(distanceFromOrthonormal(q), s.Rounding());
        for (Eigen::Index j = 0; j < product.cols(); ++j)
            EXPECT_LE((product.col(j) - s.a.col(qr.GetColumnOrder()[std::size_t(j)])).norm(), s.Rounding() * s.Norm());
        EXPECT_EQ(qr.GetRank(), s.rank);

        const lapack::TSVD<T> svd(toMatrix<T>(s.a));
        const Matrix u = toEigen(svd.GetU());
        const Matrix vt = toEigen(svd.GetVTransposed());
        const Vector values = toEigen(svd.GetS());
        EXPECT_LE(distanceFromOrthonormal(u) + distanceFromOrthonormal(vt.transpose()), s.Rounding());
        EXPECT_LE((u * values.asDiagonal() * vt - s.a).norm(), s.Rounding() * s.Norm());
        const Vector expected = Eigen::JacobiSVD<Matrix>(s.a).singularValues();
        EXPECT_LE((values - expected).norm(), s.Rounding() * s.Norm());
        const Vector alone = toEigen(lapack::TSVD<T>(toMatrix<T>(s.a), lapack::EVectors::None).GetS());
        EXPECT_LE((alone - expected).norm(), s.Rounding() * s.Norm());
        EXPECT_EQ(svd.GetRank(), s.rank);
        if (s.rank < values.size()) {
            EXPECT_GE(svd.GetCondition(), 0.01 / s.epsilon);
            continue;
        }
        const double condition = expected(0) / expected(s.rank - 1);
        EXPECT_NEAR(svd.GetCondition() / condition, 1.0, s.Rounding() * condition);
        // An estimate, for the triangle, in another norm.
        if (s.rank == s.a.cols()) {
            EXPECT_NEAR(std::log10(qr.GetCondition() / condition), 0.0, s.NormSpread());
        }
    }
}

TYPED_TEST(Lapack, LeastSquaresAreTheShortestOnes)
{
    using T = TypeParam;
    for (const Sample& s : samples<T>(false)) {
        SCOPED_TRACE(s.name);
        const Matrix b = toEigen(toMatrix<T>(Matrix::Random(s.a.rows(), 2) * s.Norm()));
        Eigen::JacobiSVD<Matrix> svd(s.a, Eigen::ComputeThinU | Eigen::ComputeThinV);
        svd.setThreshold(s.Rounding());
        const Matrix expected = svd.solve(b);
        const double condition = svd.singularValues()(0) / svd.singularValues()(s.rank - 1);
        for (const auto& found : {lapack::LeastSquaresQR(toMatrix<T>(s.a), toMatrix<T>(b)),
                                  lapack::LeastSquaresSVD(toMatrix<T>(s.a), toMatrix<T>(b))}) {
            ASSERT_TRUE(found);
            EXPECT_EQ(found.iRank, s.rank);
            // The residual is as long as b, so the square of the condition counts.
            EXPECT_LE((toEigen(found.x) - expected).norm(), s.Rounding() * condition * condition * expected.norm());
            EXPECT_NEAR(std::log10(found.condition / condition), 0.0, s.NormSpread());
        }
    }
}

TYPED_TEST(Lapack, EigenvaluesAndVectorsAreThoseOfTheMatrix)
{
    using T = TypeParam;
    for (const Sample& s : samples<T>(true)) {
        SCOPED_TRACE(s.name);
        const double allowed = s.Rounding() * s.Norm();
        const Matrix symmetric = toEigen(toMatrix<T>(s.a + s.a.transpose()));
        const lapack::TSymmetricEigen<T> found(toMatrix<T>(symmetric.triangularView<Eigen::Lower>()));
        const Matrix v = toEigen(found.GetVectors());
        const Vector w = toEigen(found.GetValues());
        EXPECT_LE(distanceFromOrthonormal(v), s.Rounding());
        EXPECT_LE((symmetric * v - v * w.asDiagonal()).norm(), allowed);
        EXPECT_LE((w - symmetric.selfadjointView<Eigen::Lower>().eigenvalues()).norm(), allowed);
        EXPECT_NEAR(found.GetCondition() * w.cwiseAbs().minCoeff() / w.cwiseAbs().maxCoeff(), 1.0, 1e-5);

        const lapack::TGeneralEigen<T> general(toMatrix<T>(s.a));
        const Eigen::VectorXcd expected = s.a.eigenvalues();
        for (std::size_t j = 0; j < general.GetValues().Size(); ++j) {
            const std::complex<double> value = general.GetValues()[j];
            Vector real(s.a.rows()), imaginary(s.a.rows());
            for (std::size_t i = 0; i < general.GetValues().Size(); ++i) {
                real(Eigen::Index(i)) = general.GetVectors()(i, j).real();
                imaginary(Eigen::Index(i)) = general.GetVectors()(i, j).imag();
            }
            EXPECT_LE((s.a * real - value.real() * real + value.imag() * imaginary).norm(), allowed);
            EXPECT_LE((s.a * imaginary - value.real() * imaginary - value.imag() * real).norm(), allowed);
            EXPECT_NEAR(real.squaredNorm() + imaginary.squaredNorm(), 1.0, s.Rounding());
            if (s.rank < s.a.rows()) continue; // zeros in a row have no condition
            EXPECT_LE((expected.array() - value).abs().minCoeff(), general.GetConditions()[j] * allowed);
        }
    }
}

TYPED_TEST(Lapack, FailuresAreStatedAndGiveNothing)
{
    using T = TypeParam;
    const TMatrix<T> singular{{1, 2}, {2, 4}};
    const lapack::TLU<T> lu(singular);
    EXPECT_EQ(lu.GetStatus(), lapack::EStatus::Singular);
    EXPECT_TRUE(lu.Determinant() == T(0) && lu.Solve(TVector<T>{1, 2}).IsEmpty());
    EXPECT_EQ(lapack::TCholesky<T>({{1, 0}, {2, 1}}).GetStatus(), lapack::EStatus::NotPositiveDefinite);
    EXPECT_GE(lapack::TGeneralEigen<T>({{1, 1}, {0, 1}}).GetCondition(), 0.1 / std::numeric_limits<T>::epsilon());
    EXPECT_EQ(lapack::TSVD<T>(TMatrix<T>(3, 2)).GetRank(), 0);
    EXPECT_EQ(lapack::LeastSquaresQR(TMatrix<T>(3, 2), TMatrix<T>(3, 1, T(1))).x, TMatrix<T>(2, 1));
    EXPECT_EQ(lapack::LeastSquaresSVD(TMatrix<T>(0, 2), TMatrix<T>(0, 1)).x, TMatrix<T>(2, 1));
    for (const T wild : {std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::infinity()}) {
        const TMatrix<T> a{{1, 0}, {wild, 1}};
        for (const lapack::EStatus eStatus :
             {lapack::TLU<T>(a).GetStatus(), lapack::TCholesky<T>(a).GetStatus(), lapack::TPivotedQR<T>(a).GetStatus(),
              lapack::TSVD<T>(a).GetStatus(), lapack::TSymmetricEigen<T>(a).GetStatus(),
              lapack::TGeneralEigen<T>(a).GetStatus(), lapack::LeastSquaresQR(a, singular).eStatus,
              lapack::LeastSquaresSVD(singular, a).eStatus})
            EXPECT_EQ(eStatus, lapack::EStatus::NotFinite);
    }
    EXPECT_THROW(lapack::TLU<T>(TMatrix<T>(2, 3)), std::invalid_argument);
    EXPECT_THROW((void)lu.Solve(TMatrix<T>(3, 1)), std::invalid_argument);
    const std::size_t tooMany = std::size_t(1) << 31;
    EXPECT_THROW(lapack::TPivotedQR<T>(TMatrix<T>(tooMany, 0)), std::length_error);
    EXPECT_THROW((void)lapack::LeastSquaresSVD(TMatrix<T>(0, 2), TMatrix<T>(0, tooMany)), std::length_error);
    EXPECT_THROW(TMatrix<T>(tooMany, std::size_t(1) << 33), std::length_error);
}

TEST(TMatrix, ViewsAreTheMatrixAndMovesCopyNothing)
{
    TMatrix<double> a{{1, 2, 3}, {4, 5, 6}};
    std::ranges::fill(a.Row(1), 7);
    a.Column(2)[0] = 8;
    a.Diagonal()[0] = 9;
    EXPECT_EQ(a, (TMatrix<double>{{9, 2, 8}, {7, 7, 7}}));
    EXPECT_EQ(TVector<double>(a.Row(0)), (TVector<double>{9, 2, 8}));
    EXPECT_EQ(a * a.Transposed(), (TMatrix<double>{{149, 133}, {133, 147}}));
    EXPECT_EQ(a * (TVector<double>{1, 0, -1}), (TVector<double>{1, 0}));
    const double* values = a.data();
    TMatrix<double> b = std::move(a);
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): this is what the move promises
    EXPECT_TRUE(b.data() == values && a == TMatrix<double>());
    EXPECT_EQ(b.Release().data(), values);
    EXPECT_EQ(b.Rows(), 0U);
}

} // namespace
} // namespace Zorvan
