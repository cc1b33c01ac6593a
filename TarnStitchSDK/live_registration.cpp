// SPDX-License-Identifier: Apache-2.0
//
// The live path: how one frame of the sweep is registered against the one before, graded and, if it shows enough
// that is new, laid onto the preview. ofcheck_stitch, at the end, tells the story; the steps stand above it in
// their order.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "deferred_work.h"
#include "frame_shrink.h"
#include "internal/frame_account.h"
#include "internal/last_frame.h"
#include "internal/log.h"
#include "live_tracking.h"
#include "numeric.h"
#include "preview_composition.h"
#include "tarn_stitcher.h"
#include "worker_protocol.h"

namespace {

constexpr int working_width = 300;  // px

using points = std::vector<cv::Point2f>;

cv::Mat identity()
{
    return (cv::Mat_<double>(3, 3) << 1, 0, 0, 0, 1, 0, 0, 0, 1);
}

cv::Mat translation(double x, double y)
{
    return (cv::Mat_<double>(3, 3) << 1, 0, x, 0, 1, y, 0, 0, 1);
}

points mapped(const points& corners, const cv::Mat& homography)
{
    points result;
    cv::perspectiveTransform(corners, result, homography);
    return result;
}

bool outnumbers(int limit, size_t count)
{
    return tarn::as_unsigned_limit(limit) > count;
}

// ---------------------------------------------------------------------------------------------- frame intake

// Shrinks to `target_height` pixels of *width*: the parameter's name is the older one.
void image_resize(const cv::Mat& input, cv::Mat& output, int target_height)
{
    float scale = 1.0f;
    if (input.cols > target_height) {
        scale = static_cast<float>(target_height) / static_cast<float>(input.cols);
    }
    tarn::shrink(input, output, scale);
}

// Any channel count other than 3 or 1 leaves `gray` as it is.
void to_gray(const cv::Mat& image, cv::Mat& gray)
{
    if (image.channels() == 3) {
        cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY);
    } else if (image.channels() == 1) {
        image.copyTo(gray);
    }
}

// A frame made ready for tracking.
struct live_frame {
    cv::Mat frame;              // scaled, in colour
    cv::Mat scaled_gray_frame;  // the same in gray
    float work_scale = 0.0f;
    points frame_good_keypoints;  // found later
    points frame_corners;

    explicit live_frame(const cv::Mat& input_frame)
    {
        image_resize(input_frame, frame, working_width);
        to_gray(frame, scaled_gray_frame);
        // 1 in normal operation, since both images come from one resize.
        work_scale = static_cast<float>(static_cast<double>(scaled_gray_frame.rows) / frame.rows);

        const auto width = static_cast<float>(frame.cols);
        const auto height = static_cast<float>(frame.rows);
        frame_corners = {{0.0f, 0.0f}, {width, 0.0f}, {width, height}, {0.0f, height}};
    }
};

// Points of the reference frame and where they are found in this one, pair by pair.
struct tracked_points {
    points neighbour_points;
    points matched_frame_points;
};

tracked_points track(const points& last_frame_points, const tarn::point_flow& flow, float scale)
{
    tracked_points result;
    for (size_t i = 0; i < flow.found.size(); ++i) {
        if (flow.found[i] != 0) {
            result.neighbour_points.emplace_back(last_frame_points[i].x / scale,
                                                 last_frame_points[i].y / scale);
            result.matched_frame_points.emplace_back(flow.places[i].x / scale, flow.places[i].y / scale);
        }
    }
    return result;
}

// Searches corners and follows those of the reference at once, where there are threads for it. The search comes
// first: it is the longest piece.
void look_ahead(tarn::deferred_work& corner_search, tarn::frame_flow& flow)
{
    std::vector<tarn::deferred_work*> pieces = {&corner_search};
    for (tarn::deferred_work& piece : flow.pieces()) {
        pieces.push_back(&piece);
    }
    tarn::run_side_by_side(pieces);
}

// ------------------------------------------------------------------------------------------ motion estimation

// RANSAC homography from this frame into the reference frame, with its support.
struct frame_motion {
    cv::Mat reference_from_frame;
    int in_count = 0;
    float in_ratio = 0.0f;  // NaN for an empty mask

    explicit frame_motion(const tracked_points& tracks)
    {
        constexpr double reprojection_threshold = 3.0;  // px
        std::vector<char> mask;
        reference_from_frame = cv::findHomography(tracks.matched_frame_points, tracks.neighbour_points,
                                                  cv::RANSAC, reprojection_threshold, mask);
        in_count = static_cast<int>(std::count(mask.begin(), mask.end(), 1));
        in_ratio = static_cast<float>(in_count) / static_cast<float>(mask.size());
    }
};

bool is_opposite(int direction, int move_direction)
{
    using namespace tarn;  // the names of the directions
    return (direction == direction_down && move_direction == direction_up)
           || (direction == direction_up && move_direction == direction_down)
           || (direction == direction_right && move_direction == direction_left)
           || (direction == direction_left && move_direction == direction_right);
}

// How far the frame's centre moves, in pixels of the scaled frame.
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
          maxa(max_axis({std::fabs(angles[0] - 90.0f), std::fabs(angles[1] - 90.0f),
                         std::fabs(angles[2] - 90.0f), std::fabs(angles[3] - 90.0f)}))
    {
    }
};

// A frame placed in the panorama, and the extent of the two together.
struct placement {
    cv::Mat H;                  // this frame into the panorama, moved so that nothing lies left of or above it
    points transpose_corners;   // the frame's corners there
    float base_shift_x = 0.0f;  // by which this frame moves the panorama
    float base_shift_y = 0.0f;
    float left_x = 0.0f;
    float top_y = 0.0f;
    float warp_width = 0.0f;
    float warp_height = 0.0f;
    float stitch_width = 0.0f;
    float stitch_height = 0.0f;
};

// Chains the frame's motion into the panorama and moves the panorama's origin where the frame reaches beyond it.
// That shift stays in the task even if the frame is rejected afterwards; this is meant.
placement place_in_panorama(TarnStitcher& task, const live_frame& current, const cv::Mat& reference_from_frame)
{
    placement place;
    place.H = task.last_check_data.homo * reference_from_frame;
    points& p = place.transpose_corners;
    p = mapped(current.frame_corners, place.H);

    const float leftmost = min_axis({p[0].x, p[1].x, p[2].x, p[3].x});
    const float topmost = min_axis({p[0].y, p[1].y, p[2].y, p[3].y});
    place.base_shift_x = leftmost < 0.0f ? -leftmost : 0.0f;
    place.base_shift_y = topmost < 0.0f ? -topmost : 0.0f;
    task.total_shift_x += place.base_shift_x;
    task.total_shift_y += place.base_shift_y;

    const cv::Mat shift = translation(place.base_shift_x, place.base_shift_y);
    place.H = shift * place.H;
    cv::perspectiveTransform(task.last_warp_points, task.last_warp_points, shift);
    p = mapped(current.frame_corners, place.H);
    return place;
}

void measure_extent(placement& place, const TarnStitcher& task)
{
    const points& p = place.transpose_corners;
    place.left_x = std::min(p[0].x, p[3].x);
    const float right_x = std::max(p[1].x, p[2].x);
    const float bottom_y = std::max(p[2].y, p[3].y);
    place.top_y = std::min(p[0].y, p[1].y);
    const cv::Mat& panorama = task.last_stitch_image;
    place.stitch_width = std::max(right_x, task.total_shift_x + static_cast<float>(panorama.cols));
    place.stitch_height = std::max(bottom_y, task.total_shift_y + static_cast<float>(panorama.rows));
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

// ------------------------------------------------------------------------------------------------ composition

// Replaces the preview, which a getter may be copying.
void show_preview(TarnStitcher& task, const cv::Mat& preview)
{
    const auto lock = tarn::lock_current_task();
    task.last_stitch_image = preview;
}

// Lays the frame onto the preview, which grows as far as the frame needs.
void compose_preview(TarnStitcher& task, const live_frame& current, placement& place)
{
    using tarn::truncate_to_int;
    const cv::Mat& panorama = task.last_stitch_image;
    const cv::Size size(truncate_to_int(place.stitch_width), truncate_to_int(place.stitch_height));
    const cv::Point old_place(truncate_to_int(task.total_shift_x), truncate_to_int(task.total_shift_y));
    cv::Mat stitch_image = tarn::grown_preview(panorama, size, old_place);
    task.total_shift_x = 0.0f;
    task.total_shift_y = 0.0f;

    const cv::Mat warpH = translation(-place.left_x, -place.top_y) * place.H;
    const cv::Rect frame_place(truncate_to_int(place.left_x), truncate_to_int(place.top_y),
                               truncate_to_int(place.warp_width), truncate_to_int(place.warp_height));
    tarn::paste_onto_preview(panorama, old_place, stitch_image, current.frame, frame_place, warpH,
                             place.transpose_corners);
    show_preview(task, stitch_image);
}

// ------------------------------------------------------------------------------------------------- the result

// A rejected frame leaves the reference and the panorama as they are.
int* reject(TarnStitcher& task, int* stitch_result, tarn::reason why)
{
    tarn::account_of_this_thread().answer.why = why;
    tarn::store_release(task.stitcher_status, tarn::live_finished);
    ++task.failed_count;
    if (task.failed_count >= task.failed_thresh) {
        stitch_result[0] = tarn::code_lost;
    }
    return stitch_result;
}

// Adds a distance to the window of recent ones; true when the window is full and its mean is too great. The
// window is as long as the limit of rejections; one field serves both, which is meant.
bool moves_too_fast(TarnStitcher& task, float move_distance)
{
    constexpr double greatest_mean = 10.0;  // px
    std::vector<float>& recent = task.last_move_distances;
    recent.push_back(move_distance);
    if (static_cast<std::int64_t>(recent.size()) <= task.failed_thresh) {
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
    using namespace tarn;                             // the names of the directions
    return (maxa > greatest_when_horizontal
            && (move_direction == direction_right || move_direction == direction_left))
           || (maxa > greatest_when_vertical
               && (move_direction == direction_down || move_direction == direction_up));
}

// Grades an accepted frame; a later remark overwrites an earlier one.
void grade(TarnStitcher& task, int in_count, float move_distance, float maxa, int move_direction, int& code)
{
    constexpr int very_few_below = 20;
    constexpr int few_up_to = 49;
    if (in_count < very_few_below) {
        code = tarn::code_very_few_details;
    } else if (in_count <= few_up_to) {
        code = tarn::code_few_details;
    }
    if (moves_too_fast(task, move_distance)) {
        code = tarn::code_too_fast;
    }
    if (is_skewed(maxa, move_direction)) {
        code = tarn::code_skewed;
    }
}

// Makes the first frame with enough corners the reference and the preview.
void begin_panorama(TarnStitcher& task, const live_frame& current)
{
    show_preview(task, current.frame);
    task.last_warp_points = current.frame_corners;
    task.last_check_data.scaled_gray_frame = current.scaled_gray_frame;
    task.last_check_data.good_keypoints = current.frame_good_keypoints;
    task.last_check_data.work_scale = current.work_scale;
    task.last_check_data.homo = identity();
    task.last_check_data.base_homo = identity();
}

// Hands a frame to the next worker.
void hand_over(TarnStitcher& task, const cv::Mat& frame, const std::vector<float>& angles,
               const std::vector<float>& scales, int direction)
{
    ++task.big_frame_index;
    tarn::launch_worker(frame, angles, scales, direction, task.big_frame_index);
    tarn::account_of_this_thread().answer.key_frame = task.big_frame_index;
}

// ------------------------------------------------------------------------------------------------ the account

// By how much the preview's origin has moved for the frames accepted so far. Unlike the task's own sum, it counts
// neither the moves for frames that were rejected, nor does it begin anew with each key frame. Guarded like the members.
cv::Point2d accepted_shift;

std::array<float, 4> four_of(const std::vector<float>& values)
{
    std::array<float, 4> result{};
    std::copy_n(values.begin(), std::min(values.size(), result.size()), result.begin());
    return result;
}

// The corners of the frame taken last in the preview. The reference's homography already counts the growth that the
// preview owes it until the next key frame.
tarn::corners outline_in_preview(const TarnStitcher& task)
{
    tarn::corners outline{};
    const stitch_data& reference = task.last_check_data;
    if (reference.scaled_gray_frame.empty() || reference.homo.empty()) {
        return outline;
    }
    const auto width = static_cast<float>(reference.scaled_gray_frame.cols);
    const auto height = static_cast<float>(reference.scaled_gray_frame.rows);
    const points places =
        mapped({{0.0f, 0.0f}, {width, 0.0f}, {width, height}, {0.0f, height}}, reference.homo);
    for (size_t i = 0; i < outline.size(); ++i) {
        outline[i] = places[i] - cv::Point2f(task.total_shift_x, task.total_shift_y);
    }
    return outline;
}

// Tells, when a call ends, what the task's members say then; whatever became of the frame.
class account_at_the_end {
public:
    account_at_the_end(const TarnStitcher& task, const int& code) : task_(task), code_(code)
    {
    }

    ~account_at_the_end()
    {
        tarn::frame_answer& answer = tarn::account_of_this_thread().answer;
        answer.code = static_cast<tarn::answer_code>(code_);
        answer.key_frames = task_.big_frame_index;
        answer.direction = static_cast<tarn::direction_code>(task_.last_direction);
        answer.angles = four_of(task_.last_angles);
        answer.scales = four_of(task_.last_scales);
        try {
            answer.outline = outline_in_preview(task_);
        } catch (const std::exception&) {
            answer.outline = {};  // memory is short, or a host has put something else into the members
        }
    }

    account_at_the_end(const account_at_the_end&) = delete;
    account_at_the_end& operator=(const account_at_the_end&) = delete;

private:
    const TarnStitcher& task_;
    const int& code_;
};

// What every frame begins with. False, with the answer, when the pipeline has failed.
bool begin_frame(const TarnStitcher& task, const cv::Mat& input_frame, int* stitch_result)
{
    // The rows are printed twice, and the line is left without an end. Both by design.
    tarn::log("input_frame shape is ", input_frame.rows, "*", input_frame.rows, ", type is ",
              input_frame.type());
    stitch_result[0] = tarn::code_normal;
    stitch_result[1] = 0;
    tarn::frame_account& account = tarn::account_of_this_thread();
    account = {};
    if (tarn::load_acquire(big_stitch_status) != tarn::pipeline_failed) {
        return true;
    }
    stitch_result[0] = tarn::code_pipeline_failed;
    account.answer.code = tarn::code_pipeline_failed;
    account.answer.why = tarn::reason::pipeline_failed;
    if (const auto members = tarn::try_to_lock_members()) {
        const account_at_the_end told(task, stitch_result[0]);
    }
    return false;
}

// A frame with its worker.
struct handed_over {
    int big_frame_index;
    tarn::task_generation generation;
};

// The last frame goes to the worker without being registered here.
handed_over hand_over_last(TarnStitcher& task, const cv::Mat& input_frame, int direction, const int& code)
{
    const auto members = tarn::lock_members();
    const account_at_the_end told(task, code);
    hand_over(task, input_frame, task.last_angles, task.last_scales, direction);
    return {task.big_frame_index, tarn::current_generation()};
}

}  // namespace

tarn::answer_code tarn::hand_over_last_frame(TarnStitcher& task, const cv::Mat& frame, direction_code direction)
{
    int stitch_result[2];
    if (begin_frame(task, frame, stitch_result)) {
        hand_over_last(task, frame, direction, stitch_result[0]);
        account_of_this_thread().answer.taken = true;
    }
    return static_cast<answer_code>(stitch_result[0]);
}

int* TarnStitcher::ofcheck_stitch(cv::Mat& input_frame, const int direction, const int is_last_one)
{
    // Of each thread its own, so that an overlapping call, which is answered "busy", leaves this one's alone.
    static thread_local int stitch_result[2];

    if (!begin_frame(*this, input_frame, stitch_result)) {
        return stitch_result;
    }
    tarn::frame_account& account = tarn::account_of_this_thread();
    if (is_last_one != 0) {
        const handed_over last = hand_over_last(*this, input_frame, direction, stitch_result[0]);
        account.answer.taken = tarn::finish_panorama(*this, last.big_frame_index, last.generation);
        if (!account.answer.taken) {
            stitch_result[0] = tarn::code_pipeline_failed;
            account.answer.code = tarn::code_pipeline_failed;
            account.answer.why = tarn::reason::pipeline_failed;
        }
        return stitch_result;
    }
    const auto members = tarn::try_to_lock_members();
    const int status = tarn::load_acquire(stitcher_status);
    if (!members || status == tarn::live_registering) {
        tarn::log_line("check: The stitcher is still running other function!", status);
        stitch_result[0] = tarn::code_lost;
        account.answer.code = tarn::code_lost;
        account.answer.why = tarn::reason::busy;
        return stitch_result;
    }
    tarn::store_release(stitcher_status, tarn::live_registering);
    const account_at_the_end told(*this, stitch_result[0]);

    live_frame current(input_frame);
    account.working_size = current.frame.size();
    tarn::deferred_work corner_search(
        [&] { current.frame_good_keypoints = tarn::find_corners(current.scaled_gray_frame); });
    tarn::frame_flow flow(last_check_data.scaled_gray_frame, current.scaled_gray_frame,
                          last_check_data.good_keypoints);
    if (frame_index > 0) {
        look_ahead(corner_search, flow);  // neither needs the other
    }

    // Finds nothing, and raises nothing, in the empty gray image of a frame of two or four channels: such a frame
    // is rejected for its lack of corners.
    corner_search.finish();
    account.answer.corners_found = static_cast<int>(current.frame_good_keypoints.size());
    if (outnumbers(matches_thresh, current.frame_good_keypoints.size())) {
        return reject(*this, stitch_result, tarn::reason::too_few_corners);
    }
    ++frame_index;
    last_frame = input_frame;
    if (frame_index == 1) {
        begin_panorama(*this, current);
        accepted_shift = {};
        hand_over(*this, input_frame, last_angles, last_scales, direction);
        account.answer.taken = true;
        account.answer.placed = true;
        tarn::store_release(stitcher_status, tarn::live_finished);
        stitch_result[0] = tarn::code_normal;
        return stitch_result;
    }

    const tracked_points tracks = track(last_check_data.good_keypoints, flow.result(), current.work_scale);
    account.answer.corners_tracked = static_cast<int>(tracks.matched_frame_points.size());
    if (outnumbers(matches_thresh, tracks.matched_frame_points.size())) {
        return reject(*this, stitch_result, tarn::reason::too_few_tracked);
    }
    const frame_motion motion(tracks);
    account.answer.inliers = motion.in_count;
    points frame_corners = current.frame_corners;
    points transpose_corners = mapped(frame_corners, motion.reference_from_frame);
    if (!is_good_homo(transpose_corners, current.frame, area_thresh, angle_thresh)) {
        return reject(*this, stitch_result, tarn::reason::implausible_shape);
    }
    if (motion.in_ratio < inline_thresh) {
        return reject(*this, stitch_result, tarn::reason::too_few_inliers);
    }

    int move_direction = get_direction(frame_corners, transpose_corners);
    if (move_direction == 0 && last_direction != 0) {
        move_direction = last_direction;
    }
    if (last_direction == 0) {
        last_direction = move_direction;
    }
    if (is_opposite(direction, move_direction)) {
        // Not counted as a failure: the user is told to turn round, however long it takes.
        tarn::store_release(stitcher_status, tarn::live_finished);
        stitch_result[0] = tarn::code_wrong_way;
        account.answer.why = tarn::reason::against_the_hint;
        return stitch_result;
    }
    const float move_distance = centre_shift(current.frame, motion.reference_from_frame);

    // Against the last key frame. What is measured here stays in the task even if the frame is rejected below.
    cv::Mat base_H = last_check_data.base_homo * motion.reference_from_frame;
    transpose_corners = mapped(frame_corners, base_H);
    const distortion shape(transpose_corners, current.frame);
    last_angles = shape.angles;
    last_scales = shape.scales;
    const float iou = single_box_iou(frame_corners, transpose_corners);
    account.answer.registered = true;
    account.answer.move_distance = move_distance;
    account.answer.overlap = iou;

    placement place = place_in_panorama(*this, current, motion.reference_from_frame);
    if (!is_convex(place.transpose_corners)) {
        return reject(*this, stitch_result, tarn::reason::not_convex);
    }
    measure_extent(place, *this);
    if (!has_sane_size(place)) {
        return reject(*this, stitch_result, tarn::reason::out_of_scale);
    }

    // A key frame shows little of the last one, or some less of it after a change of direction; the worker
    // is then told the direction before the change.
    constexpr double overlap_at_turn = 0.9;
    const bool shows_enough_new = iou < iou_thresh;
    const bool turns_round = static_cast<double>(iou) < overlap_at_turn && last_direction != move_direction;
    if (shows_enough_new || turns_round) {
        last_warp_points = place.transpose_corners;
        stitch_result[0] = tarn::code_normal;
        hand_over(*this, shows_enough_new ? input_frame : last_frame, shape.angles, shape.scales,
                  shows_enough_new ? move_direction : last_direction);
        compose_preview(*this, current, place);
        base_H = identity();
    }

    // Every accepted frame becomes the reference: the corners found in it, not the points tracked into it.
    last_check_data.scaled_gray_frame = current.scaled_gray_frame;
    last_check_data.good_keypoints = current.frame_good_keypoints;
    last_check_data.work_scale = current.work_scale;
    last_check_data.homo = place.H;
    last_check_data.base_homo = base_H;
    last_direction = move_direction;
    tarn::store_release(stitcher_status, tarn::live_finished);
    grade(*this, motion.in_count, move_distance, shape.maxa, move_direction, stitch_result[0]);
    failed_count = 0;
    accepted_shift += cv::Point2d(place.base_shift_x, place.base_shift_y);
    account.plane_from_frame = cv::Mat(translation(-accepted_shift.x, -accepted_shift.y) * place.H);
    account.answer.taken = true;
    account.answer.placed = true;
    return stitch_result;
}
