// SPDX-License-Identifier: MIT
// The C++ side of overhead.py: takes two scans as raw floats (six a point), aligns them twice for each line on standard
// input, and prints what the second call took, in seconds of the processor.
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/align.h"

#include <cstdio>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace {

struct Arrays
{
    prereg::Vectors points;
    prereg::Vectors normals;
};

Arrays read(const char* file)
{
    Arrays arrays;
    std::ifstream in(file, std::ios::binary);
    float v[6];
    while (in.read(reinterpret_cast<char*>(v), sizeof v)) {
        arrays.points.emplace_back(v[0], v[1], v[2]);
        arrays.normals.emplace_back(v[3], v[4], v[5]);
    }
    return arrays;
}

Zorvan::SurfelScan toSurfels(const Arrays& arrays, const char* name)
{
    Zorvan::Scan scan;
    scan.points = arrays.points;
    scan.normals = arrays.normals;
    return Zorvan::ToSurfels(std::move(scan), name);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    const Arrays fix = read(argv[1]);
    const Arrays flt = read(argv[2]);
    for (std::string line; std::getline(std::cin, line);) {
        static_cast<void>(prereg::Align(toSurfels(fix, "fix"), toSurfels(flt, "flt"))); // warms up
        const std::clock_t start = std::clock();
        const auto result = prereg::Align(toSurfels(fix, "fix"), toSurfels(flt, "flt"));
        const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
        std::printf("%.6f %.9g\n", seconds, static_cast<double>(result.Pose()(0, 3)));
        std::fflush(stdout);
    }
    return 0;
}
