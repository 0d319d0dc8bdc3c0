// SPDX-License-Identifier: MIT
#include "zorvan/persistence/bsonserialization.h"

#include "tests/support/clouds.h"
#include "tests/support/matchers.h"

#include <algorithm>
#include <random>
#include <tuple>
#include <typeinfo>

using namespace bson;
using namespace prereg;
using support::Vector3;

namespace {

CFPFHPointSet makeSet(std::size_t points, std::size_t features)
{
    const auto fine = support::BumpySurface(points, 1);
    const auto coarse = support::BumpySurface(features, 2);
    std::vector<CPointFeatureHistogram> histograms(features);
    for (std::size_t i = 0; i < features; ++i) histograms[i].AsArray()[i % 33] = 1.0F + static_cast<float>(i);
    return {fine.points, fine.normals, coarse.points, coarse.normals, histograms};
}

bool equal(const object& a, const object& b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); }

template <class T>
void expectBadCast(const object& bad)
{
    EXPECT_THROW(static_cast<void>(from_object<T>(bad)), std::bad_cast) << bad.dump();
}

} // namespace

TEST(PoseDocument, KeepsThePoseToSinglePrecisionAndNeedsAllKeys)
{
    std::mt19937 rng(3);
    const CTrafo pose = support::RandomPose(rng, 100);
    EXPECT_THAT(from_object<CTrafo>(element("deeper", to_object(pose))), support::IsNearPose(pose, 0.0, 0.05));
    EXPECT_FALSE(from_object<CTrafo>(to_object(CTrafo::Invalid())));
    const object whole = to_object(pose);
    for (const object& bad : {object(), whole.erase("Rotation"), whole.update(element("Translation", 1.0F)),
                              whole.update(element("Translation", object{{"x", 1.0}, {"y", 2.0F}, {"z", 3.0F}}))})
        expectBadCast<CTrafo>(bad);
}

TEST(ResultDocument, KeepsAllButTheThirdTipAndTheStopRatio)
{
    const std::string text =
        R"({"fStart_OverlapRatio" : 1, "iStart_NumberOfInliers" : 2, "fStart_RMSE" : 3, "fStop_OverlapRatio" : 4, )"
        R"("fStop_OverlapArea" : 5, "iStop_NumberOfInliers" : 6, "fStop_RMSE" : 7, "iStop_Iterations" : 8, )"
        R"("fStop_SmallBigRatio" : 9, "fStop_MOICP_ZScore" : 10, )"
        R"("vStop_StdDev" : {"sigma_x" : 11, "sigma_y" : 12, "sigma_z" : 13}, )"
        R"("trafo" : {"Rotation" : {"w" : 0, "x" : 0, "y" : 1, "z" : 0}, "Translation" : {"x" : 1, "y" : 2, "z" : 3}}, )"
        R"("ellipsoid" : {"COG" : {"x" : 1, "y" : 2, "z" : 3}, "ExtremePts" : {"pt1" : {"x" : 4, "y" : 5, "z" : 6}, )"
        R"("pt2" : {"x" : 7, "y" : 8, "z" : 9}, "pt3" : {"x" : 1, "y" : 1, "z" : 1}}}, "eICPResult" : 11})";
    const object document = to_object(ICPResult()).update(object::from_json(text));
    EXPECT_EQ(document.to_json(), text);
    const auto result = from_object<ICPResult>(document);
    EXPECT_EQ(result.fStop_RMSE, 7);
    EXPECT_EQ(result.GetStdDev(), Vector3(11, 12, 13).Length());
    EXPECT_EQ(result.trafo * Vector3(1, 1, 1), Vector3(0, 3, 2)); // half a turn about y
    EXPECT_EQ(result.ellipsoid[2], Vector3(7, 8, 9));
    const char* const lost = "{'fStart_OverlapRatio' : 4, 'fStop_OverlapRatio' : -1, "
                             "'ellipsoid' : {'ExtremePts' : {'pt3' : {'x' : 0, 'y' : 0, 'z' : 0}}}}";
    EXPECT_TRUE(equal(to_object(result), document.update(object::from_json(lost)))) << to_object(result).to_json();
    for (const element& bad : {element("fStart_RMSE", 1.0), element("eICPResult", 1U), element("trafo", object()),
                               element("vStop_StdDev", 1.0F), element("ellipsoid", element("COG", 1.0F) + element())})
        expectBadCast<ICPResult>(bad);
}

TEST(PointSetDocument, PacksItsArraysAndNeverReadsBeyondThem)
{
    const object whole = to_object(makeSet(10, 3));
    const auto arraysOf = [](const CFPFHPointSet& s) {
        return std::tuple(s.GetPoints(), s.GetNormals(), s.GetFeaturePoints(), s.GetFeatureNormals(), s.GetFeatures());
    };
    EXPECT_TRUE(arraysOf(from_object<CFPFHPointSet>(whole)) == arraysOf(makeSet(10, 3)));
    // Of each array: its bytes, fewer, and as many with a record that is cut short.
    using Case = std::tuple<const char*, unsigned, unsigned, unsigned>;
    const std::vector<unsigned char> zeros(1000);
    for (const auto& [key, bytes, wrong, odd] :
         {Case("Points", 120, 119, 131), Case("Normals", 120, 132, 121), Case("FeaturePoints", 36, 24, 47),
          Case("FeatureNormals", 36, 0, 37), Case("Features", 396, 395, 527)}) {
        EXPECT_EQ(std::get<1>(whole.query(key).as_binary()), bytes) << key;
        EXPECT_EQ(from_object<CFPFHPointSet>(whole.update(element(key, zeros.data(), wrong))).Size(), 0U) << key;
        EXPECT_EQ(from_object<CFPFHPointSet>(whole.update(element(key, zeros.data(), odd))).Size(), 10U) << key;
        expectBadCast<CFPFHPointSet>(whole.update(element(key, 1.0)));
    }
}

TEST(SearchDocument, KeepsSetsSettingsAndResults)
{
    CFPFHPreRegistration search(makeSet(10, 3), makeSet(12, 4), ConfigurationFPFH().Scale(2), true);
    ICPResult result;
    for (float& slip = result.vStop_StdDev.x; slip < 3.0F; slip += 1.0F) search.InjectICPResult(result);
    const object document = to_object(search);
    const auto again = from_object<CFPFHPreRegistration>(document);
    EXPECT_TRUE(equal(to_object(again).erase("Transforms"), document.erase("Transforms")));
    EXPECT_EQ(again.GetFltPointSet().Size(), 12U);
    EXPECT_EQ(document.query("Transforms/3/vStop_StdDev/sigma_x").as_float(), 2.0F);
    EXPECT_EQ(again.GetAllResults().back().vStop_StdDev, Vector3(2, -1, -1));
    EXPECT_EQ(from_object<CFPFHPreRegistration>(to_object(CFPFHPreRegistration())).GetFixPointSet().Size(), 0U);
    for (const element& part : document) expectBadCast<CFPFHPreRegistration>(document.erase(part.name()));
    expectBadCast<CFPFHPreRegistration>(document.update(element("Transforms", object(element("0", 1)))));
}
