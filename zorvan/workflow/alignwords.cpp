// SPDX-License-Identifier: MIT
#include "zorvan/workflow/alignwords.h"

#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"

#include <cmath>
#include <cstddef>
#include <numbers>

namespace prereg {

namespace {

std::string length(double mm, double mmPerUnit)
{
    return Zorvan::ToText(mm / mmPerUnit) + " " + Zorvan::UnitName(mmPerUnit);
}

const char* verdictWords(EPairVerdict eVerdict)
{
    switch (eVerdict) {
    case EPairVerdict::Aligned:
        return " is aligned to ";
    case EPairVerdict::Ambiguous:
        return " is ambiguous on ";
    case EPairVerdict::NotAligned:
        return " is NOT aligned to ";
    case EPairVerdict::TooLittle:
        return " shares too little to go on with ";
    }
    return " ";
}

} // namespace

std::string VerdictText(const AlignResult& result, const std::string& fix, const std::string& flt, double dMmPerUnit)
{
    const Zorvan::RegistrationSummary summary = Summarize(result.Best());
    std::string text = Zorvan::ToShown(flt) + verdictWords(result.verdict.eVerdict) + Zorvan::ToShown(fix);
    if (std::isfinite(summary.dRmse)) text += ", RMSE " + length(summary.dRmse, dMmPerUnit);
    if (std::isfinite(summary.dOverlap)) text += ", overlap " + Zorvan::ToText(summary.dOverlap, 3);
    if (std::isfinite(summary.dSlip)) text += ", slip " + length(summary.dSlip, dMmPerUnit);
    if (!result) text += ": " + result.verdict.Reason();
    return text;
}

std::string UncertaintyText(const PoseEstimate& estimate, double dMmPerUnit)
{
    if (!estimate) return {};
    constexpr double dDegrees = 180.0 / std::numbers::pi;
    const auto deviations = estimate.GetStdDevs();
    const auto list = [&](std::size_t first, double factor) {
        std::string text;
        for (std::size_t k = first; k < first + 3; ++k)
            text += (text.empty() ? "" : ", ") + Zorvan::ToText(deviations[k] * factor, 2);
        return text;
    };
    return "turns about x, y, z are known to " + list(0, dDegrees) + " degrees and shifts to " +
           list(3, 1.0 / dMmPerUnit) + " " + Zorvan::UnitName(dMmPerUnit) + " (1 sigma); " + estimate.ToString();
}

std::string CandidatesText(const AlignResult& result)
{
    std::string text;
    for (std::size_t i = 0; i < result.candidates.size(); ++i) {
        const PoseVerdict& verdict = result.candidates[i].verdict;
        text.append("pose ").append(std::to_string(i + 1)).append(": ").append(FindingName(verdict.eFinding));
        text.append(", ").append(std::to_string(verdict.counts.uiMatched)).append(" of ");
        text.append(std::to_string(verdict.counts.uiSamples)).append(" samples match; ");
        text.append(verdict.ToString()).append("\n");
    }
    return text;
}

} // namespace prereg
