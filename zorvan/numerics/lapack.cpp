// SPDX-License-Identifier: MIT
#include "zorvan/numerics/lapack.h"

#include "zorvan/numerics/lapackcalls.h"

namespace Zorvan::lapack {

template <typename T>
void TFactorisation<T>::fail(EStatus eStatus)
{
    m_eStatus = eStatus;
    m_condition = std::numeric_limits<T>::infinity();
}

template <typename T>
void TFactorisation<T>::setCondition(T reciprocal)
{
    m_condition = reciprocal > T(0) ? std::max(T(1) / reciprocal, T(1)) : std::numeric_limits<T>::infinity();
}

template <typename T>
TLU<T>::TLU(TMatrix<T> a) : m_factors(std::move(a))
{
    calls::RequireSquare(m_factors.Rows(), m_factors.Columns());
    const int n = calls::Size(m_factors.Rows());
    m_rowOrder = TPermutation<int>(m_factors.Rows());
    if (n == 0) return;
    const T norm = calls::OneNorm(m_factors);
    m_swaps.resize(m_factors.Rows());
    int info = 0;
    if (calls::IsFinite(m_factors))
        calls::Pick<T>(LAPACK_sgetrf, LAPACK_dgetrf)(&n, &n, m_factors.data(), &n, m_swaps.data(), &info);
    if (!calls::IsFinite(m_factors)) {
        m_factors = {};
        this->fail(EStatus::NotFinite);
        return;
    }
    for (std::size_t i = 0; i < m_swaps.size(); ++i)
        std::swap(m_rowOrder[i], m_rowOrder[static_cast<std::size_t>(m_swaps[i]) - 1]);
    if (info > 0) {
        this->fail(EStatus::Singular);
        return;
    }

    T reciprocal = 0;
    std::vector<T> work(4 * m_factors.Rows());
    std::vector<int> integers(m_factors.Rows());
    calls::Pick<T>(LAPACK_sgecon_base, LAPACK_dgecon_base)("1", &n, m_factors.data(), &n, &norm, &reciprocal,
                                                           work.data(), integers.data(), &info, 1);
    this->setCondition(reciprocal);
}

template <typename T>
T TLU<T>::Determinant() const
{
    if (this->GetStatus() == EStatus::NotFinite) return std::numeric_limits<T>::quiet_NaN();
    T determinant = 1;
    for (std::size_t i = 0; i < m_swaps.size(); ++i) {
        const bool isSwapped = m_swaps[i] != static_cast<int>(i) + 1;
        determinant *= isSwapped ? -m_factors(i, i) : m_factors(i, i);
    }
    return determinant;
}

template <typename T>
TMatrix<T> TLU<T>::Solve(TMatrix<T> b) const
{
    calls::RequireAsManyRows(m_rowOrder.Size(), b.Rows());
    if (!*this) return {};
    if (b.IsEmpty()) return b;
    const int n = calls::Size(b.Rows());
    const int columns = calls::Size(b.Columns());
    int info = 0;
    calls::Pick<T>(LAPACK_sgetrs_base, LAPACK_dgetrs_base)("N", &n, &columns, m_factors.data(), &n, m_swaps.data(),
                                                           b.data(), &n, &info, 1);
    return b;
}

template <typename T>
TCholesky<T>::TCholesky(TMatrix<T> a) : m_factor(std::move(a))
{
    calls::RequireSquare(m_factor.Rows(), m_factor.Columns());
    const int n = calls::Size(m_factor.Rows());
    if (n == 0) return;
    for (std::size_t j = 1; j < m_factor.Columns(); ++j) std::fill_n(m_factor.data() + j * m_factor.Rows(), j, T(0));
    const T norm = calls::OneNorm(m_factor, true);
    int info = 0;
    if (!calls::IsFinite(m_factor)) {
        this->fail(EStatus::NotFinite);
    } else {
        calls::Pick<T>(LAPACK_spotrf_base, LAPACK_dpotrf_base)("L", &n, m_factor.data(), &n, &info, 1);
        if (info > 0) this->fail(EStatus::NotPositiveDefinite);
    }
    if (!*this) {
        m_factor = TMatrix<T>(0, m_factor.Columns());
        return;
    }
    T reciprocal = 0;
    std::vector<T> work(3 * m_factor.Rows());
    std::vector<int> integers(m_factor.Rows());
    calls::Pick<T>(LAPACK_spocon_base, LAPACK_dpocon_base)("L", &n, m_factor.data(), &n, &norm, &reciprocal,
                                                           work.data(), integers.data(), &info, 1);
    this->setCondition(reciprocal);
}

template <typename T>
T TCholesky<T>::LogDeterminant() const
{
    if (!*this) return -std::numeric_limits<T>::infinity();
    T sum = 0;
    for (const T root : m_factor.Diagonal()) sum += std::log(root);
    return 2 * sum;
}

template <typename T>
TMatrix<T> TCholesky<T>::Solve(TMatrix<T> b) const
{
    calls::RequireAsManyRows(m_factor.Columns(), b.Rows());
    if (!*this) return {};
    if (b.IsEmpty()) return b;
    const int n = calls::Size(b.Rows());
    const int columns = calls::Size(b.Columns());
    int info = 0;
    calls::Pick<T>(LAPACK_spotrs_base, LAPACK_dpotrs_base)("L", &n, &columns, m_factor.data(), &n, b.data(), &n, &info,
                                                           1);
    return b;
}

template <typename T>
TPivotedQR<T>::TPivotedQR(TMatrix<T> a) : m_factors(std::move(a))
{
    const int m = calls::Size(m_factors.Rows());
    const int n = calls::Size(m_factors.Columns());
    m_columnOrder = TPermutation<int>(m_factors.Columns());
    if (m_factors.IsEmpty()) return;
    std::vector<int> order(m_factors.Columns(), 0); // 0: LAPACK may move the column
    m_scales.resize(m_factors.Diagonal().Size());
    if (calls::IsFinite(m_factors)) {
        calls::WithWorkspace<T>([&](T* work, int length) {
            int info = 0;
            calls::Pick<T>(LAPACK_sgeqp3, LAPACK_dgeqp3)(&m, &n, m_factors.data(), &m, order.data(), m_scales.data(),
                                                         work, &length, &info);
        });
    }
    if (!calls::IsFinite(m_factors)) {
        m_factors = {};
        this->fail(EStatus::NotFinite);
        return;
    }
    std::ranges::transform(order, m_columnOrder.begin(), [](int column) { return column - 1; });
    this->setCondition(calls::ReciprocalConditionOfTriangle(m_factors, std::min(m, n)));
}

template <typename T>
TMatrix<T> TPivotedQR<T>::GetQ() const
{
    const std::size_t thin = m_factors.Diagonal().Size();
    TMatrix<T> q = m_factors.Resized(m_factors.Rows(), thin);
    if (q.IsEmpty()) return q;
    const int m = calls::Size(q.Rows());
    const int k = calls::Size(thin);
    calls::WithWorkspace<T>([&](T* work, int length) {
        int info = 0;
        calls::Pick<T>(LAPACK_sorgqr, LAPACK_dorgqr)(&m, &k, &k, q.data(), &m, m_scales.data(), work, &length, &info);
    });
    return q;
}

template <typename T>
TMatrix<T> TPivotedQR<T>::GetR() const
{
    TMatrix<T> r = m_factors.Resized(m_factors.Diagonal().Size(), m_factors.Columns());
    for (std::size_t j = 0; j < r.Rows(); ++j) std::fill(&r(j, j) + 1, r.data() + (j + 1) * r.Rows(), T(0));
    return r;
}

template <typename T>
int TPivotedQR<T>::GetRank(T tolerance) const
{
    const std::size_t longSide = std::max(m_factors.Rows(), m_factors.Columns());
    return calls::RankOf(m_factors.Diagonal(), calls::ToleranceFor(tolerance, longSide));
}

template class TFactorisation<float>;
template class TFactorisation<double>;
template class TLU<float>;
template class TLU<double>;
template class TCholesky<float>;
template class TCholesky<double>;
template class TPivotedQR<float>;
template class TPivotedQR<double>;

} // namespace Zorvan::lapack
