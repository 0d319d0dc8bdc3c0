// SPDX-License-Identifier: MIT
#include "zorvan/numerics/lapackspectra.h"

#include "zorvan/numerics/lapackcalls.h"

namespace Zorvan::lapack {

template <typename T>
TSVD<T>::TSVD(TMatrix<T> a, EVectors eVectors) : m_longSide(std::max(a.Rows(), a.Columns()))
{
    const int m = calls::Size(a.Rows());
    const int n = calls::Size(a.Columns());
    const std::size_t thin = std::min(a.Rows(), a.Columns());
    calls::RequireSquareWorkspace(thin);
    if (a.IsEmpty()) return;
    if (!calls::IsFinite(a)) {
        this->fail(EStatus::NotFinite);
        return;
    }

    const bool isThin = eVectors == EVectors::All;
    m_s = TVector<T>(thin);
    if (isThin) {
        m_u = TMatrix<T>(a.Rows(), thin);
        m_vTransposed = TMatrix<T>(thin, a.Columns());
    }
    const int k = static_cast<int>(thin);
    std::vector<int> integers(8 * thin);
    int info = 0;
    calls::WithWorkspace<T>([&](T* work, int length) {
        calls::Pick<T>(LAPACK_sgesdd_base, LAPACK_dgesdd_base)(isThin ? "S" : "N", &m, &n, a.data(), &m, m_s.data(),
                                                               m_u.data(), &m, m_vTransposed.data(), &k, work, &length,
                                                               integers.data(), &info, 1);
    });
    if (info == 0) {
        this->setCondition(m_s[thin - 1] / m_s[0]);
        return;
    }
    m_s = {};
    m_u = m_vTransposed = {};
    this->fail(EStatus::NotConverged);
}

template <typename T>
int TSVD<T>::GetRank(T tolerance) const
{
    return calls::RankOf(TVectorView<const T>(m_s.data(), m_s.Size()), calls::ToleranceFor(tolerance, m_longSide));
}

template <typename T>
TSymmetricEigen<T>::TSymmetricEigen(TMatrix<T> a, EVectors eVectors)
{
    calls::RequireSquare(a.Rows(), a.Columns());
    calls::RequireSquareWorkspace(a.Rows());
    if (a.IsEmpty()) return;
    for (std::size_t j = 1; j < a.Columns(); ++j) std::fill_n(a.data() + j * a.Rows(), j, T(0)); // is not read
    if (!calls::IsFinite(a)) {
        this->fail(EStatus::NotFinite);
        return;
    }

    const int n = calls::Size(a.Rows());
    m_values = TVector<T>(a.Rows());
    std::vector<int> integers(3 + 5 * a.Rows());
    const int numIntegers = 3 + 5 * n;
    int info = 0;
    calls::WithWorkspace<T>([&](T* work, int length) {
        calls::Pick<T>(LAPACK_ssyevd_base, LAPACK_dsyevd_base)(eVectors == EVectors::All ? "V" : "N", "L", &n, a.data(),
                                                               &n, m_values.data(), work, &length, integers.data(),
                                                               &numIntegers, &info, 1, 1);
    });
    if (info > 0) {
        m_values = {};
        this->fail(EStatus::NotConverged);
        return;
    }
    if (eVectors == EVectors::All) m_vectors = std::move(a);
    const auto [least, most] = std::ranges::minmax(m_values, {}, [](T value) { return std::abs(value); });
    this->setCondition(std::abs(least) / std::abs(most));
}

namespace {

/// A complex pair lies in two columns: the real and the imaginary part of the first of the two.
template <typename T>
TMatrix<std::complex<T>> toComplexVectors(const TMatrix<T>& packed, const std::vector<T>& imaginary)
{
    TMatrix<std::complex<T>> vectors(packed.Rows(), packed.Columns());
    for (std::size_t j = 0; j < packed.Columns(); ++j) {
        const bool isPair = imaginary[j] != T(0);
        for (std::size_t i = 0; i < packed.Rows(); ++i) {
            vectors(i, j) = isPair ? std::complex<T>(packed(i, j), packed(i, j + 1)) : std::complex<T>(packed(i, j));
            if (isPair) vectors(i, j + 1) = std::conj(vectors(i, j));
        }
        if (isPair) ++j;
    }
    return vectors;
}

} // namespace

template <typename T>
TGeneralEigen<T>::TGeneralEigen(TMatrix<T> a)
{
    calls::RequireSquare(a.Rows(), a.Columns());
    calls::RequireSquareWorkspace(a.Rows());
    if (a.IsEmpty()) return;
    if (!calls::IsFinite(a)) {
        this->fail(EStatus::NotFinite);
        return;
    }

    const std::size_t size = a.Rows();
    const int n = calls::Size(size);
    std::vector<T> real(size), imaginary(size), scales(size), ofVectors(size), ofValues(size);
    TMatrix<T> left(size, size), right(size, size);
    std::vector<int> integers(2 * size);
    int low = 0, high = 0, info = 0;
    T norm = 0;
    calls::WithWorkspace<T>([&](T* work, int length) {
        calls::Pick<T>(LAPACK_sgeevx_base, LAPACK_dgeevx_base)(
            "B", "V", "V", "E", &n, a.data(), &n, real.data(), imaginary.data(), left.data(), &n, right.data(), &n,
            &low, &high, scales.data(), &norm, ofValues.data(), ofVectors.data(), work, &length, integers.data(), &info,
            1, 1, 1, 1);
    });
    if (info > 0) {
        this->fail(EStatus::NotConverged);
        return;
    }

    m_values = TVector<std::complex<T>>(size);
    m_conditions = TVector<T>(size);
    for (std::size_t i = 0; i < size; ++i) {
        m_values[i] = {real[i], imaginary[i]};
        this->setCondition(ofValues[i]);
        m_conditions[i] = this->GetCondition();
    }
    m_vectors = toComplexVectors(right, imaginary);
    this->setCondition(*std::ranges::min_element(ofValues));
}

template class TSVD<float>;
template class TSVD<double>;
template class TSymmetricEigen<float>;
template class TSymmetricEigen<double>;
template class TGeneralEigen<float>;
template class TGeneralEigen<double>;

} // namespace Zorvan::lapack
