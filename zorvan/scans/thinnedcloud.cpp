// SPDX-License-Identifier: MIT
#include "zorvan/scans/thinnedcloud.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <span>
#include <stdexcept>
#include <utility>

namespace Zorvan {

namespace {

constexpr std::uint32_t uiFree = std::numeric_limits<std::uint32_t>::max();
constexpr double dFinest = 0x1p-14; // of the extent: finer than any grid of registration

std::uint64_t hashOf(const std::array<double, 3>& cell)
{
    std::uint64_t hash = 0;
    for (const double c : cell) {
        hash ^= std::bit_cast<std::uint64_t>(c + 0.0); // -0 is 0
        hash *= 0xFF51AFD7ED558CCDULL;                 // finalisation of MurmurHash3, A. Appleby, public domain
        hash ^= hash >> 33U;
    }
    return hash;
}

} // namespace

CThinnedCloud::CThinnedCloud(std::size_t uiMost) : m_most(uiMost)
{
    constexpr std::size_t uiFewest = 16; // twice the cells about the origin, which the coarsest lattice has
    if (uiMost < uiFewest || uiMost >= uiFree) throw std::invalid_argument("no room for points");
}

CThinnedCloud::Cell CThinnedCloud::cellOf(const Position& place) const
{
    return {std::floor(place[0] / m_cell), std::floor(place[1] / m_cell), std::floor(place[2] / m_cell)};
}

bool CThinnedCloud::claim(const Position& place)
{
    const Cell cell = cellOf(place);
    const std::size_t mask = m_slots.size() - 1;
    std::size_t slot = hashOf(cell) & mask;
    for (; m_slots[slot] != uiFree; slot = (slot + 1) & mask)
        if (cellOf(m_places[m_slots[slot]]) == cell) return false;
    m_slots[slot] = m_next++;
    return true;
}

void CThinnedCloud::TakePoint(const Position& place, const Position* normal)
{
    ++m_taken;
    if (!std::isfinite(place[0]) || !std::isfinite(place[1]) || !std::isfinite(place[2])) {
        ++m_notFinite;
        return;
    }
    if (m_cell > 0.0 && !claim(place)) return;
    m_places.push_back(place);
    m_hasNormals = m_hasNormals && normal != nullptr;
    if (m_hasNormals) m_normals.emplace_back(ToFloat((*normal)[0]), ToFloat((*normal)[1]), ToFloat((*normal)[2]));
    if (m_places.size() >= m_most) coarsen();
}

/// Stray points far away do not count.
double CThinnedCloud::firstCell() const
{
    constexpr std::size_t uiProbes = 4096;
    double extent = 0.0;
    double farthest = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        std::vector<double> values;
        for (std::size_t i = 0; i < m_places.size(); i += 1 + m_places.size() / uiProbes)
            values.push_back(m_places[i][axis]);
        std::ranges::sort(values);
        extent = std::max(extent, values[values.size() * 19 / 20] - values[values.size() / 20]);
        farthest = std::max({farthest, std::abs(values.front()), std::abs(values.back())});
    }
    const double least = std::max(farthest * std::numeric_limits<double>::epsilon(), 0x1p-1000);
    return std::exp2(std::floor(std::log2(std::max(extent * dFinest, least))));
}

void CThinnedCloud::coarsen()
{
    if (!m_hasNormals) m_normals = {};
    m_slots.resize(std::bit_ceil(2 * m_most));
    while (2 * m_places.size() > m_most) {
        m_cell = m_cell == 0.0 ? firstCell() : 2.0 * m_cell;
        std::ranges::fill(m_slots, uiFree);
        m_next = 0;
        // In place: what is kept never stands behind where it was.
        for (std::size_t i = 0; i < m_places.size(); ++i) {
            const std::size_t to = m_next;
            if (!claim(m_places[i])) continue;
            m_places[to] = m_places[i];
            if (m_hasNormals) m_normals[to] = m_normals[i];
        }
        m_places.resize(m_next);
        if (m_hasNormals) m_normals.resize(m_next);
    }
}

Scan CThinnedCloud::ToScan()
{
    Scan scan;
    SetPoints(scan, m_places);
    if (m_hasNormals) scan.normals = std::move(m_normals);
    scan.sensor = m_sensor;
    for (std::size_t axis = 0; scan.sensor && axis < 3; ++axis) scan.sensor->position[axis] -= scan.shift[axis];
    m_places = {};
    m_normals = {};
    m_slots = {};
    return scan;
}

} // namespace Zorvan
