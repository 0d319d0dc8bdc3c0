// SPDX-License-Identifier: MIT
#include "zorvan/colour/cchanneltransfercurve.h"

#include "zorvan/colour/ccolortransfercurve.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

namespace Zorvan {

namespace {

constexpr int iSamplesInFile = 256;
constexpr int iGammaPoints = 32;
constexpr double dMostContrast = 0.99; ///< at 1 the line would be a step

/// NaN behind all numbers: points can be changed from outside, and sorting needs an order.
bool isBefore(const CChannelTransferCurve::ControlPoint& a, const CChannelTransferCurve::ControlPoint& b)
{
    return a.dInput < b.dInput || (std::isnan(b.dInput) && !std::isnan(a.dInput));
}

/// As "%g" in the classic locale.
void appendNumber(std::string& text, double value)
{
    std::array<char, 32> digits{};
    const auto [end, error] = std::to_chars(digits.begin(), digits.end(), value, std::chars_format::general, 6);
    text.append(digits.begin(), end);
}

} // namespace

CChannelTransferCurve::CChannelTransferCurve(double lo, double hi, int degree)
    : m_lo(lo), m_hi(hi), m_degree(std::clamp(degree, 1, 3))
{
    Reset();
}

double CChannelTransferCurve::operator()(double x) const
{
    if (m_controlPoints.empty()) return x < m_lo ? m_lo : m_hi < x ? m_hi : x;
    if (x < m_controlPoints.front().dInput || m_controlPoints.size() == 1) return m_controlPoints.front().dOutput;
    if (x > m_controlPoints.back().dInput) return m_controlPoints.back().dOutput;
    const double value = m_spline.eval(x, 0);
    return value < m_lo ? m_lo : m_hi < value ? m_hi : value;
}

CChannelTransferCurve::ControlPoint& CChannelTransferCurve::operator[](unsigned int index)
{
    return const_cast<ControlPoint&>(std::as_const(*this)[index]);
}

const CChannelTransferCurve::ControlPoint& CChannelTransferCurve::operator[](unsigned int index) const
{
    if (index > Size()) throw std::invalid_argument("invalid control point index");
    return index < Size() ? m_controlPoints[index] : m_behindLast;
}

bool CChannelTransferCurve::AddControlPoint(double x, double y)
{
    if (!isInRange(x) || !isInRange(y)) return false;
    m_controlPoints.push_back({x, y});
    Update();
    return true;
}

void CChannelTransferCurve::AddControlPoints(std::span<const ControlPoint> points)
{
    std::copy_if(points.begin(), points.end(), std::back_inserter(m_controlPoints),
                 [this](const ControlPoint& p) { return isInRange(p.dInput) && isInRange(p.dOutput); });
    Update();
}

void CChannelTransferCurve::Clear()
{
    m_controlPoints.clear();
    Update();
}

void CChannelTransferCurve::Reset()
{
    m_controlPoints = {{m_lo, m_lo}, {m_hi, m_hi}};
    Update();
}

void CChannelTransferCurve::Update()
{
    std::stable_sort(m_controlPoints.begin(), m_controlPoints.end(), isBefore);
    if (Size() < 2) {
        m_spline = {};
        return;
    }
    std::vector<double> x(Size());
    std::vector<double> y(Size());
    for (std::size_t i = 0; i < Size(); ++i) {
        x[i] = m_controlPoints[i].dInput;
        y[i] = m_controlPoints[i].dOutput;
    }
    m_spline = CNaturalSpline(x.data(), y.data(), Size(), m_degree);
}

void CChannelTransferCurve::SetDegree(int degree)
{
    m_degree = degree;
    Update();
}

void CChannelTransferCurve::SetContrast(double contrast, double inLo, double inHi)
{
    const double c = contrast < 0.0 ? 0.0 : contrast >= 1.0 ? dMostContrast : contrast;
    const double a = inLo >= m_lo ? inLo : m_lo;
    const double b = inHi <= m_hi ? inHi : m_hi;
    const double middle = (a + b) / 2.0;
    Clear();
    m_degree = 1;
    AddControlPoints({{{a - (a - middle) * c, a}, {b - (b - middle) * c, b}}});
}

void CChannelTransferCurve::SetContrast(double contrast, bool keep)
{
    if (!(contrast >= 0.0 && contrast <= 1.0)) return;
    const double width = m_hi - m_lo;
    const double d = width * contrast;
    const double e = keep ? d * 0.5 / 3.0 : 0.0;
    const double middle = width / 2.0 + m_lo;
    Reset();
    AddControlPoint(m_lo + d / 2.0, m_lo + e);
    if (m_degree > 1) AddControlPoint(middle, middle);
    AddControlPoint(m_hi - d / 2.0, m_hi - e);
}

void CChannelTransferCurve::SetGammaCorrection(double gamma)
{
    Clear();
    if (gamma == 1.0) return;
    const double width = m_hi - m_lo;
    for (int i = 0; i < iGammaPoints; ++i) {
        const double x = i * width / (iGammaPoints - 1) + m_lo;
        m_controlPoints.push_back({x, width * std::pow((x - m_lo) / width, gamma) + m_lo});
    }
    m_degree = 1;
    Update();
}

void CChannelTransferCurve::RenderToCSVFile(const char* path) const
{
    std::string text;
    for (int i = 0; i < iSamplesInFile; ++i) {
        const double x = i * (m_hi - m_lo) / (iSamplesInFile - 1) + m_lo;
        appendNumber(text, x);
        text += ' ';
        appendNumber(text, (*this)(x));
        text += '\n';
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "w"), &std::fclose);
    if (file) std::fwrite(text.data(), 1, text.size(), file.get());
}

namespace cs {

CChannelTransferCurve MakeChannelTransferCurve(int channel, int degree, Range first, Range others)
{
    if (channel < 0 || channel > 2) throw std::invalid_argument("invalid channel index");
    const Range range = channel == 0 ? first : others;
    return {range.dLo, range.dHi, degree};
}

} // namespace cs

} // namespace Zorvan
