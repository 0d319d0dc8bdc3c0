// SPDX-License-Identifier: MIT
#include "tools/pictures/picture.h"
#include "workfolder.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cmath>
#include <string>

namespace {

using tools::Picture;

/// A mask of four regions: a block of 6 x 4 at (2, 1) with a hole, a dot at (12, 2), a diagonal of 3 from (10, 6) on,
/// and a block of 2 x 2 at (14, 8).
Picture mask()
{
    Picture picture{18, 12, false, std::vector<Picture::Pixel>(std::size_t{18} * 12, {0, 0, 0, 255})};
    const auto set = [&](int x, int y) {
        picture.pixels[18 * static_cast<std::size_t>(y) + static_cast<std::size_t>(x)] = {200, 220, 190, 255};
    };
    for (int i = 0; i < 24; ++i) set(2 + i % 6, 1 + i / 6);
    picture.pixels[2 * 18 + 4] = {10, 10, 10, 255};
    set(12, 2);
    for (int i = 0; i < 3; ++i) set(10 + i, 6 + i);
    for (int i = 0; i < 4; ++i) set(14 + i % 2, 8 + i / 2);
    return picture;
}

std::size_t countOf(const std::string& text, const std::string& word)
{
    std::size_t n = 0;
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++n;
    return n;
}

TEST(Outline, MeasuresAndDrawsRegions)
{
    const WorkFolder folder;
    tools::WritePng(folder / "mask.png", mask());
    const auto outcome = folder.Run("outline mask.png -o out.svg");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "region       area   perimeter  roundness    centre\n"
                           "     1         24          16      10.67    4.5 2.5\n"
                           "     2          1     3.54491      12.57    12 2\n"
                           "     3          3     5.65685      10.67    11 7\n"
                           "     4          4           4          4    14.5 8.5\n");
    const std::string svg = folder.Read("out.svg");
    EXPECT_EQ(countOf(svg, "<path "), 4U);
    EXPECT_NE(svg.find("d=\"M2.5 1.5l0 3l5 0l0 -3l-5 0z\""), std::string::npos) << svg;
    EXPECT_NE(svg.find("d=\"M12.5 2.5z\""), std::string::npos) << svg;
    EXPECT_NE(svg.find("viewBox=\"0 0 18 12\""), std::string::npos);

    const auto grown = folder.Run("outline mask.png -o out.svg --dilate 3 --min-area 2 --threshold 200");
    EXPECT_EQ(countOf(grown.out, "\n"), 4U) << grown.out;
    EXPECT_NE(grown.out.find("     1        120          40      13.33    4.5 2.5\n"), std::string::npos) << grown.out;
    EXPECT_NE(folder.Read("out.svg").find("viewBox=\"-3 -3 24 18\""), std::string::npos);
}

TEST(Outline, SaysWhenThereIsNoRegion)
{
    const WorkFolder folder;
    Picture clear = mask();
    clear.hasAlpha = true;
    for (Picture::Pixel& p : clear.pixels) p.a = 100;
    tools::WritePng(folder / "clear.png", clear);
    tools::WritePng(folder / "mask.png", mask());
    for (const char* const call : {"outline clear.png -o out.svg", "outline mask.png -o out.svg --threshold 250"}) {
        const auto outcome = folder.Run(call);
        EXPECT_EQ(outcome.exitCode, 1) << outcome.err;
        EXPECT_NE(outcome.err.find("no region"), std::string::npos);
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "out.svg"));
}

TEST(Curve, AppliesChannelsThenValue)
{
    const WorkFolder folder;
    Picture picture{3, 1, true, {{0, 100, 255, 255}, {50, 50, 50, 9}, {255, 200, 100, 0}}};
    tools::WritePng(folder / "in.png", picture);
    folder.Write("test.curve", "(time 0)\n"
                               "(channel red) (curve (curve-type smooth) (n-points 2) (points 4 0 1 1 0)\n"
                               "  (n-samples 0) (samples 0))\n"
                               "(channel value) (curve (curve-type free) (n-points 0) (points 0)\n"
                               "  (n-samples 2) (samples 2 55 255))\n"
                               "(channel alpha) (curve (curve-type free) (n-points 0) (points 0)\n"
                               "  (n-samples 2) (samples 2 128 128))\n");
    const auto outcome = folder.Run("curve test.curve in.png out.png");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("red     2 points, 0 64 128 192 255 -> 255 191 127 63 0\n"), std::string::npos)
        << outcome.out;
    const Picture result = tools::ReadPng(folder / "out.png");
    ASSERT_EQ(result.pixels.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        const auto value = [](int v) { return static_cast<int>(std::lround(55.0 + v * 200.0 / 255.0)); };
        EXPECT_EQ(result.pixels[i].r, value(255 - picture.pixels[i].r));
        EXPECT_EQ(result.pixels[i].g, value(picture.pixels[i].g));
        EXPECT_EQ(result.pixels[i].b, value(picture.pixels[i].b));
        EXPECT_EQ(result.pixels[i].a, 128);
    }
    tools::WritePng(folder / "opaque.png", mask());
    folder.Write("nothing.curve", "(time 0)");
    EXPECT_EQ(folder.Run("curve nothing.curve opaque.png out.png --quiet").out, "");
    EXPECT_FALSE(tools::ReadPng(folder / "out.png").hasAlpha);
}

void appendNumber(std::string& bytes, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
}

std::string chunk(const std::string& type, const std::string& content)
{
    std::string bytes;
    appendNumber(bytes, static_cast<std::uint32_t>(content.size()));
    const std::string checked = type + content;
    bytes += checked;
    appendNumber(bytes, static_cast<std::uint32_t>(::crc32(0, reinterpret_cast<const Bytef*>(checked.data()),
                                                           static_cast<uInt>(checked.size()))));
    return bytes;
}

/// A picture of one channel that promises this size, with these bytes as its compressed rows.
std::string png(std::uint32_t width, std::uint32_t height, const std::string& rows)
{
    std::string header;
    appendNumber(header, width);
    appendNumber(header, height);
    header += std::string("\x08\0\0\0\0", 5);
    return "\x89PNG\r\n\x1a\n" + chunk("IHDR", header) + chunk("IDAT", rows) + chunk("IEND", "");
}

TEST(Pictures, RefuseWhatIsNoPicture)
{
    const WorkFolder folder;
    tools::WritePng(folder / "good.png", mask());
    const std::string good = folder.Read("good.png");
    std::string wrong = good;
    wrong[40] = static_cast<char>(wrong[40] ^ 0x55);
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"empty.png", "", "empty"},
        {"text.png", "P5 3 3 255\n", "cannot be read as PNG"},
        {"cut.png", good.substr(0, good.size() / 2), "cannot be read as PNG"},
        {"header.png", good.substr(0, 20), "cannot be read as PNG"},
        {"wrong.png", wrong, "cannot be read as PNG"},
        {"promise.png", png(10000, 10000, "x"), "do not fit into its bytes"},
        {"large.png", png(60000, 60000, std::string(10, 'x')), "too large with 60000 x 60000 pixels"},
        {"larger.png", png(0x7FFFFFFF, 0x7FFFFFFF, "x"), "cannot be read as PNG"},
        {"nothing.png", png(0, 5, "x"), "cannot be read as PNG"},
        {"rows.png", png(4, 4, "no deflate stream"), "cannot be read as PNG"},
    };
    for (const auto& [name, bytes, words] : cases) {
        folder.Write(name, bytes);
        ExpectRefused(folder.Run("outline " + name + " -o out.svg"), words);
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "out.svg"));
}

TEST(Pictures, RefuseCallsThatWouldLoseAnInput)
{
    const WorkFolder folder;
    tools::WritePng(folder / "mask.png", mask());
    const std::string before = folder.Read("mask.png");
    folder.Write("c.curve", "(time 0)");
    folder.Write("bad.curve", "(time 0)\n(channel cyan)");
    const std::pair<std::string, std::string> calls[] = {
        {"curve c.curve mask.png mask.png", "would replace mask.png, which is read"},
        {"curve c.curve mask.png c.curve", "would replace c.curve, which is read"},
        {"curve bad.curve mask.png out.png", "line 2: invalid channel name: 'cyan'"},
        {"curve none.curve mask.png out.png", "no such file"},
        {"curve c.curve mask.png none/out.png", "cannot be written"},
        {"outline mask.png -o mask.png", "would replace mask.png, which is read"},
        {"outline mask.png -o out.txt", "ends in .svg"},
        {"outline mask.png -o out.svg --dilate -1", "--dilate"},
        {"outline mask.png -o out.svg --dilate 10001", "--dilate"},
    };
    for (const auto& [call, words] : calls) ExpectRefused(folder.Run(call), words);
    EXPECT_EQ(folder.Read("mask.png"), before);
    EXPECT_EQ(folder.Read("c.curve"), "(time 0)");
    EXPECT_FALSE(std::filesystem::exists(folder / "out.png") || std::filesystem::exists(folder / "out.svg"));
}

} // namespace
