// SPDX-License-Identifier: Apache-2.0
//
// The rectangle that is left of a panorama when its ragged border is cut off.
#pragma once

#include <opencv2/core.hpp>

/// The largest upright rectangle of pixels that all belong to the picture. Pixels whose three bytes are 0 are empty
/// where they reach the outside; black spots inside the picture belong to it.
/// Large pictures are looked at in steps of some pixels, and the rectangle is then the smaller rather than the larger.
/// @param image  CV_8UC3
/// @returns an empty rectangle if nothing belongs to the picture
cv::Rect inner_rectangle(const cv::Mat& image);
