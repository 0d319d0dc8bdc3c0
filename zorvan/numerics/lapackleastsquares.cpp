// SPDX-License-Identifier: MIT
#include "zorvan/numerics/lapackcalls.h"
#include "zorvan/numerics/lapackspectra.h"

namespace Zorvan::lapack {

namespace {

/// What both ways begin with. LAPACK wants b where x comes out: as many rows as the longer of the two.
template <typename T>
struct TSystem
{
    TSystem(TMatrix<T> left, TMatrix<T> right, T givenTolerance)
        : a(std::move(left)),
          b(std::move(right)),
          m(calls::Size(a.Rows())),
          n(calls::Size(a.Columns())),
          columns(calls::Size(b.Columns())),
          bRows(calls::Stride(std::max(m, n))),
          tolerance(calls::ToleranceFor(givenTolerance, static_cast<std::size_t>(bRows)))
    {
        calls::RequireAsManyRows(a.Rows(), b.Rows());
        isFinite = calls::IsFinite(a) && calls::IsFinite(b);
        if (m < n) b = b.Resized(a.Columns(), b.Columns());
    }

    /// @param reciprocal  1 / condition of what the rank keeps
    [[nodiscard]] TLeastSquares<T> Result(int rank, T reciprocal)
    {
        if (m > n) b = b.Resized(a.Columns(), b.Columns());
        const T condition = reciprocal > T(0) ? T(1) / reciprocal : std::numeric_limits<T>::infinity();
        if (!calls::IsFinite(b)) return Failure(EStatus::NotFinite);
        return {EStatus::Success, std::move(b), rank, condition};
    }
    [[nodiscard]] TLeastSquares<T> Failure(EStatus eStatus) const
    {
        return {eStatus, {}, 0, std::numeric_limits<T>::infinity()};
    }
    /// LAPACK leaves b as it is when there is nothing to solve.
    [[nodiscard]] TLeastSquares<T> Nothing() const
    {
        return {EStatus::Success, TMatrix<T>(a.Columns(), b.Columns()), 0, T(1)};
    }

    TMatrix<T> a, b;
    int m, n, columns, bRows;
    T tolerance;
    bool isFinite = true;
};

} // namespace

template <typename T>
TLeastSquares<T> LeastSquaresQR(TMatrix<T> a, TMatrix<T> b, T tolerance)
{
    TSystem<T> system(std::move(a), std::move(b), tolerance);
    if (!system.isFinite) return system.Failure(EStatus::NotFinite);
    if (system.a.IsEmpty() || system.b.IsEmpty()) return system.Nothing();
    std::vector<int> order(system.a.Columns(), 0);
    int rank = 0;
    calls::WithWorkspace<T>([&](T* work, int length) {
        int info = 0;
        calls::Pick<T>(LAPACK_sgelsy, LAPACK_dgelsy)(&system.m, &system.n, &system.columns, system.a.data(), &system.m,
                                                     system.b.data(), &system.bRows, order.data(), &system.tolerance,
                                                     &rank, work, &length, &info);
    });
    // What is left of A begins with the triangle that the rank keeps.
    return system.Result(rank, calls::ReciprocalConditionOfTriangle(system.a, rank));
}

template <typename T>
TLeastSquares<T> LeastSquaresSVD(TMatrix<T> a, TMatrix<T> b, T tolerance)
{
    TSystem<T> system(std::move(a), std::move(b), tolerance);
    calls::RequireSquareWorkspace(system.a.Diagonal().Size());
    if (!system.isFinite) return system.Failure(EStatus::NotFinite);
    if (system.a.IsEmpty() || system.b.IsEmpty()) return system.Nothing();
    std::vector<T> s(system.a.Diagonal().Size());
    std::vector<int> integers(1);
    int rank = 0;
    int info = 0;
    calls::WithWorkspace<T>([&](T* work, int length) {
        calls::Pick<T>(LAPACK_sgelsd, LAPACK_dgelsd)(&system.m, &system.n, &system.columns, system.a.data(), &system.m,
                                                     system.b.data(), &system.bRows, s.data(), &system.tolerance, &rank,
                                                     work, &length, integers.data(), &info);
        if (length == -1) integers.resize(static_cast<std::size_t>(std::max(integers[0], 1)));
    });
    if (info > 0) return system.Failure(EStatus::NotConverged);
    return system.Result(rank, rank == 0 ? T(1) : s[static_cast<std::size_t>(rank) - 1] / s[0]);
}

template TLeastSquares<float> LeastSquaresQR(TMatrix<float>, TMatrix<float>, float);
template TLeastSquares<double> LeastSquaresQR(TMatrix<double>, TMatrix<double>, double);
template TLeastSquares<float> LeastSquaresSVD(TMatrix<float>, TMatrix<float>, float);
template TLeastSquares<double> LeastSquaresSVD(TMatrix<double>, TMatrix<double>, double);

} // namespace Zorvan::lapack
