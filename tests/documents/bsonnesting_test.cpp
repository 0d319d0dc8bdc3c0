// SPDX-License-Identifier: MIT
#include "zorvan/documents/bson.h"

#include "tests/documents/samples.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <list>
#include <sstream>
#include <stdexcept>

namespace {

using bson::element;
using bson::object;

/// `levels` documents named "o" inside one another, with the content in the innermost. Read, since making them one by
/// one copies each into the next; lengths are nothing that a reader relies on.
object Deep(unsigned int levels, const object& content)
{
    std::string bytes;
    for (unsigned int i = 0; i < levels; ++i) bytes += std::string("\0\0\0\0\4o\0", 7);
    return Unfreeze(bytes + Bytes(content) + std::string(levels, '\0'));
}

/// Runs the body where a function that called itself for each of 10,000 levels would crash.
void OnASmallStack(std::function<void()> body)
{
    constexpr std::size_t uiStackBytes = 192 << 10;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, uiStackBytes), 0);
    const auto run = [](void* function) -> void* {
        return (*static_cast<std::function<void()>*>(function))(), nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST(Nesting, WhatIsWrittenCanBeRead)
{
    object made;
    for (int i = 0; i < 257; ++i) made = element("o", made);
    EXPECT_EQ(Unfreeze(Bytes(made)), made);
    for (const unsigned int levels : {257U, bson::uiMaxNesting}) {
        const object document = element("o", Deep(levels - 1, element("k", 7)));
        const std::string bytes = Bytes(document);
        std::istringstream stream(bytes);
        EXPECT_EQ(Unfreeze(bytes), document);
        EXPECT_EQ(object::unfreeze(stream), document);
        EXPECT_EQ(document.child("k"), element("k", 7));
    }
    const object deepest = Deep(bson::uiMaxNesting, {});
    EXPECT_THROW(static_cast<void>(element("o", deepest)), std::length_error) << "and what could not, is not made";
    EXPECT_EQ(element("o", deepest.begin()->as_object()), *deepest.begin());
    const object beside = Deep(bson::uiMaxNesting - 1, element::make_regex("r", "a", ""));
    EXPECT_EQ(Unfreeze(Bytes(element("o", beside))).child("r").to_json(), R"("r" : /a/)");
}

TEST(Nesting, NothingRecursesOverIt)
{
    OnASmallStack([] {
        constexpr unsigned int levels = bson::uiMaxNesting;
        const object document = Deep(levels, {{"k", 7}, {"u", true}});
        const std::string bytes = Bytes(document);
        std::istringstream stream(bytes);
        EXPECT_EQ(object::unfreeze(stream), document);
        EXPECT_EQ(Unfreeze(bytes), document);
        const std::string json = document.to_json();
        EXPECT_EQ(document.dump(), json);
        EXPECT_EQ(object::from_json(json), document);

        std::list<std::string> path(levels, "o");
        path.emplace_back("k");
        EXPECT_EQ(document.query(path), element("k", 7));
        EXPECT_FALSE(document.child("none"));
        EXPECT_EQ(document.child(std::regex("[a-n]")), element("k", 7));

        const object settings = Deep(levels, element("k", 1.0));
        object errors;
        EXPECT_EQ(settings.coerce(document, &errors), Deep(levels, element("k", 7.0)));
        EXPECT_EQ(errors, Deep(levels, element("u", true)));
        EXPECT_EQ(settings.begin()->coerce(*document.begin(), nullptr), *Deep(levels, element("k", 7.0)).begin());
        EXPECT_EQ(settings.update(document), Deep(levels, {{"k", 7.0}, {"u", true}}));
    });
}

// Minutes when a level copies, or checks again, all that is below it.
TEST(Nesting, OfALargeTextTakesTheTimeOfTheText)
{
    std::string text;
    for (unsigned int i = 0; i < bson::uiMaxNesting; ++i) text += "{'o':";
    text += "{'k':1,";
    for (int i = 0; i < 100000; ++i) text += "'n':null,";
    const object document = object::from_json(text + std::string(bson::uiMaxNesting + 1, '}'));
    EXPECT_EQ(document.child("k"), element("k", 1));
    EXPECT_FALSE(document.child("none"));
    EXPECT_EQ(document.to_json().size(), document.dump().size());
}

} // namespace
