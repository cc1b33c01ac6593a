// SPDX-License-Identifier: Apache-2.0
//
// Sixteen neighbours of a CV_8UC3 row at a time, as sets of pixels: for kernels that decide pixel by pixel,
// mostly the same for all of a block.
#pragma once

#include <cstdint>

#include <opencv2/core/hal/intrin.hpp>

namespace tarn {

/// Some of a block's pixels: bit 3 n stands for pixel n.
using pixel_set = std::uint64_t;

constexpr int pixels_per_block = cv::v_uint8x16::nlanes;
constexpr int bytes_per_block = 3 * pixels_per_block;
constexpr pixel_set all_pixels = 0x249249249249;

/// The bytes of a block for which a condition on v_uint8x16 holds: bit n stands for byte n.
template <typename Condition>
std::uint64_t bytes_where(const uchar* block, Condition condition)
{
    const auto part = [&](int n) {
        const cv::v_uint8x16 holds = condition(cv::v_load(block + n * pixels_per_block));
        return std::uint64_t{static_cast<unsigned>(cv::v_signmask(holds))} << n * pixels_per_block;
    };
    return part(0) | part(1) | part(2);
}

/// The pixels of a block that have three zero bytes.
inline pixel_set empty_pixels(const uchar* block)
{
    const std::uint64_t zero = bytes_where(block, [](auto bytes) { return bytes == cv::v_setzero_u8(); });
    return zero & zero >> 1 & zero >> 2 & all_pixels;
}

/// Whether a pixel has three zero bytes.
inline bool is_empty(const uchar* pixel)
{
    return pixel[0] == 0 && pixel[1] == 0 && pixel[2] == 0;
}

}  // namespace tarn
