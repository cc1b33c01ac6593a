// SPDX-License-Identifier: Apache-2.0
//
// What the picture is drawn on: a plane, a cylinder or a sphere around the cameras, and the way between its pixels and
// those of the key frames. Pure. This header is the library's own.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "camera_model.h"

namespace tarn::finishing {

/// Pixels of a surface may be negative: its origin is where the middle of the sweep looks. A turn is not wrapped: what
/// lies more than half a turn ahead is drawn there.
struct drawing_surface {
    projection kind = projection::plane;
    double scale = 1.0;            ///< px for a radian, or for a unit of the plane
    camera_set cameras;            ///< upright
    std::vector<double> headings;  ///< radians along the sweep, of each camera; not wrapped

    /// Where centred coordinates of a frame are drawn; NaN where they cannot be.
    cv::Point2d from_frame(int index, cv::Point2d centred) const;

    /// What a frame covers, rounded outwards; empty for a frame that cannot be drawn.
    cv::Rect outline(int index, cv::Size frame_size) const;

    /// For each pixel of `area` the pixel of a frame that it shows, CV_32FC2; far outside of the frame where it shows
    /// none.
    /// @param image_size  of the frame, in whatever resolution
    void pixels_of_frame(int index, cv::Size image_size, cv::Rect area, cv::Mat& pixels) const;

    /// The same surface with another number of pixels.
    drawing_surface scaled(double factor) const;
};

/// Sets cameras upright, chooses what they are drawn on, and its scale, at which a key frame's centre has as many
/// pixels as it had.
/// @param frame_sizes  px at full resolution
drawing_surface choose_surface(const camera_set& cameras, const std::vector<cv::Size>& frame_sizes);

/// 255 for what shows a pixel of an image of that size, from pixels_of_frame.
cv::Mat shown_part(const cv::Mat& pixels, cv::Size image_size);

}  // namespace tarn::finishing
