// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"
#include "zorvan/preregistration/surfelthinning.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace prereg {

/// For a given rotation, the translations that lay most of one surface on another: every pair of surfels whose turned
/// normals agree votes for the translation that would lay one on the other, and these votes pile up in the cells of a
/// grid.
///
///     const CTranslationVote vote(fix, flt, {0.045F * size, 0.38F});
///     CTranslationVote::Ballot ballot;
///     for (const CTrafo& rotation : EvenRotations(1500)) vote.Find(rotation, 3, ballot, peaks);
///
/// Const operations are safe from several threads, each with a ballot of its own. A call costs about a nanosecond a
/// vote, and a pass over the grid.
class ZORVAN_API CTranslationVote
{
public:
    struct Settings
    {
        float cell = 1.0F;           ///< mm; a peak is a block of 2 x 2 x 2 of them
        float maxNormalAngle = 0.4F; ///< radians, up to some 4 degrees more or less for a single pair
    };

    struct Peak
    {
        CTrafo pose; ///< floating into fixed coordinates
        unsigned votes;
    };

    /// Memory of one thread, to be kept from call to call.
    struct Ballot
    {
        std::vector<std::uint16_t> cells;
        std::vector<std::uint16_t> rowMaxima;
        std::vector<std::uint32_t> positions; ///< of the turned floating surfels
        std::vector<std::uint32_t> bins;      ///< of their normals
    };

    /// The sets are copied; up to `maxSurfels` of each are looked at.
    CTranslationVote(const Surfels& fix, const Surfels& flt, const Settings& settings);

    /// Appends the best peaks, most votes first, none within two cells of a better one.
    /// @param rotation  of the floating surfels; its translation does not count
    void Find(const CTrafo& rotation, unsigned numPeaks, Ballot& ballot, std::vector<Peak>& peaks) const;

    /// So that 16 bits hold every count.
    static constexpr std::size_t maxSurfels = 4000;

private:
    static constexpr unsigned binsPerAxis = 16; ///< of normals: small cubes that the unit sphere passes through

    void listFixByNormal(const Surfels& fix, float maxNormalAngle);
    void turn(const CTrafo& rotation, Ballot& ballot) const;
    void cast(Ballot& ballot) const;
    void sumBlocks(Ballot& ballot) const;
    [[nodiscard]] std::size_t highestCell(const Ballot& ballot) const;
    [[nodiscard]] kdtree::Vector<3> offsetOf(std::size_t cell, const Ballot& ballot) const;
    void strikeOut(std::size_t cell, Ballot& ballot) const;

    kdtree::Vector<3> m_fixCentre;
    kdtree::Vector<3> m_fltCentre;
    float m_cell;
    unsigned m_cellBits; ///< of a coordinate: the grid has 2^bits cells along each axis
    std::size_t m_numFlt = 0;
    std::vector<float> m_flt;               ///< x, y, z, nx, ny, nz of the floating surfels, one stretch each
    std::size_t m_stride = 0;               ///< of such a stretch, a multiple of the lanes
    std::vector<std::uint32_t> m_binStart;  ///< first entry of each bin, and the end
    std::vector<std::uint32_t> m_positions; ///< of the fixed surfels whose normals agree with the bin
};

} // namespace prereg
