// SPDX-License-Identifier: MIT
#include "zorvan/scans/filebytes.h"

#include "zorvan/platform/bytebuffer.h"
#include "zorvan/scans/inputerror.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <system_error>

namespace Zorvan {

namespace {

void read(const std::filesystem::path& file, char* to, std::size_t size)
{
    std::ifstream stream(file, std::ios::binary);
    stream.read(to, static_cast<std::streamsize>(size));
    if (stream.gcount() != static_cast<std::streamsize>(size))
        throw CInputError(file, "cannot be read to its end", "check its permissions and the disk");
}

} // namespace

std::uint64_t DemandFileSize(const std::filesystem::path& file)
{
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status)) throw CInputError(file, "no such file", "check the path");
    if (!std::filesystem::is_regular_file(status)) throw CInputError(file, "not a file", "name a file, not a folder");

    const auto size = std::filesystem::file_size(file, error);
    if (error) throw CInputError(file, "cannot be read: " + error.message(), "check its permissions");
    if (size == 0) throw CInputError(file, "empty (0 bytes)", "write or copy it again");
    return size;
}

std::string ReadFileBytes(const std::filesystem::path& file)
{
    std::string bytes(DemandFileSize(file), '\0');
    read(file, bytes.data(), bytes.size());
    return bytes;
}

SharedBytes ReadFileShared(const std::filesystem::path& file)
{
    const std::size_t size = DemandFileSize(file);
    const auto bytes = Zorvan::MakeByteBuffer(size);
    read(file, reinterpret_cast<char*>(bytes.get()), size);
    return {bytes, size};
}

std::string EndingOf(const std::filesystem::path& file)
{
    std::string ending = file.extension().string();
    std::ranges::transform(ending, ending.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ending;
}

} // namespace Zorvan
