// SPDX-License-Identifier: MIT
#include "zorvan/util/any.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

namespace Zorvan {
namespace {

TEST(Any, CopiesAreDeepMovesEmptyTheSourceAndEveryValueDiesOnce)
{
    const auto alive = std::make_shared<int>(1);
    {
        Any a = alive;
        Any b = a;
        EXPECT_NE(a.get<std::shared_ptr<int>>(), b.get<std::shared_ptr<int>>());
        EXPECT_EQ(alive.use_count(), 3);
        a = b;
        EXPECT_EQ(alive.use_count(), 3);
        a = std::move(b);
        EXPECT_EQ(alive.use_count(), 2);
        EXPECT_FALSE(b); // NOLINT(bugprone-use-after-move): this is what the move promises
        EXPECT_EQ(b.type(), typeid(void));
        EXPECT_EQ(a.get<int>(), nullptr) << "given only as its own type";
        a = std::vector<Any>{a};
        a = a.get<std::vector<Any>>()->front(); // lives inside the old value
        EXPECT_EQ(*a.get<std::shared_ptr<int>>(), alive);
    }
    EXPECT_EQ(alive.use_count(), 1);
}

} // namespace
} // namespace Zorvan
