// SPDX-License-Identifier: MIT
#include "tools/pictures/picturecurves.h"

#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace tools {

namespace {

using Zorvan::AStreamParser;
using Zorvan::CChannelTransferCurve;
using ByteTable = std::array<std::uint8_t, 256>;

template <typename Function>
ByteTable tableOf(const Function& curve)
{
    ByteTable table{};
    for (std::size_t i = 0; i < table.size(); ++i) table[i] = Zorvan::cs::RGB(curve(static_cast<double>(i))).ToR();
    return table;
}

std::string lineOf(const std::string& name, const CChannelTransferCurve& curve)
{
    std::string text =
        name + std::string(8 - name.size(), ' ') + std::to_string(curve.Size()) + " points, 0 64 128 192 255 ->";
    for (const double x : {0.0, 64.0, 128.0, 192.0, 255.0}) text += ' ' + Zorvan::ToText(curve(x), 4);
    return text + '\n';
}

} // namespace

PictureCurves ReadCurves(const std::filesystem::path& file)
{
    (void)Zorvan::ReadFileBytes(file); // says why a file cannot be read
    Zorvan::RGBTransferCurveParser parser(file.string());
    try {
        parser.Parse();
    } catch (const AStreamParser::CParseError& error) {
        throw Zorvan::CInputError(
            file, "line " + std::to_string(error.GetLine()) + ": " + AStreamParser::Convert(error.GetMessage()),
            "correct the text; zorvan curve --help shows an example");
    }
    const auto rgb = parser.GetRGBTransferCurve();
    return {{rgb[0], rgb[1], rgb[2]}, parser.GetValueTransferCurve(), parser.GetAlphaTransferCurve()};
}

void Apply(const PictureCurves& curves, Picture& picture)
{
    std::array<ByteTable, 3> rgb{};
    for (std::size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = tableOf([&](double x) { return curves.value(curves.rgb[i](x)); });
    const ByteTable alpha = tableOf(curves.alpha);
    for (Picture::Pixel& p : picture.pixels) p = {rgb[0][p.r], rgb[1][p.g], rgb[2][p.b], alpha[p.a]};
    picture.hasAlpha = picture.hasAlpha || alpha[255] != 255;
}

std::string ToText(const PictureCurves& curves)
{
    return lineOf("red", curves.rgb[0]) + lineOf("green", curves.rgb[1]) + lineOf("blue", curves.rgb[2]) +
           lineOf("value", curves.value) + lineOf("alpha", curves.alpha);
}

} // namespace tools
