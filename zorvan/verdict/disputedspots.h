// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"
#include "zorvan/verdict/cscanview.h"

#include <cstddef>
#include <span>
#include <vector>

namespace prereg {

/// A scan where it lies among others. The view must outlive its use.
struct PlacedView
{
    const CScanView* view = nullptr;
    CTrafo pose; ///< to the common frame
};

/// Two of them that may share surface, by their numbers.
struct ViewPair
{
    std::size_t a = 0;
    std::size_t b = 0;
    std::size_t uiMatched = 0; ///< samples of either that the other one shows, as a CPoseJudge counts them
    bool isAtOdds = true;      ///< one shows surface where the other has none; only there spots are looked for
    bool isSeenThrough = true; ///< a sensor looked through surface of the other one
};

/// What a view says of the samples of a spot. What is neither of these it does not see.
struct SpotSight
{
    std::size_t view = 0;
    std::size_t uiSurface = 0; ///< it has surface there
    std::size_t uiOpen = 0;    ///< nothing there, or something far behind
    std::size_t uiLost = 0;    ///< of these, what would face its sensor
    std::size_t uiThrough = 0; ///< its sensor surely looked through
};

/// A spot of the object that is surface in some views and a hole in others.
struct DisputedSpot
{
    kdtree::Vector<3> middle;         ///< in the common frame
    double dWidth = 0.0;              ///< of the hole, about, mm
    std::vector<std::size_t> showing; ///< views, ascending
    std::vector<std::size_t> lacking;
    std::vector<std::size_t> unclear;   ///< that see something of it, and too little
    double dChance = 0.0;               ///< how often losses of single views would look like this
    std::size_t uiSamples = 0;          ///< of the spot, that all views were asked about
    std::vector<SpotSight> sights = {}; ///< of these three kinds of views, in ascending order
};

/// Finds where views divide into some that show surface and some that have a hole there: they are of objects that
/// differ in that spot, though hardly a sample of any pair tells. A view loses surface for reasons of its own, too, so
/// - at least two views show the spot, and two lack it and show what is about it all round, or look through it;
/// - that is no matter of where they stand: of those that lack it, two at least look at it as squarely as some that
///   show it, and have one of these as their nearest neighbour;
/// - so many views would hardly lose the same spot by chance, as often as they lose what all others show.
///
/// Same views, same spots, the surest first.
[[nodiscard]] ZORVAN_API std::vector<DisputedSpot> FindDisputedSpots(std::span<const PlacedView> views,
                                                                     std::span<const ViewPair> pairs);

} // namespace prereg
