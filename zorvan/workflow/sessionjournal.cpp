// SPDX-License-Identifier: MIT
#include "zorvan/workflow/sessionjournal.h"

#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <set>
#include <utility>

namespace prereg {

namespace {

using Names = std::vector<std::string>;
using Clusters = std::map<std::string, std::string>;

/// With a blank in front of each; empty for none.
std::string joined(const Names& names)
{
    constexpr std::size_t uiShown = 6;
    std::string text;
    for (std::size_t i = 0; i < std::min(uiShown, names.size()); ++i)
        text.append(text.empty() ? " " : ", ").append(Zorvan::ToShown(names[i]));
    return names.size() > uiShown ? text + " and " + std::to_string(names.size() - uiShown) + " more" : text;
}

/// One call of JournalOfRun.
class CRunJournal
{
public:
    CRunJournal(const Clusters& before, const RegistrationTable& after, const JournalStamp& stamp)
        : m_before(before), m_after(after), m_stamp(stamp)
    {
    }

    SessionJournal Write(bool isOptimized)
    {
        Names added;
        std::map<std::string, std::vector<std::size_t>> clusters;
        for (std::size_t i = 0; i < m_after.scans.size(); ++i) {
            const ScanRow& scan = m_after.scans[i];
            if (!m_before.contains(scan.file)) added.push_back(scan.file);
            clusters[scan.cluster].push_back(i);
        }
        if (!added.empty()) note("added", std::move(added), {});
        noteThoseWhoLeft();
        for (const auto& [cluster, members] : clusters) noteMerges(members);
        if (isOptimized) note("optimized", {}, "all poses were refined together");
        return std::move(m_journal);
    }

private:
    void note(const std::string& what, Names scans, const std::string& why)
    {
        m_journal.push_back({m_stamp, what, std::move(scans), why});
    }

    /// Of a cluster that fell apart, its largest part is what goes on.
    void noteThoseWhoLeft()
    {
        std::map<std::string, std::map<std::string, std::size_t>> parts;
        for (const ScanRow& scan : m_after.scans) {
            const auto old = m_before.find(scan.file);
            if (old != m_before.end()) ++parts[old->second][scan.cluster];
        }
        for (const ScanRow& scan : m_after.scans) {
            const auto old = m_before.find(scan.file);
            if (old == m_before.end()) continue;
            const auto& counts = parts.at(old->second);
            const auto largest = std::ranges::max_element(counts, {}, [](const auto& part) { return part.second; });
            if (scan.cluster != largest->first) note("left its cluster", {scan.file}, scan.verdict);
        }
    }

    /// One entry for each group of scans that came to the first group of the cluster.
    void noteMerges(const std::vector<std::size_t>& members)
    {
        std::vector<std::pair<std::string, std::vector<std::size_t>>> groups; // in the order of their first scans
        for (const std::size_t i : members) {
            const auto old = m_before.find(m_after.scans[i].file);
            const std::string name = old != m_before.end() ? "old " + old->second : "new " + std::to_string(i);
            const auto known =
                std::ranges::find(groups, name, &std::pair<std::string, std::vector<std::size_t>>::first);
            if (known != groups.end())
                known->second.push_back(i);
            else
                groups.push_back({name, {i}});
        }
        for (std::size_t k = 1; k < groups.size(); ++k) {
            Names names;
            for (const std::size_t i : groups[k].second) names.push_back(m_after.scans[i].file);
            note("merged", std::move(names), whyMerged(groups[k].second, members));
        }
    }

    /// The pair between the group and the rest of its cluster that overlaps most.
    [[nodiscard]] std::string whyMerged(const std::vector<std::size_t>& group,
                                        const std::vector<std::size_t>& members) const
    {
        const std::set<std::size_t> inside(group.begin(), group.end());
        const std::set<std::size_t> all(members.begin(), members.end());
        const PairRow* best = nullptr;
        for (const PairRow& pair : m_after.pairs) {
            const bool isBridge = all.contains(pair.a) && inside.contains(pair.a) != inside.contains(pair.b);
            if (isBridge && (best == nullptr || pair.dOverlap > best->dOverlap)) best = &pair;
        }
        if (best == nullptr) return m_after.scans[group.front()].verdict;
        const auto [own, other] = inside.contains(best->a) ? std::pair(best->a, best->b) : std::pair(best->b, best->a);
        return Zorvan::ToShown(m_after.scans[own].file) + " lies on " + Zorvan::ToShown(m_after.scans[other].file) +
               ", overlap " + Zorvan::ToText(best->dOverlap, 2) + ", RMSE " +
               Zorvan::ToText(best->dRmse / m_after.dMmPerUnit, 3) + " " + Zorvan::UnitName(m_after.dMmPerUnit);
    }

    const Clusters& m_before;
    const RegistrationTable& m_after;
    const JournalStamp& m_stamp;
    SessionJournal m_journal;
};

} // namespace

JournalStamp StampNow(const std::string& by)
{
    std::time_t now = std::time(nullptr);
    const char* const fixed = std::getenv("SOURCE_DATE_EPOCH");
    if (const auto seconds = fixed == nullptr ? std::nullopt : Zorvan::ParseInteger(fixed)) now = *seconds;
    std::tm utc{};
    char text[32] = "";
    if (::gmtime_r(&now, &utc) != nullptr) std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return {by, text};
}

SessionJournal JournalOfRun(const std::map<std::string, std::string>& before, const RegistrationTable& after,
                            bool isOptimized, const JournalStamp& stamp)
{
    return CRunJournal(before, after, stamp).Write(isOptimized);
}

std::string ToText(const SessionJournal& journal)
{
    std::string text;
    for (const JournalEntry& entry : journal) {
        for (const std::string& part : {entry.stamp.when, entry.stamp.by})
            if (!part.empty()) text.append(Zorvan::ToShown(part)).append("  ");
        text.append(Zorvan::ToShown(entry.what)).append(joined(entry.scans));
        if (!entry.why.empty()) text.append(": ").append(Zorvan::ToShown(entry.why));
        text.append("\n");
    }
    return text;
}

bson::object JournalToObject(const SessionJournal& journal)
{
    bson::object document;
    for (const JournalEntry& entry : journal) {
        bson::object scans;
        for (const std::string& scan : entry.scans) scans += bson::element("scan", scan);
        document += bson::element(
            "entry", bson::object{bson::element("by", entry.stamp.by), bson::element("when", entry.stamp.when),
                                  bson::element("what", entry.what), bson::element("scans", scans),
                                  bson::element("why", entry.why)});
    }
    return document;
}

SessionJournal ReadJournal(const bson::object& document)
{
    SessionJournal journal;
    for (const bson::element& e : document) {
        const bson::object entry = e.as_object();
        Names scans;
        const bson::object names = entry.child("scans").as_object();
        for (const bson::element& scan : names) scans.push_back(scan.as_string());
        journal.push_back({{entry.child("by").as_string(), entry.child("when").as_string()},
                           entry.child("what").as_string(),
                           std::move(scans),
                           entry.child("why").as_string()});
    }
    return journal;
}

} // namespace prereg
