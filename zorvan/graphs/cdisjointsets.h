// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace Zorvan {

/// A partition of the indices 0 .. n - 1 into classes (union by size).
///
///     CDisjointSets sets(4);
///     sets.Unify(0, 2);
///     for (const auto& oneClass : sets)               // in ascending order of their roots
///         for (const unsigned int member : oneClass)  // ascending
///             use(member);
///     std::string(sets);                              // "{{0, 2}, {1}, {3}}"
///
/// Classes are named by their root, which is not always the smallest member. Walking a class of k members takes time k
/// log(k), so walking or printing all takes little more than n. An index of n or more throws std::out_of_range "invalid
/// element index" unless documented otherwise. No look-up writes, so const operations may run concurrently.
class ZORVAN_API CDisjointSets
{
public:
    class ClassIterator;
    class PartitionIterator;

    CDisjointSets() = default;
    /// n classes of one element each.
    explicit CDisjointSets(unsigned int n);
    CDisjointSets(const CDisjointSets&) = default;
    CDisjointSets(CDisjointSets&& other) noexcept;
    CDisjointSets& operator=(const CDisjointSets&) = default;
    CDisjointSets& operator=(CDisjointSets&& other) noexcept;
    ~CDisjointSets() = default;

    [[nodiscard]] unsigned int Size() const { return static_cast<unsigned int>(m_parents.size()); }
    [[nodiscard]] unsigned int GetNumClasses() const { return m_numClasses; }

    /// Joins the classes of a and b. The root of a survives unless its class is strictly the smaller one.
    /// @return the surviving root
    unsigned int Unify(unsigned int a, unsigned int b);

    /// The root of i. Takes at most log2(n) steps, as every look-up.
    [[nodiscard]] unsigned int GetClassRep(unsigned int i) const;
    [[nodiscard]] unsigned int GetClassSize(unsigned int i) const;
    [[nodiscard]] bool SameClass(unsigned int a, unsigned int b) const;
    /// The root of the largest class, the lowest one of several; 0 without elements.
    [[nodiscard]] unsigned int GetLargestClassRep() const;

    /// Classes are numbered from 0 in ascending order of their roots; both take linear time.
    /// @return the number of i's class, -1 for an index of n or more
    [[nodiscard]] int GetClassIndex(unsigned int i) const;
    /// @return the root of the k-th class, -1 when there is none
    [[nodiscard]] int GetClassByIndex(unsigned int k) const;

    /// The members of the class of `rep`, which may be any member, ascending. @param count  receives how many; may be
    /// null
    [[nodiscard]] std::unique_ptr<unsigned int[]> GetClassMembers(unsigned int rep, unsigned int* count) const;
    /// The roots, ascending. @param count  receives how many; may be null
    [[nodiscard]] std::unique_ptr<unsigned int[]> GetClasses(unsigned int* count) const;

    /// Walks the class of i. Iterators are valid as long as the partition does not change.
    [[nodiscard]] ClassIterator GetClass(unsigned int i) const;
    /// Walks all classes.
    [[nodiscard]] PartitionIterator begin() const;
    [[nodiscard]] PartitionIterator end() const;

    /// Makes a class of its own of every member of the class of `rep`, which may be any member.
    void DismantleClass(unsigned int rep);

    operator std::string() const;
    operator std::wstring() const;

private:
    [[nodiscard]] std::vector<unsigned int> membersOf(unsigned int i) const;
    [[nodiscard]] unsigned int nextRoot(unsigned int from) const;
    void checkIndex(unsigned int i) const;

    unsigned int m_numClasses = 0;
    std::vector<unsigned int> m_parents; ///< a root is its own parent
    std::vector<unsigned int> m_sizes;   ///< of the class, at its root only
    std::vector<unsigned int> m_next;    ///< the members of a class in a ring, in no particular order
};

/// One class: its members in ascending order, as an iterator and as a range of what is still ahead.
class ZORVAN_API CDisjointSets::ClassIterator
{
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = unsigned int;
    using difference_type = std::ptrdiff_t;
    using pointer = const unsigned int*;
    using reference = unsigned int;

    ClassIterator() = default; ///< behind the last member

    [[nodiscard]] explicit operator bool() const { return m_members != nullptr; }
    [[nodiscard]] unsigned int operator*() const { return (*m_members)[m_place]; }
    ClassIterator& operator++();
    ClassIterator operator++(int);
    /// Equal at the same member of the same partition.
    [[nodiscard]] bool operator==(const ClassIterator& other) const;

    [[nodiscard]] ClassIterator begin() const { return *this; }
    [[nodiscard]] ClassIterator end() const { return {}; }

    /// The members still ahead, as "{0, 2}".
    operator std::string() const;
    operator std::wstring() const;

private:
    friend class CDisjointSets;
    ClassIterator(const CDisjointSets& sets, std::vector<unsigned int> members);

    const CDisjointSets* m_sets = nullptr;
    std::shared_ptr<const std::vector<unsigned int>> m_members; ///< null behind the last
    std::size_t m_place = 0;
};

/// The classes in ascending order of their roots.
class ZORVAN_API CDisjointSets::PartitionIterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = ClassIterator;
    using difference_type = std::ptrdiff_t;
    using pointer = const ClassIterator*;
    using reference = ClassIterator;

    PartitionIterator() = default;

    [[nodiscard]] ClassIterator operator*() const { return m_sets->GetClass(m_root); }
    PartitionIterator& operator++();
    PartitionIterator operator++(int);
    [[nodiscard]] bool operator==(const PartitionIterator&) const = default;

private:
    friend class CDisjointSets;
    PartitionIterator(const CDisjointSets& sets, unsigned int root) : m_sets(&sets), m_root(root) {}

    const CDisjointSets* m_sets = nullptr;
    unsigned int m_root = 0; ///< n at the end
};

} // namespace Zorvan
