// SPDX-License-Identifier: Apache-2.0
//
// The finishing library, called as a host of it, and its answer in the program's terms.
#include "finish_stage.h"

#include <chrono>

#include "host_error.h"

#ifdef TARNSTITCH_WITH_FINISHING
#include "finish_display.h"
#include "interruption.h"
#include "tarn_finishing.h"
#endif

namespace tarn::host {

#ifdef TARNSTITCH_WITH_FINISHING

namespace {

namespace stage_library = tarn::finishing;

std::vector<stage_library::key_frame> key_frames_of(const key_frame_collector& collected)
{
    std::vector<stage_library::key_frame> result;
    for (const collected_key_frame& one : collected.key_frames()) {
        const cv::Mat placement = one.placement ? cv::Mat(*one.placement) : cv::Mat();
        result.push_back({one.stamp.number, placement, [&pictures = collected.pictures(), number = one.picture] {
                              return pictures.picture(number);
                          }});
    }
    return result;
}

stage_library::crop cropping_of(finished_crop cut)
{
    switch (cut) {
    case finished_crop::generous:
        return stage_library::crop::automatic;
    case finished_crop::none:
        return stage_library::crop::none;
    case finished_crop::full:
        break;
    }
    return stage_library::crop::full;
}

bool is_missing(const stage_library::frame_report& frame)
{
    return frame.omitted == stage_library::left_out::unplaced || frame.omitted == stage_library::left_out::beyond;
}

/// What the crop has left of the key frames.
crop_effect effect_of_crop(const stage_library::finishing_result& result)
{
    crop_effect effect;
    for (const stage_library::frame_report& frame : result.frames) {
        if (!is_missing(frame)) {
            effect.parts_in_picture.push_back(frame.part_in_picture);
        }
    }
    effect.lost = result.lost.part;
    effect.lost_at_begin = result.lost.at_beginning;
    effect.lost_at_end = result.lost.at_end;
    return effect;
}

void describe(const stage_library::finishing_result& result, finished_picture& finished)
{
    finished.motion = name_of(result.motion);
    finished.projection = name_of(result.drawn_on);
    finished.horizontal_field_of_view = result.horizontal_field_of_view;
    finished.vertical_field_of_view = result.vertical_field_of_view;
    finished.focal_length = result.focal_length;
    finished.scale = result.scale;
    finished.residual = result.residual;
    finished.placed_by_alignment = result.joined_by_alignment;
    finished.placed_by_live_motion = result.joined_by_live_motion;
    for (const stage_library::frame_report& frame : result.frames) {
        finished.shown += frame.omitted == stage_library::left_out::no ? 1 : 0;
        if (is_missing(frame)) {
            finished.left_out.push_back(frame.number);
        }
    }
    finished.cropped = effect_of_crop(result);
    finished.reaches_the_end = !is_missing(result.frames.front()) && !is_missing(result.frames.back());
    if (result.viewers.known) {
        finished.view = {result.viewers.projection_type, result.viewers.full_size, result.viewers.cropped_area,
                         finished.shown};
    }
}

}  // namespace

bool can_finish()
{
    return true;
}

void check_finishing()
{
}

finished_picture finish_sweep(const key_frame_collector& collected, const options& asked)
{
    const auto begun = std::chrono::steady_clock::now();
    finished_picture finished;
    finished.key_frames = static_cast<int>(collected.key_frames().size());
    finished.pieces = collected.pieces();

    finish_display display;
    const stop_kind before = stop_asked_for();
    stage_library::finishing_options options;
    options.cropping = cropping_of(asked.cut_of_finished);
    options.progress = [&display, before](stage_library::stage now, double part) {
        constexpr int stages = 6;
        display.show(name_of(now), static_cast<int>(now) + 1, stages, part);
        return stop_asked_for() == before;
    };
    const stage_library::finishing_result result = finish(key_frames_of(collected), options);
    finished.stopped = result.outcome == stage_library::status::cancelled;
    if (result.outcome == stage_library::status::ok) {
        finished.picture = result.picture;
        describe(result, finished);
    } else if (result.outcome == stage_library::status::no_key_frames) {
        finished.error = "no frame of the sweep could be taken";
    } else if (result.outcome == stage_library::status::unreadable) {
        // Key frames that are not in memory are in the temporary directory, and somebody has been there.
        finished.code = exit_code::output_failed;
        finished.error = "the kept copy of frame " + std::to_string(result.failed_number)
                         + " cannot be read again from the temporary directory";
    } else if (!finished.stopped) {
        finished.code = result.outcome == stage_library::status::out_of_memory ? exit_code::short_of_means
                                                                               : exit_code::not_stitched;
        finished.error = result.explanation;
    }
    finished.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    return finished;
}

#else

bool can_finish()
{
    return false;
}

void check_finishing()
{
    throw host_error(exit_code::usage, "--finish: this tarnstitch is built without it");
}

finished_picture finish_sweep(const key_frame_collector& /*collected*/, const options& /*asked*/)
{
    finished_picture finished;
    finished.error = "this tarnstitch is built without it";
    return finished;
}

#endif

bool shows_more_than_a_frame(const finished_picture& finished, cv::Size size, cv::Size frame)
{
    constexpr double enough = 1.05;  // what joins and cuts cost at the edges is less
    return finished.shown > 1
           && (size.width > enough * finished.scale * frame.width
               || size.height > enough * finished.scale * frame.height);
}

std::vector<std::string> notes_on(const finished_picture& finished)
{
    std::vector<std::string> notes;
    if (std::string line = sentence_on(judge_finished(finished.cropped), finished.cropped); !line.empty()) {
        notes.push_back(std::move(line));
    }
    if (finished.pieces > 1) {
        notes.push_back("the library was begun " + std::to_string(finished.pieces)
                        + " times, and the finished picture joins the pieces");
    }
    if (!finished.left_out.empty()) {
        std::string numbers;
        for (const int number : finished.left_out) {
            numbers += (numbers.empty() ? "" : ", ") + std::to_string(number);
        }
        notes.push_back("the finished picture is without "
                        + (finished.left_out.size() == 1 ? "frame " + numbers + ", which nothing joins"
                                                         : "frames " + numbers + ", which nothing joins")
                        + " with the others");
    }
    return notes;
}

}  // namespace tarn::host
