// SPDX-License-Identifier: Apache-2.0
//
// The geometry of the library once more, each function as the plainest transcription of its definition: what
// the shipped ones must agree with to the last bit. The names are the same, the namespace is another one.
//
// Where a definition converts a float to an int, tarn::truncate_to_int says what comes of a value out of range;
// where it subtracts two such ints, tarn::wrapping_difference.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "motion.h"

namespace reference {

constexpr double pi = 3.141592653589793;

float min_axis(const std::vector<float>& input_list);
float max_axis(const std::vector<float>& input_list);

float calc_hangle(const std::vector<cv::Point2f>& conners);
float calc_vangle(const std::vector<cv::Point2f>& conners);
float calc_angle(const std::vector<cv::Point2f>& conners);
bool is_convex(const std::vector<cv::Point2f>& corners);
/// Slow for corners far above the frame: seconds at a thousand million pixels.
bool is_good_homo(const std::vector<cv::Point2f>& corners, const cv::Mat& frame, float area_thresh, float angle_thresh);
float angle_of_two_vector(const cv::Point2f& pt1, const cv::Point2f& pt2, const cv::Point2f& c);

float single_box_iou(const std::vector<cv::Point2f>& pts1, const std::vector<cv::Point2f>& pts2);
float cross(const cv::Point2f& a, const cv::Point2f& b, const cv::Point2f& c);
cv::Point2f get_intersection_point(const cv::Point2f& a, const cv::Point2f& b, const cv::Point2f& c,
                                   const cv::Point2f& d);

int get_direction(const std::vector<cv::Point2f>& frame_corners, const std::vector<cv::Point2f>& transpose_corners);
float get_move_distance(const std::vector<cv::Point2f>& frame_center, const std::vector<cv::Point2f>& transpose_center);
LinePara getLinePara(float x1, float y1, float x2, float y2);
float point_2_line(float k, float b, float k2, float x, float y);

}  // namespace reference
