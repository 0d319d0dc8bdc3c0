// SPDX-License-Identifier: MIT
#include "zorvan/workflow/pairtable.h"

#include "zorvan/scans/showntext.h"

#include <algorithm>
#include <cstddef>
#include <iomanip>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace prereg {

namespace {

struct NamedPair
{
    std::string a;
    std::string b;
    const PairFinding* finding;
};

/// In the order of the scans.
std::vector<NamedPair> namedPairs(const CSession& session, const std::string& scan)
{
    std::map<UniversalUniqueID, std::size_t> numbers;
    for (std::size_t i = 0; i < session.GetFiles().size(); ++i) numbers[session.GetFiles()[i].id] = i;
    std::map<std::pair<std::size_t, std::size_t>, const PairFinding*> order;
    for (const auto& [ids, known] : session.GetKnownPairs()) {
        if (!numbers.contains(ids.first) || !numbers.contains(ids.second)) continue;
        order[{numbers.at(ids.first), numbers.at(ids.second)}] = &known.finding;
    }
    std::vector<NamedPair> pairs;
    for (const auto& [pair, finding] : order) {
        const std::string& a = session.GetFiles()[pair.first].name;
        const std::string& b = session.GetFiles()[pair.second].name;
        if (scan.empty() || scan == a || scan == b) pairs.push_back({Zorvan::ToShown(a), Zorvan::ToShown(b), finding});
    }
    return pairs;
}

std::string summary(const std::vector<NamedPair>& pairs)
{
    std::string text = std::to_string(pairs.size()) + (pairs.size() == 1 ? " pair was" : " pairs were") + " searched";
    std::string separator = ": ";
    for (const EPairVerdict eVerdict :
         {EPairVerdict::Aligned, EPairVerdict::Ambiguous, EPairVerdict::NotAligned, EPairVerdict::TooLittle}) {
        const auto count = std::ranges::count(pairs, eVerdict, [](const NamedPair& p) { return p.finding->eVerdict; });
        if (count == 0) continue;
        text += std::exchange(separator, ", ") + std::to_string(count) + " " + VerdictName(eVerdict);
    }
    return text + "\n";
}

} // namespace

std::string PairTableText(const CSession& session, const std::string& scan)
{
    if (!scan.empty() && !session.Contains(scan)) throw std::invalid_argument("no scan of this name");
    const std::vector<NamedPair> pairs = namedPairs(session, scan);
    std::size_t width = 5;
    for (const NamedPair& pair : pairs) width = std::max({width, pair.a.size(), pair.b.size()});
    std::ostringstream out;
    const auto line = [&](const std::string& a, const std::string& b, const std::string& verdict,
                          const std::string& place, const std::string& matched, const std::string& contradictions) {
        const auto name = std::setw(static_cast<int>(width));
        out << std::left << name << a << "  " << name << b << "  " << std::setw(19) << verdict << std::right << "  "
            << std::setw(5) << place << "  " << std::setw(7) << matched << "  " << std::setw(14) << contradictions
            << '\n';
    };
    if (!pairs.empty()) line("scan", "scan", "verdict", "place", "matched", "contradictions");
    for (const NamedPair& pair : pairs) {
        const PairFinding& finding = *pair.finding;
        const std::string verdict = VerdictName(finding.eVerdict);
        if (finding.places.empty()) line(pair.a, pair.b, verdict, "-", "-", "-");
        for (std::size_t i = 0; i < finding.places.size(); ++i) {
            const PoseCounts& counts = finding.places[i].counts;
            line(pair.a, pair.b, verdict, std::to_string(i + 1), std::to_string(counts.uiMatched),
                 std::to_string(counts.Contradictions()));
        }
    }
    out << summary(pairs);
    return out.str();
}

} // namespace prereg
