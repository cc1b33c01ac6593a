// SPDX-License-Identifier: Apache-2.0
//
// Laying one high-resolution frame onto the panorama once more, as the plainest transcription of its definition:
// what the shipped one must agree with to the last bit.
#pragma once

#include <opencv2/core.hpp>

namespace reference {

struct composition {
    bool is_too_large;  ///< a side of the canvas would exceed 10000 px; then the rest is empty
    cv::Mat image;      ///< the canvas with the frame on it
    cv::Mat H;          ///< the frame into the canvas
};

/// @param big_stitch_image  the panorama so far, CV_8UC3; read only
/// @param frame             the prepared frame, CV_8UC3; read only
/// @param H                 the frame into the panorama, 3 x 3, CV_64F; read only
/// @throws cv::Exception where OpenCV does
composition compose(const cv::Mat& big_stitch_image, const cv::Mat& frame, const cv::Mat& H);

}  // namespace reference
