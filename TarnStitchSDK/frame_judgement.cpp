// SPDX-License-Identifier: Apache-2.0
#include "internal/frame_judgement.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

#include <opencv2/calib3d.hpp>

#include "motion.h"

namespace tarn {

namespace {

// RANSAC homography from this frame into the reference frame, with its support.
struct frame_motion {
    cv::Mat reference_from_frame;
    int in_count = 0;
    float in_ratio = 0.0f;  // NaN for an empty mask, which is below no limit

    explicit frame_motion(const tracked_points& tracks)
    {
        constexpr double reprojection_threshold = 3.0;  // px
        std::vector<char> mask;
        reference_from_frame = cv::findHomography(tracks.matched_frame_points, tracks.neighbour_points, cv::RANSAC,
                                                  reprojection_threshold, mask);
        in_count = static_cast<int>(std::count(mask.begin(), mask.end(), 1));
        in_ratio = static_cast<float>(in_count) / static_cast<float>(mask.size());
    }
};

bool is_horizontal(int direction)
{
    return direction == direction_right || direction == direction_left;
}

bool is_vertical(int direction)
{
    return direction == direction_down || direction == direction_up;
}

bool are_opposite(int hint, int direction)
{
    return hint != direction
           && ((is_horizontal(hint) && is_horizontal(direction)) || (is_vertical(hint) && is_vertical(direction)));
}

// How far the frame's centre, in whole pixels, moves.
float centre_shift(const cv::Mat& frame, const cv::Mat& reference_from_frame)
{
    const int centre_x = frame.cols / 2;
    const int centre_y = frame.rows / 2;
    points frame_center = {{static_cast<float>(centre_x), static_cast<float>(centre_y)}};
    points transpose_center = mapped(frame_center, reference_from_frame);
    return get_move_distance(frame_center, transpose_center);
}

// Length of an edge as a fraction of the side that it was: the differences are single, the rest is double.
float side_ratio(const cv::Point2f& from, const cv::Point2f& to, int side)
{
    const double dx = from.x - to.x;
    const double dy = from.y - to.y;
    return static_cast<float>(std::sqrt(dx * dx + dy * dy) / side);
}

// Shape of a mapped frame: its corner angles, in degrees, and its sides relative to the frame's own.
struct distortion {
    std::vector<float> angles;
    std::vector<float> scales;
    float maxa;  // largest deviation of a corner from a right angle, degrees

    distortion(points& p, const cv::Mat& frame)
        : angles{angle_of_two_vector(p[1], p[3], p[0]), angle_of_two_vector(p[2], p[0], p[1]),
                 angle_of_two_vector(p[3], p[1], p[2]), angle_of_two_vector(p[0], p[2], p[3])},
          scales{side_ratio(p[0], p[1], frame.cols), side_ratio(p[1], p[2], frame.rows),
                 side_ratio(p[2], p[3], frame.cols), side_ratio(p[3], p[0], frame.rows)},
          maxa(max_axis({std::fabs(angles[0] - 90.0f), std::fabs(angles[1] - 90.0f), std::fabs(angles[2] - 90.0f),
                         std::fabs(angles[3] - 90.0f)}))
    {
    }
};

// Chains the frame's motion into the preview and moves the preview's origin where the frame reaches beyond it.
placement place_in_preview(const judged_reference& reference, const points& frame_corners,
                           const cv::Mat& reference_from_frame, const judged_numbers& numbers)
{
    placement place;
    place.H = reference.homo * reference_from_frame;
    const bounds reach(mapped(frame_corners, place.H));
    place.base_shift = shift_into_view(reach.left_x, reach.top_y);
    numbers.total_shift_x += place.base_shift.x;
    numbers.total_shift_y += place.base_shift.y;

    const cv::Mat shift = translation(place.base_shift.x, place.base_shift.y);
    place.H = shift * place.H;
    cv::perspectiveTransform(numbers.last_warp_points, numbers.last_warp_points, shift);
    place.transpose_corners = mapped(frame_corners, place.H);
    return place;
}

void measure_extent(placement& place, cv::Size preview, const judged_numbers& numbers)
{
    const points& p = place.transpose_corners;
    place.left_x = std::min(p[0].x, p[3].x);
    const float right_x = std::max(p[1].x, p[2].x);
    const float bottom_y = std::max(p[2].y, p[3].y);
    place.top_y = std::min(p[0].y, p[1].y);
    place.stitch_width = std::max(right_x, numbers.total_shift_x + static_cast<float>(preview.width));
    place.stitch_height = std::max(bottom_y, numbers.total_shift_y + static_cast<float>(preview.height));
    place.warp_width = right_x - place.left_x;
    place.warp_height = bottom_y - place.top_y;
}

// A side of exactly either limit passes.
bool has_sane_size(const placement& place)
{
    constexpr double smallest = 2.0;    // px
    constexpr double largest = 4000.0;  // px
    return !(place.warp_height < smallest || place.warp_width < smallest || place.warp_width > largest
             || place.warp_height > largest);
}

key_frame_rule rule_for(float iou, float iou_thresh, bool direction_changed)
{
    constexpr double overlap_at_turn = 0.9;
    if (iou < iou_thresh) {
        return key_frame_rule::new_ground;
    }
    return static_cast<double>(iou) < overlap_at_turn && direction_changed ? key_frame_rule::turns_round
                                                                           : key_frame_rule::none;
}

// Adds a distance to the window of recent ones; true when the window is full and its mean is too great.
bool moves_too_fast(std::vector<float>& recent, float move_distance, int window)
{
    constexpr double greatest_mean = 10.0;  // px
    recent.push_back(move_distance);
    if (static_cast<std::int64_t>(recent.size()) <= window) {
        return false;
    }
    recent.erase(recent.begin());
    const float sum = std::accumulate(recent.begin(), recent.end(), 0.0f);
    return sum / static_cast<float>(recent.size()) > greatest_mean;
}

bool is_skewed(float maxa, int move_direction)
{
    constexpr double greatest_when_horizontal = 8.0;  // degrees
    constexpr double greatest_when_vertical = 5.0;    // degrees
    return (maxa > greatest_when_horizontal && is_horizontal(move_direction))
           || (maxa > greatest_when_vertical && is_vertical(move_direction));
}

// A later remark overwrites an earlier one.
answer_code grade(int in_count, bool too_fast, bool skewed)
{
    constexpr int very_few_below = 20;
    constexpr int few_up_to = 49;
    if (skewed) {
        return code_skewed;
    }
    if (too_fast) {
        return code_too_fast;
    }
    if (in_count < very_few_below) {
        return code_very_few_details;
    }
    return in_count <= few_up_to ? code_few_details : code_normal;
}

}  // namespace

bool is_below(int limit, std::size_t count)
{
    return as_unsigned_limit(limit) > count;
}

frame_verdict judge(const judged_reference& reference, const cv::Mat& frame, const tracked_points& tracks,
                    int direction, const judging_limits& limits, const std::vector<float>& move_distances,
                    const judged_numbers& numbers)
{
    frame_verdict verdict;
    const auto rejected = [&verdict](reason why) {
        verdict.why = why;
        return verdict;
    };

    if (is_below(limits.matches, tracks.matched_frame_points.size())) {
        return rejected(reason::too_few_tracked);
    }
    const frame_motion motion(tracks);
    verdict.inliers = motion.in_count;
    points frame_corners = corners_of(frame.size());
    points transpose_corners = mapped(frame_corners, motion.reference_from_frame);
    if (!is_good_homo(transpose_corners, frame, limits.area, limits.angle)) {
        return rejected(reason::implausible_shape);
    }
    if (motion.in_ratio < limits.inliers) {
        return rejected(reason::too_few_inliers);
    }

    int& move_direction = verdict.move_direction;
    move_direction = get_direction(frame_corners, transpose_corners);
    if (move_direction == direction_undecided && numbers.last_direction != direction_undecided) {
        move_direction = numbers.last_direction;
    }
    if (numbers.last_direction == direction_undecided) {
        numbers.last_direction = move_direction;
    }
    if (are_opposite(direction, move_direction)) {
        return rejected(reason::against_the_hint);
    }
    verdict.move_distance = centre_shift(frame, motion.reference_from_frame);

    // Against the last key frame.
    verdict.base_homo = reference.base_homo * motion.reference_from_frame;
    transpose_corners = mapped(frame_corners, verdict.base_homo);
    const distortion shape(transpose_corners, frame);
    numbers.last_angles = shape.angles;
    numbers.last_scales = shape.scales;
    verdict.overlap = single_box_iou(frame_corners, transpose_corners);
    verdict.measured = true;

    verdict.place = place_in_preview(reference, frame_corners, motion.reference_from_frame, numbers);
    if (!is_convex(verdict.place.transpose_corners)) {
        return rejected(reason::not_convex);
    }
    measure_extent(verdict.place, reference.preview, numbers);
    if (!has_sane_size(verdict.place)) {
        return rejected(reason::out_of_scale);
    }

    const bool direction_changed = numbers.last_direction != move_direction;
    verdict.key_frame = rule_for(verdict.overlap, limits.overlap, direction_changed);
    if (verdict.key_frame != key_frame_rule::none) {
        verdict.base_homo = identity();
    }
    // After a change of direction the worker is told the one before.
    verdict.worker_direction =
        verdict.key_frame == key_frame_rule::turns_round ? numbers.last_direction : move_direction;
    verdict.move_distances = move_distances;
    const bool too_fast = moves_too_fast(verdict.move_distances, verdict.move_distance, limits.rejections);
    verdict.code = grade(motion.in_count, too_fast, is_skewed(shape.maxa, move_direction));
    return verdict;
}

answer_code code_of_rejection(int count, int failed_thresh)
{
    return count >= failed_thresh ? code_lost : code_normal;
}

}  // namespace tarn
