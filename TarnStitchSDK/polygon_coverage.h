// SPDX-License-Identifier: Apache-2.0
//
// The area of a polygon inside an image's rectangle, as cv::fillPoly sees it, at once for every polygon. Pure
// function; any thread.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace tarn {

/// The number of pixels that cv::fillPoly (one polygon, 8-connected lines, no fractional bits, no offset) sets
/// in an empty mask: the polygon's outline and what the even-odd rule puts inside it.
///
/// cv::fillPoly walks down from the polygon's topmost row, wherever that is: seconds for a corner two thousand
/// million rows above the image. Here the time depends on the image's size and the number of corners only.
///
/// @param size     size of the mask; a mask without pixels gives 0
/// @param polygon  corners in order, any int coordinates; no corners give 0
/// @throws cv::Exception when the mask cannot be allocated
int polygon_coverage(cv::Size size, const std::vector<cv::Point>& polygon);

}  // namespace tarn
