// SPDX-License-Identifier: MIT
#include "zorvan/platform/hfexception.h"
#include "zorvan/platform/hfmatrix.h"
#include "zorvan/platform/unicode.h"

#include <gmock/gmock.h>

namespace {

using Zorvan::Narrow;
using Zorvan::Widen;

TEST(Unicode, RoundTripsThroughUtf16CodeUnits)
{
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\xA6\xB7"; // one to four bytes
    const std::wstring wide = Widen(text);
    EXPECT_EQ(wide.size(), 5U); // the last character is a surrogate pair, also where wchar_t has 32 bits
    EXPECT_EQ(wide[3], 0xD83E);
    EXPECT_EQ(Narrow(wide), text);
    EXPECT_EQ(Narrow(Widen("")), "");
}

TEST(Unicode, RefusesWhatIsNotValid)
{
    for (const char* bad : {"\xFF", "\xC3", "\xED\xA0\x80", "\xC0\x80", "ok\x80"}) {
        EXPECT_THAT([bad] { (void)Widen(bad); }, testing::ThrowsMessage<std::range_error>("bad conversion")) << bad;
    }
    const std::wstring loneSurrogate(1, wchar_t{0xD83E});
    const std::wstring beyondUtf16(1, wchar_t{0x1F9B7});
    EXPECT_THROW((void)Narrow(loneSurrogate), std::range_error);
    EXPECT_THROW((void)Narrow(beyondUtf16), std::range_error);
}

TEST(HfException, CarriesPlaceAndCause)
{
    const auto cause = std::make_shared<HfException>("disk.cpp", 7, "no room");
    const HfExceptionContainer error("save.cpp", 12, "cannot save", cause);
    EXPECT_STREQ(error.what(), "cannot save");
    EXPECT_STREQ(error.GetFile(), "save.cpp");
    EXPECT_EQ(error.GetLine(), 12);
    EXPECT_STREQ(error.GetCause()->what(), "no room");
}

TEST(HfMatrix, IsColumnMajor)
{
    HfMatrix4Rd matrix;
    matrix(1, 3) = 5;
    EXPECT_EQ(matrix.data[13], 5);
}

} // namespace
