// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace Zorvan {

/// Values that lie in somebody else's memory, a fixed step apart: a row, a column or the diagonal of a matrix. Copying
/// a view copies none of them. T is const where they may only be read.
template <typename T>
class TVectorView
{
public:
    class CIterator
    {
    public:
        using value_type = std::remove_const_t<T>;
        using difference_type = std::ptrdiff_t;

        CIterator() = default;
        CIterator(TVectorView view, std::size_t at) : m_view(view), m_at(at) {}
        [[nodiscard]] T& operator*() const { return m_view[m_at]; }
        CIterator& operator++()
        {
            ++m_at;
            return *this;
        }
        CIterator operator++(int) { return {m_view, m_at++}; }
        [[nodiscard]] bool operator==(const CIterator& other) const { return m_at == other.m_at; }

    private:
        TVectorView m_view;
        std::size_t m_at = 0;
    };

    TVectorView() = default;
    TVectorView(T* first, std::size_t size, std::size_t step = 1) : m_first(first), m_size(size), m_step(step) {}
    /// What may be written may be read.
    operator TVectorView<const T>() const { return {m_first, m_size, m_step}; }

    [[nodiscard]] std::size_t Size() const { return m_size; }
    [[nodiscard]] T& operator[](std::size_t i) const { return m_first[i * m_step]; }
    [[nodiscard]] CIterator begin() const { return {*this, 0}; }
    [[nodiscard]] CIterator end() const { return {*this, m_size}; }

private:
    T* m_first = nullptr;
    std::size_t m_size = 0;
    std::size_t m_step = 1;
};

/// A column of values. Moving one, also from and to a std::vector, copies none of them.
template <typename T>
class TVector
{
public:
    TVector() = default;
    explicit TVector(std::size_t size, T value = T()) : m_values(size, value) {}
    TVector(std::initializer_list<T> values) : m_values(values) {}
    explicit TVector(std::vector<T> values) : m_values(std::move(values)) {}
    explicit TVector(TVectorView<const T> view) : m_values(view.Size()) { std::ranges::copy(view, m_values.begin()); }

    [[nodiscard]] std::size_t Size() const { return m_values.size(); }
    [[nodiscard]] bool IsEmpty() const { return m_values.empty(); }
    [[nodiscard]] T& operator[](std::size_t i) { return m_values[i]; }
    [[nodiscard]] const T& operator[](std::size_t i) const { return m_values[i]; }
    [[nodiscard]] T* data() { return m_values.data(); }
    [[nodiscard]] const T* data() const { return m_values.data(); }
    [[nodiscard]] auto begin() { return m_values.begin(); }
    [[nodiscard]] auto end() { return m_values.end(); }
    [[nodiscard]] auto begin() const { return m_values.begin(); }
    [[nodiscard]] auto end() const { return m_values.end(); }
    [[nodiscard]] bool operator==(const TVector&) const = default;
    /// Leaves the vector empty.
    [[nodiscard]] std::vector<T> Release() { return std::exchange(m_values, {}); }

private:
    std::vector<T> m_values;
};

/// A dense matrix, column after column as LAPACK wants it.
///
///     TMatrix<double> a{{2.0, 1.0}, {1.0, 3.0}};       // by rows
///     std::ranges::fill(a.Row(0), 0.0);                // rows and columns are views
///     const TVector<double> y = a * TVector<double>{1.0, 2.0};
///
/// Indices are not checked; sizes that do not fit throw std::invalid_argument. A matrix that was moved from is empty,
/// and moving copies no values.
template <typename T>
class TMatrix
{
public:
    TMatrix() = default;
    /// @throws std::length_error when rows x columns is more than memory can be
    TMatrix(std::size_t rows, std::size_t columns, T value = T())
        : m_rows(rows), m_columns(columns), m_values(requireSize(rows, columns), value)
    {
    }
    /// @param values  column after column, taken over without a copy
    TMatrix(std::size_t rows, std::size_t columns, std::vector<T> values)
        : m_rows(rows), m_columns(columns), m_values(std::move(values))
    {
        if (m_values.size() != requireSize(rows, columns))
            throw std::invalid_argument("a matrix takes rows times columns values");
    }
    TMatrix(std::initializer_list<std::initializer_list<T>> rows)
        : TMatrix(rows.size(), rows.size() == 0 ? 0 : rows.begin()->size())
    {
        for (std::size_t i = 0; i < m_rows; ++i) {
            const auto& row = rows.begin()[i];
            if (row.size() != m_columns) throw std::invalid_argument("all rows of a matrix are as long as the first");
            std::ranges::copy(row, Row(i).begin());
        }
    }
    /// A single column, taken over without a copy.
    explicit TMatrix(TVector<T> column) : m_rows(column.Size()), m_columns(1), m_values(column.Release()) {}
    TMatrix(const TMatrix&) = default;
    TMatrix(TMatrix&& other) noexcept { Swap(other); }
    TMatrix& operator=(TMatrix other) noexcept
    {
        Swap(other);
        return *this;
    }
    ~TMatrix() = default;

    [[nodiscard]] static TMatrix Identity(std::size_t size)
    {
        TMatrix result(size, size);
        std::ranges::fill(result.Diagonal(), T(1));
        return result;
    }

    [[nodiscard]] std::size_t Rows() const { return m_rows; }
    [[nodiscard]] std::size_t Columns() const { return m_columns; }
    [[nodiscard]] bool IsEmpty() const { return m_values.empty(); }
    [[nodiscard]] T& operator()(std::size_t i, std::size_t j) { return m_values[j * m_rows + i]; }
    [[nodiscard]] const T& operator()(std::size_t i, std::size_t j) const { return m_values[j * m_rows + i]; }
    [[nodiscard]] T* data() { return m_values.data(); }
    [[nodiscard]] const T* data() const { return m_values.data(); }
    [[nodiscard]] bool operator==(const TMatrix&) const = default;

    [[nodiscard]] TVectorView<T> Row(std::size_t i) { return {data() + i, m_columns, m_rows}; }
    [[nodiscard]] TVectorView<const T> Row(std::size_t i) const { return {data() + i, m_columns, m_rows}; }
    [[nodiscard]] TVectorView<T> Column(std::size_t j) { return {data() + j * m_rows, m_rows}; }
    [[nodiscard]] TVectorView<const T> Column(std::size_t j) const { return {data() + j * m_rows, m_rows}; }
    [[nodiscard]] TVectorView<T> Diagonal() { return {data(), std::min(m_rows, m_columns), m_rows + 1}; }
    [[nodiscard]] TVectorView<const T> Diagonal() const { return {data(), std::min(m_rows, m_columns), m_rows + 1}; }

    [[nodiscard]] TMatrix Transposed() const
    {
        TMatrix result(m_columns, m_rows);
        for (std::size_t i = 0; i < m_rows; ++i) std::ranges::copy(Row(i), result.Column(i).begin());
        return result;
    }
    /// The part at the top left, filled up with zeros where it is larger than the matrix.
    [[nodiscard]] TMatrix Resized(std::size_t rows, std::size_t columns) const
    {
        TMatrix result(rows, columns);
        for (std::size_t j = 0; j < std::min(columns, m_columns); ++j)
            std::copy_n(data() + j * m_rows, std::min(rows, m_rows), result.data() + j * rows);
        return result;
    }
    /// The values column after column, without a copy; leaves the matrix empty.
    [[nodiscard]] TVector<T> Release()
    {
        m_rows = m_columns = 0;
        return TVector<T>(std::exchange(m_values, {}));
    }
    void Swap(TMatrix& other) noexcept
    {
        std::swap(m_rows, other.m_rows);
        std::swap(m_columns, other.m_columns);
        m_values.swap(other.m_values);
    }

private:
    [[nodiscard]] static std::size_t requireSize(std::size_t rows, std::size_t columns)
    {
        constexpr std::size_t most = std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T);
        if (columns != 0 && rows > most / columns) throw std::length_error("a matrix of this size fits no memory");
        return rows * columns;
    }

    std::size_t m_rows = 0;
    std::size_t m_columns = 0;
    std::vector<T> m_values;
};

template <typename T>
[[nodiscard]] TMatrix<T> operator*(const TMatrix<T>& a, const TMatrix<T>& b)
{
    if (a.Columns() != b.Rows()) throw std::invalid_argument("a product takes as many columns as rows");
    TMatrix<T> product(a.Rows(), b.Columns());
    for (std::size_t j = 0; j < b.Columns(); ++j)
        for (std::size_t k = 0; k < a.Columns(); ++k) // down the columns, as the values lie
            for (std::size_t i = 0; i < a.Rows(); ++i) product(i, j) += a(i, k) * b(k, j);
    return product;
}

template <typename T>
[[nodiscard]] TVector<T> operator*(const TMatrix<T>& a, const TVector<T>& x)
{
    return (a * TMatrix<T>(x)).Release();
}

} // namespace Zorvan
