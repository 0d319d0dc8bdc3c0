// SPDX-License-Identifier: MIT
#include "zorvan/util/astreamparser.h"

#include "tests/support/commalocale.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <stdexcept>

namespace Zorvan {
namespace {

using namespace std::string_literals;

/// Opens the protected operations to the tests, on a text of its own.
class CTextParser : private std::wistringstream, public AStreamParser
{
public:
    explicit CTextParser(const std::wstring& text)
        : std::wistringstream(text), AStreamParser(static_cast<std::wistringstream&>(*this))
    {
    }

    void parse() override {}

    using AStreamParser::getDouble;
    using AStreamParser::getInteger;
    using AStreamParser::getString;
    using AStreamParser::match;
    using AStreamParser::peek;
};

/// All tokens as "text<type>", one blank between; the type of a token is found by trying all.
std::wstring tokensOf(const std::wstring& text)
{
    CTextParser parser(text);
    std::wstring result;
    while (!parser.peek(AStreamParser::eEndOfText)) {
        int type = AStreamParser::eError; // an integer counts as a float too
        for (int t = 1; t <= AStreamParser::eSingleQuote; ++t)
            if (type != AStreamParser::eInteger && parser.peek(static_cast<AStreamParser::ETokenType>(t))) type = t;
        parser.match(AStreamParser::eEndOfLine, false); // never there: takes what is next
        result += parser.getString() + L"<" + std::to_wstring(type) + L"> ";
    }
    if (!result.empty()) result.pop_back();
    return result;
}

TEST(AStreamParser, CutsLinesIntoTokens)
{
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"  # only\n\r\n \t# comments\r", L""},
        {L"()[]{}<>,:;+-@=/\"'",
         L"(<2> )<3> [<4> ]<5> {<6> }<7> <<8> ><9> ,<10> :<11> ;<12> +<13> -<14> @<15> =<16> /<18> \"<22> '<23>"},
        {L"'a#b'\n_x1y 2z gr\u00f6\u00dfe", L"'<23> a<21> _x1y<21> 2<19> z<21> gr\u00f6\u00dfe<21>"},
        {L"1 -2 +3 0x1F $ ~", L"1<19> -2<19> +3<19> 0<19> x1F<21> $<-1> ~<-1>"},
        {L"1.5 1. -1.5e-3 4.9e-324", L"1.5<20> 1.<20> -1.5e-3<20> 4.9e-324<20>"},
        {L"1e 1e5 1e+ 1.e999 2", L"1<19> e<21> 1e5<20> 1<20> e<21> +<13> 1<-1> .<-1> e999<21> 2<19>"},
        {L"x \t\n\t y\v\nz\u00a0", L"x<21> y<21> \v<-1> z<21> \u00a0<-1>"}, // only blanks and tabs go unseen
        {L".5 .5. -.5 . ..", L".5<19> .5<20> .<19> -<14> .5<19> .<19> .<-1> .<19>"},
    };
    for (const auto& [text, tokens] : cases) EXPECT_EQ(tokensOf(text), tokens);
    EXPECT_EQ(tokensOf(std::wstring(2000, L'a')), std::wstring(2000, L'a') + L"<21>");
}

TEST(AStreamParser, ReportsWhereAndWhy)
{
    const std::tuple<const wchar_t*, AStreamParser::ETokenType, std::wstring> cases[] = {
        {L"\n  # nothing\n", AStreamParser::eComma, L"3:-1 unexpected end of text"},
        {L"\n  x", AStreamParser::eComma, L"2:3 expected token ',', found [identifier]."},
        {L" $", AStreamParser::eInteger, L"1:2 expected token [integer], found [error]."},
        {L"\r\n\t'", AStreamParser::eDoubleQuote, L"3:2 expected token '\"', found '\\''."},
    };
    for (const auto& [text, type, message] : cases) {
        std::wstring outcome;
        try {
            CTextParser(text).match(type, true);
        } catch (const AStreamParser::CParseError& e) {
            outcome = std::to_wstring(e.GetLine()) + L":" + std::to_wstring(e.GetColumn()) + L" " + e.GetMessage();
        }
        EXPECT_EQ(outcome, message);
    }
}

TEST(AStreamParser, LooksAheadWithoutTakingAndTakesWhatDoesNotFit)
{
    CTextParser parser(L"usemtl 5\no  two words # and a comment\nnext\0gone\nlast"s);
    EXPECT_TRUE(parser.peek(L"USEMTL"));
    EXPECT_FALSE(parser.peek(AStreamParser::eError) || parser.match(L"mtllib", false));
    EXPECT_EQ(parser.getString(), L"usemtl");
    EXPECT_THROW(CTextParser(L"5").match(L"mtllib", false), AStreamParser::CParseError) << "a number is no other word";
    EXPECT_TRUE(parser.peek(AStreamParser::eFloat) && !parser.match(AStreamParser::eComma, false));
    EXPECT_TRUE(parser.match(L"o", true) && parser.match());
    EXPECT_EQ(parser.getString(), L"  two words");
    EXPECT_TRUE(parser.match()) << "nothing is left in this line";
    EXPECT_EQ(parser.getString(), L"");
    EXPECT_TRUE(parser.match(L"next", true) && parser.match(L"last", true)) << "a zero ends the line";
    EXPECT_TRUE(parser.match(AStreamParser::eEndOfText, true));
    EXPECT_FALSE(parser.match());
}

TEST(AStreamParser, ReadsNumbersInTheClassicLocaleAndEachAnew)
{
    const CCommaLocale comma;
    CTextParser parser(L"v 1.5\nv 7\n12345678901 -12345678901 0x10 1e400");
    for (const double expected : {1.5, 7.0}) { // at the same place of two lines
        EXPECT_TRUE(parser.match(L"v", true) && parser.match(AStreamParser::eFloat, true));
        EXPECT_EQ(parser.getDouble(), expected);
    }
    for (const int expected : {2147483647, -2147483647 - 1}) {
        parser.match(AStreamParser::eInteger, true);
        EXPECT_EQ(parser.getInteger(), expected);
    }
    parser.match(AStreamParser::eInteger, true);
    EXPECT_EQ(parser.getDouble(), 16.0) << "converted from the start of the token, and beyond its end";
    parser.match(L"x10", true);
    EXPECT_FALSE(parser.match(AStreamParser::eFloat, false));
    EXPECT_TRUE(std::isnan(parser.getDouble()));
}

TEST(AStreamParser, SlurpsEveryByteOfAFile)
{
    const std::string file = testing::TempDir() + "zorvan_slurp_test.txt";
    std::wstring bytes;
    for (int i = 0; i < 100000; ++i) bytes.push_back(i * 7 % 256);
    std::ofstream(file, std::ios::binary) << std::string(bytes.begin(), bytes.end());
    std::wstringstream out;
    EXPECT_TRUE(AStreamParser::Slurp(file, out));
    EXPECT_TRUE(out.str() == bytes);
    std::ofstream(file, std::ios::trunc).close();
    EXPECT_TRUE(AStreamParser::Slurp(file, out) && out.good()) << "nothing read is no failure";
    std::remove(file.c_str());
    EXPECT_FALSE(AStreamParser::Slurp(file, out) || AStreamParser::Slurp(testing::TempDir(), out));
    EXPECT_THROW(static_cast<void>(AStreamParser::Convert(std::string("\xff"))), std::range_error);
}

} // namespace
} // namespace Zorvan
