// SPDX-License-Identifier: Apache-2.0
#include "internal/high_res_frame.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "vocabulary.h"

namespace tarn {

namespace {

constexpr int greatest_width = 1000;            // px, of a frame before it is turned
constexpr int greatest_detection_height = 800;  // px

// Deviation of the mean of two angles from a right one, in degrees.
float deviation(float angle1, float angle2)
{
    return std::fabs(90.0f - (angle1 + angle2) / 2.0f);
}

}  // namespace

frame_shape measure_shape(const std::vector<float>& angles, const std::vector<float>& scales)
{
    const float top_left = angles.at(0);
    const float top_right = angles.at(1);
    const float bottom_right = angles.at(2);
    const float bottom_left = angles.at(3);
    frame_shape shape{};
    shape.min_h_angle = std::max(deviation(top_left, bottom_left), deviation(top_right, bottom_right));
    shape.min_v_angle = std::max(deviation(top_left, top_right), deviation(bottom_left, bottom_right));
    shape.mean_scale = (scales.at(0) + scales.at(1) + scales.at(2) + scales.at(3)) * 0.25f;
    return shape;
}

projection_rule choose_projection(const frame_shape& shape, int direction, int big_frame_index, bool spherical)
{
    constexpr double least_scale = 0.95;
    constexpr float sphere_above = 1.5f;    // degrees
    constexpr float cylinder_above = 2.0f;  // degrees
    const bool keeps_its_size = shape.mean_scale > least_scale;
    if (big_frame_index == 2 && shape.min_v_angle > sphere_above && direction == direction_up && keeps_its_size) {
        return projection_rule::switch_sphere;
    }
    if (spherical) {
        return projection_rule::sphere;
    }
    if (keeps_its_size && shape.min_h_angle > cylinder_above) {
        return projection_rule::cylinder;
    }
    return projection_rule::none;
}

cv::Mat shrink_and_turn(const cv::Mat& frame)
{
    float resize_scale = 1.0f;
    if (frame.cols > greatest_width) {
        resize_scale = static_cast<float>(greatest_width) / static_cast<float>(frame.cols);
    }
    // Always into a new image: a square one is turned in place, and the frame's pixels are shared with the host's
    // thread.
    cv::Mat turned;
    cv::resize(frame, turned, cv::Size(), resize_scale, resize_scale, cv::INTER_LINEAR_EXACT);
    cv::rotate(turned, turned, cv::ROTATE_90_CLOCKWISE);
    return turned;
}

described_frame describe(const cv::Mat& frame, const cv::Ptr<cv::AKAZE>& feature_finder)
{
    constexpr double one_byte = 1.0 / 255.0;
    described_frame result{};
    result.work_scale = 1.0f;
    if (frame.rows > greatest_detection_height) {
        result.work_scale = static_cast<float>(greatest_detection_height) / static_cast<float>(frame.rows);
    }
    cv::resize(frame, result.scaled_frame, cv::Size(), result.work_scale, result.work_scale, cv::INTER_LINEAR_EXACT);
    cv::Mat akaze_descriptors;
    feature_finder->detectAndCompute(result.scaled_frame, cv::Mat(), result.keypoints, akaze_descriptors, false);
    // Floats, so that the matcher's k-d trees can index them.
    akaze_descriptors.convertTo(result.descriptors, CV_32F, one_byte, 0.0);
    return result;
}

}  // namespace tarn
