// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/translationvote.h"

#include "zorvan/platform/simd.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace prereg {

namespace {

using kdtree::Vector;
namespace simd = Zorvan::simd;

// A position is three numbers of 10 bits in one word: cell and fraction of a cell. The difference of two words is the
// difference of the positions, all modulo the size of the grid; a borrow between the numbers moves a vote by the last
// bit of a fraction.
constexpr unsigned bitsPerAxis = 10;
constexpr std::size_t lanes = 4;
constexpr std::size_t largestSize = 128; // of the grid, along each axis

Vector<3> middleOf(const Vectors& points)
{
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (const Vector<3>& p : points) {
        box.low = kdtree::Min(box.low, p);
        box.high = kdtree::Max(box.high, p);
    }
    return 0.5F * (box.low + box.high);
}

std::uint32_t pack(std::int32_t x, std::int32_t y, std::int32_t z)
{
    return static_cast<std::uint32_t>(x) + (static_cast<std::uint32_t>(y) << bitsPerAxis) +
           (static_cast<std::uint32_t>(z) << (2 * bitsPerAxis));
}

/// The grid has to hold the difference of any two points that can matter: sets that share a tenth of their surface
/// have middles less than 0.7 sizes apart.
unsigned cellBitsFor(float fixSize, float fltSize, float cell)
{
    const float cells = 0.7F * (fixSize + fltSize) / cell;
    unsigned bits = 5;
    while (bits < 7 && static_cast<float>(1U << bits) < cells) ++bits;
    return bits;
}

/// Turns positions into the numbers of their cells.
struct CellNumber
{
    explicit CellNumber(unsigned cellBits)
        : fraction(static_cast<int>(bitsPerAxis - cellBits)),
          x((1U << cellBits) - 1),
          y(x << cellBits),
          z(y << cellBits)
    {
    }

    [[nodiscard]] std::uint32_t Of(std::uint32_t word) const
    {
        return (word >> fraction & x) | (word >> (2 * fraction) & y) | (word >> (3 * fraction) & z);
    }
    [[nodiscard]] simd::UInt4 Of(simd::UInt4 word) const
    {
        return (word >> fraction & simd::Set1(x)) | (word >> (2 * fraction) & simd::Set1(y)) |
               (word >> (3 * fraction) & simd::Set1(z));
    }

    int fraction;
    std::uint32_t x, y, z; ///< masks
};

std::uint16_t largest(const std::uint16_t* values, std::size_t count)
{
    simd::UShort8 best = simd::ZeroUShort8();
    for (std::size_t i = 0; i < count; i += 8) best = simd::Max(best, simd::Load(values + i));
    return simd::Largest(best);
}

} // namespace

CTranslationVote::CTranslationVote(const Surfels& fix, const Surfels& flt, const Settings& settings)
    : m_fixCentre(middleOf(fix.points)),
      m_fltCentre(middleOf(flt.points)),
      m_cell(settings.cell),
      m_cellBits(cellBitsFor(EstimateSize(fix.points), EstimateSize(flt.points), settings.cell)),
      m_numFlt(std::min(flt.Size(), maxSurfels)),
      m_stride((m_numFlt + lanes - 1) / lanes * lanes)
{
    m_flt.resize(6 * m_stride);
    for (std::size_t i = 0; i < m_numFlt; ++i) {
        const Vector<3> p = flt.points[i] - m_fltCentre;
        for (unsigned k = 0; k < 3; ++k) {
            m_flt[k * m_stride + i] = p[k];
            m_flt[(3 + k) * m_stride + i] = flt.normals[i][k];
        }
    }
    listFixByNormal(fix, settings.maxNormalAngle);
}

// Only cubes that the sphere passes through are ever asked for; the others stay empty.
void CTranslationVote::listFixByNormal(const Surfels& fix, float maxNormalAngle)
{
    const float unit = static_cast<float>(1U << (bitsPerAxis - m_cellBits)) / m_cell;
    const std::size_t count = std::min(fix.Size(), maxSurfels);
    std::vector<std::uint32_t> words(count);
    for (std::size_t i = 0; i < count; ++i) {
        const Vector<3> p = unit * (fix.points[i] - m_fixCentre);
        constexpr std::int32_t middle = 1 << (bitsPerAxis - 1); // equal middles vote in the middle of the grid
        words[i] = pack(simd::RoundToInt(p.x) + middle, simd::RoundToInt(p.y) + middle, simd::RoundToInt(p.z) + middle);
    }
    const float minCos = std::cos(maxNormalAngle);
    constexpr float half = 0.5F * binsPerAxis;
    constexpr float cornerDistance = 0.8661F; // of a cube, from its middle
    m_binStart.reserve(binsPerAxis * binsPerAxis * binsPerAxis + 1);
    m_binStart.push_back(0);
    for (unsigned bin = 0; bin < binsPerAxis * binsPerAxis * binsPerAxis; ++bin) {
        const unsigned row = bin / binsPerAxis % binsPerAxis;
        const unsigned layer = bin / (binsPerAxis * binsPerAxis);
        const Vector<3> middle(static_cast<float>(bin % binsPerAxis) + 0.5F - half,
                               static_cast<float>(row) + 0.5F - half, static_cast<float>(layer) + 0.5F - half);
        const float length = middle.Length();
        if (std::abs(length - half) <= cornerDistance) {
            for (std::size_t i = 0; i < count; ++i)
                if (kdtree::Dot(fix.normals[i], middle) >= minCos * length) m_positions.push_back(words[i]);
        }
        m_binStart.push_back(static_cast<std::uint32_t>(m_positions.size()));
    }
}

void CTranslationVote::turn(const CTrafo& rotation, Ballot& ballot) const
{
    const float unit = static_cast<float>(1U << (bitsPerAxis - m_cellBits)) / m_cell;
    constexpr float half = 0.4999F * binsPerAxis; // 1 falls into the last bin, not behind it
    const simd::Float4 toBin = simd::Float4::Set1(half);
    const simd::Float4 beforeBin = simd::Float4::Set1(0.5F * binsPerAxis - 0.5F);
    const simd::Float4 lowest = simd::Float4::Set1(0.0F);
    const simd::Float4 highest = simd::Float4::Set1(binsPerAxis - 1.0F);
    ballot.positions.resize(m_stride);
    ballot.bins.resize(m_stride);
    simd::Float4 m[3][3];
    for (unsigned r = 0; r < 3; ++r)
        for (unsigned c = 0; c < 3; ++c) m[r][c] = simd::Float4::Set1(rotation(r, c));
    for (std::size_t i = 0; i < m_stride; i += lanes) {
        std::int32_t at[3][lanes];
        std::int32_t bin[3][lanes];
        simd::Float4 v[6];
        for (std::size_t k = 0; k < 6; ++k) v[k] = simd::Float4::Load(m_flt.data() + k * m_stride + i);
        for (unsigned r = 0; r < 3; ++r) {
            ((m[r][0] * v[0] + m[r][1] * v[1] + m[r][2] * v[2]) * simd::Float4::Set1(unit)).StoreRounded(at[r]);
            const simd::Float4 normal = m[r][0] * v[3] + m[r][1] * v[4] + m[r][2] * v[5];
            // In this order what is not a number falls into the last bin: both take the second where one is none.
            simd::Max(simd::Min(normal * toBin + beforeBin, highest), lowest).StoreRounded(bin[r]);
        }
        for (std::size_t k = 0; k < lanes; ++k) {
            ballot.positions[i + k] = pack(at[0][k], at[1][k], at[2][k]);
            ballot.bins[i + k] = static_cast<std::uint32_t>(
                bin[0][k] + static_cast<std::int32_t>(binsPerAxis) *
                                (bin[1][k] + static_cast<std::int32_t>(binsPerAxis) * bin[2][k]));
        }
    }
}

void CTranslationVote::cast(Ballot& ballot) const
{
    const CellNumber number(m_cellBits);
    std::uint16_t* const cells = ballot.cells.data();
    for (std::size_t i = 0; i < m_numFlt; ++i) {
        const std::uint32_t* fix = m_positions.data() + m_binStart[ballot.bins[i]];
        const std::uint32_t* const end = m_positions.data() + m_binStart[ballot.bins[i] + 1];
        const std::uint32_t flt = ballot.positions[i];
        const simd::UInt4 flts = simd::Set1(flt);
        for (; fix + lanes <= end; fix += lanes) {
            const simd::UInt4 cell = number.Of(simd::Load(fix) - flts);
            const std::uint64_t low = simd::LowPair(cell);
            const std::uint64_t high = simd::HighPair(cell);
            ++cells[low & 0xFFFFFFFFU];
            ++cells[low >> 32U];
            ++cells[high & 0xFFFFFFFFU];
            ++cells[high >> 32U];
        }
        for (; fix < end; ++fix) ++cells[number.Of(*fix - flt)];
    }
}

// In place: a block is summed into its lowest cell, and rows are visited from the lowest on. At the upper end of the
// grid a block is cut off; nothing of use lies there. Rows that lie above each other along z are added once, for this y
// and the one before.
void CTranslationVote::sumBlocks(Ballot& ballot) const
{
    const std::size_t size = std::size_t{1} << m_cellBits;
    static constexpr std::array<std::uint16_t, largestSize> nothing{};
    std::array<simd::UShort8, largestSize / 8 + 1> columns{};
    for (std::size_t z = 0; z < size; ++z) {
        const auto addRows = [&](std::size_t y, std::size_t i) {
            const std::uint16_t* const row = ballot.cells.data() + (z * size + y) * size;
            const std::uint16_t* const above = z + 1 < size ? row + size * size : nothing.data();
            return simd::AddSaturated(simd::Load(row + i), simd::Load(above + i));
        };
        std::array<simd::UShort8, largestSize / 8> here{};
        for (std::size_t i = 0; i < size / 8; ++i) here[i] = addRows(0, 8 * i);
        for (std::size_t y = 0; y < size; ++y) {
            for (std::size_t i = 0; i < size / 8; ++i) {
                const simd::UShort8 next = y + 1 < size ? addRows(y + 1, 8 * i) : simd::ZeroUShort8();
                columns[i] = simd::AddSaturated(here[i], next);
                here[i] = next;
            }
            std::uint16_t* const out = ballot.cells.data() + (z * size + y) * size;
            simd::UShort8 best = simd::ZeroUShort8();
            for (std::size_t i = 0; i < size / 8; ++i) {
                const simd::UShort8 sum = simd::AddSaturated(columns[i], simd::ShiftedDown(columns[i], columns[i + 1]));
                simd::Store(out + 8 * i, sum);
                best = simd::Max(best, sum);
            }
            ballot.rowMaxima[z * size + y] = simd::Largest(best);
        }
    }
}

std::size_t CTranslationVote::highestCell(const Ballot& ballot) const
{
    const std::size_t size = std::size_t{1} << m_cellBits;
    const std::uint16_t highest = largest(ballot.rowMaxima.data(), size * size);
    const auto row = std::find(ballot.rowMaxima.begin(), ballot.rowMaxima.end(), highest) - ballot.rowMaxima.begin();
    const auto first = ballot.cells.begin() + row * static_cast<std::ptrdiff_t>(size);
    return static_cast<std::size_t>(std::find(first, first + static_cast<std::ptrdiff_t>(size), highest) -
                                    ballot.cells.begin());
}

// Blocks overlap, so the mean of a block and its two neighbours along an axis finds the top between them.
Vector<3> CTranslationVote::offsetOf(std::size_t cell, const Ballot& ballot) const
{
    const std::size_t size = std::size_t{1} << m_cellBits;
    const auto half = static_cast<int>(size / 2);
    Vector<3> offset;
    for (unsigned k = 0; k < 3; ++k) {
        const std::size_t step = std::size_t{1} << (k * m_cellBits);
        const auto at = static_cast<int>(cell >> (k * m_cellBits) & (size - 1));
        const float here = ballot.cells[cell];
        const float before = at > 0 ? ballot.cells[cell - step] : 0;
        const float behind = at + 1 < static_cast<int>(size) ? ballot.cells[cell + step] : 0;
        offset[k] = m_cell * (static_cast<float>(at - half) + 1.0F + (behind - before) / (before + here + behind));
    }
    return offset;
}

void CTranslationVote::strikeOut(std::size_t cell, Ballot& ballot) const
{
    constexpr std::size_t reach = 2;
    const std::size_t size = std::size_t{1} << m_cellBits;
    std::array<std::size_t, 3> low{};
    std::array<std::size_t, 3> high{};
    for (std::size_t k = 0; k < 3; ++k) {
        const std::size_t at = cell >> (k * m_cellBits) & (size - 1);
        low[k] = at - std::min(at, reach);
        high[k] = std::min(at + reach, size - 1);
    }
    for (std::size_t z = low[2]; z <= high[2]; ++z) {
        for (std::size_t y = low[1]; y <= high[1]; ++y) {
            const std::size_t row = z * size + y;
            std::uint16_t* const cells = ballot.cells.data() + row * size;
            std::fill(cells + low[0], cells + high[0] + 1, std::uint16_t{0});
            ballot.rowMaxima[row] = largest(cells, size);
        }
    }
}

void CTranslationVote::Find(const CTrafo& rotation, unsigned numPeaks, Ballot& ballot, std::vector<Peak>& peaks) const
{
    const std::size_t size = std::size_t{1} << m_cellBits;
    ballot.cells.assign(size * size * size, 0);
    ballot.rowMaxima.resize(size * size);
    turn(rotation, ballot);
    cast(ballot);
    sumBlocks(ballot);
    const CTrafo turned = rotation.Translate(-rotation.GetTranslation());
    for (unsigned k = 0; k < numPeaks; ++k) {
        const std::size_t cell = highestCell(ballot);
        const unsigned votes = ballot.cells[cell];
        if (votes == 0) return;
        const Vector<3> offset = offsetOf(cell, ballot);
        peaks.push_back({turned.Translate(offset + m_fixCentre - turned.Rotate(m_fltCentre)), votes});
        strikeOut(cell, ballot);
    }
}

} // namespace prereg
