// SPDX-License-Identifier: Apache-2.0
//
// The live path: how one frame of the sweep is registered against the one before, judged and, if it shows enough
// that is new, laid onto the preview. ofcheck_stitch, at the end, tells the story; the steps stand above it in
// their order. What is decided about a frame stands in frame_judgement.cpp.
#include "internal/live_registration.h"

#include <optional>

#include "internal/deferred_work.h"
#include "internal/exact_routines.h"
#include "internal/final_image.h"
#include "internal/frame_account.h"
#include "internal/frame_geometry.h"
#include "internal/frame_judgement.h"
#include "internal/live_tracking.h"
#include "internal/log.h"
#include "internal/preview_composition.h"
#include "internal/preview_growth.h"
#include "internal/shared_state.h"
#include "internal/worker_life.h"
#include "tarn_stitcher.h"
#include "working_copy.h"

namespace {

using namespace tarn;  // all that follows is the library's own

// ---------------------------------------------------------------------------------------------- frame intake

// A frame made ready for tracking, and its tracking.
class live_frame {
public:
    // Where there are threads for it, searches corners and follows those of the reference at once, unless this is the
    // first frame, which has none.
    live_frame(const cv::Mat& input_frame, const stitch_data& reference, bool is_first)
    {
        constexpr int by_width = 1;
        image_resize(input_frame, frame, working_width, by_width);
        to_gray(frame, scaled_gray_frame);
        // 1 in normal operation, since both images come from one resize.
        work_scale = static_cast<float>(static_cast<double>(scaled_gray_frame.rows) / frame.rows);

        flow_.emplace(reference.scaled_gray_frame, scaled_gray_frame, reference.good_keypoints);
        if (!is_first) {
            // The search comes first: it is the longest piece.
            std::vector<deferred_work*> pieces = {&corner_search_};
            for (deferred_work& piece : flow_->pieces()) {
                pieces.push_back(&piece);
            }
            run_side_by_side(pieces);
        }
    }

    // The frame's own corners. Finds none, and raises nothing, in the empty gray image of a frame of two or four
    // channels.
    const points& corners()
    {
        corner_search_.finish();
        return frame_good_keypoints_;
    }

    // The reference's corners, and where they are found in this frame. To be called once at most.
    tracked_points tracks(const points& last_frame_points)
    {
        tracked_points result;
        const point_flow flow = flow_->result();
        for (size_t i = 0; i < flow.found.size(); ++i) {
            if (flow.found[i] != 0) {
                result.neighbour_points.push_back(scaled_back(last_frame_points[i]));
                result.matched_frame_points.push_back(scaled_back(flow.places[i]));
            }
        }
        return result;
    }

    cv::Mat frame;              // scaled, in colour
    cv::Mat scaled_gray_frame;  // the same in gray
    float work_scale = 0.0f;

private:
    cv::Point2f scaled_back(const cv::Point2f& place) const
    {
        return {place.x / work_scale, place.y / work_scale};
    }

    points frame_good_keypoints_;
    deferred_work corner_search_{[this] { frame_good_keypoints_ = find_corners(scaled_gray_frame); }};
    std::optional<frame_flow> flow_;
};

// ------------------------------------------------------------------------- what the judgement sees of the task

judged_reference reference_of(const TarnStitcher& task)
{
    return {task.last_check_data.homo, task.last_check_data.base_homo, task.last_stitch_image.size()};
}

judging_limits limits_of(const TarnStitcher& task)
{
    return {task.matches_thresh, task.area_thresh, task.angle_thresh,
            task.inline_thresh,  task.iou_thresh,  task.failed_thresh};
}

judged_numbers numbers_of(TarnStitcher& task)
{
    return {task.last_direction, task.last_angles,   task.last_scales,
            task.total_shift_x,  task.total_shift_y, task.last_warp_points};
}

// ----------------------------------------------------------------------------------------- changes of the task

// By how much the preview's origin has moved for the frames accepted so far. Unlike the task's own sum, it counts no
// move for a frame that was rejected, and does not begin anew with each key frame. Guarded like the members.
cv::Point2d accepted_shift;

// Replaces the preview, which a getter may be copying.
void show_preview(TarnStitcher& task, const cv::Mat& preview)
{
    const auto lock = lock_handover();
    task.last_stitch_image = preview;
}

// Every frame that is taken becomes the reference: the corners found in it, not the points tracked into it.
void take_as_reference(TarnStitcher& task, live_frame& current, const cv::Mat& homo, const cv::Mat& base_homo)
{
    stitch_data& reference = task.last_check_data;
    reference.scaled_gray_frame = current.scaled_gray_frame;
    reference.good_keypoints = current.corners();
    reference.work_scale = current.work_scale;
    reference.homo = homo;
    reference.base_homo = base_homo;

    frame_account& account = account_of_this_thread();
    account.plane_from_frame = cv::Mat(translation(-accepted_shift.x, -accepted_shift.y) * homo);
    account.answer.taken = true;
    account.answer.placed = true;
}

// Makes the first frame with enough corners the reference and the preview.
void begin_panorama(TarnStitcher& task, live_frame& current)
{
    show_preview(task, current.frame);
    task.last_warp_points = corners_of(current.frame.size());
    accepted_shift = {};
    take_as_reference(task, current, identity(), identity());
}

// Lays the frame onto the preview, which grows as far as the frame needs. A preview that is not to grow so far is left
// as it is, and the shift that it owes stays.
void compose_preview(TarnStitcher& task, const live_frame& current, const placement& place)
{
    const cv::Mat& panorama = task.last_stitch_image;
    const cv::Size size(truncate_to_int(place.stitch_width), truncate_to_int(place.stitch_height));
    if (!let_preview_grow(size)) {
        return;
    }
    const cv::Point old_place(truncate_to_int(task.total_shift_x), truncate_to_int(task.total_shift_y));
    cv::Mat stitch_image = grown_preview(panorama, size, old_place);
    task.total_shift_x = 0.0f;
    task.total_shift_y = 0.0f;

    const cv::Mat warpH = translation(-place.left_x, -place.top_y) * place.H;
    const cv::Rect frame_place(truncate_to_int(place.left_x), truncate_to_int(place.top_y),
                               truncate_to_int(place.warp_width), truncate_to_int(place.warp_height));
    points transpose_corners = place.transpose_corners;
    paste_onto_preview(panorama, old_place, stitch_image, current.frame, frame_place, warpH, transpose_corners);
    show_preview(task, stitch_image);
}

// Hands a frame to the next worker, with the shape measured last.
void hand_over(TarnStitcher& task, const cv::Mat& frame, int direction)
{
    ++task.big_frame_index;
    launch_worker(frame, task.last_angles, task.last_scales, direction, task.big_frame_index);
    account_of_this_thread().answer.key_frame = task.big_frame_index;
}

// Takes over what a frame that is taken leaves behind.
void commit(TarnStitcher& task, live_frame& current, frame_verdict& verdict)
{
    accepted_shift += cv::Point2d(verdict.place.base_shift);
    take_as_reference(task, current, verdict.place.H, verdict.base_homo);
    task.last_direction = verdict.move_direction;
    task.last_move_distances.swap(verdict.move_distances);
    task.failed_count = 0;
}

// ------------------------------------------------------------------------------------------ the ends of a call

// Completes the account with what the members say when the call ends, however it does. They must be locked.
class account_of_members {
public:
    account_of_members(const TarnStitcher& task, const int& code) : task_(task), code_(code)
    {
    }

    ~account_of_members()
    {
        frame_answer& answer = account_of_this_thread().answer;
        answer.code = static_cast<answer_code>(code_);
        note_members(answer, task_);
    }

    account_of_members(const account_of_members&) = delete;
    account_of_members& operator=(const account_of_members&) = delete;

private:
    const TarnStitcher& task_;
    const int& code_;
};

// A frame that is not looked at.
int* drop(int* stitch_result, answer_code code, reason why)
{
    stitch_result[0] = code;
    account_of_this_thread().answer.code = code;
    account_of_this_thread().answer.why = why;
    return stitch_result;
}

// A rejected frame leaves the reference and the preview as they are. One that goes against the hint is not counted:
// the user is told to turn round, however long it takes.
int* reject(TarnStitcher& task, int* stitch_result, reason why)
{
    store_release(task.stitcher_status, live_finished);
    account_of_this_thread().answer.why = why;
    stitch_result[0] =
        why == reason::against_the_hint ? code_wrong_way : code_of_rejection(++task.failed_count, task.failed_thresh);
    return stitch_result;
}

int* accept(TarnStitcher& task, int* stitch_result, answer_code code)
{
    store_release(task.stitcher_status, live_finished);
    stitch_result[0] = code;
    return stitch_result;
}

// What every frame begins with. False, with the answer, when the pipeline has failed.
bool begin_frame(const TarnStitcher& task, const cv::Mat& input_frame, int* stitch_result)
{
    // The rows are printed twice, and the line is left without an end. Both by design.
    log("input_frame shape is ", input_frame.rows, "*", input_frame.rows, ", type is ", input_frame.type());
    stitch_result[0] = code_normal;
    stitch_result[1] = 0;
    frame_account& account = account_of_this_thread();
    account = {};
    if (load_acquire(big_stitch_status) != tarn::pipeline_failed) {
        return true;
    }
    if (const auto members = try_to_lock_members()) {
        note_members(account.answer, task);
    }
    drop(stitch_result, code_pipeline_failed, reason::pipeline_failed);
    return false;
}

// A frame with its worker.
struct handed_over {
    int big_frame_index;
    task_generation generation;
};

// The last frame goes to the worker without being registered here.
handed_over hand_over_last(TarnStitcher& task, const cv::Mat& input_frame, int direction, const int& code)
{
    const auto members = lock_members();
    const account_of_members told(task, code);
    hand_over(task, input_frame, direction);
    return {task.big_frame_index, current_generation()};
}

// Hands the last frame over and waits for the panorama.
int* end_sweep(TarnStitcher& task, int* stitch_result, const cv::Mat& input_frame, int direction)
{
    const handed_over last = hand_over_last(task, input_frame, direction, stitch_result[0]);
    if (!finish_panorama(task, last.big_frame_index, last.generation)) {
        return drop(stitch_result, code_pipeline_failed, reason::pipeline_failed);
    }
    account_of_this_thread().answer.taken = true;
    return stitch_result;
}

void note_verdict(const frame_verdict& verdict)
{
    frame_answer& answer = account_of_this_thread().answer;
    answer.inliers = verdict.inliers;
    answer.registered = verdict.measured;
    answer.move_distance = verdict.measured ? verdict.move_distance : 0.0f;
    answer.overlap = verdict.overlap;
}

}  // namespace

answer_code tarn::hand_over_last_frame(TarnStitcher& task, const cv::Mat& frame, direction_code direction)
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
    if (is_last_one != 0) {
        return end_sweep(*this, stitch_result, input_frame, direction);
    }
    const auto members = try_to_lock_members();
    // Whoever is at the members is registering, or about to.
    const int status = members ? load_acquire(stitcher_status) : int{live_registering};
    if (!members || status == live_registering) {
        log_line("check: The stitcher is still running other function!", status);
        return drop(stitch_result, code_lost, reason::busy);
    }
    store_release(stitcher_status, live_registering);
    const account_of_members told(*this, stitch_result[0]);

    frame_account& account = account_of_this_thread();
    live_frame current(input_frame, last_check_data, frame_index == 0);
    account.working_size = current.frame.size();
    account.answer.corners_found = static_cast<int>(current.corners().size());
    if (is_below(matches_thresh, current.corners().size())) {
        return reject(*this, stitch_result, reason::too_few_corners);
    }
    ++frame_index;
    last_frame = input_frame;
    if (frame_index == 1) {
        begin_panorama(*this, current);
        hand_over(*this, input_frame, direction);
        return accept(*this, stitch_result, code_normal);
    }

    const tracked_points tracks = current.tracks(last_check_data.good_keypoints);
    account.answer.corners_tracked = static_cast<int>(tracks.matched_frame_points.size());
    frame_verdict verdict = judge(reference_of(*this), current.frame, tracks, direction, limits_of(*this),
                                  last_move_distances, numbers_of(*this));
    note_verdict(verdict);
    if (verdict.why != reason::none) {
        return reject(*this, stitch_result, verdict.why);
    }
    if (verdict.key_frame != key_frame_rule::none) {
        last_warp_points = verdict.place.transpose_corners;
        hand_over(*this, input_frame, verdict.worker_direction);
        compose_preview(*this, current, verdict.place);
    }
    commit(*this, current, verdict);
    return accept(*this, stitch_result, verdict.code);
}
