// SPDX-License-Identifier: Apache-2.0
#include "composition.h"

#include <vector>

#include <opencv2/imgproc.hpp>

#include "geometry.h"
#include "internal/numeric.h"
#include "pixels.h"

namespace reference {

composition compose(const cv::Mat& big_stitch_image, const cv::Mat& frame, const cv::Mat& frame_to_panorama)
{
    using tarn::truncate_to_int;

    const std::vector<cv::Point2f> frame_corners = {
        cv::Point2f(0, 0), cv::Point2f(static_cast<float>(frame.cols), 0),
        cv::Point2f(static_cast<float>(frame.cols), static_cast<float>(frame.rows)),
        cv::Point2f(0, static_cast<float>(frame.rows))};
    std::vector<cv::Point2f> t;
    cv::perspectiveTransform(frame_corners, t, frame_to_panorama);

    // How far the canvas grows to the left and upwards.
    float left_x = min_axis({t[0].x, t[1].x, t[2].x, t[3].x});
    float top_y = min_axis({t[0].y, t[1].y, t[2].y, t[3].y});
    float base_shift_x = 0;
    if (left_x < 0) {
        base_shift_x = -left_x;
    }
    float base_shift_y = 0;
    if (top_y < 0) {
        base_shift_y = -top_y;
    }
    const cv::Mat shift = (cv::Mat_<double>(3, 3) << 1.0, 0, base_shift_x, 0, 1.0, base_shift_y, 0, 0, 1.0);
    const cv::Mat H = shift * frame_to_panorama;
    cv::perspectiveTransform(frame_corners, t, H);

    // The canvas.
    left_x = min_axis({t[0].x, t[1].x, t[2].x, t[3].x});
    const float right_x = max_axis({t[0].x, t[1].x, t[2].x, t[3].x});
    const float bottom_y = max_axis({t[0].y, t[1].y, t[2].y, t[3].y});
    top_y = min_axis({t[0].y, t[1].y, t[2].y, t[3].y});
    const float stitch_width = max_axis({right_x, base_shift_x + static_cast<float>(big_stitch_image.cols)});
    const float stitch_height = max_axis({bottom_y, base_shift_y + static_cast<float>(big_stitch_image.rows)});
    if (stitch_width > 10000.0f || stitch_height > 10000.0f) {
        return {true, cv::Mat(), cv::Mat()};
    }
    cv::Mat stitch_image = cv::Mat::zeros(truncate_to_int(stitch_height), truncate_to_int(stitch_width), CV_8UC3);
    const cv::Rect old_place(truncate_to_int(base_shift_x), truncate_to_int(base_shift_y), big_stitch_image.cols,
                             big_stitch_image.rows);
    big_stitch_image.copyTo(stitch_image(old_place));

    // What it shows under the frame's bounding box.
    const cv::Rect frame_place(truncate_to_int(left_x), truncate_to_int(top_y), truncate_to_int(right_x - left_x),
                               truncate_to_int(bottom_y - top_y));
    cv::Mat shift_stitch_image = stitch_image(frame_place).clone();
    cv::Mat tmp_gray;
    cv::Mat tmp_binary;
    cv::cvtColor(shift_stitch_image, tmp_gray, cv::COLOR_BGR2GRAY);
    cv::threshold(tmp_gray, tmp_binary, 1.0, 255.0, cv::THRESH_BINARY);
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(tmp_binary, contours, hierarchy, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    size_t max_count = 0;
    size_t max_index = 0;
    for (size_t i = 0; i < contours.size(); ++i) {
        if (max_count < contours[i].size()) {
            max_count = contours[i].size();
            max_index = i;
        }
    }

    // The frame, warped into its bounding box and merged.
    const cv::Mat warp_shift = (cv::Mat_<double>(3, 3) << 1.0, 0, -left_x, 0, 1.0, -top_y, 0, 0, 1.0);
    const cv::Mat warpH = warp_shift * H;
    cv::Mat shift_frame_warp;
    cv::warpPerspective(frame, shift_frame_warp, warpH, frame_place.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                        cv::Scalar());
    if (contours.empty()) {
        shift_frame_warp.copyTo(shift_stitch_image);
    } else {
        const std::vector<std::vector<cv::Point>> largest = {contours[max_index]};
        cv::Mat tmp_shifted_frame_warp;
        shift_frame_warp.copyTo(tmp_shifted_frame_warp);
        cv::fillPoly(shift_frame_warp, largest, cv::Scalar(), 8, 0);
        cv::Mat sum;
        cv::add(shift_stitch_image, shift_frame_warp, sum);
        fill_contours(largest, tmp_shifted_frame_warp, sum);
        shift_stitch_image = sum;
    }
    shift_stitch_image.copyTo(stitch_image(frame_place));
    return {false, stitch_image, H};
}

}  // namespace reference
