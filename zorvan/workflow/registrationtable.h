// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/scans/scan.h"
#include "zorvan/workflow/placing.h"

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace prereg {

/// What a registration says of one scan. Lengths in mm; numbers that nobody knows are NaN.
struct ScanRow
{
    std::string file; ///< as the user named it
    std::string id;
    std::string cluster;             ///< the cluster it is in; meaningless without a pose
    bool isPrimary = false;          ///< that cluster is the main one
    CTrafo pose = CTrafo::Invalid(); ///< scan to cluster coordinates, mm; invalid: it has none
    std::size_t uiPoints = 0;        ///< all of them, before any thinning for display
    double dOverlap = std::numeric_limits<double>::quiet_NaN(); ///< this and the next two: medians over its pairs
    double dRmse = std::numeric_limits<double>::quiet_NaN();
    double dSlip = std::numeric_limits<double>::quiet_NaN();
    std::optional<EPlace> ePlace = {};      ///< why it is where it is, when all pairs were weighed
    std::string verdict;                    ///< a few words for people
    bool isPlaced = false;                  ///< it found its place among other scans
    Zorvan::Position shift = {};            ///< mm: `pose` is for points about it
    std::optional<std::size_t> copyOf = {}; ///< it has the points and the pose of that row, and its numbers
};

/// Two scans that were found to overlap.
struct PairRow
{
    std::size_t a = 0; ///< into the scans of the table, as `b`
    std::size_t b = 0;
    double dOverlap = std::numeric_limits<double>::quiet_NaN(); ///< share of the points
    double dRmse = std::numeric_limits<double>::quiet_NaN();    ///< mm
};

/// Two scans that were searched for a common place, or lie in one cluster and have something to say of it.
struct WeighedRow
{
    std::size_t a = 0; ///< into the scans of the table, as `b`
    std::size_t b = 0;
    std::string search;            ///< what the search found of the pair alone: "aligned", "ambiguous" ...; empty: none
    std::size_t uiPlaces = 0;      ///< that it found
    std::string standing;          ///< "supports", "refutes" or "says nothing": of the poses; "refuted": the one place
                                   ///< that it found; "undecided": it found several; "apart": none
    unsigned uiMatched = 0;        ///< samples, at the poses, or at the best of the places that were not taken
    unsigned uiContradictions = 0; ///< there; the sum of these
    unsigned uiThrough = 0;        ///< surface of one scan that the sensor of the other looked through
    unsigned uiMissing = 0;        ///< that it should have seen
    unsigned uiOpposed = 0;        ///< on surface that looks elsewhere
    std::string why;               ///< of a place that is refuted: "b.ply: contradicted by c.ply"
};

/// What one scan says of the samples of a disputed spot.
struct SightRow
{
    std::size_t scan = 0;      ///< into the scans of the table
    std::size_t uiSurface = 0; ///< it has surface there
    std::size_t uiOpen = 0;    ///< nothing there, or something far behind
    std::size_t uiThrough = 0; ///< its sensor surely looked through
    kdtree::Vector<3> at = {}; ///< the middle of the spot, in the cluster of the scan
};

/// A spot that some scans show surface in and some a hole: they are of objects that differ there, and what seemed to
/// be one cluster was divided about it.
struct DisputeRow
{
    std::vector<std::size_t> showing; ///< into the scans of the table, as all of these
    std::vector<std::size_t> lacking;
    double dWidth = 0.0;                   ///< mm
    std::vector<std::size_t> unclear = {}; ///< show too little of it
    std::vector<std::size_t> leftOut = {}; ///< were in the cluster and may be of any of the objects
    std::size_t uiSamples = 0;             ///< of the spot, that each scan was asked about
    kdtree::Vector<3> atShowing = {};      ///< its middle, in the cluster of the first that shows it
    kdtree::Vector<3> atLacking = {};      ///< and of the first that lacks it
    std::vector<SightRow> sights = {};     ///< of scans that say something of it, in ascending order
};

/// A whole registration, as tables and pages show it. Scans are in the order of the call, exact copies of others last.
struct RegistrationTable
{
    double dMmPerUnit = 1.0; ///< lengths are shown in this unit, that of the files
    std::vector<ScanRow> scans;
    std::vector<PairRow> pairs;
    std::vector<WeighedRow> weighed = {};  ///< when all pairs were weighed
    Zorvan::Position shift = {};           ///< mm: cluster coordinates are about it
    std::size_t uiLoops = 0;               ///< of pairs that support the poses, see CountLoops
    std::vector<DisputeRow> disputes = {}; ///< what scans that seemed to lie together were divided by
    bool isStopped = false;                ///< by the hooks; this is what was found until then
    std::vector<std::string> leftOut = {}; ///< for people: what did not come in, and why; a caller may add what could
                                           ///< not be read
};

} // namespace prereg
