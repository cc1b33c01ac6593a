// SPDX-License-Identifier: Apache-2.0
#include "internal/session.h"

#include <algorithm>
#include <new>
#include <ostream>
#include <sstream>
#include <unistd.h>
#include <utility>

#include "internal/final_image.h"
#include "internal/frame_account.h"
#include "internal/frame_intake.h"
#include "internal/live_call.h"
#include "internal/live_registration.h"
#include "internal/log.h"
#include "internal/session_gate.h"
#include "internal/turn_account.h"
#include "internal/worker_queue.h"
#include "preview_limit.h"
#include "tarn_stitch_jni.h"

namespace tarn {

namespace {

// The image without gaps between its rows.
cv::Mat continuous(const cv::Mat& image)
{
    if (image.isContinuous()) {
        return image;
    }
    try {
        return image.clone();
    } catch (const cv::Exception&) {
        throw std::bad_alloc();  // nothing else can be wrong with it
    }
}

}  // namespace

stall_watch::stall_watch(int under_way) : under_way_(under_way), made_(cv::getTickCount())
{
}

void stall_watch::look(int under_way)
{
    since_last_move_.look();
    if (under_way < under_way_) {
        since_last_move_ = {};
    }
    under_way_ = under_way;
}

void stall_watch::look_after_callback()
{
    since_last_move_.look_after_work();
}

bool stall_watch::has_stalled() const
{
    constexpr double waits = 3.0;
    return since_last_move_.seconds() > waits * static_cast<double>(load_acquire(max_wait_seconds));
}

double stall_watch::milliseconds() const
{
    constexpr double milliseconds_of_a_second = 1000.0;
    return static_cast<double>(cv::getTickCount() - made_) / cv::getTickFrequency() * milliseconds_of_a_second;
}

void sleep_between_looks()
{
    constexpr useconds_t poll = 2000;  // µs
    wait_a_moment(poll);
}

session::session(sweep_options options, std::string directory)
    : options_(std::move(options)), directory_(std::move(directory))
{
}

void session::start()
{
    const task_generation before = current_generation();
    resetStitch(directory_.c_str());
    // The library reports nothing. Without memory, or without the directory, the old task goes on; where its directory
    // or its members could not be had in time it has ended, and is still in place.
    const bool is_in_place = [this] {
        const auto members = lock_members();
        return tarn_stitcher.local_path == directory_ && load_acquire(big_stitch_status) != tarn::pipeline_failed;
    }();
    if (!is_in_place && current_generation() != before) {  // tarn_stitch_jni.h: a file or a frame took too long
        throw sweep_error(sweep_problem::directory_unusable,
                          "no sweep can be begun: a file of the one before is still being written");
    }
    if (!is_in_place) {
        throw sweep_error(sweep_problem::no_memory, "no sweep can be begun: memory is short");
    }
    if (!isFloderexit(directory_.c_str())) {
        resetStitch("");
        throw sweep_error(sweep_problem::directory_unusable, "the directory " + directory_ + " is gone");
    }
    generation_ = current_generation();
    if (options_.key_frame_overlap != usual_key_frame_overlap) {
        const auto members = lock_members();
        tarn_stitcher.iou_thresh = options_.key_frame_overlap;
    }
}

void session::note_abandoned()
{
    abandoned_at_ = current_generation();
}

void session::end() noexcept
{
    const bool is_in_place = has_its_task() || abandoned_at_ == current_generation();
    if (!is_in_place || getpid() != process_) {
        return;
    }
    resetStitch("");
    const std::lock_guard<std::mutex> lock(view_);
    preview_.release();
}

// ------------------------------------------------------------------------------------------------------- looks

frame_answer session::not_handed_over(answer_code code, reason why) const
{
    frame_answer answer;
    {
        const std::lock_guard<std::mutex> lock(view_);
        answer.key_frames = newest_.key_frames;
        answer.direction = newest_.direction;
        answer.outline = newest_.outline;
        answer.angles = newest_.angles;
        answer.scales = newest_.scales;
    }
    answer.code = code;
    answer.why = why;
    return answer;
}

sweep_status session::status() const
{
    const pipeline_snapshot pipeline = look_at_pipeline();
    sweep_status result;
    result.pipeline = static_cast<pipeline_state>(pipeline.status);
    result.first_failed_key_frame = pipeline.first_failed_frame;
    result.why = pipeline.first_failure;
    const std::lock_guard<std::mutex> lock(view_);
    result.key_frames = key_frames_;
    result.under_way = std::max(0, key_frames_ - never_started_ - pipeline.turns_over);
    if (first_never_started_ != 0
        && (result.first_failed_key_frame == 0 || first_never_started_ < result.first_failed_key_frame)) {
        result.first_failed_key_frame = first_never_started_;
        result.why = why_never_started_;
    }
    return result;
}

std::vector<worker_turn> session::worker_turns() const
{
    return turns_of(generation_);
}

preview_view session::preview() const
{
    const std::lock_guard<std::mutex> lock(view_);
    preview_view result;
    result.pixels = preview_;
    result.frozen = frozen_;
    result.has_outline = has_outline_;
    if (has_outline_) {
        result.outline = newest_.outline;
    }
    return result;
}

void session::show(const frame_answer& answer)
{
    cv::Mat preview = getCurrentPanoramsShowMat();
    const std::lock_guard<std::mutex> lock(view_);
    newest_ = answer;
    frozen_ = preview_is_frozen();
    cv::swap(preview_, preview);
    has_outline_ = has_outline_ || answer.placed;
    // A number that was given out though no worker could be started for it.
    const int lost = answer.key_frame == 0 ? answer.key_frames - key_frames_ : 0;
    if (lost > 0) {
        never_started_ += lost;
        if (first_never_started_ == 0) {
            first_never_started_ = answer.key_frames;
            why_never_started_ = answer.why;
        }
    }
    key_frames_ = answer.key_frames;
}

// ------------------------------------------------------------------------------------------------------- waits

// Key frames handed over whose turn is not over.
int session::under_way() const
{
    return std::max(0, key_frames_ - never_started_ - load_acquire(big_frame_num));
}

// Waits until at most `most` key frames are under way.
session::wait_end session::wait_for_workers(int most, bool also_until_failure, const progress& on_progress)
{
    stall_watch watch(under_way());
    while (watch.under_way() > most) {
        if (also_until_failure && load_acquire(big_stitch_status) == pipeline_failed) {
            return wait_end::reached;
        }
        if (shall_give_up() || end_is_asked_for_ || !has_its_task()) {
            return wait_end::cancelled;
        }
        if (watch.has_stalled()) {
            return wait_end::stalled;
        }
        if (options_.while_waiting && !options_.while_waiting(watch.under_way())) {
            return wait_end::declined;
        }
        if (on_progress && !on_progress(key_frames_ - never_started_ - watch.under_way(), key_frames_)) {
            return wait_end::declined;
        }
        watch.look_after_callback();
        sleep_between_looks();
        watch.look(under_way());
    }
    return has_its_task() ? wait_end::reached : wait_end::cancelled;
}

// Holds back while enough key frames are under way: every wait of the workers' protocol gives up after a while, and
// each worker holds a frame, so that a file fed as fast as it can be read would fail in the end.
session::wait_end session::hold_back(int workers)
{
    return wait_for_workers(workers - 1, true, nullptr);
}

// ------------------------------------------------------------------------------------------------------ frames

frame_answer session::not_handed_over(wait_end why) const
{
    if (why == wait_end::stalled) {
        return not_handed_over(code_pipeline_failed, reason::timed_out);
    }
    return not_handed_over(code_lost, process_is_ending() ? reason::process_ends : reason::cancelled);
}

// One call of the library, as videoStitch makes it, and what is to be told of it.
frame_answer session::register_frame(const frame_view& frame, direction_code hint, bool is_last)
{
    std::ostringstream text;
    std::ostream nowhere(nullptr);
    cv::Mat image;
    bool has_begun = false;
    std::optional<double> milliseconds;
    {
        const log_redirection to_the_host(options_.on_log ? text : nowhere);
        milliseconds = call_live_path([&] {
            image = bgr_from(frame);
            has_begun = true;
            if (is_last) {
                hand_over_last_frame(tarn_stitcher, image, hint);
            } else {
                tarn_stitcher.ofcheck_stitch(image, hint, 0);
            }
        });
    }
    if (!milliseconds) {
        frame_answer refused = not_handed_over(code_lost, reason::process_ends);
        if (is_last) {
            last_frame_ = refused;
        }
        return refused;
    }
    const frame_account account = account_of_this_thread();
    frame_answer answer = account.answer;
    if (!has_begun) {
        answer = not_handed_over(code_normal, account.answer.why);
        answer.detail = account.answer.detail;
    }
    answer.key_frames = std::max(answer.key_frames, key_frames_);
    answer.milliseconds = *milliseconds;
    show(answer);
    if (is_last) {
        last_frame_ = answer;
    }
    // Callbacks last: they may throw.
    if (answer.key_frame != 0 && options_.on_key_frame) {
        key_frame key;
        key.image = image;
        key.number = answer.key_frame;
        key.placed = answer.placed;
        key.plane_from_frame = account.plane_from_frame;
        key.working_size = account.working_size;
        options_.on_key_frame(key);
    }
    if (options_.on_log) {
        options_.on_log(text.str());
    }
    return answer;
}

// Registers a frame; once more, when it was dropped and the pipeline has come back. A camera's frames cannot wait for
// that, but the last one waits anyway. A failure is final only when no key frame is under way: a worker that was
// already waiting for its turn takes it all the same, and its success brings the pipeline back.
session::wait_end session::hand_over(const frame_view& frame, direction_code hint, bool is_last,
                                     const progress& on_progress, frame_answer& answer)
{
    answer = register_frame(frame, hint, is_last);
    const bool is_dropped = answer.code == code_pipeline_failed && answer.key_frame == 0;
    if (!is_dropped || (!is_last && options_.most_under_way == 0)) {
        return wait_end::reached;
    }
    const wait_end waited = wait_for_workers(0, false, on_progress);
    if (waited == wait_end::reached && load_acquire(big_stitch_status) != pipeline_failed) {
        answer = register_frame(frame, hint, is_last);
    }
    return waited;
}

frame_answer session::feed(const frame_view& frame, direction_code hint)
{
    if (options_.most_under_way > 0) {
        const wait_end room = hold_back(options_.most_under_way);
        if (room != wait_end::reached) {
            return not_handed_over(room);
        }
    }
    last_frame_.reset();
    frame_answer answer;
    hand_over(frame, hint, false, nullptr, answer);
    return answer;
}

// -------------------------------------------------------------------------------------------------- the panorama

session::wait_end session::hand_over_last(const finish_options& options)
{
    if (options_.most_under_way > 0) {
        // For the last worker alone afterwards.
        const wait_end room = wait_for_workers(0, true, options.on_progress);
        if (room != wait_end::reached) {
            last_frame_ = not_handed_over(room);
            return room;
        }
    }
    frame_answer answer;
    return hand_over(*options.last_frame, options.hint, true, options.on_progress, answer);
}

panorama session::finish(const finish_options& options)
{
    wait_end waited = wait_end::reached;
    if (options.last_frame != nullptr) {
        waited = hand_over_last(options);
    }
    if (waited == wait_end::reached) {
        waited = wait_for_workers(0, false, options.on_progress);
    }
    if (waited == wait_end::reached && options.on_progress) {
        options.on_progress(key_frames_ - never_started_,
                            key_frames_);  // the wait is over, whatever it answers
    }
    return collect(waited);
}

reason session::why_not_whole(wait_end waited, const panorama& result, bool works) const
{
    if (waited == wait_end::declined || waited == wait_end::cancelled) {
        return process_is_ending() ? reason::process_ends : reason::cancelled;
    }
    const sweep_status now = status();
    if ((!works || never_started_ > 0) && now.why != reason::none) {
        return now.why;
    }
    if (waited == wait_end::stalled) {
        return reason::timed_out;
    }
    if (last_frame_ && !last_frame_->taken) {
        return last_frame_->why;
    }
    return result.key_frames == 0 ? reason::no_frames : reason::pipeline_failed;
}

panorama session::collect(wait_end waited)
{
    const pipeline_snapshot pipeline = look_at_pipeline();
    panorama result;
    result.key_frames = key_frames_;
    if (last_frame_) {
        result.last_frame = *last_frame_;
    }
    if (!has_its_task()) {
        result.why = reason::cancelled;
        return result;
    }
    result.first_failed_key_frame = status().first_failed_key_frame;
    const bool works = pipeline.status == pipeline_ready;
    const bool whole = waited == wait_end::reached && works && pipeline.turns_over == result.key_frames
                       && (!last_frame_ || last_frame_->taken);
    panorama_write outcome = panorama_write::written;
    if (whole && written_turns_ != pipeline.turns_over) {
        outcome = write_panorama(tarn_stitcher, result.key_frames, generation_);
        if (outcome == panorama_write::written) {
            written_turns_ = pipeline.turns_over;
        }
    }
    if (!whole) {
        result.why = why_not_whole(waited, result, works);
    } else if (written_turns_ == pipeline.turns_over) {
        result.file = getCurrentPanoramaShow();
    } else {
        result.why =
            outcome == panorama_write::file_failed ? reason::disk : why_not_whole(wait_end::cancelled, result, works);
    }
    if (!pipeline.panorama.empty()) {
        result.extent = whole ? panorama_extent::whole : panorama_extent::partial;
        result.image = continuous(pipeline.panorama);
        const auto lock = lock_handover();
        result.composed = composed_key_frames();
    }
    return result;
}

}  // namespace tarn
