// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/clouds.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/preregistration/cvotepreregistration.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace support {

/// A solid made of axis-aligned boxes: low and high corners.
using Boxes = std::vector<std::pair<Vector3, Vector3>>;

/// Two steps and a block beside them: all faces flat, no symmetry.
inline Boxes StepPart()
{
    return {{{0, 0, 0}, {60, 40, 10}},
            {{0, 0, 10}, {35, 40, 25}},
            {{0, 0, 25}, {15, 18, 40}},
            {{48, 28, 10}, {60, 40, 18}}};
}

/// What an orthographic scanner sees along -z of its own frame: a raster of points with exact normals and noise along
/// z.
/// @param pose  of the part in the frame of the scanner
inline Surface ScanOfBoxes(const Boxes& boxes, const prereg::CTrafo& pose, float spacing, float noise)
{
    const prereg::CTrafo back = pose.GetInverse(true);
    const Vector3 ray = back.Rotate({0, 0, 1});
    std::mt19937 rng(47110815);
    std::normal_distribution<float> along(0.0F, noise);
    Surface scan;
    const Vector3 middle = pose * Vector3(30, 20, 20);
    for (float y = middle.y - 45; y < middle.y + 45; y += spacing) {
        for (float x = middle.x - 45; x < middle.x + 45; x += spacing) {
            const Vector3 origin = back * Vector3(x, y, 0);
            float highest = -std::numeric_limits<float>::infinity();
            Vector3 normal;
            for (const auto& [low, high] : boxes) {
                float leave = std::numeric_limits<float>::infinity();
                float enter = -leave;
                unsigned axis = 0;
                for (unsigned k = 0; k < 3; ++k) {
                    const float a = (low[k] - origin[k]) / ray[k];
                    const float b = (high[k] - origin[k]) / ray[k];
                    enter = std::max(enter, std::min(a, b));
                    if (std::max(a, b) >= leave) continue;
                    leave = std::max(a, b);
                    axis = k;
                }
                if (enter > leave || leave <= highest) continue;
                highest = leave;
                normal = {};
                normal[axis] = ray[axis] > 0 ? 1.0F : -1.0F;
            }
            const Vector3 turned = pose.Rotate(normal);
            if (turned.z < 0.2F) continue; // missed, or too steep for a scanner
            scan.points.emplace_back(x, y, highest + along(rng));
            scan.normals.push_back(turned);
        }
    }
    return scan;
}

/// The scan moved, with its view, as the search takes it.
inline prereg::VotingScan ToVotingScan(const Surface& scan, const prereg::CTrafo& moved = {},
                                       const prereg::SensorKnowledge& knowledge = {})
{
    std::vector<Vector3> points;
    std::vector<Vector3> normals;
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        points.push_back(moved * scan.points[i]);
        normals.push_back(moved.Rotate(scan.normals[i]));
    }
    const std::vector<Vector3> first(points.begin(), points.begin() + 1);
    auto set = std::make_shared<const prereg::CFPFHPointSet>(points, normals, first, first,
                                                             std::vector<prereg::CPointFeatureHistogram>(1));
    auto view = std::make_shared<const prereg::CScanView>(*set, knowledge);
    return {std::move(set), std::move(view)};
}

} // namespace support
