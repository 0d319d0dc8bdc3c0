// SPDX-License-Identifier: MIT
#include "zorvan/documents/bsonjson.h"

#include "tests/documents/samples.h"
#include "tests/support/commalocale.h"

#include <gmock/gmock.h>

#include <new>

namespace {

using bson::element;
using bson::object;

TEST(Json, WritesTheWorkedExample)
{
    const object document{{"a", 1}, {"b", object(element("c", true))}};
    EXPECT_EQ(document.to_json(2, 1), "{\n  \"a\" : 1,\n  \"b\" : {\n    \"c\" : true\n  }\n}");
    EXPECT_EQ(document.to_json(0, 1), R"({"a" : 1, "b" : {"c" : true}})");
    EXPECT_EQ(document.to_json(0, 0), R"({"a" : 1, "b" : {"c" : true})") << "level 0 leaves the last brace out";
    EXPECT_EQ(object().to_json(2, 2), "{\n  }");
}

TEST(Json, WritesEveryType)
{
    EXPECT_EQ((EveryType() + element::make_regex("re", "a\"", "i") + element::make_uint8("A", 65)).to_json(),
              "{\"double\" : -2.5, \"f\" : 0.25, \"string\" : \"\xC3\xA4 text\", \"\" : \"\", "
              "\"binary\" : `MDEyMzQ1Njc4OWFiY2RlZmdo`, \"uuid\" : `Z0UjAauJ780jAUVniavN7w==`, \"boolean\" : true, "
              "\"date\" : -1, \"null\" : null, \"i8\" : \xF8, \"u8\" : \xC8, \"i16\" : -1600, \"u16\" : 50000, "
              "\"i32\" : -320000, \"u32\" : 3200000000, \"i64\" : -640000000000, \"u64\" : 9223372036854775808, "
              "\"re\" : /a\"/i, \"A\" : A}");
    EXPECT_EQ(element("d", 1234567.0).to_json(), R"("d" : 1.23457e+06)");
}

TEST(Json, WrapsBinariesAfter64Characters)
{
    const std::string payload(49, '\0');
    const std::string text = element("b", payload.data(), payload.size()).to_json();
    EXPECT_EQ(text, "\"b\" : `" + std::string(64, 'A') + "\nAA==`");
    EXPECT_THROW(static_cast<void>(element("b", "", 0).to_json()), std::bad_alloc);
}

TEST(Json, DumpAbbreviatesBinaries)
{
    const auto dumped = [](std::uint64_t size, element::BinaryType type) {
        return object(element::make_binary("b", "\x01\xFF--------------!", size, type)).dump();
    };
    EXPECT_EQ(dumped(16, element::eUUID), R"({"b" : <uuid:2D2DFF01-2D2D-2D2D-2D2D-2D2D2D2D2D2D>})");
    EXPECT_EQ(dumped(2, element::eUUID), R"({"b" : <bin:"\x01\xff">})");
    EXPECT_EQ(dumped(16, element::eGeneric),
              R"({"b" : <bin:"\x01\xff\x2d\x2d\x2d\x2d\x2d\x2d\x2d\x2d\x2d\x2d\x2d\x2d\x2d\x2d">})");
    EXPECT_EQ(dumped(17, element::eGeneric), R"({"b" : <bin:17 bytes>})");
}

TEST(Json, ReadsSettingsWrittenByHand)
{
    const std::pair<const char*, object> cases[] = {
        {"{}", {}},
        {"{ 'a' : 1, }", element("a", 1)},
        {R"({"a" : -2.5e-1})", element("a", -0.25)},
        {R"({"a":+5})", element("a", 5)},
        {R"({"a" : TRUE "b" : False, 'c' : Null})", {{"a", true}, {"b", false}, element("c")}},
        {"{ # the limits\n 'o' : { 'x' : 'text', \"y\" : { } } }",
         element("o", object{{"x", "text"}, {"y", object()}})},
        {R"({"a" : 1} and whatever follows)", element("a", 1)},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(object::from_json(text), expected) << text;
        EXPECT_EQ(object::from_json(bson::convert(text)), expected) << text;
        for (const unsigned int indent : {0U, 3U}) EXPECT_EQ(object::from_json(expected.to_json(indent, 1)), expected);
    }
}

TEST(Json, ThrowsTheMessageOfAnError)
{
    const std::pair<const char*, const char*> cases[] = {
        {"[]", "expected token '{', found '['."},
        {R"({"a" : "two words"})", "expected token '\"', found [identifier]."},
        {R"({"a" : "b'})", "expected token '\"', found '\\''."},
        {R"({"a" : [1]})", "expected token '}', found '['."},
        {R"({"a" : 1)", "unexpected end of text"},
        {R"({"a" : "b#"})", "unexpected end of text"},
        {"", "unexpected end of text"},
    };
    for (const auto& [text, message] : cases)
        EXPECT_THAT([&text = text] { static_cast<void>(object::from_json(text)); },
                    testing::Throws<std::string>(message))
            << text;
    EXPECT_THROW(static_cast<void>(object::from_json("{\"\xFF\" : 1}")), std::range_error);
    const std::string quote = object(element("a", "b\"c")).to_json(); // written raw, and so unreadable
    EXPECT_EQ(quote, R"({"a" : "b"c"})");
    EXPECT_THROW(static_cast<void>(object::from_json(quote)), std::string);
}

TEST(Json, BothRulesSayWhereATextIsWrong)
{
    using bson::ETextRules;
    const auto placeOf = [](const char* text, ETextRules rules) -> std::string {
        try {
            static_cast<void>(bson::read_text(bson::convert(text), rules));
            return "read";
        } catch (const bson::text_error& error) {
            return std::to_string(error.place().iLine) + ":" + std::to_string(error.place().iColumn);
        }
    };
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"{'a' : 1,\n 'b' : [1]}", "2:8", "2:8"},
        {"{'a' : 1", "1:0", "1:0"},
        {"", "1:0", "1:0"},
        {"{'a' : .5}", "read", "1:8"},
        {"{'a' : 1}\n\n  x", "read", "3:3"},
        {"{'a' : 2147483648}", "read", "1:8"},
    };
    for (const auto& [text, lenient, strict] : cases) {
        EXPECT_EQ(placeOf(text, ETextRules::Lenient), lenient) << text;
        EXPECT_EQ(placeOf(text, ETextRules::Strict), strict) << text;
    }
    const bson::text_document read = bson::read_text(L"{'a' : {\n'b' : 1}, 'c' : 2}", ETextRules::Strict);
    EXPECT_EQ(read.document, (object{{"a", object(element("b", 1))}, {"c", 2}}));
    std::string places;
    for (const auto& place : read.names)
        places += std::to_string(place.iLine) + ":" + std::to_string(place.iColumn) + " ";
    EXPECT_EQ(places, "1:2 2:1 2:11 ");
}

TEST(Json, RefusesTextThatNestsTooDeep)
{
    const auto nested = [](unsigned int levels) {
        std::string text;
        for (unsigned int i = 0; i < levels; ++i) text += "{'o':";
        return text + "{}" + std::string(levels, '}');
    };
    const object deepest = object::from_json(nested(bson::uiMaxNesting));
    EXPECT_EQ(Unfreeze(Bytes(deepest)), deepest);
    EXPECT_THROW(static_cast<void>(object::from_json(nested(bson::uiMaxNesting + 1))), std::string);
    EXPECT_THROW(static_cast<void>(object::from_json(nested(1000000))), std::string);
}

TEST(Json, ACommaLocaleChangesNothing)
{
    const CCommaLocale comma;
    EXPECT_EQ(object::from_json("{'d' : -2.5e3, 'i' : 123456}"), (object{{"d", -2500.0}, {"i", 123456}}));
    EXPECT_EQ((object{{"d", 0.5}, {"f", 1234.5F}, {"i", 1234567}}).to_json(),
              R"({"d" : 0.5, "f" : 1234.5, "i" : 1234567})");
    for (const auto& [number, text] : {std::pair<element, const char*>({"x", 1234.5}, "1234.5"),
                                       {{"x", 0.5F}, "0.500000"},
                                       {{"x", 1234567}, "1234567"}}) {
        EXPECT_EQ(element("x", "").coerce(number, nullptr), element("x", text));
        EXPECT_EQ(number.coerce({"x", text}, nullptr), number);
    }
}

} // namespace
