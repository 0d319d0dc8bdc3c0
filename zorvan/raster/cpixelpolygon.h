// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/raster/areaiterator.h"
#include "zorvan/raster/chainedpixel.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Zorvan {

struct Contour;
struct PixelBox;
class CPixelMask;

/// A region of a picture without holes, held by its margin: the closed chain of its outermost pixels.
///
///     const auto regions = CPixelPolygon::RegionsOf(mask, width, height);
///     const auto grown = regions[0].Dilate(3);
///     for (auto it = grown.GetAreaAndMarginIterator(); it; ++it) use(it->x, it->y);
///
/// y grows downwards. Every operation that makes a region paints a mask and traces the outer contour around its first
/// pixel, row by row. So a result is always one region, holes are filled, and what does not hang together with that
/// first pixel, by sides or corners, is lost.
///
/// Failure is the empty polygon: for coordinates beyond 2^29, a box of more than 2^31 pixels, a chain of more than
/// 2^26, or no memory for the mask.
///
/// The interior is found when it is first asked for, also by const operations: until then an object belongs to one
/// thread.
class ZORVAN_API CPixelPolygon
{
public:
    using Coords = PixelCoords;
    using AreaIterator = Zorvan::AreaIterator;
    using MarginPixelSet = std::unordered_set<ChainedPixel, ChainedPixel::hashFunc>;

    /// The payload of pixels that were drawn by `CreateFromPolygon`.
    struct PixelLabel
    {
        int firstVertex;
        int secondVertex;
        float
            position; ///< along the edge, from 0 at the first vertex to -1 at the second; 0.5 on an edge without length
    };

    enum ECoordType : int
    {
        eEmpty = 0, ///< what an empty polygon says of all pixels
        eMargin = 1,
        eInterior = 2,
        eOutside = 4
    };

    template <int Mutable>
    class MarginIteratorTemplate;
    class Iterator;

    CPixelPolygon() = default;

    /// All regions of a mask, in the order of their first pixels, row by row. Pixels that touch at a corner hang
    /// together; a region in a hole of another one is a region too.
    /// @param mask  width * height bytes, not 0 where there is a region
    /// @return      empty for a mask that is too large, see above
    [[nodiscard]] static std::vector<CPixelPolygon> RegionsOf(const unsigned char* mask, int width, int height);

    /// The chain runs down on the left side. The area counts the interior alone, unlike that of a traced region, and
    /// the perimeter runs from centre to centre.
    [[nodiscard]] static CPixelPolygon Rectangle(int x0, int y0, int x1, int y1);

    /// Draws the closed polygon through n vertices, labels the pixels with their places on the edges (`PixelLabel`),
    /// and takes the region that it encloses.
    /// @param start, direction  if not null: the vertex at which drawing starts (the topmost, then the leftmost), and
    ///                          1 or -1, the way through the vertices from there
    /// @return                  empty for n < 3
    /// Edges between pixels, by Bresenham's algorithm.
    [[nodiscard]] static CPixelPolygon CreateFromPolygon(const int* x, const int* y, unsigned int n, int* start,
                                                         int* direction);
    /// Edges through every cell that they cross; a pixel is the unit square to the right of and below its coordinates.
    [[nodiscard]] static CPixelPolygon CreateFromPolygon(const double* x, const double* y, unsigned int n, int* start,
                                                         int* direction);
    /// Edges two pixels wide, held in a box.
    [[nodiscard]] static CPixelPolygon CreateFromPolygon(const double* x, const double* y, unsigned int n, int xmin,
                                                         int ymin, int xmax, int ymax, int* start, int* direction);

    /// Of the chain; a pixel that it passes twice counts twice.
    [[nodiscard]] unsigned int Size() const { return static_cast<unsigned int>(m_chain.size()); }
    [[nodiscard]] bool Empty() const { return m_chain.empty(); }
    /// Pixels of margin and interior, as they were counted when the region was traced.
    [[nodiscard]] int GetArea() const { return m_area; }
    [[nodiscard]] int GetEnclosedArea() const { return m_area - static_cast<int>(Size()); }
    [[nodiscard]] float GetPerimeter() const { return m_perimeter; }
    /// perimeter^2 / area: 4 pi for a disc, more for all other shapes; NaN for an empty polygon.
    [[nodiscard]] float GetRoundness() const { return m_perimeter * m_perimeter / static_cast<float>(m_area); }
    /// Keeps the perimeter.
    void Clear();

    /// The pixels from xmin to xmax and from ymin to ymax; null pointers are left out. @return false when empty
    bool GetAABB(int* xmin, int* ymin, int* xmax, int* ymax) const;
    /// The mean of the chain and the interior, (x, y); NaN when empty.
    [[nodiscard]] std::pair<double, double> GetCenterOfGravity() const;

    /// True when one chain begins with the other, as for an empty polygon and any other; payloads do not count. Callers
    /// compare polygons with the beginnings of others by it.
    [[nodiscard]] bool operator==(const CPixelPolygon& other) const;

    [[nodiscard]] ECoordType Classify(int x, int y) const;
    [[nodiscard]] ECoordType Classify(const Coords& p) const { return Classify(p.x, p.y); }
    /// The types of all chain pixels of `other`, ORed; 0 when one of the two is empty.
    [[nodiscard]] int Classify(const CPixelPolygon& other) const;
    /// In the interior; a pixel of the margin is not.
    [[nodiscard]] bool IsInside(int x, int y) const { return getAreaIteratorRef().IsInside(x, y); }
    [[nodiscard]] bool IsInside(const Coords& p) const { return IsInside(p.x, p.y); }
    /// The whole chain of this polygon lies in the interior of `other`; false when one of the two is empty.
    [[nodiscard]] bool IsInside(const CPixelPolygon& other) const;

    /// The same region elsewhere.
    [[nodiscard]] CPixelPolygon Shift(int dx, int dy) const;
    /// Empty when one of the two is, and when the boxes do not meet; callers rely on both. When only the boxes meet,
    /// the region that has the first pixel.
    [[nodiscard]] CPixelPolygon Union(const CPixelPolygon& other) const;
    [[nodiscard]] CPixelPolygon Intersect(const CPixelPolygon& other) const;
    /// All pixels whose row and column differ by no more than `radius` from those of a pixel of the region. A copy for
    /// radius 0, and when the result would be too large.
    [[nodiscard]] CPixelPolygon Dilate(unsigned int radius) const;
    /// The same in rounds of one pixel, each of which asks `filter` before it takes a pixel.
    [[nodiscard]] CPixelPolygon Dilate(unsigned int radius, std::function<bool(int, int)> filter) const;
    /// The region within a chain that was drawn and not traced, without spikes and double passes. Payloads move along.
    [[nodiscard]] CPixelPolygon Repair() const;
    [[nodiscard]] CPixelPolygon ConvexHull() const;

    /// The pixels outside that share a side with one of the margin, around each of its pixels in turn, so that one
    /// beside two of them comes twice. The payload is a `std::shared_ptr<ChainedPixel>` to a copy of the margin's
    /// pixel.
    [[nodiscard]] std::vector<ChainedPixel> GetVonNeumannNeighborhood() const;

    /// Null when empty. Places must stay as they are; payloads may change.
    [[nodiscard]] const std::vector<ChainedPixel>* getPixelChainPtr() const { return Empty() ? nullptr : &m_chain; }
    [[nodiscard]] std::vector<ChainedPixel>* getPixelChainPtr() { return Empty() ? nullptr : &m_chain; }
    /// Made when it is first asked for.
    [[nodiscard]] const AreaIterator& getAreaIteratorRef() const;

    [[nodiscard]] AreaIterator GetAreaIterator() const { return getAreaIteratorRef(); }
    [[nodiscard]] MarginIteratorTemplate<0> GetMarginIterator() const;
    [[nodiscard]] MarginIteratorTemplate<1> GetMarginIterator();
    [[nodiscard]] Iterator GetAreaAndMarginIterator() const;
    [[nodiscard]] MarginPixelSet GetMarginPixelSet() const;

private:
    CPixelPolygon(std::vector<ChainedPixel> chain, int area, float perimeter);
    explicit CPixelPolygon(Contour contour);

    [[nodiscard]] PixelBox box() const;
    void paint(CPixelMask& mask, unsigned char bits) const;
    [[nodiscard]] ECoordType classify(const MarginPixelSet& margin, int x, int y) const;
    void takeLabels(const std::vector<ChainedPixel>& from);

    std::vector<ChainedPixel> m_chain;
    int m_area = 0;
    float m_perimeter = 0.0F;
    mutable std::optional<AreaIterator> m_areaIterator;
};

/// Walks the chain of a polygon, which has to stay; pixels may be changed when `Mutable` is 1.
template <int Mutable>
class CPixelPolygon::MarginIteratorTemplate
{
    using Chain = std::conditional_t<Mutable != 0, std::vector<ChainedPixel>, const std::vector<ChainedPixel>>;
    using Pixel = std::conditional_t<Mutable != 0, ChainedPixel, const ChainedPixel>;

public:
    MarginIteratorTemplate() = default;
    explicit MarginIteratorTemplate(Chain* chain) : m_chain(chain) {}

    /// There is a current pixel.
    [[nodiscard]] explicit operator bool() const { return m_chain != nullptr && m_current < m_chain->size(); }
    [[nodiscard]] Pixel& operator*() const { return (*m_chain)[m_current]; }
    [[nodiscard]] Pixel* operator->() const { return &**this; }
    MarginIteratorTemplate& operator++()
    {
        if (*this) ++m_current;
        return *this;
    }
    [[nodiscard]] bool operator==(const MarginIteratorTemplate&) const = default;

private:
    Chain* m_chain = nullptr; ///< null for an empty polygon
    std::size_t m_current = 0;
};

/// Visits every pixel of margin and interior once: the margin in no particular order, then the interior row by row.
class ZORVAN_API CPixelPolygon::Iterator
{
public:
    explicit Iterator(const CPixelPolygon& polygon);

    [[nodiscard]] explicit operator bool() const { return isOnMargin() || static_cast<bool>(m_area); }
    [[nodiscard]] Coords operator*() const { return *operator->(); }
    [[nodiscard]] const Coords* operator->() const { return isOnMargin() ? &m_place : &*m_area; }
    Iterator& operator++();

private:
    [[nodiscard]] bool isOnMargin() const { return m_current != m_margin->end(); }
    void readPlace();

    std::shared_ptr<const MarginPixelSet> m_margin; ///< shared by copies, so that their places stay good
    MarginPixelSet::const_iterator m_current;
    Coords m_place{0, 0};
    AreaIterator m_area;
};

} // namespace Zorvan
