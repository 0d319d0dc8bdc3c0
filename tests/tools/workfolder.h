#pragma once

#include "tests/support/temporaryfolder.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// A folder that lives as long as the test, with the program run inside it.
class WorkFolder : public TemporaryFolder
{
public:
    std::filesystem::path Write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(*this / name, std::ios::binary) << bytes;
        return *this / name;
    }

    [[nodiscard]] std::string Read(const std::string& name) const
    {
        std::ifstream stream(*this / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

    struct Outcome
    {
        int exitCode = -1; ///< -1 after a signal
        std::string out;
        std::string err;
    };

    /// @param limit  what ends the program when it takes too long
    [[nodiscard]] Outcome Run(const std::string& arguments, const std::string& limit = "timeout 60") const
    {
        const std::string command = "cd " + Path().string() + " && " + limit + " " + ZORVAN_PROGRAM + " " + arguments +
                                    " >stdout.txt 2>stderr.txt";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Read("stdout.txt"), Read("stderr.txt")};
    }
};
