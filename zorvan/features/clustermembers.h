// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <iterator>
#include <span>
#include <utility>
#include <vector>

namespace Zorvan {

/// Walks the members of one cluster: an iterator, and the range of what is still ahead.
class ClusterIterator
{
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = unsigned int;
    using difference_type = std::ptrdiff_t;
    using pointer = const unsigned int*;
    using reference = unsigned int;

    ClusterIterator() = default; ///< of no members
    ClusterIterator(const unsigned int* first, const unsigned int* last) : m_current(first), m_last(last) {}

    [[nodiscard]] explicit operator bool() const { return m_current != m_last; }
    [[nodiscard]] unsigned int operator*() const { return *m_current; }
    ClusterIterator& operator++()
    {
        ++m_current;
        return *this;
    }
    ClusterIterator operator++(int) { return {m_current++, m_last}; }
    [[nodiscard]] bool operator==(const ClusterIterator&) const = default;

    [[nodiscard]] ClusterIterator begin() const { return *this; }
    [[nodiscard]] ClusterIterator end() const { return {m_last, m_last}; }

private:
    const unsigned int* m_current = nullptr;
    const unsigned int* m_last = nullptr;
};

/// Which items each cluster holds: all items in one array, grouped by cluster and ascending inside each. Iterators are
/// valid until the object is assigned to.
class ZORVAN_API CClusterMembers
{
public:
    static constexpr unsigned int none = ~0U; ///< in place of a cluster's number

    CClusterMembers() = default;
    /// @param clusterOf  for each item its cluster; items of cluster `numClusters` or more are left out
    CClusterMembers(std::span<const unsigned int> clusterOf, std::size_t numClusters);

    [[nodiscard]] std::size_t GetNumClusters() const { return m_ends.size(); }
    /// Where the cluster lies in the array; (0, 0) for one that does not exist.
    [[nodiscard]] std::pair<std::size_t, std::size_t> GetRange(std::size_t cluster) const;
    /// 0 for one that does not exist.
    [[nodiscard]] std::size_t GetClusterSize(std::size_t cluster) const;
    [[nodiscard]] ClusterIterator GetCluster(std::size_t cluster) const;

    /// Later numbers move up.
    void RemoveEmptyClusters();

private:
    std::vector<unsigned int> m_ends; ///< of each cluster in the array
    std::vector<unsigned int> m_items;
};

} // namespace Zorvan
