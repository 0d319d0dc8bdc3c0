// SPDX-License-Identifier: MIT
#include "tests/documents/samples.h"

#include "zorvan/documents/bson.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <limits>
#include <map>
#include <sstream>

namespace {

using bson::element;
using bson::object;

// Every source type in every target type. "same": a copy of the input. "fail": a null element, and the input is
// reported. "lost": nothing, and the input is reported. "throws": std::bad_cast. "raw": the first eight bytes of the
// stored value, taken as they are. "bytes": all bytes of the stored value. Anything else is the value that comes out.
constexpr const char* szTable = R"(
source   double        float         int32      uint32     int16 uint16 uint8 int8   int64         uint64               string        binary boolean date          null regex  object
double   same          -2.75         -2         4294967294 -2    65534  254   -2     -2            18446744073709551614 -2.75         bytes  true    fail          null fail   lost
float    3.5           same          3          3          3     3      3     3      3             3                    3.500000      bytes  true    fail          null fail   lost
string   7             7             7          7          7     7      7     7      7             7                    same          bytes  true    fail          null /7/    lost
binary   raw           fail          fail       fail       fail  fail   fail  fail   raw           raw                  bytes         same   true    fail          null fail   lost
boolean  1             1             1          1          1     1      1     1      1             1                    true          bytes  same    fail          null fail   lost
date     fail          fail          fail       fail       fail  fail   fail  fail   fail          1500                 1500          bytes  fail    same          null fail   lost
null     fail          fail          fail       fail       fail  fail   fail  fail   fail          fail                 ""            bytes  false   fail          same fail   lost
object   fail          fail          fail       fail       fail  fail   fail  fail   fail          fail                 fail          bytes  fail    fail          null fail   same
regex    fail          fail          fail       fail       fail  fail   fail  fail   fail          fail                 fail          bytes  fail    fail          null same   lost
int32    -5            -5            same       4294967291 -5    65531  251   -5     fail          fail                 -5            bytes  true    fail          null fail   lost
uint64   1099511628076 1099511627776 300        300        300   300    44    44     1099511628076 same                 1099511628076 bytes  true    1099511628076 null fail   lost
int64    -5000000000   -5000000000   -705032704 fail       fail  3584   0     0      same          18446744068709551616 -5000000000   bytes  true    0             null fail   lost
uint32   4294967295    4294967296    -1         same       -1    65535  255   -1     4294967295    4294967295           4294967295    bytes  true    fail          null fail   lost
int16    -300          -300          -300       4294966996 same  65236  212   -44    -300          18446744073709551316 -300          bytes  true    fail          null fail   lost
uint16   throws        throws        65535      65535      -1    same   255   -1     65535         65535                65535         bytes  true    fail          null fail   lost
uint8    200           200           200        200        200   200    same  -56    200           200                  200           bytes  true    fail          null fail   lost
int8     -7            -7            -7         4294967289 -7    65529  249   same   -7            18446744073709551609 -7            bytes  true    fail          null fail   lost
)";

element SampleOf(const std::string& type)
{
    const std::map<std::string, element> samples = {{"double", {"x", -2.75}},
                                                    {"float", {"x", 3.5F}},
                                                    {"string", {"x", "7"}},
                                                    {"boolean", {"x", true}},
                                                    {"date", {"x", std::chrono::milliseconds(1500)}},
                                                    {"null", element("x")},
                                                    {"object", {"x", element("x", 1)}},
                                                    {"int32", {"x", -5}},
                                                    {"uint64", {"x", (1ULL << 40) + 300}},
                                                    {"int64", {"x", -5000000000}},
                                                    {"uint32", {"x", 4294967295U}},
                                                    {"int16", {"x", std::int16_t{-300}}},
                                                    {"uint16", {"x", std::uint16_t{65535}}},
                                                    {"uint8", {"x", std::uint8_t{200}}},
                                                    {"int8", {"x", std::int8_t{-7}}},
                                                    {"binary", element::make_binary("x", "\1\2\3", 3, element::eUUID)},
                                                    {"regex", element::make_regex("x", "a", "i")}};
    return samples.at(type);
}

std::string ValueBytes(const element& e) { return {reinterpret_cast<const char*>(e.raw_value()), e.size_of_value()}; }

std::string Decimal(auto value)
{
    std::ostringstream text;
    text << std::setprecision(17) << +value;
    return text.str();
}

std::string TextOf(const element& e, const element& input)
{
    const bool fromBinary = input.type() == element::eBinary;
    if (fromBinary && ValueBytes(e) == ValueBytes(input)) return "raw";
    if (fromBinary && e.type() == element::eString && e.as_string() == ValueBytes(input)) return "bytes";
    const element bytes("x", input.raw_value(), input.size_of_value());
    if (e.type() == element::eDouble) return Decimal(e.as_double());
    if (e.type() == element::eFloat) return Decimal(e.as_float());
    if (e.type() == element::eUInt8) return Decimal(e.as_uint8());
    if (e.type() == element::eInt8) return Decimal(e.as_int8());
    if (e.type() == element::eString) return e.as_string().empty() ? "\"\"" : e.as_string();
    if (e.type() == element::eBinary) return e == bytes ? "bytes" : "other bytes";
    const std::string json = e.to_json(); // of integers, truth values, dates and expressions
    return json.substr(json.find(" : ") + 3);
}

std::string Outcome(const element& target, const element& input)
{
    object errors;
    element result;
    try {
        result = target.coerce(input, &errors);
    } catch (const std::bad_cast&) {
        return "throws";
    } catch (const std::logic_error& e) {
        return e.what();
    }
    const bool reported = errors.num_elements() == 1 && *errors.begin() == input;
    if (!result && reported) return "lost";
    if (result == element::make_null("x") && reported) return "fail";
    if (errors) return "wrongly reported";
    if (result == input) return "same";
    if (result.type() != target.type()) return "wrong type";
    return TextOf(result, input);
}

TEST(Coercion, GivesEverySourceTypeInEveryTargetTypeAsTheTableTells)
{
    std::istringstream table(szTable);
    std::string source, targets[17], expected;
    table >> source;
    for (std::string& target : targets) table >> target;
    int rows = 0;
    for (; table >> source; ++rows)
        for (const std::string& target : targets) {
            table >> expected;
            EXPECT_EQ(Outcome(SampleOf(target), SampleOf(source)), expected) << source << " to " << target;
        }
    EXPECT_EQ(rows, 17);
}

TEST(Coercion, ReadsNumbersAsTheStandardFunctionsDo)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"int32", " \t+12abc", "12"},
        {"int32", "-2147483648", "-2147483648"},
        {"int32", "2147483648", "stoi argument out of range"},
        {"int32", "- 5", "invalid stoi argument"},
        {"int16", "70000", "4464"},
        {"int16", "2147483648", "stoi argument out of range"},
        {"uint32", "-1", "4294967295"},
        {"uint32", "4294967296", "stoul argument out of range"},
        {"uint8", "0x10", "0"},
        {"int64", "-9223372036854775808", "-9223372036854775808"},
        {"int64", "9223372036854775808", "stoll argument out of range"},
        {"uint64", "18446744073709551616", "stoull argument out of range"},
        {"double", "-1.5e3mm", "-1500"},
        {"double", "0x1.8p1", "3"},
        {"double", "1e400", "stod argument out of range"},
        {"double", "+-1", "invalid stod argument"},
        {"float", "1e39", "stof argument out of range"},
        {"float", ".", "invalid stof argument"},
    };
    for (const auto& [target, text, expected] : cases)
        EXPECT_EQ(Outcome(SampleOf(target), {"x", text}), expected) << '"' << text << "\" to " << target;
}

TEST(Coercion, CutsNumbersThatDoNotFitWithoutSurprise)
{
    const auto toUInt8 = [](double d) { return element("x", std::uint8_t{}).coerce({"x", d}, nullptr).as_uint8(); };
    EXPECT_EQ(toUInt8(-0.9), 0);
    EXPECT_EQ(toUInt8(4294967296.0 + 5), 5);
    EXPECT_EQ(toUInt8(-1e300), 0);
    for (const double d : {std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(toUInt8(d), 0);
        EXPECT_FALSE(element("x", true).coerce({"x", d}, nullptr).as_boolean());
    }
    EXPECT_EQ(element("x", 0ULL).coerce({"x", 18446744073709549568.0}, nullptr).as_uint64(), 18446744073709549568ULL);
    // The value that make_datetime takes for "now" is an ordinary one here.
    EXPECT_EQ(Outcome(SampleOf("date"), {"x", 1ULL << 63}), "-9223372036854775808");
}

TEST(Coercion, OfEmptyValuesIsFalseAndOfBinariesOfOtherSizesFails)
{
    for (const element& empty : {element("x", ""), element("x", nullptr, 0), element("x", 0), element("x", 0.0)})
        EXPECT_EQ(Outcome(SampleOf("boolean"), empty), "false") << empty.dump();
    for (const std::uint64_t size : {0, 2, 4, 8})
        EXPECT_EQ(Outcome(SampleOf("uint64"), element("x", "12345678", size)), "fail") << size;
}

TEST(Coercion, OfDocumentsKeepsTheOrderOfTheInputAndTheNestingOfErrors)
{
    const object settings{{"d", 0.0}, {"o", object{{"x", 1}, {"y", 2}}}, {"d", 1}};
    const object input{{"o", object{{"y", "3"}, {"z", 4}}}, {"new", true}, {"d", "1.5"}};
    object errors;
    EXPECT_EQ(settings.coerce(input, &errors).to_json(), R"({"o" : {"y" : 3}, "d" : 1.5})");
    EXPECT_EQ(errors.to_json(), R"({"o" : {"z" : 4}, "new" : true})");
    EXPECT_FALSE(element("a", 1).coerce(element("b", 1), nullptr)) << "names differ";
}

TEST(Update, KeepsTypesAndMergesObjects)
{
    const object settings{{"a", 1}, {"o", object{{"x", 1.0F}, {"y", 2}}}, {"a", 5}};
    const object changed =
        settings.update(object{{"a", "7"}, {"o", object{{"x", 9}, {"z", true}}}, {"b", 1}, {"b", 2}});
    EXPECT_EQ(changed, (object{{"a", 7}, {"o", object{{"x", 9.0F}, {"y", 2}, {"z", true}}}, {"a", 5}, {"b", 2}}));
    EXPECT_EQ(object({{"a", 1}, {"b", 2}, {"a", object()}}).update(element("a", true)),
              (object{{"a", true}, {"b", 2}, {"a", true}}))
        << "an element's type replaces all of its name";
}

TEST(Update, OfAHundredThousandNamesTakesNoTime)
{
    object large;
    for (int i = 0; i < 100000; ++i) large += element(std::to_string(i), i);
    EXPECT_EQ(large.update(large), large);
    EXPECT_EQ(large.coerce(large, nullptr), large);
}

} // namespace
