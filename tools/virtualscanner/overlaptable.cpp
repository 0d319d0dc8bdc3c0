// SPDX-License-Identifier: MIT
#include "overlaptable.h"

#include "raytracing.h"

#include "zorvan/core/tkdtree.h"

#include <algorithm>
#include <cstddef>

namespace tools {

namespace {

using Tree = Zorvan::TKdTree<3, 48>;

double shareNear(const prereg::Vectors& points, const prereg::CTrafo& toTree, const Tree& tree, double reach)
{
    const auto isNear = [&](const Zorvan::Vector3& p) {
        Zorvan::NearestQuery query{toTree * p, -1, static_cast<float>(reach * reach)};
        tree.FindNearest(query);
        return query.index >= 0;
    };
    const auto near = std::count_if(points.begin(), points.end(), isNear);
    return points.empty() ? 0.0 : static_cast<double>(near) / static_cast<double>(points.size());
}

} // namespace

std::vector<std::vector<double>> OverlapTable(const std::vector<prereg::Vectors>& scans,
                                              const std::vector<prereg::CTrafo>& poses, double dReach,
                                              unsigned uiNumThreads)
{
    const std::size_t n = scans.size();
    std::vector<std::vector<double>> table(n, std::vector<double>(n, 1.0));
    ForAllRows(n, std::max(1U, uiNumThreads), [&](std::size_t column) {
        const Tree tree(scans[column].data(), scans[column].size());
        for (std::size_t row = 0; row < n; ++row) {
            if (row == column) continue;
            const prereg::CTrafo toTree = poses[column].GetInverse(true) * poses[row];
            table[row][column] = shareNear(scans[row], toTree, tree, dReach);
        }
    });
    return table;
}

} // namespace tools
