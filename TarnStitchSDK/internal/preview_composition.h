// SPDX-License-Identifier: Apache-2.0
//
// Laying a frame's working copy onto the preview panorama. Pure; any thread.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace tarn {

/// The panorama so far in a larger one, black around it.
///
/// @param panorama  CV_8UC3; read only. One of another depth is converted.
/// @param size      of the larger one
/// @param at        where the panorama's top-left pixel goes
/// @returns a new image, CV_8UC3, without gaps between its rows: hosts may read it as one block
/// @throws cv::Exception when the panorama does not fit or has not three channels, or for a lack of memory
cv::Mat grown_preview(const cv::Mat& panorama, cv::Size size, cv::Point at);

/// Lays a frame over the grown panorama: its whole bounding box, retouched along the frame's edges and wherever
/// the box is empty.
///
/// @param panorama             the panorama before it grew; read only
/// @param at                   where it lies in `grown`
/// @param grown                of grown_preview; changed in place
/// @param frame                the working copy, CV_8UC3; read only. One of another depth is converted.
/// @param box                  the frame's bounding box in `grown`
/// @param box_from_frame       3 x 3, CV_64F
/// @param transpose_corners    the frame's corners in `grown`
/// @throws cv::Exception when the box does not lie inside `grown`, or the frame has not three channels
void paste_onto_preview(const cv::Mat& panorama, cv::Point at, cv::Mat& grown, const cv::Mat& frame, cv::Rect box,
                        const cv::Mat& box_from_frame, std::vector<cv::Point2f>& transpose_corners);

}  // namespace tarn
