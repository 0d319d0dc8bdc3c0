#include "filebytes.h"

#include "inputerror.h"

#include <cstdint>
#include <fstream>
#include <system_error>

namespace tools {

std::string ReadFileBytes(const std::filesystem::path& file)
{
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status)) throw CInputError(file, "no such file", "check the path");
    if (!std::filesystem::is_regular_file(status)) throw CInputError(file, "not a file", "name a file, not a folder");

    const std::uintmax_t size = std::filesystem::file_size(file, error);
    if (error) throw CInputError(file, "cannot be read: " + error.message(), "check its permissions");
    if (size == 0) throw CInputError(file, "empty (0 bytes)", "write or copy it again");

    std::string bytes(size, '\0');
    std::ifstream stream(file, std::ios::binary);
    stream.read(bytes.data(), static_cast<std::streamsize>(size));
    if (stream.gcount() != static_cast<std::streamsize>(size))
        throw CInputError(file, "cannot be read to its end", "check its permissions and the disk");
    return bytes;
}

} // namespace tools
