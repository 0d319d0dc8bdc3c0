// SPDX-License-Identifier: MIT
#include "zorvan/documents/bson.h"

#include "tests/documents/samples.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <sstream>

namespace {

// The largest block that was asked for tells whether a length field was believed.
std::size_t uiLargestAllocation = 0;

void* allocate(std::size_t size)
{
    uiLargestAllocation = std::max(uiLargestAllocation, size);
    if (void* block = std::malloc(size)) return block;
    throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment)
{
    const auto step = static_cast<std::size_t>(alignment);
    uiLargestAllocation = std::max(uiLargestAllocation, size);
    if (void* block = std::aligned_alloc(step, (size + step - 1) / step * step)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }

namespace {

using bson::element;
using bson::object;
using namespace std::string_literals;

object FromStream(const std::string& bytes)
{
    std::istringstream in(bytes);
    return object::unfreeze(in);
}

std::shared_ptr<const unsigned char[]> Share(const std::string& bytes)
{
    auto copy = std::make_unique<unsigned char[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return copy;
}

object FromShared(const std::string& bytes) { return object::unfreeze(Share(bytes), bytes.size()); }

/// Bytes of `levels` documents inside one another, the innermost empty, each with a length of zero.
std::string Nested(unsigned int levels)
{
    std::string bytes;
    for (unsigned int i = 0; i < levels; ++i) bytes += "\0\0\0\0\4\0"s;
    return bytes + std::string(5 + levels, '\0');
}

TEST(Unfreeze, GivesBackWhatWasFrozen)
{
    const object document = EveryType() + element("o", EveryType() + element("empty", object()));
    const std::string bytes = Bytes(document);
    EXPECT_EQ(Unfreeze(bytes), document);
    EXPECT_EQ(FromStream(bytes), document);
    EXPECT_EQ(object::unfreeze(document.freeze().first.get()), document);
    for (const element& e : document) {
        const auto [data, size] = e.freeze();
        EXPECT_EQ(element::unfreeze(data.get(), size), e) << e.name();
    }
    std::stringstream stream;
    document.freeze(stream);
    object(element("a", 1)).freeze(stream);
    EXPECT_EQ(object::unfreeze(stream), document);
    EXPECT_EQ(object::unfreeze(stream), object(element("a", 1))) << "the stream stands behind the document";
}

// The two extra bytes must neither grow with every generation nor hide what follows them.
TEST(Unfreeze, RegexGrowsByTwoBytesOnceAndHidesNothing)
{
    const object inner{element::make_regex("r", "a", "i"), element("after", 1)};
    const object document{element::make_regex("r", "^", ""), element("o", inner), element::make_regex("s", "", "")};
    const object once = Unfreeze(Bytes(document));
    EXPECT_EQ(once.begin()->size(), document.begin()->size() + 2);
    EXPECT_EQ(once.to_json(), document.to_json());
    EXPECT_EQ(Unfreeze(Bytes(once)), once);
    EXPECT_EQ(FromStream(Bytes(once)), once);
    for (const object& o : {document, once}) EXPECT_EQ(FromShared(Bytes(o)), once);
}

TEST(Unfreeze, IgnoresALengthThatIsWrong)
{
    for (const char* length : {"\0\0\0\0", "\xFF\xFF\xFF\xFF", "\1\0\0\0"}) {
        const std::string bytes = std::string(length, 4) + "\4o\0"s + std::string(length, 4) + "\x08"s + "b\0\1\0\0"s;
        for (const auto& read : {&Unfreeze, &FromShared})
            EXPECT_EQ(read(bytes), object(element("o", object(element("b", true)))));
    }
}

TEST(Unfreeze, CutAnywhereGivesTheElementsBeforeTheCut)
{
    const object innermost = EveryType();
    const object document = innermost + element("o", innermost);
    const std::string bytes = Bytes(document);
    std::size_t whole = 0;
    std::size_t end = 4 + document.begin()->size();
    for (std::size_t cut = 4; cut + 1 < bytes.size(); ++cut) {
        if (cut == end) end += document.begin()[++whole].size();
        const object read = Unfreeze(bytes.substr(0, cut));
        ASSERT_EQ(FromStream(bytes.substr(0, cut)), read) << cut;
        ASSERT_EQ(FromShared(bytes.substr(0, cut)), read) << cut;
        ASSERT_EQ(read.num_elements(), whole + 1) << cut;
        ASSERT_TRUE(std::equal(document.begin(), document.begin() + whole, read.begin())) << cut;
        // A nested document keeps what it has, so it is there as soon as its name is.
        const element& last = read.begin()[whole];
        ASSERT_EQ(static_cast<bool>(last), bytes.size() - cut < element("o", innermost).size() - 1) << cut;
        const object inner = last.children();
        const unsigned char* const value = last.raw_value();
        ASSERT_TRUE(!last || Bytes(inner) == std::string(value, value + last.size_of_value())) << cut;
        ASSERT_TRUE(std::equal(inner.begin(), inner.end(), innermost.begin())) << cut;
    }
}

TEST(Unfreeze, TakesHostileBytesForWhatTheyAre)
{
    constexpr int iThrows = -1;
    const std::tuple<const char*, std::string, int> cases[] = {
        {"unknown type", "\7\0\0\0\3a\0\1\0\0\0\0"s, iThrows},
        {"unknown type, cut inside the name", "\7\0\0\0\3abc"s, 1},
        {"unknown type inside", "\0\0\0\0\4o\0\0\0\0\0\x7F\0\0\0"s, iThrows},
        {"type of the empty element", "\0\0\0\0\xFF\0\0"s, iThrows},
        {"string of 4 GiB", "\0\0\0\0\2s\0\xFF\xFF\xFF\xFFtext"s, 1},
        {"binary of 4 GiB", "\0\0\0\0\5s\0\xFF\xFF\xFF\xFF\0text"s, 1},
        {"document of 4 GiB", "\xFF\xFF\xFF\xFF\4o\0\xFF\xFF\xFF\xFF\0\0"s, 1},
        {"no closing byte", "\0\0\0\0\x0A\0"s, 2},
        {"regex without options", "\0\0\0\0\x0Br\0abc\0"s, 1},
        {"regex and half its padding", "\0\0\0\0\x0Br\0a\0b\0\xFF\0"s, 1},
        {"deepest document", Nested(bson::uiMaxNesting), 1},
        {"one level deeper", Nested(bson::uiMaxNesting + 1), iThrows},
        {"a million levels", Nested(1000000), iThrows},
        {"name without end", std::string(6000000, '\4'), 1},
    };
    for (const auto& [what, bytes, elements] : cases)
        for (const auto& read : {&Unfreeze, &FromStream, &FromShared}) {
            uiLargestAllocation = 0;
            try {
                const object document = read(bytes);
                EXPECT_EQ(static_cast<int>(document.num_elements()), elements) << what << document.dump();
            } catch (const std::invalid_argument& e) {
                EXPECT_EQ(elements, iThrows) << what;
                EXPECT_STREQ(e.what(), "parse error");
            }
            EXPECT_LE(uiLargestAllocation, 2 * bytes.size() + 20000) << what;
        }
}

TEST(Unfreeze, ReportsWhereAndWhyReadingEnded)
{
    using bson::unfreeze_end;
    const std::tuple<std::string, unfreeze_end::Reason, std::uint64_t> cases[] = {
        {"\0\0\0\0\0"s, unfreeze_end::eWhole, 5},
        {"\0\0\0\0\0behind"s, unfreeze_end::eWhole, 5},
        {"\0\0"s, unfreeze_end::eCut, 2},
        {"\2\0\0\0\x0A\0"s, unfreeze_end::eCut, 6},
        {"\x0B\0\0\0\4o\0\3\0\0\0\x0An"s, unfreeze_end::eCut, 13},
        {"\0\0\0\0\2s\0\xFF\xFF\xFF\xFFtext"s, unfreeze_end::eCut, 15},
        {"\0\0\0\0\4o\0\0\0\0\0\3abc\0\0\0"s, unfreeze_end::eUnknownType, 16},
        {Nested(bson::uiMaxNesting), unfreeze_end::eWhole, 7 * bson::uiMaxNesting + 5},
        {Nested(bson::uiMaxNesting + 1), unfreeze_end::eTooDeep, 6 * bson::uiMaxNesting + 6},
    };
    for (const auto& [bytes, reason, position] : cases) {
        unfreeze_end end;
        const object document = object::unfreeze(Share(bytes), bytes.size(), end);
        EXPECT_EQ(end.reason, reason) << bytes.substr(0, 20);
        EXPECT_EQ(end.position, position) << bytes.substr(0, 20);
        if (reason == unfreeze_end::eWhole || reason == unfreeze_end::eCut) {
            EXPECT_EQ(document, FromStream(bytes));
        }
    }
}

TEST(Unfreeze, StringsWithoutTheirNULAreEmpty)
{
    for (const char length : {'\0', '\1'}) {
        const object read = Unfreeze("\0\0\0\0\2s\0"s + length + "\0\0\0"s + std::string(length, '\0') + "\0"s);
        ASSERT_EQ(read.num_elements(), 1U);
        EXPECT_EQ(read.begin()->as_string(), "");
    }
}

TEST(Unfreeze, PartsOfSharedBytesLieInThemAndKeepThem)
{
    const std::string payload(10000000, 'x');
    const std::string bytes = Bytes(element("o", object{{"small", 1}, {"b", payload.data(), payload.size()}}));
    auto shared = Share(bytes);
    const std::weak_ptr<const unsigned char[]> observer = shared;
    const unsigned char* const begin = shared.get();
    uiLargestAllocation = 0;
    object document = object::unfreeze(shared, bytes.size());
    shared = nullptr;
    element large = document.child("b");
    const element small = document.child("small");
    document = object();
    EXPECT_LE(uiLargestAllocation, 1000U);
    EXPECT_EQ(std::get<0>(large.as_binary()) - begin, static_cast<std::ptrdiff_t>(bytes.find(payload)));
    EXPECT_FALSE(observer.expired());
    large = element();
    EXPECT_TRUE(observer.expired()) << "a small value kept all bytes";
    EXPECT_EQ(small.as_int32(), 1);
}

} // namespace
