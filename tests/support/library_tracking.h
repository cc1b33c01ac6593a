// SPDX-License-Identifier: Apache-2.0
//
// Corners and optical flow as OpenCV gives them in one call each: what find_corners and frame_flow must
// agree
// with.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "internal/exact_routines.h"
#include "internal/live_tracking.h"

namespace tarn::test {

std::vector<cv::Point2f> library_corners(const cv::Mat& gray);

point_flow library_flow(const cv::Mat& reference, const cv::Mat& gray, const std::vector<cv::Point2f>& from);

}  // namespace tarn::test
