// SPDX-License-Identifier: Apache-2.0
#include "python_pixels.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#if defined(__GNUC__) && !defined(__clang__)
// A pixel's three bytes are copied fastest one by one. The compiler would call memcpy for them, or, with -O3, put them
// together first: either takes several times as long.
#pragma GCC optimize("O2", "no-tree-loop-distribute-patterns")
#endif

namespace {

/// Where the pixels of a picture lie.
struct strides {
    std::ptrdiff_t row;
    std::ptrdiff_t pixel;
    std::ptrdiff_t channel;
};

/// Copies a picture of `width` times `height` pixels, in its order of rows, into one without gaps. Tile by tile: turned
/// by a quarter, its rows are the source's columns, which are far apart.
/// @param channel_step  returns the bytes from channel to channel; a constant lets a pixel be copied at once
template <int channels, typename ChannelStep>
void pack(const unsigned char* __restrict from, int width, int height, const strides& step, ChannelStep channel_step,
          unsigned char* __restrict to)
{
    constexpr int tile = 64;  // px: the source's part of a tile, and the result's, stay in the first-level cache
    const std::ptrdiff_t row_bytes = static_cast<std::ptrdiff_t>(width) * channels;
    const std::ptrdiff_t pixel_step = step.pixel;
    for (int top = 0; top < height; top += tile) {
        const int bottom = std::min(top + tile, height);
        for (int left = 0; left < width; left += tile) {
            const int count = std::min(tile, width - left);
            for (int y = top; y < bottom; ++y) {
                const unsigned char* __restrict source = from + y * step.row + left * pixel_step;
                unsigned char* __restrict pixel = to + y * row_bytes + static_cast<std::ptrdiff_t>(left) * channels;
                for (int x = 0; x < count; ++x) {
                    for (int channel = 0; channel < channels; ++channel) {
                        pixel[channel] = source[channel * channel_step()];
                    }
                    pixel += channels;
                    source += pixel_step;
                }
            }
        }
    }
}

template <int channels>
void pack(const unsigned char* from, int width, int height, const strides& step, unsigned char* to)
{
    if (step.channel == 1 || channels == 1) {
        pack<channels>(
            from, width, height, step, [] { return std::ptrdiff_t{1}; }, to);
    } else if (step.channel == -1) {
        pack<channels>(
            from, width, height, step, [] { return std::ptrdiff_t{-1}; }, to);
    } else {
        pack<channels>(
            from, width, height, step, [&step] { return step.channel; }, to);
    }
}

void pack_rows(const unsigned char* from, int width, int height, int channels, std::ptrdiff_t row, unsigned char* to)
{
    const auto row_bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    for (int y = 0; y < height; ++y) {
        std::memcpy(to + static_cast<std::size_t>(y) * row_bytes, from + y * row, row_bytes);
    }
}

}  // namespace

void tarnpy_pack(const unsigned char* pixels, int width, int height, int channels, std::ptrdiff_t row_stride,
                 std::ptrdiff_t pixel_stride, std::ptrdiff_t channel_stride, int quarters, unsigned char* to)
{
    const unsigned char* first = pixels;
    strides step = {row_stride, pixel_stride, channel_stride};
    for (int turns = ((quarters % 4) + 4) % 4; turns > 0; --turns) {
        // Clockwise: the first row is the first column, read upward.
        first += (height - 1) * step.row;
        step = {step.pixel, -step.row, step.channel};
        std::swap(width, height);
    }
    if (step.pixel == channels && (channels == 1 || step.channel == 1)) {
        pack_rows(first, width, height, channels, step.row, to);
        return;
    }
    switch (channels) {
    case 1:
        pack<1>(first, width, height, step, to);
        break;
    case 2:
        pack<2>(first, width, height, step, to);
        break;
    case 3:
        pack<3>(first, width, height, step, to);
        break;
    default:
        pack<4>(first, width, height, step, to);
        break;
    }
}

std::size_t tarnpy_jpeg(const unsigned char* pixels, int width, int height, unsigned char** bytes)
{
    *bytes = nullptr;
    try {
        // OpenCV has no view of constant pixels; these are only read.
        const cv::Mat image(height, width, CV_8UC3, const_cast<unsigned char*>(pixels));
        std::vector<unsigned char> encoded;
        if (!cv::imencode(".jpg", image, encoded)) {
            return 0;
        }
        *bytes = static_cast<unsigned char*>(std::malloc(encoded.size()));
        if (*bytes == nullptr) {
            return 0;
        }
        std::memcpy(*bytes, encoded.data(), encoded.size());
        return encoded.size();
    } catch (const std::exception&) {
        return 0;
    }
}

void tarnpy_free_bytes(unsigned char* bytes)
{
    std::free(bytes);
}
