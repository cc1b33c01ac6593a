// SPDX-License-Identifier: Apache-2.0
//
// Three routines of OpenCV's made again for speed, each with the results of the original to the last bit:
// exact_shrink.cpp,
// exact_corners.cpp, exact_coverage.cpp. What they equal is OpenCV 4.6.0, and every version with which
// tests/exact_routines_test.cpp passes; it names the version at hand when it does not.
//
// Pure functions; any thread.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace tarn {

/// What cv::resize gives with cv::INTER_LINEAR_EXACT and one scale for both sides, to the last bit. The work
/// is spread over OpenCV's threads.
///
/// @param image   at least one pixel, any type that cv::resize takes
/// @param shrunk  written in place where it has the size and type already, as by cv::resize; not `image` itself
/// @param scale   target width through source width, and target height through source height; above 0
/// @throws cv::Exception when cv::resize does: for other types, no pixels, or a side that rounds to 0
void shrink(const cv::Mat& image, cv::Mat& shrunk, float scale);

/// At most 80 corners, strongest first, at least 10 pixels apart: what cv::goodFeaturesToTrack finds with a
/// quality level of 0.01 and blocks of 3 pixels.
///
/// @param gray  CV_8UC1 or CV_32FC1; empty: no corners
/// @throws cv::Exception for an image of another type
std::vector<cv::Point2f> find_corners(const cv::Mat& gray);

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
