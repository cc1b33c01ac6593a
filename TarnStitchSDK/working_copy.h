// SPDX-License-Identifier: Apache-2.0
//
// A frame's working copies. Pure functions; any thread.
#pragma once

#include <opencv2/core.hpp>

namespace tarn {

constexpr int working_width = 300;  ///< px: the greatest width of the live path's copy of a frame

}

/// A copy of a frame, no wider than `target_height`: the limit is one of the *width*, whatever the parameter's name
/// says. Both sides are scaled alike (cv::INTER_LINEAR_EXACT); a narrower frame keeps its size.
///
/// @param input          at least one pixel, any type that cv::resize takes
/// @param output         written in place where it has the size and type already; must not share pixels with `input`
/// @param target_height  px; the live path has tarn::working_width
/// @param mode           1. There is one way of scaling, so other values do the same
/// @throws cv::Exception when cv::resize does: no pixels, or a side that rounds to 0
void image_resize(const cv::Mat& input, cv::Mat& output, int target_height, int mode);

/// The gray image of a frame: of 3 channels (B,G,R) converted, of 1 channel copied. Any other number of channels
/// leaves `gray` as it is.
/// @throws cv::Exception for three channels of a depth that cv::cvtColor does not take
void to_gray(const cv::Mat& image, cv::Mat& gray);
