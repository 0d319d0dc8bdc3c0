// SPDX-License-Identifier: MIT
#include "zorvan/exchange/pngfile.h"

#include <png.h>

#include <bit>
#include <limits>

namespace Zorvan {

bool WritePng(const std::string& fileName, const TImage<unsigned int>& image)
{
    // The library counts rows in signed numbers of bytes.
    constexpr std::size_t uiLargest = std::numeric_limits<png_int_32>::max() / sizeof(unsigned int);
    if (image.GetPixels().empty() || image.GetWidth() > uiLargest || image.GetHeight() > uiLargest) return false;

    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.GetWidth());
    png.height = static_cast<png_uint_32>(image.GetHeight());
    png.format = std::endian::native == std::endian::little ? PNG_FORMAT_BGRA : PNG_FORMAT_ARGB;
    return png_image_write_to_file(&png, fileName.c_str(), 0, image.GetPixels().data(), 0, nullptr) != 0;
}

} // namespace Zorvan
