// SPDX-License-Identifier: Apache-2.0
//
// Headers of image files: by libexiv2, and for the plain formats of which it knows nothing, here.
#include "image_size.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <exiv2/exiv2.hpp>
#include <fstream>
#include <limits>
#include <sstream>

#include "frame_source.h"

namespace tarn::host {

namespace {

int whole(std::int64_t value)
{
    return static_cast<int>(std::clamp<std::int64_t>(value, 0, std::numeric_limits<int>::max()));
}

std::int64_t value_of(const Exiv2::ExifData& exif, const char* key)
{
    const auto found = exif.findKey(Exiv2::ExifKey(key));
    return found == exif.end() || found->count() == 0 ? 0 : found->value().toLong();
}

cv::Size size_by_exiv2(const std::string& file)
{
    try {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        const auto image = Exiv2::ImageFactory::open(as_path(file));
        image->readMetadata();
        cv::Size size(whole(image->pixelWidth()), whole(image->pixelHeight()));
        if (image->mimeType() == "image/tiff") {
            // The picture that is decoded is the first one, whatever a tag says of which is the main one.
            size.width = std::max(size.width, whole(value_of(image->exifData(), "Exif.Image.ImageWidth")));
            size.height = std::max(size.height, whole(value_of(image->exifData(), "Exif.Image.ImageLength")));
        }
        return size;
    } catch (const std::exception&) {
        return {};
    }
}

/// Portable pixmaps ("P6 width height"), Radiance's pictures ("-Y height +X width") and Sun's rasters.
cv::Size size_of_plain_format(const std::string& file)
{
    constexpr std::size_t longest_header = 4096;
    std::string head(longest_header, '\0');
    std::ifstream stream(file, std::ios::binary);
    stream.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(stream.gcount()));
    std::int64_t width = 0;
    std::int64_t height = 0;
    if (head.size() > 12 && head.compare(0, 4, "\x59\xa6\x6a\x95") == 0) {
        const auto word = [&head](std::size_t at) {
            std::int64_t value = 0;
            for (std::size_t i = at; i < at + 4; ++i) {
                value = value << 8 | static_cast<unsigned char>(head[i]);
            }
            return value;
        };
        width = word(4);
        height = word(8);
    } else if (head.compare(0, 2, "#?") == 0) {
        const std::size_t resolution = head.find("\n-Y ");
        std::istringstream text(resolution == std::string::npos ? "" : head.substr(resolution + 4));
        std::string axis;
        text >> height >> axis >> width;
    } else if (head.size() > 2 && head[0] == 'P' && head[1] >= '1' && head[1] <= '6') {
        std::istringstream text(head.substr(2));
        std::array<std::int64_t*, 2> values = {&width, &height};
        for (std::int64_t* const value : values) {
            while ((text >> std::ws).peek() == '#') {
                text.ignore(static_cast<std::streamsize>(head.size()), '\n');
            }
            text >> *value;
        }
    }
    return {whole(width), whole(height)};
}

}  // namespace

cv::Size image_size(const std::string& file)
{
    const cv::Size size = size_by_exiv2(file);
    return size.empty() ? size_of_plain_format(file) : size;
}

}  // namespace tarn::host
