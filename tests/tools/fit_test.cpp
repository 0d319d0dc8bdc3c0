// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "tests/support/simulatedprimitives.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/primitivefit.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cmath>
#include <sstream>
#include <string>

namespace {

using Eigen::Vector3d;
using Json = nlohmann::json;
using prereg::EPrimitive;
using support::PrimitiveScan;
using support::ScanSetup;

const Vector3d tilted = Vector3d(0.3, -0.5, 1.0).normalized();

std::string toXyzn(const PrimitiveScan& scan)
{
    std::ostringstream text;
    text.precision(9);
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        for (const float value : scan.points[i]) text << value << ' ';
        text << scan.normals[i][0] << ' ' << scan.normals[i][1] << ' ' << scan.normals[i][2] << '\n';
    }
    return text.str();
}

/// @param side  -1 turns all normals over, as in the scan of a hole
Zorvan::SurfelScan toSurfels(const PrimitiveScan& scan, float side)
{
    Zorvan::SurfelScan result;
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        result.points.emplace_back(scan.points[i][0], scan.points[i][1], scan.points[i][2]);
        result.normals.emplace_back(side * scan.normals[i][0], side * scan.normals[i][1], side * scan.normals[i][2]);
    }
    return result;
}

void expectProperty(const prereg::PrimitiveFit& fit, const std::string& name, const Eigen::VectorXd& truth)
{
    for (const auto& property : fit.properties) {
        if (property.name != name) continue;
        for (Eigen::Index i = 0; i < truth.size(); ++i) {
            EXPECT_GT(property.deviation(i), 0.0) << name;
            EXPECT_NEAR(property.value(i), truth(i), 6.0 * property.deviation(i) + 1e-4) << name << ' ' << i;
        }
        return;
    }
    ADD_FAILURE() << "no " << name;
}

// The origin outside, on the axis, and at the centre; sectors too narrow for normals at right angles; holes.
TEST(FitPrimitive, FindsThemWhereverTheyLieWithinTheirDeviations)
{
    for (const Vector3d& place : {Vector3d(30, 10, -20), Vector3d(0, 0, 0), Vector3d(8.0 * tilted)}) {
        for (const double degrees : {360.0, 60.0}) {
            for (const float side : {1.0F, -1.0F}) {
                const ScanSetup setup{place, tilted, degrees, 2000, 0.02};
                const auto sphere =
                    prereg::FitPrimitive(toSurfels(support::SimulateSphere(setup, 5.0), side), EPrimitive::Sphere, {});
                ASSERT_TRUE(sphere.IsFound());
                EXPECT_NEAR(sphere.dRmse, 0.02, 0.002);
                expectProperty(sphere, "radius", Eigen::VectorXd::Constant(1, 5.0));
                expectProperty(sphere, "centre", place);

                const auto cylinder = prereg::FitPrimitive(toSurfels(support::SimulateCylinder(setup, 5.0, 20.0), side),
                                                           EPrimitive::Cylinder, {});
                ASSERT_TRUE(cylinder.IsFound());
                expectProperty(cylinder, "radius", Eigen::VectorXd::Constant(1, 5.0));

                const auto cone = prereg::FitPrimitive(toSurfels(support::SimulateCone(setup, 5.0, 20.0, 0.3), side),
                                                       EPrimitive::Cone, {});
                ASSERT_TRUE(cone.IsFound());
                expectProperty(cone, "half angle", Eigen::VectorXd::Constant(1, 0.3 * 57.29577951308232));
                expectProperty(cone, "apex", place - 5.0 / std::tan(0.3) * tilted);
            }
        }
    }
}

TEST(FitCommand, WritesTheFitAndTheScanColouredByResiduals)
{
    const WorkFolder folder;
    const ScanSetup setup{Vector3d(30, 10, -20), tilted, 360.0, 1500, 0.02};
    folder.Write("pipe.xyzn", toXyzn(support::SimulateCylinder(setup, 5.0, 20.0)));
    const auto outcome = folder.Run("fit cylinder pipe.xyzn --scale 10 -o pipe.json");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("cylinder through 1500 points, RMSE 0.0"), std::string::npos) << outcome.out;
    const Json json = Json::parse(folder.Read("pipe.json"));
    EXPECT_EQ(json["primitive"], "cylinder");
    EXPECT_NEAR(json["radius"]["value"].get<double>(), 5.0, 0.01) << "in units of the file";
    EXPECT_NEAR(json["rmse"].get<double>(), 0.02, 0.002);
    const auto end = [&](const char* name, std::size_t i) { return json[name]["value"][i].get<double>(); };
    EXPECT_NEAR(std::abs(end("upper end", 2) - end("lower end", 2)), 20.0 * tilted.z(), 0.2);
    EXPECT_EQ(Zorvan::ReadScanFile(folder / "pipe_residuals.ply").points.size(), 1500U);

    EXPECT_EQ(folder.Run("fit cylinder pipe.xyzn --fix radius=5.5 -o fixed.json").exitCode, 0);
    const Json fixed = Json::parse(folder.Read("fixed.json"));
    EXPECT_EQ(fixed["radius"]["value"], 5.5);
    EXPECT_EQ(fixed["radius"]["deviation"], 0.0);

    for (const auto& [bound, radius] : {std::pair("2:4.5", 4.5), std::pair("5.5:6", 5.5), std::pair("4:6", 5.0)}) {
        EXPECT_EQ(folder.Run(std::string("fit cylinder pipe.xyzn -o bound.json --bound radius=") + bound).exitCode, 0);
        const Json bounded = Json::parse(folder.Read("bound.json"));
        EXPECT_NEAR(bounded["radius"]["value"].get<double>(), radius, radius == 5.0 ? 0.01 : 1e-6) << bound;
    }
}

TEST(FitCommand, RefusesWhatItCannotFitInOneLine)
{
    const WorkFolder folder;
    std::string plane;
    for (int i = 0; i < 100; ++i) plane += std::to_string(i % 10) + " " + std::to_string(i / 10) + " 0 0 0 1\n";
    folder.Write("plane.xyzn", plane);
    const std::pair<const char*, int> calls[] = {
        {"fit sphere plane.xyzn -o out.json", 1},
        {"fit cone plane.xyzn --fix radius=2", 2},
        {"fit sphere plane.xyzn --fix r=2", 2},
        {"fit sphere plane.xyzn --fix radius=-2", 2},
        {"fit sphere plane.xyzn --bound radius=3:2", 2},
        {"fit sphere plane.xyzn --bound radius=2", 2},
        {"fit torus plane.xyzn", 2},
        {"fit sphere missing.ply", 2},
        {"fit sphere plane.xyzn -o nowhere/out.json", 2},
    };
    for (const auto& [call, exitCode] : calls) {
        const auto outcome = folder.Run(call);
        EXPECT_EQ(outcome.exitCode, exitCode) << call << outcome.out;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << call << '\n' << outcome.err;
    }
    EXPECT_EQ(folder.Read("out.json"), "");
}

} // namespace
