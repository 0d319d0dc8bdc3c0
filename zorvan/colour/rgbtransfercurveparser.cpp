// SPDX-License-Identifier: MIT
#include "zorvan/colour/rgbtransfercurveparser.h"

namespace Zorvan {

namespace {

/// The input of the i-th of n evenly spaced samples, from 1 on. Both ends are met exactly: rounded to beyond the range,
/// the last sample would be lost.
double sampleInput(double i, double n, double lo, double hi)
{
    if (n > 1.0 && i == n) return hi;
    return i * (lo - hi) / (1.0 - n) + (hi - n * lo) / (1.0 - n);
}

} // namespace

RGBTransferCurveParser::RGBTransferCurveParser(const std::string& path)
    : FileText(path),
      AStreamParser(m_text),
      m_valueCurve(cs::RGB::CreateChannelTransferCurve(0, 1)),
      m_alphaCurve(cs::RGB::CreateChannelTransferCurve(0, 1)),
      m_rgbCurve(cs::RGB::CreateColorTransferCurve(1))
{
}

void RGBTransferCurveParser::Parse()
{
    open();
    match(L"time", true);
    match(eInteger, true);
    close();
    while (peek(eLeftParenthesis)) {
        open();
        match(L"channel", true);
        CChannelTransferCurve& curve = parseChannelName();
        close();
        parseCurve(curve);
    }
}

CChannelTransferCurve& RGBTransferCurveParser::parseChannelName()
{
    match(eIdentifier, true);
    const std::wstring name = getString();
    if (name == L"value") return m_valueCurve;
    if (name == L"red") return m_rgbCurve[0];
    if (name == L"green") return m_rgbCurve[1];
    if (name == L"blue") return m_rgbCurve[2];
    if (name == L"alpha") return m_alphaCurve;
    throw CParseError(getLine(), getColumn(), L"invalid channel name: '" + name + L"'");
}

void RGBTransferCurveParser::parseCurve(CChannelTransferCurve& curve)
{
    open();
    match(L"curve", true);
    const EKind kind = parseCurveType();
    curve = CChannelTransferCurve(curve.Lo(), curve.Hi(), kind == EKind::Smooth ? 2 : 1);
    skipCount(L"points");
    parsePoints(curve, kind);
    skipCount(L"samples");
    parseSamples(curve, kind);
    close();
}

RGBTransferCurveParser::EKind RGBTransferCurveParser::parseCurveType()
{
    open();
    matchHyphenated(L"curve", L"type");
    match(eIdentifier, true);
    const std::wstring word = getString();
    if (word != L"free" && word != L"smooth") throw CParseError(getLine(), getColumn(), L"unsupported curve type");
    close();
    return word == L"free" ? EKind::Free : EKind::Smooth;
}

void RGBTransferCurveParser::parsePoints(CChannelTransferCurve& curve, EKind kind)
{
    open();
    match(L"points", true);
    match(eInteger, true);
    const double lo = curve.Lo();
    const double width = curve.Hi() - lo;
    std::vector<CChannelTransferCurve::ControlPoint> points;
    while (!peek(eRightParenthesis)) {
        const double x = matchNumber();
        const double y = matchNumber();
        if (kind == EKind::Smooth && x >= 0.0 && y >= 0.0) points.push_back({width * x + lo, width * y + lo});
    }
    close();
    curve.Clear();
    curve.AddControlPoints(points);
}

void RGBTransferCurveParser::parseSamples(CChannelTransferCurve& curve, EKind kind)
{
    open();
    match(L"samples", true);
    match(eInteger, true);
    const double n = getInteger();
    std::vector<CChannelTransferCurve::ControlPoint> points;
    for (double i = 1.0; !peek(eRightParenthesis); ++i) {
        const double y = matchNumber();
        if (kind == EKind::Free) points.push_back({sampleInput(i, n, curve.Lo(), curve.Hi()), y});
    }
    close();
    curve.AddControlPoints(points);
}

void RGBTransferCurveParser::skipCount(const std::wstring& what)
{
    open();
    matchHyphenated(L"n", what);
    match(eInteger, true);
    close();
}

void RGBTransferCurveParser::matchHyphenated(const std::wstring& first, const std::wstring& second)
{
    match(first, true);
    match(eMinus, true);
    match(second, true);
}

double RGBTransferCurveParser::matchNumber()
{
    match(eFloat, true);
    return getDouble();
}

} // namespace Zorvan
