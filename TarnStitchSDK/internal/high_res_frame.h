// SPDX-License-Identifier: Apache-2.0
//
// What a worker makes of its frame before its turn, as far as it needs no other frame: shrinking and turning,
// the choice of a projection, keypoints and descriptors. Pure functions; any thread.
#pragma once

#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

namespace tarn {

/// How far a frame's mapped quadrilateral is from a rectangle, in degrees, and from the frame's size.
struct frame_shape {
    float min_h_angle;  ///< left side against right side: the larger deviation from 90, despite the name
    float min_v_angle;  ///< top side against bottom side: likewise
    float mean_scale;   ///< mean of the four side ratios
};

/// @param angles  the four corner angles in degrees: top-left, top-right, bottom-right, bottom-left
/// @param scales  the four side ratios
/// @throws std::out_of_range when either has fewer than four elements
frame_shape measure_shape(const std::vector<float>& angles, const std::vector<float>& scales);

enum class projection_rule {
    none,
    cylinder,       ///< cylindrical_projection by min_h_angle
    sphere,         ///< SphericalProjection by min_v_angle, since the sphere has been switched on
    switch_sphere,  ///< the same, and the one-frame panorama is re-projected: the sphere is switched on
};

/// The first rule that matches. `spherical` tells whether the sphere has been switched on already.
projection_rule choose_projection(const frame_shape& shape, int direction, int big_frame_index, bool spherical);

/// A copy of the frame, at most 1000 px wide, turned by 90 degrees clockwise.
/// @throws cv::Exception for an image without pixels
cv::Mat shrink_and_turn(const cv::Mat& frame);

/// A frame's features, found on a copy at most 800 px high.
struct described_frame {
    cv::Mat scaled_frame;                 ///< the copy
    float work_scale;                     ///< the copy's size over the frame's
    std::vector<cv::KeyPoint> keypoints;  ///< in pixels of the copy
    cv::Mat descriptors;                  ///< one row per keypoint, CV_32F, bytes scaled to 0..1
};

/// @throws cv::Exception for an image without pixels or of an unsupported type
described_frame describe(const cv::Mat& frame, const cv::Ptr<cv::AKAZE>& feature_finder);

}  // namespace tarn
