// SPDX-License-Identifier: MIT
#include "tests/support/temporaryfolder.h"

#include "zorvan/workflow/cloudlattice.h"
#include "zorvan/workflow/lookatposes.h"
#include "zorvan/workflow/registerresults.h"
#include "zorvan/workflow/report.h"
#include "zorvan/workflow/runrecord.h"
#include "zorvan/workflow/scancolours.h"

#include "zorvan/util/base64.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <random>
#include <set>

namespace {

using Vector3 = kdtree::Vector<3>;
using prereg::LatticePoint;

constexpr double dNaN = std::numeric_limits<double>::quiet_NaN();

nlohmann::json dataOf(const std::string& page)
{
    const std::string start = "<script type=\"application/json\" id=\"data\">";
    const std::size_t begin = page.find(start) + start.size();
    return nlohmann::json::parse(page.substr(begin, page.find("</script>", begin) - begin));
}

/// The points as the page places them, in the unit of the page.
std::vector<std::array<double, 3>> pointsOf(const nlohmann::json& scan, const nlohmann::json& frame)
{
    const auto text = scan["cloud"]["points"].get<std::string>();
    const auto bytes = Zorvan::Base64::Decode(text.c_str());
    std::vector<LatticePoint> places(scan["cloud"]["count"].get<std::size_t>());
    std::memcpy(places.data(), bytes.get(), places.size() * sizeof(LatticePoint));
    std::vector<std::array<double, 3>> points;
    for (const LatticePoint& place : places) {
        auto& point = points.emplace_back();
        for (std::size_t k = 0; k < 3; ++k)
            point[k] = frame["low"][k].get<double>() + frame["step"].get<double>() * place[k];
    }
    return points;
}

/// Points of a dome in rows, as a scanner delivers them, with any normal.
prereg::Vectors dome(std::size_t side)
{
    prereg::Vectors points;
    for (std::size_t i = 0; i < side * side; ++i) {
        const auto at = [side](std::size_t k) { return 2 * static_cast<float>(k) / static_cast<float>(side) - 1; };
        const float x = at(i % side);
        const float y = at(i / side);
        points.emplace_back(50 * x, 30 * y, 10 * (1 - x * x - y * y));
    }
    return points;
}

prereg::ScanRow row(const std::string& file, const std::string& cluster, const prereg::CTrafo& pose)
{
    prereg::ScanRow scan;
    scan.file = file;
    scan.cluster = cluster;
    scan.pose = pose;
    return scan;
}

TEST(Report, ShowsPointsInTheFrameOfTheirClusterAndInTheUnitOfTheFiles)
{
    const prereg::Vectors points = dome(20);
    const prereg::CTrafo turn(Vector3(0.3F, -0.2F, 1.0F), Vector3(7, -400, 20));
    prereg::RegistrationTable table{1000.0, {}, {{0, 1, 0.5, 0.25}}};
    table.scans = {row("a", "other", turn), row("b", "main", turn.GetInverse(true)),
                   row("c", "", prereg::CTrafo::Invalid())};
    table.scans[1].isPrimary = true;
    const std::vector<prereg::SurfelSpan> surfaces(3, {points, points});
    const TemporaryFolder folder;
    prereg::WriteReport(folder / "page.html", table, surfaces);

    const nlohmann::json data = dataOf(folder.Read("page.html"));
    EXPECT_EQ(data["unit"], "m");
    EXPECT_EQ(data["pairs"][0]["rmse"], 0.00025);
    const std::size_t order[] = {1, 0, 2}; // the primary cluster, the other one, the scan without a pose
    for (std::size_t f = 0; f < 3; ++f) {
        const nlohmann::json& frame = data["frames"][f];
        ASSERT_EQ(frame["scans"], nlohmann::json::array({order[f]}));
        const prereg::CTrafo pose = table.scans[order[f]].pose ? table.scans[order[f]].pose : prereg::CTrafo();
        const auto shown = pointsOf(data["scans"][order[f]], frame);
        ASSERT_EQ(shown.size(), points.size());
        for (std::size_t i = 0; i < points.size(); ++i) {
            for (unsigned k = 0; k < 3; ++k) // half a step, and what a float leaves at 400
                ASSERT_NEAR(shown[i][k], (pose * points[i])[k] / 1000, 0.51 * frame["step"].get<double>() + 4e-8);
        }
    }
}

TEST(Report, ShowsPosesBetweenTheCoordinatesOfTheFiles)
{
    const prereg::Vectors points = dome(4);
    prereg::RegistrationTable table{1000.0, {row("a", "m", prereg::CTrafo().Translate({1, 2, 3}))}, {}};
    table.shift = {5e8, 5.4e9, 0};
    table.scans[0].shift = {5e8, 5.4e9, 1000};
    const TemporaryFolder folder;
    prereg::WriteReport(folder / "page.html", table, std::vector<prereg::SurfelSpan>{{points, points}});
    const nlohmann::json pose = dataOf(folder.Read("page.html"))["scans"][0]["pose"];
    const std::array expected{1e-3, 2e-3, -0.997};
    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(pose[k][3].get<double>(), expected[k], 1e-9);
}

TEST(Report, SaysWhereScansWereDividedInTheUnitAndTheCoordinatesOfTheFiles)
{
    prereg::RegistrationTable table{1000.0, {row("a", "m", {}), row("b", "n", {}), row("c", "o", {})}, {}};
    table.shift = {5e9, 0, 0};
    table.disputes = {{{0}, {1}, 6.0, {2}, {2}, 18, {100.25F, 0, 0}, {0, 0, -50}, {{0, 17, 0, 0}, {1, 0, 18, 4}}}};
    const TemporaryFolder folder;
    prereg::WriteReport(folder / "page.html", table, std::vector<prereg::SurfelSpan>(3));
    nlohmann::json shown = dataOf(folder.Read("page.html"))["disputes"].at(0);
    EXPECT_EQ(shown["words"],
              "b show a hole about 0.006 m wide where a show surface: they are of objects that differ, "
              "and were put apart, and what may be of either was left out. It is at 5000000.1003, 0, 0 m in the "
              "frame of the latter, which show 17 of 18 samples of it; to the former 18 of 18 samples "
              "are open, 4 of them looked through");
    shown.erase("words");
    shown.erase("marks");
    const auto expected = [](const nlohmann::json& a, const nlohmann::json& b, const nlohmann::json& c) {
        return nlohmann::json{{"showing", {a}},
                              {"lacking", {b}},
                              {"unclear", {c}},
                              {"left_out", {c}},
                              {"width", 0.006},
                              {"samples", 18},
                              {"at", {{"showing", {5000000.10025, 0.0, 0.0}}, {"lacking", {5000000.0, 0.0, -0.05}}}},
                              {"sights",
                               {{{"scan", a}, {"surface", 17}, {"open", 0}, {"through", 0}},
                                {{"scan", b}, {"surface", 0}, {"open", 18}, {"through", 4}}}}};
    };
    EXPECT_EQ(shown, expected(0, 1, 2));
    EXPECT_EQ(nlohmann::json::parse(prereg::RunRecordText({"register", "1"}, table))["disputes"].at(0),
              expected("a", "b", "c"));
}

TEST(Report, MarksSpotsInTheFramesOfAllScansThatSayAnythingOfThem)
{
    const prereg::Vectors points = dome(20);
    const prereg::CTrafo turn(Vector3(0.3F, -0.2F, 1.0F), Vector3(7, -400, 20));
    prereg::RegistrationTable table{1000.0, {}, {}};
    table.shift = {5e8, 5.4e9, 0};
    table.scans = {row("a", "m", turn), row("b", "n", {}), row("c", "m", turn), row("d", "o", {}),
                   row("without a pose", "", prereg::CTrafo::Invalid())};
    constexpr std::size_t middle = 130; // of the points
    prereg::DisputeRow dispute{{2}, {1}, 6.0};
    for (const std::size_t scan : {1UL, 2UL, 4UL})
        dispute.sights.push_back({scan, 0, 0, 0, table.scans[scan].pose * points[middle]});
    table.disputes = {dispute};
    const TemporaryFolder folder;
    prereg::WriteReport(folder / "page.html", table, std::vector<prereg::SurfelSpan>(5, {points, points}));

    const nlohmann::json data = dataOf(folder.Read("page.html"));
    const nlohmann::json marks = data["disputes"][0]["marks"];
    ASSERT_EQ(marks.size(), 2U);
    for (const nlohmann::json& mark : marks) {
        const nlohmann::json& frame = data["frames"][mark["frame"].get<std::size_t>()];
        const std::size_t scan = mark["scans"].at(0);
        EXPECT_EQ(frame["scans"], scan == 1 ? nlohmann::json({1}) : nlohmann::json({0, 2}));
        EXPECT_EQ(mark["scans"].size(), 1U);
        for (std::size_t k = 0; k < 3; ++k) // of the nearest place of the lattice
            EXPECT_NEAR(frame["low"][k].get<double>() + frame["step"].get<double>() * mark["at"][k].get<double>(),
                        pointsOf(data["scans"][scan], frame)[middle][k], 0.51 * frame["step"].get<double>());
    }
}

TEST(Report, SaysWhatAPairIsContradictedByAndWhoRefutesIt)
{
    prereg::RegistrationTable table{1.0, {row("a", "m", {}), row("b", "n", {})}, {}};
    table.scans[1].ePlace = prereg::EPlace::Contradicted;
    table.scans[1].verdict = "contradicted by c";
    prereg::PairStanding pair{{0, 1}, prereg::PairFinding{prereg::EPairVerdict::Aligned, {{}}}, {}, false, {}};
    prereg::PoseCounts& counts = pair.finding->places.front().counts;
    counts.uiMatched = 90;
    counts.uiInFront = 3;
    counts.uiMissing = 2;
    counts.uiOpposed = 1;
    prereg::AddPairs(std::vector{pair}, table);
    const TemporaryFolder folder;
    prereg::WriteReport(folder / "page.html", table, std::vector<prereg::SurfelSpan>(2));
    const nlohmann::json expected{{"search", "aligned"}, {"places", 1},         {"standing", "refuted"},
                                  {"matched", 90},       {"contradictions", 6}, {"through", 3},
                                  {"missing", 2},        {"opposed", 1},        {"why", "b: contradicted by c"}};
    for (nlohmann::json shown :
         {dataOf(folder.Read("page.html"))["weighed"].at(0),
          nlohmann::json::parse(prereg::RunRecordText({"register", "1"}, table))["pairs"].at(0)}) {
        shown.erase("a");
        shown.erase("b");
        EXPECT_EQ(shown, expected);
    }
}

using Rows = std::vector<prereg::ScanRow>;

prereg::ScanRow placedRow(const std::string& cluster)
{
    prereg::ScanRow scan = row("p", cluster, {});
    scan.isPlaced = true;
    return scan;
}

prereg::ScanRow unplacedRow(const std::string& cluster, std::optional<prereg::EPlace> place)
{
    prereg::ScanRow scan = row("u", cluster, {});
    scan.ePlace = place;
    return scan;
}

prereg::ScanRow copyRow(const std::string& cluster)
{
    prereg::ScanRow scan = row("c", cluster, {});
    scan.copyOf = 0;
    return scan;
}

struct OutcomeCase
{
    Rows scans;
    std::size_t disputes = 0;
    bool isStopped = false;
    std::vector<std::string> leftOut = {};
    std::string words;
    bool isWhole = false;
};

// Page, record and terminal say the same; only where all scans lie in one cluster does the page show it in green.
TEST(Report, SaysWhatBecameOfAllAsTheTerminalAndTheRecordDo)
{
    using prereg::EPlace;
    const Rows both{placedRow("m"), placedRow("m")};
    const Rows twins{placedRow("m"), placedRow("m"), placedRow("n"), placedRow("n")};
    const Rows apart{unplacedRow("m", EPlace::Ambiguous), unplacedRow("n", EPlace::Contradicted),
                     unplacedRow("o", EPlace::Alone), unplacedRow("q", EPlace::Ambiguous)};
    const Rows some{placedRow("m"), placedRow("m"), unplacedRow("n", {})};
    const std::string two = "2 of 2 scans registered, in 1 cluster";
    const std::string divided = "4 of 4 scans registered, in 2 clusters";
    const std::vector<OutcomeCase> cases{
        {both, 0, false, {}, two, true},
        {both, 0, false, {"few.xyz\n"}, two + "; others could not be used"},
        {both, 0, true, {}, "stopped; so far " + two},
        {twins, 0, false, {}, divided},
        {twins, 1, false, {}, divided + "; scans of objects that differ in a hole were put apart"},
        {twins, 2, false, {}, divided + "; scans of objects that differ in holes were put apart"},
        {apart, 0, false, {}, "0 of 4 scans registered; 2 ambiguous, 1 contradicted, 1 alone"},
        {some, 0, false, {}, "2 of 3 scans registered, in 1 cluster; 1 found no place"},
        {{unplacedRow("m", {})}, 0, false, {}, "1 scan, nothing to register it with"},
        {{unplacedRow("m", {}), copyRow("m")}, 0, false, {}, "2 copies of one scan, nothing to register it with"},
        {{}, 0, false, {"few.xyz"}, "no scans; others could not be used"}};
    for (const OutcomeCase& outcome : cases) {
        SCOPED_TRACE(outcome.words);
        prereg::RegistrationTable table{1.0, outcome.scans, {}};
        table.disputes.resize(outcome.disputes, {{0}, {2}, 6.0});
        table.isStopped = outcome.isStopped;
        table.leftOut = outcome.leftOut;
        const TemporaryFolder folder;
        prereg::WriteReport(folder / "page.html", table, std::vector<prereg::SurfelSpan>(table.scans.size()));
        const nlohmann::json shown = dataOf(folder.Read("page.html"));
        const nlohmann::json record = nlohmann::json::parse(prereg::RunRecordText({"register", "1"}, table));
        nlohmann::json notes = nlohmann::json::array();
        if (outcome.isStopped) notes.push_back(prereg::sStoppedWords);
        for (const std::string& why : outcome.leftOut)
            notes.push_back("left out: few.xyz" + std::string(why.ends_with('\n') ? "\\n" : ""));
        EXPECT_EQ(shown["outcome"], outcome.words);
        EXPECT_EQ(shown["notes"], notes);
        EXPECT_EQ(shown["whole"], outcome.isWhole);
        EXPECT_EQ(record["outcome"], outcome.words);
        EXPECT_EQ(record["notes"], notes);
        const std::string text = prereg::ToText(table);
        EXPECT_TRUE(text.ends_with("\n" + outcome.words + "\n")) << text;
    }
}

TEST(Report, SurvivesWhateverNamesAndNumbersHold)
{
    const std::string name = "</script><script>alert(1)</script><!--\"\\\xff\n@REPORT_DATA@.ply";
    prereg::Vectors points = dome(4);
    points[3].y = std::numeric_limits<float>::infinity();
    prereg::RegistrationTable table{1.0, {}, {{0, 0, dNaN, INFINITY}}};
    table.scans = {row(name, "<b>", {}), row("empty", "<b>", {})};
    table.scans[0].dRmse = -INFINITY;
    table.scans[0].dSlip = 0.1;
    const TemporaryFolder folder;
    prereg::WriteReport(folder / "page.html", table, std::vector<prereg::SurfelSpan>{{points, points}, {}});

    const std::string page = folder.Read("page.html");
    EXPECT_EQ(page.find("alert(1)</script>"), std::string::npos);
    const nlohmann::json data = dataOf(page);
    const auto shown = data["scans"][0]["file"].get<std::string>();
    EXPECT_EQ(shown.substr(0, 40), name.substr(0, 40));
    EXPECT_EQ(shown.substr(shown.size() - 18), name.substr(name.size() - 18));
    for (const char* key : {"overlap", "rmse"}) {
        EXPECT_TRUE(data["scans"][0][key].is_null()) << key;
        EXPECT_TRUE(data["pairs"][0][key].is_null()) << key;
    }
    EXPECT_EQ(data["scans"][0]["slip"], 0.1);
    EXPECT_EQ(data["scans"][0]["cloud"]["count"], 15);
    EXPECT_EQ(data["scans"][1]["cloud"]["count"], 0);
}

// Rows, a line, a heap in a corner, points that fill a volume: the number of cells grows with another power in each.
TEST(ThinEvenly, KeepsNearlyAsManyAsAllowedAndLeavesNoGaps)
{
    std::mt19937 rng(47110815);
    const auto any = [&rng] { return static_cast<std::uint16_t>(rng() >> 16U); };
    std::vector<LatticePoint> surface, line, heap, volume;
    for (std::uint32_t i = 0; i < 40000; ++i) {
        surface.push_back({static_cast<std::uint16_t>(i % 200 * 300), static_cast<std::uint16_t>(i / 200 * 300), 7});
        line.push_back({any(), 0, 0});
        heap.push_back({static_cast<std::uint16_t>(any() % 30), static_cast<std::uint16_t>(any() % 30), 65535});
        volume.push_back({any(), any(), any()});
    }
    for (const auto& cloud : {surface, line, heap, volume}) {
        const std::size_t different = std::set(cloud.begin(), cloud.end()).size();
        for (const std::size_t max : {0UL, 1UL, 700UL, 30000UL, 40000UL}) {
            const auto kept = prereg::ThinEvenly(cloud, max);
            EXPECT_LE(kept.size(), max);
            EXPECT_GE(kept.size(), max == 700 ? std::min<std::size_t>(different, 560) : 0);
            EXPECT_TRUE(std::is_sorted(kept.begin(), kept.end()));
        }
    }
    const auto kept = prereg::ThinEvenly(surface, 700); // some 26 in a row
    for (const std::uint32_t a : kept) {
        const auto isNear = [&](std::uint32_t b) {
            return a != b &&
                   std::hypot(surface[a][0] - surface[b][0], surface[a][1] - surface[b][1]) < 2 * 60000 / 26.0;
        };
        ASSERT_GE(std::count_if(kept.begin(), kept.end(), isNear), 3) << a;
    }
}

TEST(ScanColour, TellsTheFirstTwentyApartAndHasOneForEveryNumber)
{
    std::set<Zorvan::Rgb> all;
    for (std::size_t i = 0; i < 200; ++i) all.insert(prereg::ScanColour(i));
    EXPECT_GT(all.size(), 190U);
    for (std::size_t i = 0; i < 20; ++i) {
        for (std::size_t k = 0; k < i; ++k) {
            int apart = 0;
            for (std::size_t c = 0; c < 3; ++c) apart += std::abs(prereg::ScanColour(i)[c] - prereg::ScanColour(k)[c]);
            EXPECT_GT(apart, 40) << i << ' ' << k;
        }
    }
}

} // namespace
