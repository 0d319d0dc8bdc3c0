// SPDX-License-Identifier: MIT
// Registers the scans that are named: first the two at the front, then all together.
//
//     register_files a.ply b.ply c.ply
#include <zorvan/runtime/ctextprogressbar.h>
#include <zorvan/scans/scanreader.h>
#include <zorvan/workflow/align.h>
#include <zorvan/workflow/registerresults.h>
#include <zorvan/workflow/registerscans.h>

#include <exception>
#include <iostream>
#include <vector>

int main(int argc, char** argv)
{
    try {
        std::vector<Zorvan::SurfelScan> scans;
        for (int i = 1; i < argc; ++i) scans.push_back(Zorvan::ReadScan(argv[i]));
        if (scans.size() < 2) {
            std::cerr << "call: register_files SCAN SCAN...\n";
            return 2;
        }

        const prereg::AlignResult pair = prereg::Align(scans[0], scans[1], {});
        std::cout << (pair ? "aligned: " : "NOT aligned: ") << pair.Best().ToString(true) << '\n';

        Zorvan::CTextProgressBar bar(std::cerr, "");
        const Zorvan::Hooks hooks([] { return false; }, &bar); // a host asks its cancel button here
        const prereg::RegisterResult all = prereg::RegisterScans(scans, {.isOptimized = true}, hooks);
        std::cout << prereg::ToText(all.table);
        return all.IsOneCluster() ? 0 : 1;
    } catch (const std::exception& error) { // a CInputError says which file, where, and what to do
        std::cerr << error.what() << '\n';
        return 2;
    }
}
