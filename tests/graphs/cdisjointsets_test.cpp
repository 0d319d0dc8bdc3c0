// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdisjointsets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <stdexcept>

namespace Zorvan {
namespace {

/// The plain twin: each element knows the root of its class.
struct Labels
{
    std::vector<unsigned int> root;

    explicit Labels(unsigned int n) : root(n) { std::iota(root.begin(), root.end(), 0U); }

    [[nodiscard]] long sizeOf(unsigned int i) const { return std::ranges::count(root, root[i]); }
    void unify(unsigned int a, unsigned int b)
    {
        const unsigned int winner = sizeOf(a) < sizeOf(b) ? root[b] : root[a];
        const unsigned int loser = winner == root[a] ? root[b] : root[a];
        std::ranges::replace(root, loser, winner);
    }
    void dismantle(unsigned int i)
    {
        const unsigned int gone = root[i];
        for (unsigned int k = 0; k < root.size(); ++k)
            if (root[k] == gone) root[k] = k;
    }
};

void expectEqual(const CDisjointSets& sets, const Labels& labels)
{
    unsigned int seen = 0, classes = 0;
    for (const auto& oneClass : sets) {
        const auto root = static_cast<unsigned int>(sets.GetClassByIndex(classes));
        for (const unsigned int member : oneClass) {
            EXPECT_TRUE(labels.root[member] == root && sets.GetClassRep(member) == root);
            EXPECT_EQ(sets.GetClassSize(member), labels.sizeOf(member));
            EXPECT_EQ(sets.GetClassIndex(member), static_cast<int>(classes));
            ++seen;
        }
        ++classes;
    }
    EXPECT_EQ(seen, sets.Size());
    EXPECT_EQ(classes, sets.GetNumClasses());
    EXPECT_EQ(sets.GetClassByIndex(classes), -1);
}

TEST(CDisjointSets, AgreesWithLabelsWhileClassesJoinAndFallApart)
{
    constexpr unsigned int n = 23;
    std::mt19937 engine(47110815);
    CDisjointSets sets(n);
    Labels labels(n);
    for (int i = 0; i < 300; ++i) {
        const auto a = static_cast<unsigned int>(engine() % n);
        const auto b = static_cast<unsigned int>(engine() % n);
        if (i % 17 == 16) {
            sets.DismantleClass(a);
            labels.dismantle(a);
        } else {
            labels.unify(a, b);
            EXPECT_EQ(sets.Unify(a, b), labels.root[a]) << "a tie keeps the first root";
        }
        expectEqual(sets, labels);
        const unsigned int largest = sets.GetLargestClassRep();
        for (unsigned int k = 0; k < n; ++k) EXPECT_LE(labels.sizeOf(k), labels.sizeOf(largest));
    }
}

// Minutes when each class takes the time of all elements.
TEST(CDisjointSets, WalksAndPrintsHalfAMillionClasses)
{
    constexpr unsigned int n = 500000;
    CDisjointSets sets(n);
    for (unsigned int i = 0; i + 1 < n; i += 4) sets.Unify(i, i + 1);
    unsigned long long sum = 0;
    for (const auto& oneClass : sets)
        for (const unsigned int member : oneClass) sum += member;
    EXPECT_EQ(sum, static_cast<unsigned long long>(n) * (n - 1) / 2);
    EXPECT_EQ(std::string(sets).substr(0, 26), "{{0, 1}, {2}, {3}, {4, 5},");
    sum = 0;
    unsigned int classes = 0;
    const auto roots = sets.GetClasses(&classes);
    for (unsigned int k = 0; k < classes; ++k) {
        unsigned int members = 0;
        sum += sets.GetClassMembers(roots[k], &members)[0] + members;
    }
    EXPECT_EQ(sum, 93749875000ULL + n) << "the first of each, and all in all n";
}

TEST(CDisjointSets, PrintsClassesAndRefusesForeignIndices)
{
    CDisjointSets sets(4);
    sets.Unify(2, 0);
    EXPECT_EQ(std::string(sets), "{{1}, {0, 2}, {3}}") << "by root";
    EXPECT_EQ(std::wstring(sets.GetClass(0)), L"{0, 2}");
    EXPECT_THROW(sets.Unify(0, 4), std::out_of_range);
    const CDisjointSets taken = std::move(sets);
    EXPECT_EQ(taken.GetNumClasses(), 3U);
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): this is what the move promises
    EXPECT_EQ(std::string(sets), "{}");
}

} // namespace
} // namespace Zorvan
