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

/// The way from a point of the picture to the same one a full turn on; nought where the picture does not go around.
cv::Point2d full_turn(const stage_library::finishing_result& result)
{
    const double turn = 2 * CV_PI * result.surface_scale;
    switch (result.drawn_on) {
    case stage_library::projection::cylinder:
    case stage_library::projection::sphere:
        return {turn, 0.0};
    case stage_library::projection::turned_cylinder:
        return {0.0, turn};
    case stage_library::projection::plane:
        break;
    }
    return {};
}

/// Part of a key frame that lies in the picture, by points spread evenly over it.
double part_in_picture(const stage_library::finishing_result& result, int index, cv::Size frame)
{
    constexpr int points = 8;  // in each direction
    const cv::Rect2d picture(-0.5, -0.5, result.picture.cols, result.picture.rows);
    const cv::Point2d turn = full_turn(result);
    int inside = 0;
    for (int i = 0; i < points * points; ++i) {
        const cv::Point2d pixel((i % points + 0.5) / points * frame.width - 0.5,
                                (i / points + 0.5) / points * frame.height - 0.5);
        const cv::Point2d point = result.picture_from_frame(index, pixel, frame);
        inside += picture.contains(point) || picture.contains(point + turn) || picture.contains(point - turn) ? 1 : 0;
    }
    return static_cast<double>(inside) / (points * points);
}

/// What the crop has left of the key frames.
crop_effect effect_of_crop(const stage_library::finishing_result& result, const key_frame_collector& collected)
{
    crop_effect effect;
    for (std::size_t i = 0; i < result.frames.size(); ++i) {
        if (!is_missing(result.frames[i])) {
            const cv::Size frame = collected.pictures().size(collected.key_frames()[i].picture);
            effect.parts_in_picture.push_back(part_in_picture(result, static_cast<int>(i), frame));
        }
    }
    return effect;
}

void describe(const stage_library::finishing_result& result, const key_frame_collector& collected,
              finished_picture& finished)
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
    finished.cropped = effect_of_crop(result, collected);
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
        describe(result, collected, finished);
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
    if (std::string line = sentence_on(judge_finished(finished.cropped)); !line.empty()) {
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
