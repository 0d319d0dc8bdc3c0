// SPDX-License-Identifier: MIT
#include "zorvan/scans/outputcheck.h"

#include "zorvan/scans/inputerror.h"

#include <set>
#include <system_error>

namespace Zorvan {

bool IsSameFile(const std::filesystem::path& a, const std::filesystem::path& b)
{
    std::error_code error;
    if (std::filesystem::equivalent(a, b, error)) return true;
    const auto place = std::filesystem::weakly_canonical(std::filesystem::absolute(a, error), error);
    return !error && place == std::filesystem::weakly_canonical(std::filesystem::absolute(b, error), error);
}

void RequireApart(const std::filesystem::path& output, const std::vector<std::string>& inputs)
{
    for (const std::string& input : inputs) {
        if (!input.empty() && IsSameFile(output, input))
            throw CInputError(output, "would replace " + input + ", which is read",
                              "give another place for the output");
    }
}

void RequireDistinctNames(const std::vector<std::string>& scans)
{
    std::set<std::filesystem::path> names;
    for (const std::filesystem::path scan : scans) {
        if (!names.insert(scan.filename()).second)
            throw CInputError("two scans are named " + scan.filename().string() +
                              ", and poses are matched by file name; rename one of them");
    }
}

} // namespace Zorvan
