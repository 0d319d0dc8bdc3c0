// SPDX-License-Identifier: MIT
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <optional>
#include <random>
#include <utility>

namespace prereg {

namespace {

constexpr unsigned uiSeed = 47110815;

} // namespace

float CPoseJudge::pixelOf(const CScanView& view)
{
    return view.HasImage() ? view.GetImage().GetPixelSize()
                           : static_cast<float>(verdict::dPixelPerSpacing * view.GetSampling().dSpacing);
}

void CPoseJudge::takeSamples(Side& side) const
{
    const CScanView& view = *side.view;
    const double step = (m_isCoarse ? 1.0 : verdict::dSampleStep) * static_cast<double>(m_pixel / pixelOf(view));
    if (!view.HasImage()) {
        const auto every = static_cast<std::size_t>(std::max(1.0, std::round(step * step)));
        for (std::size_t i = 0; i < view.GetPoints().size(); i += every)
            if (view.GetPoints()[i].IsFinite()) side.samples.push_back({view.GetPoints()[i], view.GetNormals()[i]});
    } else {
        const CRangeImage& image = view.GetImage();
        const CTrafo back = image.GetFrame().GetInverse(true);
        const int stride = std::max(1, static_cast<int>(std::lround(step)));
        const auto rowLength = static_cast<std::uint32_t>(image.GetWidth() / stride + 2); // no row meets the next one
        if (!m_isCoarse) side.uiRowLength = rowLength; // three pixels are no patch that an edge could not feign
        for (int y = 0; y < image.GetHeight(); y += stride) {
            for (int x = 0; x < image.GetWidth(); x += stride) {
                if (!image.IsFilled({x, y})) continue;
                const CRangeImage::Surfel& surfel = image.GetSurfel({x, y});
                const auto cell =
                    static_cast<std::uint32_t>(y / stride + 1) * rowLength + static_cast<std::uint32_t>(x / stride + 1);
                side.samples.push_back({back * surfel.point, back.Rotate(surfel.normal), cell});
            }
        }
    }
}

/// A table that both scans show matches wherever it is moved along itself, and thins out what speaks against a part in
/// the wrong place on it: where it holds more than this share, from what refutes a pose to what every right one shows.
void CPoseJudge::thinSupportPlanes()
{
    constexpr double dLeastShare = 1.0 - verdict::dMaxContradiction / verdict::dMaxDoubt;
    std::array<std::optional<SupportPlane>, 2> planes;
    for (std::size_t k = 0; k < 2; ++k) {
        Vectors points;
        Vectors normals;
        for (const Sample& sample : m_sides[k].samples) {
            points.push_back(sample.point);
            normals.push_back(sample.normal);
        }
        planes[k] = FindSupportPlane(points, normals, m_sides[k].view->GetSampling(), dLeastShare);
        if (!planes[k]) return;
    }
    m_plane = planes[0];
    for (std::size_t k = 0; k < 2; ++k) {
        std::vector<Sample>& samples = m_sides[k].samples;
        const auto isOn = [&](const Sample& sample) { return planes[k]->Holds(sample.point, sample.normal); };
        const auto numOn = static_cast<std::size_t>(std::count_if(samples.begin(), samples.end(), isOn));
        const std::size_t most = std::max<std::size_t>(1, (samples.size() - numOn) / uiOffForEachOn);
        std::size_t seen = 0;
        // Evenly: where the multiples of most / numOn pass a whole number.
        std::erase_if(samples, [&](const Sample& sample) {
            if (!isOn(sample)) return false;
            ++seen;
            return seen * most / numOn == (seen - 1) * most / numOn;
        });
    }
}

void CPoseJudge::shuffle(Side& side)
{
    std::vector<std::uint32_t> order(side.samples.size());
    std::iota(order.begin(), order.end(), 0U);
    std::mt19937 rng(uiSeed);
    for (std::size_t i = order.size(); i > 1; --i) std::swap(order[i - 1], order[rng() % i]);
    const std::vector<Sample> inOrder = std::move(side.samples);
    side.samples.clear();
    for (const std::uint32_t i : order) side.samples.push_back(inOrder[i]);
    std::vector<std::uint8_t> partOfSample(order.size());
    std::array<std::size_t, uiParts> next{};
    for (std::size_t part = 0; part < uiParts; ++part) {
        next[part] = firstOfPart(order.size(), part);
        for (std::size_t k = next[part]; k < firstOfPart(order.size(), part + 1); ++k)
            partOfSample[order[k]] = static_cast<std::uint8_t>(part);
    }
    side.parts.resize(order.size());
    for (std::size_t i = 0; i < order.size(); ++i) side.parts[next[partOfSample[i]]++] = inOrder[i];
}

} // namespace prereg
