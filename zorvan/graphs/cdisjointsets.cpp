// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdisjointsets.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace Zorvan {

namespace {

std::unique_ptr<unsigned int[]> toArray(const std::vector<unsigned int>& values, unsigned int* count)
{
    auto result = std::make_unique<unsigned int[]>(values.size());
    std::ranges::copy(values, result.get());
    if (count) *count = static_cast<unsigned int>(values.size());
    return result;
}

std::wstring widened(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

} // namespace

CDisjointSets::CDisjointSets(unsigned int n) : m_numClasses(n), m_parents(n), m_sizes(n, 1)
{
    std::iota(m_parents.begin(), m_parents.end(), 0U);
    m_next = m_parents;
}

CDisjointSets::CDisjointSets(CDisjointSets&& other) noexcept { *this = std::move(other); }

CDisjointSets& CDisjointSets::operator=(CDisjointSets&& other) noexcept
{
    // What was moved from is a partition of nothing, not one that still counts classes.
    m_numClasses = std::exchange(other.m_numClasses, 0);
    m_parents = std::exchange(other.m_parents, {});
    m_sizes = std::exchange(other.m_sizes, {});
    m_next = std::exchange(other.m_next, {});
    return *this;
}

unsigned int CDisjointSets::Unify(unsigned int a, unsigned int b)
{
    unsigned int survivor = GetClassRep(a);
    unsigned int other = GetClassRep(b);
    if (survivor == other) return survivor;
    if (m_sizes[survivor] < m_sizes[other]) std::swap(survivor, other);

    m_parents[other] = survivor;
    m_sizes[survivor] += m_sizes[other];
    std::swap(m_next[survivor], m_next[other]); // makes one ring of two
    --m_numClasses;
    return survivor;
}

unsigned int CDisjointSets::GetClassRep(unsigned int i) const
{
    checkIndex(i);
    while (m_parents[i] != i) i = m_parents[i];
    return i;
}

unsigned int CDisjointSets::GetClassSize(unsigned int i) const { return m_sizes[GetClassRep(i)]; }

bool CDisjointSets::SameClass(unsigned int a, unsigned int b) const { return GetClassRep(a) == GetClassRep(b); }

unsigned int CDisjointSets::GetLargestClassRep() const
{
    unsigned int largest = 0;
    for (unsigned int root = nextRoot(0); root < Size(); root = nextRoot(root + 1))
        if (m_parents[largest] != largest || m_sizes[root] > m_sizes[largest]) largest = root;
    return largest;
}

int CDisjointSets::GetClassIndex(unsigned int i) const
{
    if (i >= Size()) return -1;
    const unsigned int rep = GetClassRep(i);
    int index = 0;
    for (unsigned int root = nextRoot(0); root < rep; root = nextRoot(root + 1)) ++index;
    return index;
}

int CDisjointSets::GetClassByIndex(unsigned int k) const
{
    if (k >= m_numClasses) return -1;
    unsigned int root = nextRoot(0);
    while (k-- > 0) root = nextRoot(root + 1);
    return static_cast<int>(root);
}

std::unique_ptr<unsigned int[]> CDisjointSets::GetClassMembers(unsigned int rep, unsigned int* count) const
{
    return toArray(membersOf(rep), count);
}

std::unique_ptr<unsigned int[]> CDisjointSets::GetClasses(unsigned int* count) const
{
    std::vector<unsigned int> roots;
    for (unsigned int root = nextRoot(0); root < Size(); root = nextRoot(root + 1)) roots.push_back(root);
    return toArray(roots, count);
}

CDisjointSets::ClassIterator CDisjointSets::GetClass(unsigned int i) const { return {*this, membersOf(i)}; }

CDisjointSets::PartitionIterator CDisjointSets::begin() const { return {*this, nextRoot(0)}; }

CDisjointSets::PartitionIterator CDisjointSets::end() const { return {*this, Size()}; }

void CDisjointSets::DismantleClass(unsigned int rep)
{
    const std::vector<unsigned int> members = membersOf(rep);
    for (const unsigned int member : members) {
        m_parents[member] = member;
        m_sizes[member] = 1;
        m_next[member] = member;
    }
    m_numClasses += static_cast<unsigned int>(members.size()) - 1;
}

CDisjointSets::operator std::string() const
{
    std::string text = "{";
    for (const ClassIterator& oneClass : *this) {
        if (text.size() > 1) text += ", ";
        text += std::string(oneClass);
    }
    return text + "}";
}

CDisjointSets::operator std::wstring() const { return widened(*this); }

/// The class of i, ascending.
std::vector<unsigned int> CDisjointSets::membersOf(unsigned int i) const
{
    checkIndex(i);
    std::vector<unsigned int> members{i};
    for (unsigned int next = m_next[i]; next != i; next = m_next[next]) members.push_back(next);
    std::ranges::sort(members);
    return members;
}

unsigned int CDisjointSets::nextRoot(unsigned int from) const
{
    while (from < Size() && m_parents[from] != from) ++from;
    return from;
}

void CDisjointSets::checkIndex(unsigned int i) const
{
    if (i >= Size()) throw std::out_of_range("invalid element index");
}

CDisjointSets::ClassIterator::ClassIterator(const CDisjointSets& sets, std::vector<unsigned int> members)
    : m_sets(&sets), m_members(std::make_shared<const std::vector<unsigned int>>(std::move(members)))
{
}

CDisjointSets::ClassIterator& CDisjointSets::ClassIterator::operator++()
{
    if (m_members && ++m_place == m_members->size()) *this = {};
    return *this;
}

CDisjointSets::ClassIterator CDisjointSets::ClassIterator::operator++(int)
{
    ClassIterator before = *this;
    ++*this;
    return before;
}

bool CDisjointSets::ClassIterator::operator==(const ClassIterator& other) const
{
    if (!m_members || !other.m_members) return m_members == other.m_members;
    return m_sets == other.m_sets && **this == *other;
}

CDisjointSets::ClassIterator::operator std::string() const
{
    std::string text = "{";
    for (const unsigned int member : *this) text += (text.size() > 1 ? ", " : "") + std::to_string(member);
    return text + "}";
}

CDisjointSets::ClassIterator::operator std::wstring() const { return widened(*this); }

CDisjointSets::PartitionIterator& CDisjointSets::PartitionIterator::operator++()
{
    m_root = m_sets->nextRoot(m_root + 1);
    return *this;
}

CDisjointSets::PartitionIterator CDisjointSets::PartitionIterator::operator++(int)
{
    const PartitionIterator before = *this;
    ++*this;
    return before;
}

} // namespace Zorvan
