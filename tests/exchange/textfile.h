// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/temporaryfolder.h"

#include <fstream>
#include <iterator>
#include <string>

/// A folder of small files that goes when this does.
class TextFolder : public TemporaryFolder
{
public:
    std::string Write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(*this / name, std::ios::binary) << bytes;
        return (*this / name).string();
    }

    [[nodiscard]] std::string Read(const std::string& name) const
    {
        std::ifstream stream(*this / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
};
