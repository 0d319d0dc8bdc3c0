// SPDX-License-Identifier: MIT
#include "zorvan/features/histogramkmeans.h"

#include "zorvan/features/uniformdraw.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <utility>

namespace prereg {

namespace {

using Histograms = std::vector<CPointFeatureHistogram>;

constexpr int maxIterations = 1000;
constexpr int maxRefills = 5;
constexpr float minError = 1e-6F; // of the centres' moves
constexpr std::uint32_t seed = 47110815;

bool isFinite(const CPointFeatureHistogram& histogram)
{
    return std::all_of(histogram.AsArray().begin(), histogram.AsArray().end(), kdtree::IsFinite);
}

// An index drawn with these weights; none when all are 0.
std::optional<std::size_t> drawByWeight(std::mt19937& rng, const std::vector<float>& weights)
{
    double sum = 0.0;
    for (const float weight : weights) sum += static_cast<double>(weight);
    if (!(sum > 0.0) || !std::isfinite(sum)) return std::nullopt;

    double left = static_cast<double>(Zorvan::DrawUnit(rng)) * sum;
    std::optional<std::size_t> drawn;
    for (std::size_t i = 0; i < weights.size() && left >= 0.0; ++i) {
        if (weights[i] == 0.0F) continue;
        left -= static_cast<double>(weights[i]);
        drawn = i;
    }
    return drawn;
}

// k different histograms; fewer when there are no more.
Histograms startCentres(const Histograms& histograms, std::size_t k)
{
    std::mt19937 rng(seed);
    std::vector<float> distances(histograms.size(), std::numeric_limits<float>::infinity());
    std::optional<std::size_t> drawn = Zorvan::DrawIndex(rng, histograms.size());
    Histograms centres;
    while (drawn) {
        centres.push_back(histograms[*drawn]);
        if (centres.size() == k) break;
        for (std::size_t i = 0; i < histograms.size(); ++i) {
            const float distance = centres.back().SquaredChi2Distance(histograms[i]);
            distances[i] = distance > 0.0F ? std::min(distances[i], distance) : 0.0F;
        }
        drawn = drawByWeight(rng, distances);
    }
    return centres;
}

class KMeans
{
public:
    KMeans(const Histograms& histograms, Histograms centres)
        : m_histograms(histograms),
          m_centres(std::move(centres)),
          m_sums(m_centres.size()),
          m_sizes(m_centres.size()),
          m_groupOf(histograms.size()),
          m_distances(histograms.size())
    {
    }

    std::vector<unsigned int> Run() &&
    {
        float previous = std::numeric_limits<float>::max();
        for (int i = 0; i < maxIterations; ++i) {
            assign();
            for (int refill = 0; refill < maxRefills && refillEmptyGroups(); ++refill) assign();
            const float error = moveCentres();
            if (error > previous * 1.25F || error < minError) break;
            previous = error;
        }
        return std::move(m_groupOf);
    }

private:
    void assign()
    {
        std::fill(m_sizes.begin(), m_sizes.end(), 0U);
        for (std::size_t i = 0; i < m_histograms.size(); ++i) {
            float nearest = std::numeric_limits<float>::infinity();
            unsigned int group = 0;
            for (unsigned int k = 0; k < m_centres.size(); ++k) {
                const float distance = m_histograms[i].SquaredChi2Distance(m_centres[k]);
                if (distance < nearest) {
                    nearest = distance;
                    group = k;
                }
            }
            m_groupOf[i] = group;
            m_distances[i] = nearest;
            ++m_sizes[group];
        }
    }

    // Moves the centre of each empty group to the histogram that is worst off. @return whether any was moved
    bool refillEmptyGroups()
    {
        bool any = false;
        for (unsigned int k = 0; k < m_sizes.size(); ++k) {
            if (m_sizes[k] > 0) continue;
            const auto worst = worstOff();
            if (!worst) break;
            m_centres[k] = m_histograms[*worst];
            --m_sizes[m_groupOf[*worst]];
            m_sizes[k] = 1;
            m_groupOf[*worst] = k;
            any = true;
        }
        return any;
    }

    // Farthest from its centre, but not alone there.
    [[nodiscard]] std::optional<std::size_t> worstOff() const
    {
        std::optional<std::size_t> worst;
        float farthest = 0.0F;
        for (std::size_t i = 0; i < m_distances.size(); ++i) {
            if (!(m_distances[i] > farthest) || m_sizes[m_groupOf[i]] < 2) continue;
            farthest = m_distances[i];
            worst = i;
        }
        return worst;
    }

    // @return how far they moved on average
    float moveCentres()
    {
        std::fill(m_sums.begin(), m_sums.end(), CPointFeatureHistogram());
        for (std::size_t i = 0; i < m_histograms.size(); ++i) m_sums[m_groupOf[i]] += m_histograms[i];
        float sum = 0.0F;
        for (std::size_t k = 0; k < m_centres.size(); ++k) {
            if (m_sizes[k] == 0) continue; // stays where it is
            CPointFeatureHistogram mean;
            mean.Add(m_sums[k], 1.0F / static_cast<float>(m_sizes[k]));
            sum += mean.SquaredChi2Distance(m_centres[k]);
            m_centres[k] = mean;
        }
        return sum / static_cast<float>(m_centres.size());
    }

    const Histograms& m_histograms;
    Histograms m_centres;
    Histograms m_sums; ///< over the groups
    std::vector<unsigned int> m_sizes;
    std::vector<unsigned int> m_groupOf;
    std::vector<float> m_distances; ///< to the centre of the group
};

} // namespace

std::vector<unsigned int> ClusterHistograms(const std::vector<CPointFeatureHistogram>& histograms, std::size_t k)
{
    if (k == 0 || histograms.size() < k) return {};
    if (!std::all_of(histograms.begin(), histograms.end(), isFinite)) return {};
    Histograms centres = startCentres(histograms, k);
    if (centres.size() < k) return {};
    return KMeans(histograms, std::move(centres)).Run();
}

} // namespace prereg
