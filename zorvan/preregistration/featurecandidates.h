// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/features/cfpfhpointset.h"

#include <optional>
#include <utility>
#include <vector>

namespace prereg {

/// The features of one set that look like a feature of another one, each looked up once: polygons meet the same
/// features again and again (a search that finds nothing asks some ten times for each).
class CFeatureCandidates
{
public:
    using Candidates = std::vector<std::pair<unsigned int, float>>; ///< feature of the fixed set, squared distance

    /// As `fix.LookupSimilarFeatures` of that feature. All calls must name the same sets.
    [[nodiscard]] const Candidates& Of(const CFPFHPointSet& fix, const CFPFHPointSet& flt, std::size_t fltIndex,
                                       unsigned int maxCount)
    {
        constexpr float maxDistance = 0.5F; // between histograms
        if (maxCount != m_maxCount) m_candidates.clear();
        m_maxCount = maxCount;
        m_candidates.resize(flt.SizeFeatures());
        auto& found = m_candidates[fltIndex];
        if (!found) found = fix.LookupSimilarFeatures(flt.GetFeature(fltIndex), maxCount, maxDistance);
        return *found;
    }

private:
    unsigned int m_maxCount = 0;
    std::vector<std::optional<Candidates>> m_candidates; ///< by feature of the floating set
};

} // namespace prereg
