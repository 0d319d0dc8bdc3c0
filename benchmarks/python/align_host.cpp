// SPDX-License-Identifier: MIT
// The C++ side of overhead.py: takes two scans as raw floats (six a point), aligns them once for each line on standard
// input, and prints what the call took, in seconds.
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/align.h"

#include <chrono>
#include <cstdio>
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
        const auto start = std::chrono::steady_clock::now();
        const auto result = prereg::Align(toSurfels(fix, "fix"), toSurfels(flt, "flt"));
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        std::printf("%.6f %.9g\n", seconds.count(), static_cast<double>(result.Pose()(0, 3)));
        std::fflush(stdout);
    }
    return 0;
}
