// SPDX-License-Identifier: MIT
#include "zorvan/scans/joinpoints.h"

#include <bit>
#include <cstdint>
#include <limits>
#include <vector>

namespace Zorvan {

namespace {

constexpr std::uint32_t uiFree = std::numeric_limits<std::uint32_t>::max();

// -0 equals 0, so both need the same hash.
std::uint64_t bitsOf(float value) { return std::bit_cast<std::uint32_t>(value + 0.0F); }

std::uint64_t hashOf(const kdtree::Vector<3>& p)
{
    std::uint64_t h = bitsOf(p.x) | (bitsOf(p.y) << 32U);
    h = (h ^ (h >> 33U)) * 0xFF51AFD7ED558CCDULL; // finalisation of MurmurHash3, A. Appleby, public domain
    h = (h ^ (h >> 33U) ^ bitsOf(p.z)) * 0xC4CEB9FE1A85EC53ULL;
    return h ^ (h >> 33U);
}

/// New number of each point; equal points get the same one.
class CPointNumbers
{
public:
    explicit CPointNumbers(const prereg::Vectors& points)
        : m_points(points), m_slots(std::bit_ceil(2 * points.size() + 1), uiFree), m_numbers(points.size())
    {
        for (std::uint32_t i = 0; i < points.size(); ++i) m_numbers[i] = numberOf(i);
    }

    [[nodiscard]] std::uint32_t operator[](std::size_t i) const { return m_numbers[i]; }
    [[nodiscard]] std::size_t Count() const { return m_first.size(); }

private:
    std::uint32_t numberOf(std::uint32_t i)
    {
        const std::size_t mask = m_slots.size() - 1;
        std::size_t slot = hashOf(m_points[i]) & mask;
        while (m_slots[slot] != uiFree && !(m_points[m_first[m_slots[slot]]] == m_points[i])) slot = (slot + 1) & mask;
        if (m_slots[slot] == uiFree) {
            m_slots[slot] = static_cast<std::uint32_t>(m_first.size());
            m_first.push_back(i);
        }
        return m_slots[slot];
    }

    const prereg::Vectors& m_points;
    std::vector<std::uint32_t> m_slots; ///< open addressing; holds numbers
    std::vector<std::uint32_t> m_first; ///< by number, the first point at its place
    std::vector<std::uint32_t> m_numbers;
};

template <typename T>
void keepFirsts(std::vector<T>& values, const CPointNumbers& numbers)
{
    std::uint32_t next = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (numbers[i] == next) values[next++] = values[i];
    }
    values.resize(next);
}

// In place: a point's new number is never above its old one, and the first of equal points comes first.
void renumberVertices(Scan& scan, const CPointNumbers& numbers)
{
    std::uint32_t next = 0;
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        const bool isFirst = numbers[i] == next;
        if (isFirst) scan.points[next++] = scan.points[i];
        if (scan.normals.empty()) continue;
        scan.normals[numbers[i]] = isFirst ? scan.normals[i] : scan.normals[numbers[i]] + scan.normals[i];
    }
    scan.points.resize(numbers.Count());
    if (!scan.normals.empty()) scan.normals.resize(numbers.Count());
}

} // namespace

std::size_t JoinEqualPoints(Scan& scan)
{
    const CPointNumbers numbers(scan.points);
    const std::size_t joined = scan.points.size() - numbers.Count();
    if (joined == 0) return 0;
    renumberVertices(scan, numbers);
    keepFirsts(scan.colours, numbers);
    keepFirsts(scan.intensities, numbers);
    for (Face& face : scan.faces) face = {numbers[face[0]], numbers[face[1]], numbers[face[2]]};
    std::erase_if(scan.faces, [](const Face& f) { return f[0] == f[1] || f[1] == f[2] || f[2] == f[0]; });
    return joined;
}

} // namespace Zorvan
