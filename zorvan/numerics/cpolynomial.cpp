// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cpolynomial.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Zorvan {

CPolynomial::CPolynomial(std::vector<double> coefficients) : m_coefficients(std::move(coefficients)) { dropZeros(); }

CPolynomial CPolynomial::FromRoots(std::span<const double> roots)
{
    CPolynomial product{1.0};
    for (const double root : roots) product *= CPolynomial{-root, 1.0};
    return product;
}

void CPolynomial::dropZeros()
{
    while (!m_coefficients.empty() && m_coefficients.back() == 0.0) m_coefficients.pop_back();
}

double CPolynomial::operator()(double x) const
{
    double value = 0.0;
    for (std::size_t i = m_coefficients.size(); i-- > 0;) value = value * x + m_coefficients[i];
    return value;
}

CPolynomial CPolynomial::Derivative() const
{
    std::vector<double> result;
    for (std::size_t i = 1; i < m_coefficients.size(); ++i)
        result.push_back(static_cast<double>(i) * m_coefficients[i]);
    return CPolynomial(std::move(result));
}

CPolynomial CPolynomial::Integral(double constant) const
{
    std::vector<double> result{constant};
    for (std::size_t i = 0; i < m_coefficients.size(); ++i)
        result.push_back(m_coefficients[i] / static_cast<double>(i + 1));
    return CPolynomial(std::move(result));
}

CPolynomial::Division CPolynomial::DivideBy(const CPolynomial& divisor) const
{
    if (divisor.m_coefficients.empty()) throw std::domain_error("division by a polynomial that is zero");
    const std::vector<double>& by = divisor.m_coefficients;
    std::vector<double> rest = m_coefficients;
    std::vector<double> quotient(rest.size() >= by.size() ? rest.size() - by.size() + 1 : 0);
    for (std::size_t i = quotient.size(); i-- > 0;) {
        quotient[i] = rest.back() / by.back();
        rest.pop_back(); // zero, whatever rounding makes of it
        for (std::size_t j = 0; j + 1 < by.size(); ++j) rest[i + j] -= quotient[i] * by[j];
    }
    return {CPolynomial(std::move(quotient)), CPolynomial(std::move(rest))};
}

CPolynomial& CPolynomial::operator+=(const CPolynomial& other)
{
    m_coefficients.resize(std::max(m_coefficients.size(), other.m_coefficients.size()), 0.0);
    for (std::size_t i = 0; i < other.m_coefficients.size(); ++i) m_coefficients[i] += other.m_coefficients[i];
    dropZeros();
    return *this;
}

CPolynomial& CPolynomial::operator-=(const CPolynomial& other) { return *this += -other; }

CPolynomial& CPolynomial::operator*=(double factor)
{
    for (double& coefficient : m_coefficients) coefficient *= factor;
    dropZeros();
    return *this;
}

CPolynomial operator*(const CPolynomial& a, const CPolynomial& b)
{
    if (a.m_coefficients.empty() || b.m_coefficients.empty()) return {};
    std::vector<double> product(a.m_coefficients.size() + b.m_coefficients.size() - 1, 0.0);
    for (std::size_t i = 0; i < a.m_coefficients.size(); ++i)
        for (std::size_t j = 0; j < b.m_coefficients.size(); ++j)
            product[i + j] += a.m_coefficients[i] * b.m_coefficients[j];
    return CPolynomial(std::move(product));
}

} // namespace Zorvan
