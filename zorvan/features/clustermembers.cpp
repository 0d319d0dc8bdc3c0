// SPDX-License-Identifier: MIT
#include "zorvan/features/clustermembers.h"

#include <algorithm>
#include <numeric>

namespace Zorvan {

CClusterMembers::CClusterMembers(std::span<const unsigned int> clusterOf, std::size_t numClusters) : m_ends(numClusters)
{
    for (const unsigned int cluster : clusterOf) {
        if (cluster < numClusters) ++m_ends[cluster];
    }
    std::inclusive_scan(m_ends.begin(), m_ends.end(), m_ends.begin());
    m_items.resize(m_ends.empty() ? 0 : m_ends.back());

    // Filled from behind, an end walks down to its cluster's start, which is the end of the one before.
    for (std::size_t i = clusterOf.size(); i-- > 0;) {
        if (clusterOf[i] < numClusters) m_items[--m_ends[clusterOf[i]]] = static_cast<unsigned int>(i);
    }
    if (numClusters == 0) return;
    std::shift_left(m_ends.begin(), m_ends.end(), 1);
    m_ends.back() = static_cast<unsigned int>(m_items.size());
}

std::pair<std::size_t, std::size_t> CClusterMembers::GetRange(std::size_t cluster) const
{
    if (cluster >= m_ends.size()) return {0, 0};
    return {cluster == 0 ? 0 : m_ends[cluster - 1], m_ends[cluster]};
}

std::size_t CClusterMembers::GetClusterSize(std::size_t cluster) const
{
    const auto [first, last] = GetRange(cluster);
    return last - first;
}

ClusterIterator CClusterMembers::GetCluster(std::size_t cluster) const
{
    const auto [first, last] = GetRange(cluster);
    return {m_items.data() + first, m_items.data() + last};
}

void CClusterMembers::RemoveEmptyClusters()
{
    m_ends.erase(std::unique(m_ends.begin(), m_ends.end()), m_ends.end());
    if (!m_ends.empty() && m_ends.front() == 0) m_ends.erase(m_ends.begin());
}

} // namespace Zorvan
