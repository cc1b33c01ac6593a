// SPDX-License-Identifier: Apache-2.0
//
// Pixel kernels that bend an image onto a cylinder or a sphere, CV_8UC3 to CV_8UC3. Any thread.
#pragma once

#include <opencv2/core.hpp>

/// Bends an image onto an upright cylinder by pushing each source pixel forward to its rounded target; of two
/// source pixels that meet the later one in row order wins, and targets that none reaches stay black.
///
/// The focal length is f = 2 cols cos(angle); column x lands on f atan((x - cx) / f) + f atan(cx / f), row y on
/// cy + f (y - cy) / sqrt((x - cx)² + f²), with (cx, cy) half the size (cylindrical projection; e.g. Szeliski,
/// Image Alignment and Stitching, section 2).
///
/// @param img     CV_8UC3; read only
/// @param output  replaced by a view of a new buffer: as many rows as `img`, as many columns as the rightmost
///                column reached (which is itself cut off). May be the same object as `img`.
/// @param angle   degrees; meant for small view angles. Where cos(angle) <= 0 the result is not defined, but
///                safe.
/// @throws cv::Exception for an image with pixels that is not CV_8UC3
void cylindrical_projection(cv::Mat& img, cv::Mat& output, float angle);

/// Bends an image onto a sphere of radius r = 2 cols cos(angle) by pulling each target pixel back from the
/// source with bilinear weights in single precision; the weighted sum is truncated, not rounded.
///
/// @param imgMat  CV_8UC3; read only
/// @param output  replaced by a view of a new buffer: the box of all pixels written, without its last row and
///                column. May be the same object as `imgMat`.
/// @param angle   degrees; meant for small view angles. Where cos(angle) <= 0 or a target lies beyond the
///                sphere the result is not defined, but safe.
/// @throws cv::Exception when no target pixel meets the source, or for an image with pixels that is not
///         CV_8UC3
void SphericalProjection(cv::Mat& imgMat, cv::Mat& output, float angle);
