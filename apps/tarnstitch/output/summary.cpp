// SPDX-License-Identifier: Apache-2.0
//
// The run as JSON.
#include "summary.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <set>
#include <sys/resource.h>

extern "C" {
#include <libavutil/avutil.h>
}

namespace tarn::host {

namespace {

using nlohmann::ordered_json;

const char* outcome_name(const run_summary& summary)
{
    switch (summary.code) {
    case exit_code::done:
        return "done";
    case exit_code::not_stitched:
        return "not_stitched";
    case exit_code::usage:
        return "usage";
    case exit_code::input_failed:
        return "input_failed";
    case exit_code::output_failed:
        return "output_failed";
    case exit_code::short_of_means:
        return "short_of_means";
    case exit_code::stopped:
        break;
    }
    return "stopped";
}

const char* turn_word(frame_turn turn)
{
    switch (turn) {
    case frame_turn::counter_clockwise:
        return "ccw";
    case frame_turn::clockwise:
        return "cw";
    case frame_turn::none:
        break;
    }
    return "none";
}

ordered_json picture_as_json(const written_picture& picture)
{
    if (picture.file.empty()) {
        return nullptr;
    }
    return {{"file", picture.file}, {"width", picture.size.width}, {"height", picture.size.height}};
}

ordered_json failure_as_json(const sweep_result& result)
{
    if (result.broken_at_frame == 0 && result.failed_key_frame == 0) {
        return nullptr;
    }
    const auto number_or_null = [](int number) { return number > 0 ? ordered_json(number) : nullptr; };
    return {{"shown_at_frame", number_or_null(result.broken_at_frame)},
            {"key_frame", number_or_null(result.failed_key_frame)},
            {"frame_of_key_frame", number_or_null(result.failed_frame)},
            {"reason", result.why == reason::none ? ordered_json() : ordered_json(name_of(result.why))},
            {"reason_code", number_or_null(static_cast<int>(result.why))}};
}

ordered_json text_or_null(const std::string& text)
{
    return text.empty() ? ordered_json() : ordered_json(text);
}

ordered_json number_or_null(double number)
{
    return number > 0.0 ? ordered_json(number) : ordered_json();
}

/// The finished picture; null where nothing came of it, with "finish_error" beside it.
ordered_json finished_as_json(const run_summary& summary)
{
    ordered_json object = picture_as_json(summary.written.finished);
    if (object.is_null() || !summary.finished) {
        return nullptr;
    }
    const finished_picture& finished = *summary.finished;
    object["whole"] = summary.written.finished_whole;
    object["camera_motion"] = finished.motion;
    object["projection"] = finished.projection;
    object["horizontal_field_of_view"] = number_or_null(finished.horizontal_field_of_view);
    object["vertical_field_of_view"] = number_or_null(finished.vertical_field_of_view);
    object["focal_length"] = number_or_null(finished.focal_length);
    object["scale"] = finished.scale;
    object["residual_percent"] = finished.residual < 0.0 ? ordered_json() : ordered_json(finished.residual);
    object["viewer_tags"] = !finished.view.projection.empty();
    object["pieces"] = finished.pieces;
    const finished_verdict judged = judge_finished(finished.cropped);
    constexpr double digits = 1000.0;
    object["grade"] = key_of(judged.how_good);
    object["cut_off"] = {{"part", std::round(finished.cropped.lost * digits) / digits},
                         {"at_begin", std::round(finished.cropped.lost_at_begin * digits) / digits},
                         {"at_end", std::round(finished.cropped.lost_at_end * digits) / digits}};
    object["key_frames"] = {{"given", finished.key_frames},
                            {"shown", finished.shown},
                            {"in_picture", judged.in_picture},
                            {"lost_at_begin", judged.lost_at_begin},
                            {"lost_at_end", judged.lost_at_end},
                            {"placed_by_alignment", finished.placed_by_alignment},
                            {"placed_by_live_motion", finished.placed_by_live_motion},
                            {"left_out", finished.left_out}};
    constexpr double milliseconds = 1000.0;
    object["seconds"] = std::round(finished.seconds * milliseconds) / milliseconds;
    return object;
}

/// How good the panorama is; null where no frame was handed over.
ordered_json verdict_as_json(const run_summary& summary)
{
    if (summary.result.frames == 0) {
        return nullptr;
    }
    const measured_result& numbers = summary.judged.numbers;
    ordered_json faults = ordered_json::array();
    for (const fault one : summary.judged.faults) {
        faults.push_back(key_of(one));
    }
    const auto rounded = [](double number) {
        constexpr double digits = 1000.0;
        return std::round(number * digits) / digits;
    };
    return {{"grade", key_of(summary.judged.how_good)},
            {"faults", faults},
            {"sentences", summary.sentences},
            {"camera", key_of(numbers.path)},
            {"stretch", rounded(numbers.stretch)},
            {"shear", rounded(numbers.shear)},
            {"roll", rounded(numbers.roll)},
            {"length", rounded(numbers.length)},
            {"filled", rounded(numbers.filled)},
            {"taken", rounded(numbers.taken)}};
}

/// Codes by their names, and how many frames were answered with each.
ordered_json counts_as_json(const code_counts& counts)
{
    ordered_json by_code;
    for (int code = lowest_code; code <= highest_code; ++code) {
        const auto met = static_cast<answer_code>(code);
        by_code[code_key(met)] = counts[met];
    }
    return by_code;
}

ordered_json pieces_as_json(const std::vector<sweep_piece>& pieces)
{
    ordered_json all = ordered_json::array();
    for (const sweep_piece& piece : pieces) {
        all.push_back({{"handed_over", piece.frames},
                       {"taken", piece.taken},
                       {"by_code", counts_as_json(piece.by_code)},
                       {"key_frames", piece.key_frames}});
    }
    return all;
}

ordered_json files_as_json(const std::vector<file_identity>& files)
{
    ordered_json all = ordered_json::array();
    for (const file_identity& file : files) {
        ordered_json one;
        if (!file.what.empty()) {
            one["what"] = file.what;
        }
        one["file"] = file.file;
        one["bytes"] = file.bytes < 0 ? ordered_json() : ordered_json(file.bytes);
        one["modified"] = file.bytes < 0 ? ordered_json() : ordered_json(file.modified);
        one["changed"] = file.bytes < 0 ? ordered_json() : ordered_json(file.changed);
        one["sha256"] = text_or_null(file.sha256);
        all.push_back(one);
    }
    return all;
}

}  // namespace

std::string as_text(const ordered_json& object)
{
    constexpr int indent = 2;
    return object.dump(indent, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

ordered_json versions_as_json()
{
    return {{"tarnstitch", TARNSTITCH_VERSION}, {"opencv", cv::getVersionString()}, {"ffmpeg", av_version_info()}};
}

ordered_json options_as_json(const options& asked)
{
    static const std::set<std::string> without_effect = {"--output", "--preview", "--frames",  "--keep-work",
                                                         "--log",    "--json",    "--quiet",   "--skip-done",
                                                         "--report", "--show",    "--threads", "--workers"};
    ordered_json all = ordered_json::object();
    for (const auto& [name, given] : asked.written) {
        if (without_effect.count(name) == 0) {
            all[name] = given.value;
        }
    }
    return all;
}

std::string summary_as_json(const run_summary& summary, const options& asked)
{
    const sweep_result& result = summary.result;
    ordered_json panorama = picture_as_json(summary.written.panorama);
    if (!panorama.is_null()) {
        panorama["whole"] = summary.written.whole;
        panorama["uncropped_width"] = summary.written.uncropped.width;
        panorama["uncropped_height"] = summary.written.uncropped.height;
    }
    constexpr double milliseconds = 1000.0;
    ordered_json object = versions_as_json();
    object.update({
        {"options", options_as_json(asked)},
        {"skipped", false},
        {"outcome", outcome_name(summary)},
        {"exit_code", static_cast<int>(summary.code)},
        {"error", text_or_null(summary.error)},
        {"notes", summary.notes},
        {"input",
         {{"names", asked.inputs},
          {"width", summary.frame_size.width},
          {"height", summary.frame_size.height},
          {"frames_announced", summary.announced > 0 ? ordered_json(summary.announced) : nullptr},
          {"frames_met", summary.pictures},
          {"unreadable", summary.lost.unreadable},
          {"dropped", summary.lost.dropped.value_or(0)},
          {"cut_short", summary.cut_short},
          {"files", files_as_json(summary.input_files)}}},
        {"turn", turn_word(summary.turn)},
        {"direction", motion_name(asked.direction)},
        {"tries", summary.tries},
        {"frames",
         {{"handed_over", result.frames}, {"taken", result.taken}, {"by_code", counts_as_json(result.by_code)}}},
        {"key_frames", result.key_frames},
        {"failure", failure_as_json(result)},
        {"verdict", verdict_as_json(summary)},
        {"panorama", panorama},
        {"preview", picture_as_json(summary.written.preview)},
        {"report", text_or_null(summary.report)},
        {"outputs", files_as_json(summary.outputs)},
        {"threads", summary.threads},
        {"seconds", std::round(summary.seconds * milliseconds) / milliseconds},
        {"peak_memory_bytes", static_cast<std::int64_t>(summary.peak_memory)},
    });
    if (asked.finish) {
        object["finished"] = finished_as_json(summary);
        object["pieces"] = pieces_as_json(summary.pieces);
        object["finish_error"] = text_or_null(summary.finished ? summary.finished->error : "");
    }
    return as_text(object);
}

double peak_memory()
{
    struct rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
#ifdef __APPLE__
    constexpr double unit = 1.0;
#else
    constexpr double unit = 1024.0;
#endif
    return static_cast<double>(usage.ru_maxrss) * unit;
}

}  // namespace tarn::host
