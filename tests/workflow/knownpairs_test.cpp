// SPDX-License-Identifier: MIT
#include "zorvan/workflow/knownpairs.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>

namespace prereg {

namespace {

using bson::element;
using bson::object;

/// Of two places, the first one with each count another number.
KnownPairs twoPlaces()
{
    PoseCounts counts{900, 700, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, {400, 300}};
    const CTrafo pose({0.3F, -0.5F, 0.8F}, 1.1F, {12.5F, -0.3F, 1e-7F});
    const UniversalUniqueID a("0f8fad5b-d9cb-469f-a165-70867728950e");
    const UniversalUniqueID b("1f8fad5b-d9cb-469f-a165-70867728950e");
    return {{{b, a}, {{EPairVerdict::Ambiguous, {{pose, counts, true, false}, {CTrafo(), {}, false, true}}}, true}},
            {{a, b}, {{EPairVerdict::NotAligned, {}}, false}}};
}

object written(const KnownPairs& pairs)
{
    const auto [bytes, size] = KnownPairsToObject(pairs).freeze();
    return object::unfreeze(bytes.get(), size);
}

TEST(KnownPairs, ComeBackToTheLastBit)
{
    const KnownPairs pairs = twoPlaces();
    const KnownPairs again = ReadKnownPairs(written(pairs));
    ASSERT_EQ(again.size(), pairs.size());
    for (const auto& [ids, pair] : pairs) {
        const KnownPair& other = again.at(ids);
        EXPECT_EQ(other.isSettled, pair.isSettled);
        EXPECT_EQ(other.finding.eVerdict, pair.finding.eVerdict);
        ASSERT_EQ(other.finding.places.size(), pair.finding.places.size());
        for (std::size_t i = 0; i < pair.finding.places.size(); ++i) {
            const PairFinding::Place& place = pair.finding.places[i];
            EXPECT_EQ(other.finding.places[i].pose, place.pose);
            EXPECT_EQ(other.finding.places[i].counts, place.counts);
            EXPECT_EQ(other.finding.places[i].isHeld, place.isHeld);
            EXPECT_EQ(other.finding.places[i].isOpen, place.isOpen);
        }
    }
}

TEST(KnownPairs, OfAnotherVersionAreSearchedAgain)
{
    EXPECT_TRUE(ReadKnownPairs(written(twoPlaces()).update(element("version", "0.0.0"))).empty());
}

TEST(KnownPairs, AreRefusedWithAPoseThatIsNone)
{
    const object document = written(twoPlaces());
    const auto with = [&](const char* row, const char* column, float value) {
        object change(element("pose", object(element(row, object(element(column, value))))));
        for (const char* level : {"place", "places", "pair", "pairs"}) change = object(element(level, change));
        return document.update(change);
    };
    ASSERT_EQ(ReadKnownPairs(with("row_y", "shift", 5.0F)).size(), 2U) << "what follows changes what it means to";
    for (const float bad : {0.0F, 2.0F, std::numeric_limits<float>::quiet_NaN()})
        EXPECT_THROW((void)ReadKnownPairs(with("row_x", "x", bad)), std::exception) << bad;
    for (const float bad : {1e20F, -std::numeric_limits<float>::infinity()})
        EXPECT_THROW((void)ReadKnownPairs(with("row_y", "shift", bad)), std::exception) << bad;
    EXPECT_THROW((void)ReadKnownPairs(object()), std::exception);
}

} // namespace

} // namespace prereg
