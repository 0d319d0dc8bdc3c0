// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

/// A folder that goes when this does.
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "zorvan-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        m_path = name;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }
    [[nodiscard]] std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

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

private:
    std::filesystem::path m_path;
};
