// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "tests/support/temporaryfolder.h"

#include "zorvan/colour/rgbtransfercurveparser.h"

#include <cstddef>
#include <cstdint>
#include <fstream>

namespace {

using Zorvan::AStreamParser;
using Zorvan::CChannelTransferCurve;

void checkCurve(const CChannelTransferCurve& curve)
{
    Law(curve.Lo() == 0.0 && curve.Hi() == 255.0, "the range stays");
    for (unsigned int i = 0; i < curve.Size(); ++i) {
        Law(curve[i].dInput >= 0.0 && curve[i].dInput <= 255.0, "inputs lie in the range");
        Law(curve[i].dOutput >= 0.0 && curve[i].dOutput <= 255.0, "outputs lie in the range");
        Law(i == 0 || curve[i - 1].dInput <= curve[i].dInput, "points are sorted");
    }
    for (double x = -10.0; x <= 265.0; x += 2.5) {
        const double y = curve(x);
        Law(y >= 0.0 && y <= 255.0, "values stay in the range");
    }
}

} // namespace

/// A file of curves: whatever it holds, curves map the range to itself.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TemporaryFolder folder;
    const std::string file = (folder / "input.curve").string();
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));

    Zorvan::RGBTransferCurveParser parser(file);
    try {
        parser.Parse();
    } catch (const AStreamParser::CParseError& error) {
        Law(!error.GetMessage().empty(), "an error says something");
    }
    checkCurve(parser.GetValueTransferCurve());
    checkCurve(parser.GetAlphaTransferCurve());
    for (const std::size_t channel : {0U, 1U, 2U}) checkCurve(parser.GetRGBTransferCurve()[channel]);
    return 0;
}
