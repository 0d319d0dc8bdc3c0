// SPDX-License-Identifier: MIT
#include "zorvan/workflow/featuresurvey.h"

#include "zorvan/core/cpointset.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/platform/cpufeatures.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/colourscale.h"
#include "zorvan/workflow/featuresizes.h"
#include "zorvan/workflow/featuresummary.h"
#include "zorvan/workflow/settingsfile.h"

#include <chrono>
#include <iomanip>
#include <sstream>
#include <vector>

namespace prereg {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double dStronglyCurved = 0.75; // 95 % of the features of teeth and of the bunny are nearer to a plane
constexpr double dDefaultFlat = 0.16;
constexpr Zorvan::Rgb noFeature{128, 128, 128};

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

void compute(const Zorvan::SurfelScan& scan, FeatureSurvey& survey)
{
    auto start = Clock::now();
    survey.source = CFPFHDataSource(survey.config, survey.options.uiNumTasks, survey.options.gpu);
    survey.source.Load(scan.points, scan.normals, nullptr);
    survey.dSourceSeconds = secondsSince(start);
    if (!survey) return;
    start = Clock::now();
    const CFPFHPointSet set(survey.source);
    survey.dSetSeconds = secondsSince(start);
    survey.isTooLean = set.IsTooLean(survey.config);
}

std::string length(double mm, const FeatureSurvey& survey)
{
    return Zorvan::ToText(mm / survey.options.dMmPerUnit) + " " + Zorvan::UnitName(survey.options.dMmPerUnit);
}

std::string gridWords(const std::string& name, double size, const FeatureSurvey& survey)
{
    return size > 0.0 ? name + " " + length(size, survey) : "no " + name + ", all are kept";
}

std::string row(const std::string& name, std::size_t count, const std::string& words)
{
    std::ostringstream text;
    text << "  " << std::left << std::setw(16) << name << std::right << std::setw(9) << std::to_string(count)
         << (words.empty() ? "" : "  ") << words << '\n';
    return text.str();
}

} // namespace

FeatureSurvey SurveyFeatures(const Zorvan::SurfelScan& scan, const FeatureSurveyOptions& options,
                             const Zorvan::Hooks& hooks)
{
    if (Zorvan::GetSimd() != Zorvan::ESimd::Avx)
        throw Zorvan::CInputError("features need a processor with AVX; use another machine");
    hooks.Start("computing features", 2);
    const CPointSet points(scan.points.data(), scan.normals.data(), scan.points.size());
    const AutoSettings chosen = ChooseSettings(points, options.dGrid, "the scan");
    FeatureSurvey survey{
        options, WithSettings(AllSettingsForGrid(chosen.dGrid), options.settings), {}, scan.uiRead, scan.points.size(),
        {}};
    survey.settingsWords = "grid " + length(chosen.dGrid, survey) + ": " + chosen.reason;
    CheckFeatureSizes(scan, survey.config, options.dMmPerUnit);
    hooks.Advance();
    compute(scan, survey);
    hooks.Finish();
    return survey;
}

std::string CountsText(const FeatureSurvey& survey)
{
    const std::size_t tried = survey.source.GetFeaturePointsV().size();
    const std::size_t found = survey.source.GetNumFeatures();
    const std::size_t lost = survey.uiRead - survey.uiUsable;
    return row("points read", survey.uiRead, lost > 0 ? std::to_string(lost) + " unusable or at a place twice" : "") +
           row("after reduction", survey.source.GetNumPoints(), gridWords("grid", survey.config.dGridSize, survey)) +
           row("feature points", tried, gridWords("feature grid", survey.config.dFeatureGridSize, survey)) +
           row("features", found,
               "radius " + length(survey.config.dFeatureRadius, survey) + "; " + std::to_string(tried - found) +
                   " without, for too few neighbours");
}

std::string ShapeText(const FeatureSurvey& survey)
{
    const auto [first, count] = survey.source.GetFeatures();
    const double similar = survey.config.dVerifyTrafoMaxFeatureDistance;
    std::string text = "  time             " + Zorvan::ToText(survey.dSourceSeconds, 3) +
                       " s for points and features (threads: " + std::to_string(survey.options.uiNumTasks) + "), " +
                       Zorvan::ToText(survey.dSetSeconds, 3) + " s for the point set with its trees\n\n";
    text += DescribeFeatures({first, count}, Zorvan::ToFloat(similar > 0.0 ? similar * similar : dDefaultFlat));
    if (survey.isTooLean) text += "\nToo few points or features for a search without a start pose\n";
    return text;
}

void WriteColouredFeatures(const std::filesystem::path& file, const FeatureSurvey& survey)
{
    const CFPFHDataSource& source = survey.source;
    std::vector<Zorvan::Rgb> colours;
    for (const auto& feature : source.GetFeaturesV())
        colours.push_back(colours.size() < source.GetNumFeatures()
                              ? ColourAt(feature.SquaredEuclideanDistanceToPlane() / dStronglyCurved)
                              : noFeature);
    const Zorvan::Scan scan{source.GetFeaturePointsV(), source.GetFeatureNormalsV(), {}};
    Zorvan::WritePly(file, scan, 1.0 / survey.options.dMmPerUnit, colours);
}

} // namespace prereg
