#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// A folder that lives as long as the test, with the program run inside it.
class WorkFolder
{
public:
    WorkFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "zorvan-test-XXXXXX").string();
        m_path = ::mkdtemp(name.data());
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    ~WorkFolder() { std::filesystem::remove_all(m_path); }

    [[nodiscard]] std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

    std::filesystem::path Write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(m_path / name, std::ios::binary) << bytes;
        return m_path / name;
    }

    [[nodiscard]] std::string Read(const std::string& name) const
    {
        std::ifstream stream(m_path / name, std::ios::binary);
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
        const std::string command = "cd " + m_path.string() + " && " + limit + " " + ZORVAN_PROGRAM + " " + arguments +
                                    " >stdout.txt 2>stderr.txt";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Read("stdout.txt"), Read("stderr.txt")};
    }

private:
    std::filesystem::path m_path;
};
