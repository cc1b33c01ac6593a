// SPDX-License-Identifier: Apache-2.0
//
// Laying one high-resolution frame onto the panorama. Pure; any thread.
#pragma once

#include <optional>

#include <opencv2/core.hpp>

namespace tarn {

/// A panorama grown by one frame.
struct grown_panorama {
    cv::Mat image;                ///< a new image, CV_8UC3
    cv::Mat panorama_from_frame;  ///< the frame into `image`, 3 x 3, CV_64F
};

/// Grows the panorama as far as the frame needs and merges the frame into it: where the panorama has content it
/// stays, except along the outline, where fill_contours hides the joint.
///
/// @param panorama             CV_8UC3; read only
/// @param frame                the prepared frame, CV_8UC3; read only
/// @param panorama_from_frame  the frame into `panorama`, 3 x 3, CV_64F; may reach to negative coordinates
/// @returns nothing when a side of the grown panorama would exceed 10000 px
/// @throws cv::Exception for images of another type, a frame that is mapped to nowhere, or a lack of memory
std::optional<grown_panorama> compose(const cv::Mat& panorama, const cv::Mat& frame,
                                      const cv::Mat& panorama_from_frame);

}  // namespace tarn
