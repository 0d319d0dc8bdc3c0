// SPDX-License-Identifier: MIT
#include "zorvan/features/meanshift.h"

namespace Zorvan::meanshift {

Votes MergeVotes(const Votes& a, const Votes& b)
{
    Votes merged;
    merged.reserve(std::max(a.size(), b.size()));
    auto i = a.begin();
    auto j = b.begin();
    while (i != a.end() && j != b.end()) {
        if (i->datum < j->datum) {
            merged.push_back(*i++);
        } else if (j->datum < i->datum) {
            merged.push_back(*j++);
        } else {
            merged.push_back({i->datum, i->count + j->count});
            ++i;
            ++j;
        }
    }
    merged.insert(merged.end(), i, a.end());
    merged.insert(merged.end(), j, b.end());
    return merged;
}

Mapping MapData(const std::vector<Votes>& votes, std::size_t numData)
{
    Mapping mapping;
    mapping.clusterOf.assign(numData, CClusterMembers::none);
    std::vector<unsigned int> most(numData);
    for (std::size_t k = 0; k < votes.size(); ++k) {
        for (const auto& [datum, count] : votes[k]) {
            if (count <= most[datum]) continue;
            most[datum] = count;
            mapping.clusterOf[datum] = static_cast<unsigned int>(k);
        }
    }

    std::vector<unsigned int> sizes(votes.size());
    for (const unsigned int k : mapping.clusterOf) {
        if (k != CClusterMembers::none) ++sizes[k];
    }
    std::vector<unsigned int> newNumber(votes.size());
    for (std::size_t k = 0; k < votes.size(); ++k) {
        if (sizes[k] == 0) continue;
        newNumber[k] = static_cast<unsigned int>(mapping.kept.size());
        mapping.kept.push_back(static_cast<unsigned int>(k));
        mapping.sizes.push_back(sizes[k]);
    }
    for (unsigned int& k : mapping.clusterOf) {
        if (k != CClusterMembers::none) k = newNumber[k];
    }
    return mapping;
}

} // namespace Zorvan::meanshift
