// SPDX-License-Identifier: MIT
#include "zorvan/workflow/settingwords.h"

#include "zorvan/features/configurationfpfh_fields.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <vector>

namespace prereg {

namespace {

char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

/// Letters to change, add or leave out on the way from one word to the other, whatever their case (Levenshtein).
std::size_t editDistance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (lower(a[i]) == lower(b[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

} // namespace

std::string WordsForSetting(std::string_view name)
{
    for (const SettingInfo& setting : AllSettings()) {
        if (setting.key == name) return std::string(setting.unit) + ", " + setting.words;
    }
    return {};
}

std::string NearestSettingName(std::string_view name)
{
    constexpr std::size_t uiFarthest = 3; // a slip or two; more is another word
    constexpr std::size_t uiLongest = 64; // no setting has such a name, and the distance would take long
    if (name.size() > uiLongest) return {};
    std::string_view nearest;
    std::size_t best = uiFarthest + 1;
    for (const SettingInfo& setting : AllSettings()) {
        const std::size_t distance = editDistance(name, setting.key);
        if (distance < best) nearest = setting.key;
        best = std::min(best, distance);
    }
    return std::string(nearest);
}

} // namespace prereg
