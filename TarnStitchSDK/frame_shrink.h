// SPDX-License-Identifier: Apache-2.0
//
// Shrinking a frame to the live path's working size. This header is the library's own; a host needs nothing from it.
#pragma once

#include <opencv2/core.hpp>

namespace tarn {

/// What cv::resize gives with cv::INTER_LINEAR_EXACT and one scale for both sides, to the last bit. Any thread; the
/// work is spread over the image library's threads.
///
/// @param image   at least one pixel, any type that cv::resize takes
/// @param shrunk  written in place where it has the size and type already, as by cv::resize; not `image` itself
/// @param scale   target width through source width, and target height through source height; above 0
/// @throws cv::Exception when cv::resize does: for other types, no pixels, or a side that rounds to 0
void shrink(const cv::Mat& image, cv::Mat& shrunk, float scale);

}  // namespace tarn
