// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "tools/virtualscanner/overlaptable.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Views
{
    std::vector<prereg::Vectors> scans;
    std::vector<prereg::CTrafo> poses;
};

Views readViews(const WorkFolder& folder, const std::string& name, int count)
{
    const Zorvan::PosesFile truth = Zorvan::ReadPoses(folder / name / "truth.json");
    Views views;
    for (int view = 0; view < count; ++view) {
        const std::string file = "view0" + std::to_string(view) + ".ply";
        views.scans.push_back(Zorvan::ReadScan(folder / name / file, {.dMmPerUnit = 1.0, .sensor = {}}).points);
        views.poses.push_back(truth.Find(file).scan->pose);
    }
    return views;
}

std::vector<std::string> split(const std::string& text, char mark)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, mark);) parts.push_back(part);
    return parts;
}

TEST(Simulate, TablesOverlapAsTheScansAndTheTruthHaveIt)
{
    const WorkFolder folder;
    const auto outcome =
        folder.Run("simulate -o out --object bracket --sensor oblique --views 4 --spacing 0.8 --seed 2 --quiet");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const Views views = readViews(folder, "out", 4);
    const auto table = tools::OverlapTable(views.scans, views.poses, 3 * 0.8, 1);
    const auto lines = split(folder.Read("out/overlap.csv"), '\n');
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0], "scan,view00,view01,view02,view03");
    double most = 0.0;
    for (std::size_t row = 0; row < 4; ++row) {
        const auto words = split(lines[row + 1], ',');
        ASSERT_EQ(words.size(), 5U);
        for (std::size_t column = 0; column < 4; ++column) {
            // Readers leave out a point here and there that gets no normal.
            EXPECT_NEAR(std::atof(words[column + 1].c_str()), table[row][column], 0.015);
            if (row != column) most = std::max(most, table[row][column]);
        }
    }
    EXPECT_GT(most, 0.3);
}

} // namespace
