// SPDX-License-Identifier: MIT
#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonwire.h"
#include "zorvan/documents/namematch.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace bson {

namespace {

using detail::CLevel;

bool isObject(const element& e) { return e.type() == element::eObject; }

/// The first element of the document that `isWanted(e, isOutermost)`, else the first of those inside, depth first.
template <typename Predicate>
element search(const object& document, Predicate isWanted)
{
    std::vector<CLevel> levels;
    const auto enter = [&](CLevel level) {
        const bool isOutermost = levels.empty();
        levels.push_back(std::move(level));
        const element* const end = levels.back().end;
        const element* const found =
            std::find_if(levels.back().begin, end, [&](const element& e) { return isWanted(e, isOutermost); });
        return found != end ? found : nullptr;
    };

    const element* found = enter(CLevel(document));
    while (found == nullptr && !levels.empty()) {
        CLevel& level = levels.back();
        level.next = std::find_if(level.next, level.end, isObject);
        if (level.next == level.end)
            levels.pop_back();
        else
            found = enter(CLevel((level.next++)->as_object()));
    }
    return found != nullptr ? *found : element();
}

/// The runs of other characters between slashes.
std::list<std::string> splitPath(std::string_view path)
{
    std::list<std::string> segments;
    while (!path.empty()) {
        const std::size_t length = std::min(path.find('/'), path.size());
        if (length != 0) segments.emplace_back(path.substr(0, length));
        path.remove_prefix(std::min(length + 1, path.size()));
    }
    return segments;
}

/// The first element at this path, where elements of equal name are tried in order.
element follow(const object& document, const std::list<std::string>& path)
{
    if (path.empty()) return {};
    std::vector<CLevel> levels;
    levels.emplace_back(document);
    for (auto segment = path.begin();;) {
        CLevel& level = levels.back();
        level.next = std::find_if(level.next, level.end, [&](const element& e) { return *segment == e.name(); });
        if (level.next == level.end) {
            levels.pop_back();
            if (levels.empty()) return {};
            --segment;
            continue;
        }
        const element& e = *level.next++;
        if (std::next(segment) == path.end()) return e;
        if (!isObject(e)) continue;
        ++segment;
        levels.emplace_back(e.as_object());
    }
}

} // namespace

element element::child(const std::string& name) const { return children().child(name); }

element element::child(const std::regex& pattern) const { return children().child(pattern); }

element element::query(const std::string& path) const { return query(splitPath(path)); }

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers have this signature
element element::query(std::list<std::string> path) const { return follow(object(*this), path); }

element object::child(const std::string& name) const
{
    return search(*this, [&](const element& e, bool) { return name == e.name(); });
}

element object::child(const std::regex& pattern, std::regex_constants::match_flag_type flags) const
{
    return search(*this, [&](const element& e, bool isOutermost) {
        return detail::matches(e.name(), pattern, isOutermost ? flags : std::regex_constants::match_default);
    });
}

element object::query(const std::string& path) const { return query(splitPath(path)); }

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers have this signature
element object::query(std::list<std::string> path) const { return follow(*this, path); }

} // namespace bson
