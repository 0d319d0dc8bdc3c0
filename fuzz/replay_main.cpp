// SPDX-License-Identifier: MIT
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

void addFiles(const fs::path& path, std::vector<fs::path>& files)
{
    if (!fs::is_directory(path)) {
        files.push_back(path);
        return;
    }
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
    }
}

bool replay(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::cerr << file << ": cannot be opened\n";
        return false;
    }
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    // Named before it runs, since a broken law ends the program.
    std::cout << file.string() << ", " << bytes.size() << " bytes" << std::endl;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return true;
}

} // namespace

/// Runs a fuzz target over the files, and the files of the folders, that are given. Fails if there are none.
int main(int argc, char** argv)
{
    try {
        std::vector<fs::path> files;
        for (int i = 1; i < argc; ++i) addFiles(argv[i], files);
        bool good = !files.empty();
        for (const fs::path& file : files) good = replay(file) && good;
        return good ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
