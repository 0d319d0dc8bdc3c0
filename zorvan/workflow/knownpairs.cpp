// SPDX-License-Identifier: MIT
#include "zorvan/workflow/knownpairs.h"

#include "zorvan/util/version.h"

#include <array>
#include <cmath>
#include <stdexcept>
#include <string>
#include <string_view>

namespace prereg {

namespace {

constexpr const char* sVersion = "version";

struct CountName
{
    const char* name;
    unsigned PoseCounts::*count;
};

constexpr std::array countNames{
    CountName{"samples", &PoseCounts::uiSamples},   CountName{"matched", &PoseCounts::uiMatched},
    CountName{"in_front", &PoseCounts::uiInFront},  CountName{"solid", &PoseCounts::uiSolid},
    CountName{"disputed", &PoseCounts::uiDisputed}, CountName{"missing", &PoseCounts::uiMissing},
    CountName{"in_gap", &PoseCounts::uiInGap},      CountName{"turned", &PoseCounts::uiTurned},
    CountName{"opposed", &PoseCounts::uiOpposed},   CountName{"tail", &PoseCounts::uiTail},
    CountName{"shallow", &PoseCounts::uiShallow},   CountName{"telling", &PoseCounts::uiTelling},
};
constexpr std::array sidesOfMatches{"matched_of_first", "matched_of_second"};
static_assert(sizeof(PoseCounts) == (countNames.size() + sidesOfMatches.size()) * sizeof(unsigned),
              "each count has a name");

/// Without those that are zero.
bson::object toObject(const PoseCounts& counts)
{
    bson::object document;
    const auto add = [&](const char* name, unsigned count) {
        if (count != 0) document += bson::element(name, count);
    };
    for (const CountName& named : countNames) add(named.name, counts.*named.count);
    for (std::size_t side = 0; side < sidesOfMatches.size(); ++side)
        add(sidesOfMatches.at(side), counts.matchedOf.at(side));
    return document;
}

PoseCounts readCounts(const bson::object& document)
{
    PoseCounts counts;
    for (const bson::element& e : document) {
        for (const CountName& named : countNames)
            if (e.name() == std::string_view(named.name)) counts.*named.count = e.as_uint32();
        for (std::size_t side = 0; side < sidesOfMatches.size(); ++side)
            if (e.name() == std::string_view(sidesOfMatches.at(side))) counts.matchedOf.at(side) = e.as_uint32();
    }
    return counts;
}

constexpr std::array sRows{"row_x", "row_y", "row_z"};
constexpr std::array sColumns{"x", "y", "z", "shift"};

/// The matrix: a quaternion would give another pose in its last digits.
bson::object toObject(const CTrafo& pose)
{
    const auto matrix = pose.GetMatrix();
    bson::object document;
    for (std::size_t r = 0; r < sRows.size(); ++r) {
        bson::object row;
        for (std::size_t c = 0; c < sColumns.size(); ++c) row += bson::element(sColumns.at(c), matrix.at(r).at(c));
        document += bson::element(sRows.at(r), row);
    }
    return document;
}

/// Bytes from outside must not make a pose that scales, or one so far away that distances are not finite.
bool isRigid(const std::array<kdtree::Vector<3>, 3>& rows, const kdtree::Vector<3>& shift)
{
    constexpr float fTolerance = 1e-3F;
    constexpr float fLargestShift = 1e10F; // mm; that of poses in sessions
    const auto isNear = [&](float value, float expected) { return std::abs(value - expected) <= fTolerance; };
    for (std::size_t r = 0; r < rows.size(); ++r)
        for (std::size_t q = 0; q <= r; ++q)
            if (!isNear(kdtree::Dot(rows.at(r), rows.at(q)), r == q ? 1.0F : 0.0F)) return false;
    return isNear(kdtree::Dot(kdtree::Cross(rows[0], rows[1]), rows[2]), 1.0F) && std::abs(shift.x) <= fLargestShift &&
           std::abs(shift.y) <= fLargestShift && std::abs(shift.z) <= fLargestShift;
}

CTrafo readPose(const bson::object& document)
{
    std::array<kdtree::Vector<3>, 3> rows;
    kdtree::Vector<3> shift;
    for (unsigned r = 0; r < rows.size(); ++r) {
        const bson::object row = document.child(sRows.at(r)).as_object();
        for (unsigned c = 0; c < rows.size(); ++c) rows.at(r)[c] = row.child(sColumns.at(c)).as_float();
        shift[r] = row.child(sColumns.back()).as_float();
    }
    if (!isRigid(rows, shift)) throw std::invalid_argument("no pose");
    return {rows[0], rows[1], rows[2], shift};
}

EPairVerdict readVerdict(const std::string& name)
{
    for (const EPairVerdict eVerdict :
         {EPairVerdict::Aligned, EPairVerdict::Ambiguous, EPairVerdict::NotAligned, EPairVerdict::TooLittle})
        if (name == VerdictName(eVerdict)) return eVerdict;
    throw std::invalid_argument("no verdict");
}

bson::object toObject(const PairFinding::Place& place)
{
    return {bson::element("held", place.isHeld), bson::element("open", place.isOpen),
            bson::element("pose", toObject(place.pose)), bson::element("counts", toObject(place.counts))};
}

PairFinding::Place readPlace(const bson::object& document)
{
    return {readPose(document.child("pose").as_object()), readCounts(document.child("counts").as_object()),
            document.child("held").as_boolean(), document.child("open").as_boolean()};
}

KnownPair readPair(const bson::object& document)
{
    KnownPair pair;
    pair.finding.eVerdict = readVerdict(document.child("verdict").as_string());
    pair.isSettled = document.child("settled").as_boolean();
    for (const bson::element& e : document.child("places").as_object())
        pair.finding.places.push_back(readPlace(e.as_object()));
    return pair;
}

} // namespace

bson::object KnownPairsToObject(const KnownPairs& pairs)
{
    bson::object list;
    for (const auto& [ids, pair] : pairs) {
        bson::object places;
        for (const PairFinding::Place& place : pair.finding.places) places += bson::element("place", toObject(place));
        list += bson::element("pair",
                              bson::object{bson::element::make_uuid("first", &ids.first),
                                           bson::element::make_uuid("second", &ids.second),
                                           bson::element("verdict", VerdictName(pair.finding.eVerdict)),
                                           bson::element("settled", pair.isSettled), bson::element("places", places)});
    }
    return {bson::element(sVersion, Zorvan::Version()), bson::element("pairs", list)};
}

KnownPairs ReadKnownPairs(const bson::object& document)
{
    KnownPairs pairs;
    if (document.child(sVersion).as_string() != Zorvan::Version()) return pairs;
    for (const bson::element& e : document.child("pairs").as_object()) {
        const bson::object pair = e.as_object();
        const auto id = [&](const char* name) { return UniversalUniqueID::Load(pair.child(name).as_uuid()); };
        pairs.insert_or_assign({id("first"), id("second")}, readPair(pair));
    }
    return pairs;
}

} // namespace prereg
