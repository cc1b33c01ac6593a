// SPDX-License-Identifier: Apache-2.0
//
// Pixel kernels that hide the joint between a frame and the panorama: whole pixels for the preview, a
// cross-fade for the high-resolution panorama. Both work on CV_8UC3 images in B,G,R order, in which a pixel
// of three zero bytes counts as empty; views of larger images are fine. Any thread, as long as no other one
// uses the destination.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

/// Retouches the preview after a frame's bounding box was pasted over it: within the bounding box of the
/// quadrilateral, takes a pixel from the panorama as it was before where the pasted one is empty, and along
/// a band of 10 pixels to either side of the four lines through the quadrilateral's edges.
///
/// The lines are whole lines, not the edges' segments. An empty source pixel never overwrites anything. The
/// box excludes its last row and column.
///
/// @param last_img           the source, CV_8UC3; read only
/// @param stitched_image     the destination, CV_8UC3; changed in place, must not share pixels with the source
/// @param transpose_corners  the quadrilateral, four corners in the images' pixel coordinates; read only
///
/// Pixels of the box outside either image are passed over, and images of another type are left alone.
void optimizeSeam(cv::Mat& last_img, cv::Mat& stitched_image, std::vector<cv::Point2f>& transpose_corners);

/// Hides the outline along which a warped frame meets the panorama: copies the frame's own pixels along the
/// outline and fades from the frame to the panorama over 49 pixels beside it, towards the side on which the
/// two differ most.
///
/// @param target_contours  outlines as pixel positions; only the first is used. Points outside the images are
///                         passed over; no outline at all means nothing to do.
/// @param source_image     the warped frame, CV_8UC3; read only
/// @param target_image     the merged region, CV_8UC3 of the same size; changed in place, must not share pixels
///                         with the source
/// @throws cv::Exception for an image that is empty or not CV_8UC3, or when the sizes differ
void fill_contours(std::vector<std::vector<cv::Point>> target_contours, cv::Mat& source_image, cv::Mat& target_image);
