#include "zorvan/workflow/settingwords.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <vector>

namespace prereg {

namespace {

struct SettingWords
{
    std::string_view name;
    std::string_view unit;
    std::string_view words;
};

constexpr SettingWords settings[] = {
    {"uiNumPolygons", "count", "most polygons that a search tries"},
    {"uiNumPolygonVertices", "count", "vertices of a polygon"},
    {"uiNumNeighbors", "count", "similar features tried for a vertex"},
    {"dMaxPolygonDiameter", "mm", "ball around a polygon; below 0: none, features are clustered"},
    {"dMaxPolygonVertexError", "mm", "worse vertices of a polygon are dropped"},
    {"dFeatureRadius", "mm", "neighbourhood that a feature describes"},
    {"dFeatureClusteringBandwidth", "histogram distance", "mean shift of features; 0 or less: k-means"},
    {"dGridSize", "mm", "grid that thins the points; 0: keep all"},
    {"dFeatureGridSize", "mm", "grid that thins the features; 0: keep all"},
    {"dTrafoPositionClusteringBandwidth", "mm", "poses nearer than this agree"},
    {"dTrafoOrientationClusteringBandwidth", "radians", "the same for their turns; 0 or less: off"},
    {"uiTrafoClusteringQuorum", "count", "so many poses that agree end the search; 0: never"},
    {"dVerifyTrafoMaxFeatureDistance", "histogram distance", "of similar features; 0 or less: no check"},
    {"dVerifyTrafoMinConfidence", "ratio", "similar features that a pose needs; 0 or less: no check"},
    {"uiMaxNumIterations", "count", "highest iteration number"},
    {"dMinQueryRadius", "mm", "smallest search radius for pairs"},
    {"dInitialQueryRadiusScaling", "factor", "first search radius over the smallest"},
    {"uiNumSamples", "count", "points drawn from the moving scan in each iteration"},
    {"dNormalAngleTolerance", "radians", "largest angle between the normals of a pair"},
    {"dMaxMovement", "mm", "largest distance from an expected pose; 0 or less: no check"},
    {"dMinOverlapRatio", "ratio", "smallest final overlap"},
    {"dMaxRMSE", "mm", "largest final RMSE"},
    {"dMinOverlapArea", "mm^2", "smallest overlap area"},
    {"dMinSmallBigRatio", "ratio", "pairs that the small radius must find; 0 or less: no check"},
    {"dSmallBigQueryRadiusScaling", "factor", "big radius over the smallest"},
    {"dInlierScaling", "factor", "scale of the limit between inliers and outliers"},
    {"dMaxStdDev", "mm", "largest final slip; 0 or less: no check"},
    {"dPointAccuracy", "mm", "standard deviation of a point's position"},
};

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
    const auto* const found = std::ranges::find(settings, name, &SettingWords::name);
    if (found == std::end(settings)) return {};
    return std::string(found->unit) + ", " + std::string(found->words);
}

std::string NearestSettingName(std::string_view name)
{
    constexpr std::size_t uiFarthest = 3; // a slip or two; more is another word
    constexpr std::size_t uiLongest = 64; // no setting has such a name, and the distance would take long
    if (name.size() > uiLongest) return {};
    std::string_view nearest;
    std::size_t best = uiFarthest + 1;
    for (const SettingWords& setting : settings) {
        const std::size_t distance = editDistance(name, setting.name);
        if (distance < best) nearest = setting.name;
        best = std::min(best, distance);
    }
    return std::string(nearest);
}

} // namespace prereg
