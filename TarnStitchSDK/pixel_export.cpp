// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdint>
#include <memory>

#include <opencv2/imgproc.hpp>

#include "tarn_stitch_jni.h"

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "A word of alpha, red, green and blue, the most significant first, must lie in memory as B,G,R,A."
#endif

int* matToBitmapArray(const cv::Mat& image)
{
    constexpr std::uint32_t opaque = 0xFF000000U;
    const size_t n = image.total();
    std::unique_ptr<int[]> pixels(new int[n + 2]);
    if (n > 0 && image.dims <= 2 && image.type() == CV_8UC3) {
        cv::Mat words(image.size(), CV_8UC4, pixels.get());
        cv::cvtColor(image, words, cv::COLOR_BGR2BGRA);
    } else {
        std::fill_n(pixels.get(), n, static_cast<int>(opaque));
    }
    // The size travels behind the pixels.
    pixels[n] = image.cols;
    pixels[n + 1] = image.rows;
    return pixels.release();
}
