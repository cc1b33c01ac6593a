// SPDX-License-Identifier: Apache-2.0
//
// The pixel kernels once more, each as the plainest transcription of its definition: what the shipped ones must
// agree with to the last bit. Nothing is checked and nothing is clipped, except that every access to a pixel
// raises cv::Exception outside the image: inputs for which the definition says nothing come to light.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace reference {

/// The pixels as 0xFFRRGGBB, row by row, then the width and the height.
std::vector<int> matToBitmapArray(const cv::Mat& image);

void optimizeSeam(const cv::Mat& last_img, cv::Mat& stitched_image, const std::vector<cv::Point2f>& transpose_corners);

void fill_contours(const std::vector<std::vector<cv::Point>>& target_contours, const cv::Mat& source_image,
                   cv::Mat& target_image);

cv::Mat cylindrical_projection(const cv::Mat& img, float angle);

cv::Mat SphericalProjection(const cv::Mat& imgMat, float angle);

}  // namespace reference
