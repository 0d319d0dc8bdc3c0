// SPDX-License-Identifier: MIT
#include "tools/virtualscanner/objectmesh.h"
#include "tools/virtualscanner/virtualobjects.h"
#include "zorvan/scans/meshsampling.h"
#include "zorvan/scans/surfacemodel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

TEST(MeshObject, IsTheSurfaceWithItsEdges)
{
    for (const char* const name : {"bracket", "steps", "figure", "gear"}) {
        const auto object = tools::MakeObject(name, 5);
        const double cell = object->GetTraits().dSize / 60;
        const Zorvan::Scan mesh = tools::MeshObject(*object, cell);
        EXPECT_TRUE(Zorvan::IsSurfaceModel(mesh)) << name;
        const auto samples = Zorvan::SampleMesh(mesh, cell);
        ASSERT_GT(samples.points.size(), 3000U) << name;
        std::vector<float> off;
        std::size_t outward = 0;
        for (std::size_t i = 0; i < samples.points.size(); ++i) {
            off.push_back(std::abs(object->Distance(samples.points[i])));
            outward += Dot(object->Normal(samples.points[i]), samples.normals[i]) > 0.9F;
        }
        std::sort(off.begin(), off.end());
        EXPECT_LT(off[off.size() * 9 / 10], 0.05 * cell) << name;
        EXPECT_LT(off.back(), cell) << name;
        EXPECT_GT(static_cast<double>(outward), 0.9 * static_cast<double>(off.size())) << name;
    }
}

} // namespace
