// SPDX-License-Identifier: MIT
#include "zorvan/scans/showntext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

TEST(ShownText, EscapesWhatSteersATerminalAndNothingElse)
{
    const std::pair<std::string, const char*> cases[] = {
        {"a b\\c", "a b\\c"},
        {"Zähne 歯 🦷.ply", "Zähne 歯 🦷.ply"},
        {"a\nb\tc\r", "a\\nb\\tc\\r"},
        {"\x1b[31m\x7f", "\\x1b[31m\\x7f"},
        {std::string("\0", 1), "\\x00"},
        {"\xc2\x9b\x31m", "\\xc2\\x9b1m"},                       // the control sequence introducer of 8 bits
        {"\xff\xc3", "\\xff\\xc3"},                              // never, and cut short
        {"\xc0\x8a \xe0\x80\x8a", "\\xc0\\x8a \\xe0\\x80\\x8a"}, // a line end in longer forms
        {"\xed\xa0\x80\xf4\x90\x80\x80", "\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80"},
        {"\xf0\x9f\xa6", "\\xf0\\x9f\\xa6"},
    };
    for (const auto& [text, shown] : cases) EXPECT_EQ(Zorvan::ToShown(text), shown);
}

TEST(ShownText, KeepsBothEndsOfALongMessage)
{
    const auto longName = [](std::size_t characters) {
        std::string name;
        for (std::size_t i = 0; i < characters; ++i) name += "ä";
        return name;
    };
    EXPECT_EQ(Zorvan::ToMessage(longName(Zorvan::uiLongestMessage)), longName(Zorvan::uiLongestMessage));
    const std::string message = Zorvan::ToMessage("first" + longName(Zorvan::uiLongestMessage) + "last");
    EXPECT_TRUE(message.starts_with("first") && message.ends_with("last")) << message;
    EXPECT_EQ(Zorvan::ToShown(message), message) << "no character is cut";
    const auto isStart = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
    const auto characters = static_cast<std::size_t>(std::count_if(message.begin(), message.end(), isStart));
    EXPECT_LE(characters, Zorvan::uiLongestMessage);
    EXPECT_GE(characters, Zorvan::uiLongestMessage - 1);
}

} // namespace
