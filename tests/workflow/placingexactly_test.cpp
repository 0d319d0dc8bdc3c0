// SPDX-License-Identifier: MIT
// Placing against the best of all placings, on puzzles with planted wrong pairs.
#include "puzzle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using namespace prereg;

/// Every way to join scans along what was found, one at a time; keeps those that all pairs together say most for.
class CExactPlacing
{
public:
    explicit CExactPlacing(const CPuzzle& puzzle)
        : m_puzzle(puzzle), m_group(puzzle.GetNumScans()), m_x(puzzle.GetNumScans(), 0.0F)
    {
        std::iota(m_group.begin(), m_group.end(), std::size_t{0});
        for (const auto& [pair, finding] : puzzle.GetFindings()) m_pairs.push_back(pair);
        join(0);
    }

    /// How far apart every best placing puts two scans; nothing where one does not, or they differ.
    [[nodiscard]] std::optional<float> Between(std::size_t a, std::size_t b) const
    {
        std::optional<float> apart;
        for (const auto& [group, x] : m_best) {
            if (group[a] != group[b] || (apart && std::abs(*apart - (x[b] - x[a])) > 0.1F)) return {};
            apart = x[b] - x[a];
        }
        return apart;
    }

private:
    void join(std::size_t next)
    {
        if (next == m_pairs.size()) return keep();
        join(next + 1);
        const auto [a, b] = m_pairs[next];
        if (m_group[a] == m_group[b]) return;
        const auto before = std::pair{m_group, m_x};
        for (const PairFinding::Place& place : m_puzzle.GetFindings().at(m_pairs[next]).places) {
            const float shift = m_x[a] + place.pose.GetTranslation().x - m_x[b];
            for (std::size_t i = 0; i < m_x.size(); ++i) {
                if (before.first[i] != before.first[b]) continue;
                m_group[i] = before.first[a];
                m_x[i] += shift;
            }
            join(next + 1);
            std::tie(m_group, m_x) = before;
        }
    }

    /// A scan that more than one in five of its pairs refutes has no place.
    void keep()
    {
        int score = 0;
        for (std::size_t b = 0; b < m_x.size(); ++b) {
            int supports = 0;
            int refutations = 0;
            for (std::size_t a = 0; a < m_x.size(); ++a) {
                if (a == b || m_group[a] != m_group[b]) continue;
                const auto [i, k] = std::minmax(a, b);
                const EEvidence evidence = m_puzzle.EvidenceOf({i, k}, m_x[k] - m_x[i]);
                supports += evidence == EEvidence::Supports;
                refutations += evidence == EEvidence::Refutes;
            }
            if (4 * refutations > supports) return;
            score += supports - refutations;
        }
        if (score < m_score) return;
        if (score > m_score) m_best.clear();
        m_score = score;
        m_best.emplace_back(m_group, m_x);
    }

    const CPuzzle& m_puzzle;
    std::vector<ScanPair> m_pairs;
    std::vector<std::size_t> m_group;
    std::vector<float> m_x;
    int m_score = 0;
    std::vector<std::pair<std::vector<std::size_t>, std::vector<float>>> m_best;
};

/// Six scans; of their pairs some share nothing, some have a rival of the right place, and some know a wrong one only.
CPuzzle makePuzzle(std::mt19937& rng)
{
    const auto draw = [&](unsigned below) { return static_cast<unsigned>(rng() % below); };
    std::vector<float> truth;
    for (int i = 0; i < 6; ++i) truth.push_back(static_cast<float>(draw(1000)));
    CPuzzle puzzle(truth);
    for (std::size_t b = 1; b < truth.size(); ++b) {
        for (std::size_t a = 0; a < b; ++a) {
            const unsigned kind = draw(20);
            const float right = truth[b] - truth[a];
            const float wrong = right + 1.0F + static_cast<float>(draw(9));
            if (kind < 6) puzzle.Part(a, b);
            if (kind < 4) continue;
            if (kind < 11) puzzle.Confuse(a, b, wrong);
            if (kind < 8)
                puzzle.Find(a, b, {wrong});
            else if (kind < 11)
                puzzle.Find(a, b, {wrong, right});
            else if (kind < 18)
                puzzle.FindTrue(a, b);
        }
    }
    return puzzle;
}

// Where they differ, one pair stands against another: the fast one leaves that open.
TEST(PlacingExactly, PutsScansWhereTheBestOfAllPlacingsDoes)
{
    std::mt19937 rng(47110815);
    int same = 0;
    int missed = 0;
    int other = 0;
    int wrong = 0;
    for (int i = 0; i < 400; ++i) {
        CPuzzle puzzle = makePuzzle(rng);
        const CExactPlacing exact(puzzle);
        const Placing fast = PlaceScans(puzzle, Placing::Apart(puzzle.GetNumScans()), Zorvan::Hooks::None());
        for (std::size_t b = 1; b < puzzle.GetNumScans(); ++b) {
            for (std::size_t a = 0; a < b; ++a) {
                const auto best = exact.Between(a, b);
                if (fast.group[a] != fast.group[b]) {
                    missed += best.has_value();
                    continue;
                }
                const float x = fast.poses[b].GetTranslation().x - fast.poses[a].GetTranslation().x;
                wrong += std::abs(x - puzzle.Apart({a, b})) > 0.1F;
                (best && std::abs(*best - x) < 0.1F ? same : other) += 1;
            }
        }
    }
    const std::string words = std::to_string(same) + " same, " + std::to_string(missed) + " missed, " +
                              std::to_string(other) + " other, " + std::to_string(wrong) + " wrong";
    EXPECT_GT(same, 5000) << words;
    EXPECT_LT(missed, same / 20) << words;
    EXPECT_LT(other, same / 100) << words;
    EXPECT_LT(wrong, same / 400) << words;
}

} // namespace
