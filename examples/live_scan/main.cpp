// SPDX-License-Identifier: MIT
// A host that scans live: frames come twenty times a second from a virtual scanner, find their place, and grow a model
// that registers itself on a thread of its own. A page on this machine follows.
//
//     live_scan --frames 400 --model-points 2000000 --picture latency.svg
//
//     --frames N        how many come (200)
//     --fps F           how many a second (20); 0: each as soon as the last one is done
//     --model-points N  how large the model is at the start (0)
//     --jump N          at frame N the scanner is set down elsewhere (0: never)
//     --port P          of the page (0: any that is free)
//     --picture FILE    writes the latency of each frame as SVG
//     --stay            keeps the page until standard input ends
#include "pageserver.h"

#include "zorvan/workflow/autosettings.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

constexpr double dGrid = 0.12;     // mm, as far apart as the points of a frame
constexpr double dFarthest = 0.15; // mm; a frame that lies further off is wrong

struct Options
{
    unsigned uiFrames = 200;
    double dFps = 20.0;
    std::size_t uiModelPoints = 0;
    unsigned uiJump = 0;
    int iPort = 0;
    std::string picture;
    bool isStaying = false;
};

Options parse(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--stay") {
            options.isStaying = true;
            continue;
        }
        if (i + 1 == argc) throw std::invalid_argument(name + " needs a value");
        const std::string value = argv[++i];
        if (name == "--frames")
            options.uiFrames = static_cast<unsigned>(std::stoul(value));
        else if (name == "--fps")
            options.dFps = std::stod(value);
        else if (name == "--model-points")
            options.uiModelPoints = std::stoul(value);
        else if (name == "--jump")
            options.uiJump = static_cast<unsigned>(std::stoul(value));
        else if (name == "--port")
            options.iPort = std::stoi(value);
        else if (name == "--picture")
            options.picture = value;
        else
            throw std::invalid_argument(name + " is no option; the head of main.cpp names them");
    }
    return options;
}

double distance(const prereg::CTrafo& a, const prereg::CTrafo& b)
{
    return static_cast<double>((a.GetTranslation() - b.GetTranslation()).Length());
}

/// When a frame arrives, waiting for it.
Clock::time_point arrival(Clock::time_point start, std::size_t frame, double fps)
{
    if (!(fps > 0.0)) return Clock::now();
    const auto due = start + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(static_cast<double>(frame) / fps));
    std::this_thread::sleep_until(due);
    return due;
}

struct Outcome
{
    std::vector<live::FrameRecord> frames;
    double dFarthest = 0.0;  ///< mm, of a frame from where it was
    unsigned uiUnplaced = 0; ///< frames of which nobody knew yet where they are
};

Outcome scan(const std::vector<live::Frame>& frames, double fps, live::CTracker& tracker, live::CPageServer& page)
{
    Outcome outcome;
    const Clock::time_point start = Clock::now();
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const Clock::time_point arrived = arrival(start, i, fps);
        const live::PlacedFrame placed = tracker.Take(frames[i], frames[0].truth);
        const std::chrono::duration<double> latency = Clock::now() - arrived;
        outcome.frames.push_back({placed.times, latency.count(), placed.isLost});
        if (placed.pose)
            outcome.dFarthest = std::max(outcome.dFarthest, distance(placed.pose, frames[i].truth));
        else
            ++outcome.uiUnplaced;
        page.Add(outcome.frames.back(), placed.pose);
    }
    tracker.Finish();
    return outcome;
}

/// @return whether every frame and every patch found its place, but for frames after a jump
bool report(const Outcome& outcome, const live::CModel& model, bool hasJump)
{
    const live::CModel::State state = model.GetState();
    const auto lost =
        std::count_if(outcome.frames.begin(), outcome.frames.end(), [](const auto& f) { return f.isLost; });
    double slowest = 0.0;
    double sum = 0.0;
    for (const double seconds : state.seconds) {
        slowest = std::max(slowest, seconds);
        sum += seconds;
    }
    std::cout << live::Table(outcome.frames);
    std::printf("%.1f %% of %zu frames done within 50 ms; %td lost; none more than %.3f mm off\n",
                100.0 * live::ShareInTime(outcome.frames), outcome.frames.size(), lost, outcome.dFarthest);
    if (hasJump) std::printf("%u frames came before the model knew where they are\n", outcome.uiUnplaced);
    std::printf("model: %zu points in %zu patches, of %zu that came; each took %.2f s, the slowest %.2f s\n",
                live::CountPoints(state.patches), state.patches.size(), state.seconds.size(),
                sum / static_cast<double>(std::max<std::size_t>(1, state.seconds.size())), slowest);
    return lost == (hasJump ? 1 : 0) && outcome.dFarthest < dFarthest && state.uiUnplaced == 0;
}

int run(const Options& options)
{
    const std::vector<live::Frame> frames = live::MakeFrames(options.uiFrames, options.uiJump);
    const prereg::ConfigurationFPFH config = prereg::AllSettingsForGrid(dGrid);
    live::CModel model(config);
    model.Start(live::MakeEarlierScans(options.uiModelPoints));
    live::CPageServer page(model, options.iPort);
    std::cout << "follow at " << page.Address() << std::endl;
    live::CTracker tracker(config, model);
    const Outcome outcome = scan(frames, options.dFps, tracker, page);
    model.Finish();
    page.End();
    const bool isRight = report(outcome, model, options.uiJump > 0);
    if (!options.picture.empty()) std::ofstream(options.picture) << live::Picture(outcome.frames);
    std::cout.flush();
    while (options.isStaying && std::cin.get() != EOF) {
    }
    return isRight ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(parse(argc, argv));
    } catch (const std::exception& error) {
        std::cerr << "live_scan: " << error.what() << '\n';
        return 2;
    }
}
