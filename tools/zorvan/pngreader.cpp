#include "pngreader.h"

#include "filebytes.h"
#include "inputerror.h"

#include <png.h>

#include <bit>
#include <cstdint>
#include <string>

namespace tools {

namespace {

/// Frees what libpng holds, also when the pixels were never read.
struct PngImage : png_image
{
    PngImage() : png_image{} { version = PNG_IMAGE_VERSION; }
    PngImage(const PngImage&) = delete;
    PngImage& operator=(const PngImage&) = delete;
    ~PngImage() { png_image_free(this); }
};

} // namespace

Zorvan::TImage<unsigned int> ReadPng(const std::filesystem::path& file)
{
    // A byte of deflate gives 1032 at most, so pixels of one bit need a byte for each 8256.
    constexpr std::uint64_t uiPixelsPerByte = 8256;
    const std::string bytes = ReadFileBytes(file);
    PngImage png;
    if (png_image_begin_read_from_memory(&png, bytes.data(), bytes.size()) == 0)
        throw CInputError(file, std::string("cannot be read: ") + png.message, "give a PNG file");
    if (std::uint64_t{png.width} * png.height > uiPixelsPerByte * bytes.size())
        throw CInputError(file, "promises more pixels than it can hold", "write or copy it again");

    Zorvan::TImage<unsigned int> image(png.width, png.height);
    png.format = std::endian::native == std::endian::little ? PNG_FORMAT_BGRA : PNG_FORMAT_ARGB;
    if (png_image_finish_read(&png, nullptr, image.GetPixels().data(), 0, nullptr) == 0)
        throw CInputError(file, std::string("cannot be read: ") + png.message, "write or copy it again");
    return image;
}

} // namespace tools
