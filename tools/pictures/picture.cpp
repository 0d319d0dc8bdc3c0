// SPDX-License-Identifier: MIT
#include "tools/pictures/picture.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"

#include <png.h>

#include <algorithm>
#include <string>

namespace tools {

namespace {

static_assert(sizeof(Picture::Pixel) == 4);

/// Deflate makes a byte of at most this many.
constexpr std::size_t uiMostPerByte = 1032;

/// libpng's own reader and writer for pictures in memory: errors come back as texts.
class CPngImage
{
public:
    CPngImage() { m_image.version = PNG_IMAGE_VERSION; }
    CPngImage(const CPngImage&) = delete;
    CPngImage& operator=(const CPngImage&) = delete;
    ~CPngImage() { png_image_free(&m_image); }

    [[nodiscard]] png_image* operator->() { return &m_image; }
    [[nodiscard]] png_image* Get() { return &m_image; }
    [[nodiscard]] std::string Message() const { return static_cast<const char*>(m_image.message); }

private:
    png_image m_image{};
};

[[noreturn]] void refuse(const std::filesystem::path& file, const std::string& why)
{
    throw Zorvan::CInputError(file, "cannot be read as PNG: " + why, "save it again as PNG");
}

/// A header may promise anything; the bytes behind it cannot hold more than they can be inflated to.
void checkSize(const std::filesystem::path& file, const png_image& image, std::size_t uiBytes)
{
    const std::size_t pixels = std::size_t{image.width} * image.height;
    const std::string size = std::to_string(image.width) + " x " + std::to_string(image.height);
    if (pixels > uiMostPixels) throw Zorvan::CInputError(file, "too large with " + size + " pixels", "scale it down");
    if (pixels / 8 > uiBytes * uiMostPerByte) refuse(file, size + " pixels do not fit into its bytes");
}

} // namespace

Picture ReadPng(const std::filesystem::path& file)
{
    const std::string bytes = Zorvan::ReadFileBytes(file);
    CPngImage image;
    if (png_image_begin_read_from_memory(image.Get(), bytes.data(), bytes.size()) == 0) refuse(file, image.Message());
    checkSize(file, *image.Get(), bytes.size());

    Picture picture{image->width, image->height, (image->format & PNG_FORMAT_FLAG_ALPHA) != 0, {}};
    picture.pixels.resize(std::size_t{image->width} * image->height);
    image->format = PNG_FORMAT_RGBA;
    if (png_image_finish_read(image.Get(), nullptr, picture.pixels.data(), 0, nullptr) == 0)
        refuse(file, image.Message());
    return picture;
}

Zorvan::TImage<unsigned int> ToImage(const Picture& picture)
{
    Zorvan::TImage<unsigned int> image(picture.uiWidth, picture.uiHeight);
    std::ranges::transform(picture.pixels, image.GetPixels().begin(), [](const Picture::Pixel& p) {
        return unsigned{p.a} << 24U | unsigned{p.r} << 16U | unsigned{p.g} << 8U | p.b;
    });
    return image;
}

void WritePng(const std::filesystem::path& file, const Picture& picture)
{
    CPngImage image;
    image->width = picture.uiWidth;
    image->height = picture.uiHeight;
    image->format = picture.hasAlpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
    std::vector<std::uint8_t> samples;
    samples.reserve(picture.pixels.size() * 4);
    for (const Picture::Pixel& p : picture.pixels) {
        samples.insert(samples.end(), {p.r, p.g, p.b});
        if (picture.hasAlpha) samples.push_back(p.a);
    }
    std::string bytes(PNG_IMAGE_PNG_SIZE_MAX(*image.Get()), '\0');
    png_alloc_size_t size = bytes.size();
    if (png_image_write_to_memory(image.Get(), bytes.data(), &size, 0, samples.data(), 0, nullptr) == 0)
        throw Zorvan::CInputError(file, "cannot be written as PNG: " + image.Message(), "give a smaller picture");
    Zorvan::WriteFileAtomically(file, {bytes.data(), size});
}

} // namespace tools
