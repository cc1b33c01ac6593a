// SPDX-License-Identifier: Apache-2.0
//
// The live path as one plain list of steps.
#include "plain_live_path.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "internal/numeric.h"

namespace tarn::test {

namespace {

using points = std::vector<cv::Point2f>;

float length_over(const cv::Point2f& a, const cv::Point2f& b, int side)
{
    const float dx = a.x - b.x;
    const float dy = a.y - b.y;
    return static_cast<float>(
        std::sqrt(static_cast<double>(dx) * static_cast<double>(dx) + static_cast<double>(dy) * static_cast<double>(dy))
        / static_cast<double>(side));
}

cv::Mat translated(double x, double y)
{
    return cv::Mat(cv::Matx33d(1, 0, x, 0, 1, y, 0, 0, 1));
}

bool same_bytes(const cv::Mat& a, const cv::Mat& b)
{
    if (a.empty() || b.empty())
        return a.empty() == b.empty();
    if (a.size() != b.size() || a.type() != b.type())
        return false;
    for (int row = 0; row < a.rows; ++row) {
        if (std::memcmp(a.ptr(row), b.ptr(row), a.elemSize() * static_cast<std::size_t>(a.cols)) != 0)
            return false;
    }
    return true;
}

template <typename T>
bool same_bytes(const std::vector<T>& a, const std::vector<T>& b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), sizeof(T) * a.size()) == 0);
}

bool same_bytes(float a, float b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

plain_live_path::plain_live_path(const TarnStitcher& task)
    : stitcher_status(task.stitcher_status), failed_count(task.failed_count), failed_thresh(task.failed_thresh),
      last_move_distances(task.last_move_distances), iou_thresh(task.iou_thresh), area_thresh(task.area_thresh),
      angle_thresh(task.angle_thresh), inline_thresh(task.inline_thresh), matches_thresh(task.matches_thresh),
      frame_index(task.frame_index), last_warp_points(task.last_warp_points), big_frame_index(task.big_frame_index),
      total_shift_x(task.total_shift_x), total_shift_y(task.total_shift_y), last_frame(task.last_frame.clone()),
      last_stitch_image(task.last_stitch_image.clone()), last_direction(task.last_direction),
      last_angles(task.last_angles), last_scales(task.last_scales),
      reference_gray(task.last_check_data.scaled_gray_frame.clone()),
      reference_work_scale(task.last_check_data.work_scale), reference_keypoints(task.last_check_data.good_keypoints),
      reference_homo(task.last_check_data.homo.clone()), reference_base_homo(task.last_check_data.base_homo.clone())
{
}

int plain_live_path::feed(const cv::Mat& frame, int direction)
{
    try {
        code = register_frame(frame.clone(), direction);
    } catch (const std::exception&) {
        stitcher_status = 3;
    }
    return code;
}

int plain_live_path::feed_host_frame(const cv::Mat& mat, int direction)
{
    try {
        CV_Assert(mat.depth() != CV_32F);
        cv::Mat tmp_frame = mat.clone();
        cv::Mat input_frame;
        cv::cvtColor(tmp_frame, input_frame, cv::COLOR_RGBA2BGR);
        tmp_frame.release();
        code = register_frame(input_frame, direction);
    } catch (const std::exception&) {
        stitcher_status = 3;
    }
    return code;
}

int plain_live_path::reject(int result)
{
    stitcher_status = 3;
    failed_count = failed_count + 1;
    return failed_count >= failed_thresh ? 0 : result;
}

int plain_live_path::register_frame(cv::Mat input_frame, int direction)
{
    int result = 1;
    if (stitcher_status == 1)
        return 0;
    stitcher_status = 1;

    // Intake.
    float scale = 1.0f;
    if (input_frame.cols >= 301)
        scale = 300.0f / static_cast<float>(input_frame.cols);
    cv::Mat frame;
    cv::Mat scaled_frame;
    cv::resize(input_frame, frame, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
    cv::resize(input_frame, scaled_frame, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
    cv::Mat scaled_gray_frame;
    if (scaled_frame.channels() == 3)
        cv::cvtColor(scaled_frame, scaled_gray_frame, cv::COLOR_BGR2GRAY);
    else if (scaled_frame.channels() == 1)
        scaled_gray_frame = scaled_frame.clone();
    const float work_scale =
        static_cast<float>(static_cast<double>(scaled_gray_frame.rows) / static_cast<double>(frame.rows));
    points frame_good_keypoints;
    cv::goodFeaturesToTrack(scaled_gray_frame, frame_good_keypoints, 80, 0.01, 10.0, cv::noArray(), 3, false, 0.04);
    if (matches_thresh < 0 || frame_good_keypoints.size() < static_cast<std::size_t>(matches_thresh))
        return reject(result);
    frame_index = frame_index + 1;
    last_frame = input_frame;
    const auto cols = static_cast<float>(frame.cols);
    const auto rows = static_cast<float>(frame.rows);
    points frame_corners = {{0, 0}, {cols, 0}, {cols, rows}, {0, rows}};

    if (frame_index == 1) {
        last_stitch_image = frame;
        last_warp_points = frame_corners;
        reference_gray = scaled_gray_frame;
        reference_keypoints = frame_good_keypoints;
        reference_work_scale = work_scale;
        reference_homo = translated(0, 0);
        reference_base_homo = translated(0, 0);
        big_frame_index = big_frame_index + 1;
        hand_offs.push_back({input_frame, last_angles, last_scales, direction, big_frame_index});
        stitcher_status = 3;
        return 1;
    }

    // Tracking.
    const points last_frame_points = reference_keypoints;
    points frame_points;
    std::vector<uchar> vstatus;
    std::vector<float> verror;
    cv::calcOpticalFlowPyrLK(reference_gray, scaled_gray_frame, last_frame_points, frame_points, vstatus, verror,
                             cv::Size(21, 21), 3,
                             cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01), 0, 0.0001);
    points neighbour_points;
    points matched_frame_points;
    for (std::size_t i = 0; i < vstatus.size(); ++i) {
        if (vstatus[i] == 0)
            continue;
        neighbour_points.emplace_back(last_frame_points[i].x / work_scale, last_frame_points[i].y / work_scale);
        matched_frame_points.emplace_back(frame_points[i].x / work_scale, frame_points[i].y / work_scale);
    }
    if (matches_thresh < 0 || matched_frame_points.size() < static_cast<std::size_t>(matches_thresh))
        return reject(result);

    // Motion and acceptance.
    std::vector<char> mask;
    cv::Mat H = cv::findHomography(matched_frame_points, neighbour_points, 8, 3.0, mask);
    frame_motion = H.clone();
    in_count = 0;
    for (const char inlier : mask)
        in_count += inlier == 1 ? 1 : 0;
    points transpose_corners;
    cv::perspectiveTransform(frame_corners, transpose_corners, H);
    if (!is_good_homo(transpose_corners, frame, area_thresh, angle_thresh))
        return reject(result);
    in_ratio = static_cast<float>(in_count) / static_cast<float>(mask.size());
    if (in_ratio < inline_thresh)
        return reject(result);

    move_direction = get_direction(frame_corners, transpose_corners);
    if (move_direction == 0 && last_direction != 0)
        move_direction = last_direction;
    if (last_direction == 0)
        last_direction = move_direction;
    if ((direction == 1 && move_direction == 2) || (direction == 2 && move_direction == 1)
        || (direction == 3 && move_direction == 4) || (direction == 4 && move_direction == 3)) {
        stitcher_status = 3;
        return 4;
    }
    points frame_center;
    frame_center.emplace_back(static_cast<float>(frame.cols / 2),
                              static_cast<float>(frame.rows / 2));  // whole pixels
    points transpose_center;
    cv::perspectiveTransform(frame_center, transpose_center, H);
    move_distance = get_move_distance(frame_center, transpose_center);

    cv::Mat base_H = reference_base_homo * H;
    cv::perspectiveTransform(frame_corners, transpose_corners, base_H);
    points& p = transpose_corners;
    const float a0 = angle_of_two_vector(p[1], p[3], p[0]);
    const float a1 = angle_of_two_vector(p[2], p[0], p[1]);
    const float a2 = angle_of_two_vector(p[3], p[1], p[2]);
    const float a3 = angle_of_two_vector(p[0], p[2], p[3]);
    const std::vector<float> angles = {a0, a1, a2, a3};
    last_angles = angles;
    const std::vector<float> scales = {length_over(p[0], p[1], frame.cols), length_over(p[1], p[2], frame.rows),
                                       length_over(p[2], p[3], frame.cols), length_over(p[3], p[0], frame.rows)};
    last_scales = scales;
    maxa = max_axis({std::fabs(a0 - 90.0f), std::fabs(a1 - 90.0f), std::fabs(a2 - 90.0f), std::fabs(a3 - 90.0f)});
    iou = single_box_iou(frame_corners, transpose_corners);

    H = reference_homo * H;
    cv::perspectiveTransform(frame_corners, transpose_corners, H);
    float left_x = min_axis({p[0].x, p[1].x, p[2].x, p[3].x});
    float top_y = min_axis({p[0].y, p[1].y, p[2].y, p[3].y});
    const float base_shift_x = left_x < 0 ? -left_x : 0.0f;
    const float base_shift_y = top_y < 0 ? -top_y : 0.0f;
    total_shift_x += base_shift_x;
    total_shift_y += base_shift_y;
    const cv::Mat shift = translated(base_shift_x, base_shift_y);
    H = shift * H;
    cv::perspectiveTransform(last_warp_points, last_warp_points, shift);
    cv::perspectiveTransform(frame_corners, transpose_corners, H);
    if (!is_convex(transpose_corners))
        return reject(result);

    left_x = std::min(p[0].x, p[3].x);
    const float right_x = std::max(p[1].x, p[2].x);
    const float bottom_y = std::max(p[2].y, p[3].y);
    top_y = std::min(p[0].y, p[1].y);
    const float stitch_width = std::max(right_x, total_shift_x + static_cast<float>(last_stitch_image.cols));
    const float stitch_height = std::max(bottom_y, total_shift_y + static_cast<float>(last_stitch_image.rows));
    const float warp_width = right_x - left_x;
    const float warp_height = bottom_y - top_y;
    if (warp_height < 2.0 || warp_width < 2.0 || warp_width > 4000.0 || warp_height > 4000.0)
        return reject(result);

    // Key frame and composition.
    bool key_frame = false;
    if (iou < iou_thresh) {
        key_frame = true;
        last_warp_points = transpose_corners;
        result = 1;
        big_frame_index = big_frame_index + 1;
        hand_offs.push_back({input_frame, angles, scales, move_direction, big_frame_index});
    } else if (static_cast<double>(iou) < 0.9 && last_direction != move_direction) {
        key_frame = true;
        last_warp_points = transpose_corners;
        result = 1;
        big_frame_index = big_frame_index + 1;
        hand_offs.push_back({last_frame, angles, scales, last_direction, big_frame_index});
    }
    if (key_frame) {
        cv::Mat stitch_image(truncate_to_int(stitch_height), truncate_to_int(stitch_width), CV_8UC3, cv::Scalar());
        last_stitch_image.copyTo(stitch_image(cv::Rect(truncate_to_int(total_shift_x), truncate_to_int(total_shift_y),
                                                       last_stitch_image.cols, last_stitch_image.rows)));
        total_shift_x = 0;
        total_shift_y = 0;
        cv::Mat warpH = H.clone();
        warpH = translated(-left_x, -top_y) * warpH;
        cv::Mat scaled_image_warp;
        cv::warpPerspective(frame, scaled_image_warp, warpH,
                            cv::Size(truncate_to_int(warp_width), truncate_to_int(warp_height)), cv::INTER_LINEAR,
                            cv::BORDER_CONSTANT, cv::Scalar());
        cv::Mat last_shift_img = stitch_image.clone();
        scaled_image_warp.copyTo(stitch_image(cv::Rect(truncate_to_int(left_x), truncate_to_int(top_y),
                                                       truncate_to_int(warp_width), truncate_to_int(warp_height))));
        optimizeSeam(last_shift_img, stitch_image, transpose_corners);
        last_stitch_image = stitch_image;
        base_H = translated(0, 0);
    }

    reference_gray = scaled_gray_frame;
    reference_keypoints = frame_good_keypoints;
    reference_work_scale = work_scale;
    reference_homo = H;
    reference_base_homo = base_H;
    last_direction = move_direction;
    stitcher_status = 3;

    // Grades.
    if (in_count < 20)
        result = 3;
    else if (in_count <= 49)
        result = 2;
    last_move_distances.push_back(move_distance);
    if (static_cast<long long>(last_move_distances.size()) > failed_thresh) {
        last_move_distances.erase(last_move_distances.begin());
        float sum = 0;
        for (const float distance : last_move_distances)
            sum += distance;
        if (sum / static_cast<float>(last_move_distances.size()) > 10.0)
            result = 5;
    }
    if ((maxa > 8.0 && (move_direction == 3 || move_direction == 4))
        || (maxa > 5.0 && (move_direction == 1 || move_direction == 2)))
        result = 6;
    failed_count = 0;
    return result;
}

std::string plain_live_path::differences(const TarnStitcher& task) const
{
    std::string names;
    const auto compare = [&names](const char* name, bool same) {
        if (!same)
            names += std::string(names.empty() ? "" : ", ") + name;
    };
    compare("stitcher_status", stitcher_status == task.stitcher_status);
    compare("failed_count", failed_count == task.failed_count);
    compare("failed_thresh", failed_thresh == task.failed_thresh);
    compare("last_move_distances", same_bytes(last_move_distances, task.last_move_distances));
    compare("frame_index", frame_index == task.frame_index);
    compare("last_warp_points", same_bytes(last_warp_points, task.last_warp_points));
    compare("big_frame_index", big_frame_index == task.big_frame_index);
    compare("total_shift_x", same_bytes(total_shift_x, task.total_shift_x));
    compare("total_shift_y", same_bytes(total_shift_y, task.total_shift_y));
    compare("last_frame", same_bytes(last_frame, task.last_frame));
    compare("last_stitch_image", same_bytes(last_stitch_image, task.last_stitch_image));
    compare("last_direction", last_direction == task.last_direction);
    compare("last_angles", same_bytes(last_angles, task.last_angles));
    compare("last_scales", same_bytes(last_scales, task.last_scales));
    compare("last_check_data.scaled_gray_frame", same_bytes(reference_gray, task.last_check_data.scaled_gray_frame));
    compare("last_check_data.work_scale", same_bytes(reference_work_scale, task.last_check_data.work_scale));
    compare("last_check_data.good_keypoints", same_bytes(reference_keypoints, task.last_check_data.good_keypoints));
    compare("last_check_data.homo", same_bytes(reference_homo, task.last_check_data.homo));
    compare("last_check_data.base_homo", same_bytes(reference_base_homo, task.last_check_data.base_homo));
    return names;
}

}  // namespace tarn::test
