// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"
#include "tools/pictures/picture.h"

#include "zorvan/colour/rgbtransfercurveparser.h"
#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"

#include <array>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

namespace tools {

namespace {

using Zorvan::AStreamParser;
using Zorvan::CChannelTransferCurve;
using ByteTable = std::array<std::uint8_t, 256>;

struct CurveOptions
{
    std::string curves;
    std::string input;
    std::string output;
    GeneralOptions general;
};

void checkCall(const CurveOptions& options)
{
    Zorvan::RequireApart(options.output, {options.input, options.curves});
    Zorvan::RequireWritable(options.output);
}

/// The curves of a file, those that it leaves out as they are.
struct Curves
{
    std::array<CChannelTransferCurve, 3> rgb;
    CChannelTransferCurve value;
    CChannelTransferCurve alpha;
};

Curves readCurves(const std::filesystem::path& file)
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

template <typename Function>
ByteTable tableOf(const Function& curve)
{
    ByteTable table{};
    for (std::size_t i = 0; i < table.size(); ++i) table[i] = Zorvan::cs::RGB(curve(static_cast<double>(i))).ToR();
    return table;
}

void apply(const Curves& curves, Picture& picture)
{
    std::array<ByteTable, 3> rgb{};
    for (std::size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = tableOf([&](double x) { return curves.value(curves.rgb[i](x)); });
    const ByteTable alpha = tableOf(curves.alpha);
    for (Picture::Pixel& p : picture.pixels) p = {rgb[0][p.r], rgb[1][p.g], rgb[2][p.b], alpha[p.a]};
    picture.hasAlpha = picture.hasAlpha || alpha[255] != 255;
}

void describe(const std::string& name, const CChannelTransferCurve& curve)
{
    std::cout << name << std::string(8 - name.size(), ' ') << curve.Size() << " points, 0 64 128 192 255 ->";
    for (const double x : {0.0, 64.0, 128.0, 192.0, 255.0}) std::cout << ' ' << Zorvan::ToText(curve(x), 4);
    std::cout << '\n';
}

int applyCurves(const CurveOptions& options)
{
    options.general.Apply();
    checkCall(options);
    const Curves curves = readCurves(options.curves);
    Picture picture = ReadPng(options.input);
    apply(curves, picture);
    WritePng(options.output, picture);
    if (options.general.isQuiet) return Done;
    describe("red", curves.rgb[0]);
    describe("green", curves.rgb[1]);
    describe("blue", curves.rgb[2]);
    describe("value", curves.value);
    describe("alpha", curves.alpha);
    std::cout << Zorvan::ToShown(options.output) << ": " << picture.uiWidth << " x " << picture.uiHeight << " pixels\n";
    return Done;
}

} // namespace

void AddCurve(CCommand app)
{
    const auto options = std::make_shared<CurveOptions>();
    CCommand command = app.AddCommand("curve", "Applies the transfer curves of a file to a picture");
    command.AddOption("CURVES", options->curves, "A text file of curves, see below").Required();
    command.AddOption("IN", options->input, "The picture, PNG").Required();
    command.AddOption("OUT", options->output, "The picture to write, PNG with 8 bits a channel").Required();
    options->general.AddTo(command, "Accepted for all commands; this one uses one");
    command.SetFooter(
        "Red, green and blue go through their own curve and then through that of \"value\".\n"
        "A file of curves; points of a smooth curve are shares of the range, samples of a free one bytes:\n"
        "  (time 0)\n"
        "  (channel red)\n"
        "  (curve (curve-type smooth) (n-points 3) (points 6  0 0  0.5 0.6  1 1)\n"
        "         (n-samples 0) (samples 0))\n"
        "  (channel blue)\n"
        "  (curve (curve-type free) (n-points 0) (points 0) (n-samples 3) (samples 3  0 90 255))\n"
        "Channels: value, red, green, blue, alpha. Exit code 2: wrong call or unreadable input.\n\n"
        "Example:\n"
        "  zorvan curve warm.curve photo.png warm.png");
    command.SetAction([options] { return applyCurves(*options); });
}

} // namespace tools
