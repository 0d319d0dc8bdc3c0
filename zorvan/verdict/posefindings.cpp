// SPDX-License-Identifier: MIT
// What counts and findings of the judge say, in numbers and words.
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <cstdio>

namespace prereg {

namespace {

std::string percent(double share)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %%", 100 * share);
    return text;
}

} // namespace

double PoseCounts::Contradiction() const
{
    const unsigned against = Contradictions();
    return against == 0 ? 0.0 : static_cast<double>(against) / static_cast<double>(against + uiMatched);
}

double PoseCounts::TailShare() const
{
    return uiTail == 0 ? 0.0 : static_cast<double>(uiTail) / static_cast<double>(uiTail + uiMatched);
}

double PoseCounts::Score() const
{
    return static_cast<double>(uiMatched) - verdict::dContradictionWeight * static_cast<double>(Contradictions());
}

PoseCounts& PoseCounts::operator+=(const PoseCounts& other)
{
    uiSamples += other.uiSamples;
    uiMatched += other.uiMatched;
    uiInFront += other.uiInFront;
    uiSolid += other.uiSolid;
    uiDisputed += other.uiDisputed;
    uiMissing += other.uiMissing;
    uiInGap += other.uiInGap;
    uiTurned += other.uiTurned;
    uiOpposed += other.uiOpposed;
    uiTail += other.uiTail;
    uiShallow += other.uiShallow;
    uiTelling += other.uiTelling;
    for (std::size_t side = 0; side < matchedOf.size(); ++side) matchedOf.at(side) += other.matchedOf.at(side);
    return *this;
}

const char* FindingName(EFinding eFinding)
{
    switch (eFinding) {
    case EFinding::Consistent:
        return "consistent";
    case EFinding::Doubtful:
        return "doubtful";
    case EFinding::Invalid:
        return "no pose";
    case EFinding::TooLittle:
        return "too little shared";
    case EFinding::SeenThrough:
        return "seen through";
    case EFinding::SurfaceMissing:
        return "surface missing";
    case EFinding::Opposed:
        return "surface looks another way";
    case EFinding::Residuals:
        return "surfaces do not meet";
    case EFinding::Sliding:
        return "may slide";
    case EFinding::NotRuledOut:
        return "not ruled out";
    }
    return "";
}

std::string PoseVerdict::ToString() const
{
    const double pairs = std::max(1U, counts.Contradictions() + counts.uiMatched);
    switch (eFinding) {
    case EFinding::Consistent:
        return percent(counts.Contradiction()) + " of what can be compared speaks against it";
    case EFinding::Doubtful:
        if (counts.Contradiction() <= verdict::dMaxContradiction && counts.uiSolid < verdict::uiDoubtfulSolid &&
            counts.uiDisputed < verdict::uiDoubtfulDisputed)
            return "little speaks against it, but it puts both spinning sensors in one place, where their rings agree "
                   "whatever they saw";
        if (counts.Contradiction() <= verdict::dMaxContradiction)
            return "little speaks against it, but a patch of " +
                   std::to_string(std::max(counts.uiInFront, counts.uiDisputed)) +
                   " samples lies where the other sensor looked through";
        return percent(counts.Contradiction()) + " of what can be compared speaks against it, more than usual";
    case EFinding::Invalid:
        return "there is no pose";
    case EFinding::TooLittle:
        return "the scans share hardly any surface there: " + std::to_string(counts.uiMatched) + " of " +
               std::to_string(counts.uiSamples) + " samples match";
    case EFinding::SeenThrough:
        if (counts.uiDisputed >= verdict::uiMinDisputed)
            return "a patch of " + std::to_string(counts.uiDisputed) +
                   " samples and more lies where the other sensor looked through";
        return percent(counts.uiInFront / pairs) + " lies where the other sensor looked through";
    case EFinding::SurfaceMissing:
        return percent(counts.uiMissing / pairs) + " should have been seen by the other sensor, and was not";
    case EFinding::Opposed:
        return percent(counts.uiOpposed / pairs) + " meets surface that looks another way";
    case EFinding::Residuals:
        return percent(counts.TailShare()) + " of what comes near the other surface stays off it by more than noise";
    case EFinding::Sliding:
        return "the pose may slide, and nothing would contradict it";
    case EFinding::NotRuledOut:
        return "a turn of the box that the scans span; " + std::to_string(counts.Contradictions()) + " of " +
               std::to_string(counts.uiSamples) + " samples speak against it, " + std::to_string(counts.uiMatched) +
               " match";
    }
    return {};
}

} // namespace prereg
