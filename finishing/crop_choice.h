// SPDX-License-Identifier: Apache-2.0
//
// Which rectangle of what was seen becomes the picture. Pure. This header is the library's own.
#pragma once

#include <functional>
#include <vector>

#include <opencv2/core.hpp>

#include "surface.h"

namespace tarn::finishing {

/// The largest upright rectangle that has no zero in it; of equals the uppermost, and of those the leftmost. Empty
/// where there is none.
/// @param mask  CV_8UC1
cv::Rect largest_full_rectangle(const cv::Mat& mask);

/// A larger one, grown out of a full one, in which next to nothing is zero. The same one where it cannot grow by much.
cv::Rect nearly_full_rectangle(const cv::Mat& mask, cv::Rect full);

/// Moves the sides of a rectangle, which was found on a small mask, to where the frames at full size end: inwards as
/// far as there are empty pixels, outwards while there are none.
/// @param surface  at full size
/// @param frames   those that are shown, and their full sizes, by index
/// @param reach      px at most outwards; inwards as far as it takes
/// @param each_line  called again and again; may throw
cv::Rect exact_full_rectangle(cv::Rect rectangle, const drawing_surface& surface, const std::vector<int>& frames,
                              const std::vector<cv::Size>& sizes, int reach,
                              const std::function<void()>& each_line = nullptr);

/// The rectangle that is left when rows and columns with zeros are taken off the sides, the emptiest first, until none
/// of the outermost has any.
cv::Rect sides_moved_in(const cv::Mat& mask);

}  // namespace tarn::finishing
