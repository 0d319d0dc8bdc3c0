// SPDX-License-Identifier: MIT
#include "latencies.h"

#include "zorvan/numerics/quantile.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <sstream>
#include <utility>

namespace live {

namespace {

constexpr double dMs = 1000.0;
constexpr double dWidth = 800.0; // of the picture, as the rest below
constexpr double dHeight = 200.0;
constexpr double dLongest = 100.0; // ms; what takes longer is cut

struct Stage
{
    const char* name;
    const char* colour;
    double (*seconds)(const FrameRecord&);
};

constexpr std::array<Stage, 4> stages{{
    {"placing", "#34618f", [](const FrameRecord& f) { return f.times.dPlacing; }},
    {"features", "#2a7f3f", [](const FrameRecord& f) { return f.times.dFeatures; }},
    {"update", "#c08a2b", [](const FrameRecord& f) { return f.times.dUpdate; }},
    {"latency", "#888888", [](const FrameRecord& f) { return f.dLatency; }},
}};

double quantile(const std::vector<FrameRecord>& frames, const Stage& stage, double share)
{
    std::vector<double> values;
    values.reserve(frames.size());
    for (const FrameRecord& frame : frames) values.push_back(stage.seconds(frame));
    return values.empty() ? 0.0 : Zorvan::Quantile(std::move(values), share);
}

double y(double ms) { return dHeight * (1.0 - std::min(ms, dLongest) / dLongest); }

void drawFrame(std::ostream& out, const FrameRecord& frame, double x, double width)
{
    double below = 0.0;
    for (const Stage& stage : stages) {
        const bool isLatency = &stage == &stages.back();
        const double from = isLatency ? std::min(below, dMs * frame.dLatency) : below;
        const double to = isLatency ? dMs * frame.dLatency : below + dMs * stage.seconds(frame);
        out << "<rect x='" << x << "' y='" << y(to) << "' width='" << width << "' height='" << y(from) - y(to)
            << "' fill='" << stage.colour << (isLatency ? "' fill-opacity='0.35" : "") << "'/>\n";
        below = to;
    }
}

} // namespace

double ShareInTime(const std::vector<FrameRecord>& frames)
{
    const auto inTime =
        std::count_if(frames.begin(), frames.end(), [](const FrameRecord& f) { return f.dLatency <= dDeadline; });
    return static_cast<double>(inTime) / static_cast<double>(std::max<std::size_t>(1, frames.size()));
}

std::string Table(const std::vector<FrameRecord>& frames)
{
    std::string table = "ms          median     95 %  largest\n";
    for (const Stage& stage : stages) {
        char line[80];
        std::snprintf(line, sizeof line, "%-9s %8.1f %8.1f %8.1f\n", stage.name, dMs * quantile(frames, stage, 0.5),
                      dMs * quantile(frames, stage, 0.95), dMs * quantile(frames, stage, 1.0));
        table += line;
    }
    return table;
}

std::string Picture(const std::vector<FrameRecord>& frames)
{
    std::ostringstream out;
    out << "<svg xmlns='http://www.w3.org/2000/svg' viewBox='-40 -30 " << dWidth + 60 << ' ' << dHeight + 60
        << "' font-family='sans-serif' font-size='12'>\n";
    const double width = dWidth / static_cast<double>(std::max<std::size_t>(1, frames.size()));
    for (std::size_t i = 0; i < frames.size(); ++i) drawFrame(out, frames[i], static_cast<double>(i) * width, width);
    for (const double ms : {0.0, 50.0, 100.0})
        out << "<path d='M0 " << y(ms) << " H" << dWidth << "' stroke='#444' stroke-dasharray='4'/><text x='-36' y='"
            << y(ms) + 4 << "'>" << ms << " ms</text>\n";
    double x = 0.0;
    for (const Stage& stage : stages) {
        out << "<text x='" << x << "' y='-12' fill='" << stage.colour << "'>" << stage.name << "</text>\n";
        x += 90.0;
    }
    out << "<text x='0' y='" << dHeight + 20 << "'>" << frames.size()
        << " frames; stages in processor time, latency by the clock</text>\n</svg>\n";
    return out.str();
}

} // namespace live
