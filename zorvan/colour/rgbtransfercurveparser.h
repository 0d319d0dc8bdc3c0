// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/cchanneltransfercurve.h"
#include "zorvan/colour/ccolortransfercurve.h"
#include "zorvan/colour/rgb.h"
#include "zorvan/platform/export.h"
#include "zorvan/util/astreamparser.h"

#include <sstream>
#include <string>
#include <vector>

namespace Zorvan {

namespace detail {

/// The text of a file, there before the parser that reads it.
struct ZORVAN_API FileText
{
    explicit FileText(const std::string& path) { AStreamParser::Slurp(path, m_text); }
    std::basic_stringstream<wchar_t> m_text;
};

} // namespace detail

/// Reads transfer curves for value, red, green, blue and alpha from a text file, as photo editors write them:
///
///     (time 0)
///     (channel value)
///     (curve
///       (curve-type smooth)                # or free
///       (n-points 3)
///       (points 6 0 0  0.5 0.6  1 1)       # of "smooth": input and output as shares of the range
///       (n-samples 0)
///       (samples 0))                       # of "free": outputs at evenly spaced inputs, in the range's own units
///
///     RGBTransferCurveParser parser("warm.curve");
///     parser.Parse();
///     parser.GetRGBTransferCurve()[0](128.0);
///
/// Channels may be left out, and stay the identity; the last section of a channel counts. All curves are over 0 .. 255.
/// A smooth curve is of degree 2, a free one of degree 1. Each kind ignores the numbers of the other; points outside
/// the range, and a negative pair, are dropped. What stands behind the last section is not read.
class ZORVAN_API RGBTransferCurveParser : private detail::FileText, public AStreamParser
{
public:
    /// Reads the file; one that cannot be read counts as empty, and `Parse` fails at its first token.
    explicit RGBTransferCurveParser(const std::string& path);

    /// @throws CParseError where the text has another form
    virtual void Parse();

    [[nodiscard]] CChannelTransferCurve GetValueTransferCurve() const { return m_valueCurve; }
    [[nodiscard]] CChannelTransferCurve GetAlphaTransferCurve() const { return m_alphaCurve; }
    [[nodiscard]] CColorTransferCurve<cs::RGB> GetRGBTransferCurve() const { return m_rgbCurve; }

protected:
    void parse() override { Parse(); }

private:
    enum class EKind
    {
        Free,
        Smooth
    };

    void open() { match(eLeftParenthesis, true); }
    void close() { match(eRightParenthesis, true); }
    void matchHyphenated(const std::wstring& first, const std::wstring& second);
    void skipCount(const std::wstring& what);
    double matchNumber();

    CChannelTransferCurve& parseChannelName();
    void parseCurve(CChannelTransferCurve& curve);
    EKind parseCurveType();
    void parsePoints(CChannelTransferCurve& curve, EKind kind);
    void parseSamples(CChannelTransferCurve& curve, EKind kind);

    CChannelTransferCurve m_valueCurve;
    CChannelTransferCurve m_alphaCurve;
    CColorTransferCurve<cs::RGB> m_rgbCurve;
};

} // namespace Zorvan
