// SPDX-License-Identifier: Apache-2.0
//
// The largest part of a panorama that can be shown as a picture. A pure function.
#pragma once

#include <opencv2/core.hpp>

namespace tarn::host {

/// The upright rectangle of the greatest area without an empty pixel, that is, one of three zero bytes. Among
/// several as large, the one whose last row is the topmost, and of those the leftmost. Takes time linear in the
/// number of pixels.
/// @param image  CV_8UC3
/// @returns an empty rectangle when all pixels are empty
cv::Rect largest_full_rectangle(const cv::Mat& image);

}  // namespace tarn::host
