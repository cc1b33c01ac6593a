// SPDX-License-Identifier: Apache-2.0
//
// The lines on a sweep.
#include "report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "judgement.h"

namespace tarn::host {

namespace {

std::string counted(int count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string shown(const cv::Size& size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

/// A time as one writes it, behind `earlier` and at `time` at the latest, so that as the end or the beginning of a part
/// of the input it parts the two frames.
std::string time_between(double earlier, double time)
{
    constexpr int usual_digits = 2;
    constexpr int most_digits = 6;
    constexpr double rounding = 1e-6;  // of the last digit
    std::array<char, 64> text{};
    for (int digits = usual_digits; digits <= most_digits; ++digits) {
        const double unit = std::pow(10.0, digits);
        const double rounded_down = std::floor(time * unit + rounding) / unit;
        std::snprintf(text.data(), text.size(), "%.*f", digits, rounded_down);
        if (rounded_down > earlier + rounding) {
            break;
        }
    }
    return text.data();
}

/// What to do, the next time, about what most frames met; "" if there is no such thing.
std::string help_by_codes(const sweep_result& result, camera_path path)
{
    if (many_with_code(result, code_too_fast)) {
        return "the camera moved too fast: a slower sweep, or a higher frame rate";
    }
    if (many_with_code(result, code_skewed)) {
        switch (path) {
        case camera_path::tilting:
            return "the horizon turned: hold the camera level";
        case camera_path::walking:
            return "the camera was carried past things at different distances: turn on the spot, do not walk";
        default:
            return "the frames are skewed: hold the camera level, turn it about one axis only";
        }
    }
    if (many_with_code(result, code_very_few_details)) {
        return "there is too little to see: more texture, more light";
    }
    if (many_with_code(result, code_few_details)) {
        return "there is little to see: more texture, more light";
    }
    if (many_with_code(result, code_lost)) {
        return "frames did not fit to what was before: overlap more, come back to where the panorama ends";
    }
    return "";
}

/// What is to be done about a sweep that could not be stitched: what was tried and has helped, what is sure to be done
/// without an option, and how to film the next time. Nothing that has failed, or that nobody has tried.
std::vector<std::string> help_for(const sweep_result& result, const advice_facts& facts)
{
    if (many_with_code(result, code_wrong_way)) {
        return {"what may help: the camera moved against --direction: another direction, or none"};
    }
    std::vector<std::string> lines;
    if (facts.remedy) {
        lines.push_back("what helps: " + facts.remedy->what + ": tried, a panorama of " + shown(facts.remedy->size)
                        + " from " + counted(facts.remedy->frames, "frame", "frames"));
    } else if (facts.tries_left && result.frames > 1) {
        lines.emplace_back("what may help: without --no-retry the sweep is tried in other ways as well");
    }
    if (const std::string by_codes = help_by_codes(result, facts.path); !by_codes.empty()) {
        lines.push_back("for the next time: " + by_codes);
    }
    return lines;
}

/// "key frame 3 (frame 57)"
std::string failed_key_frame(const sweep_result& result)
{
    std::string text = "key frame " + std::to_string(result.failed_key_frame);
    if (result.failed_frame > 0) {
        text += " (frame " + std::to_string(result.failed_frame) + ")";
    }
    return text;
}

/// ": too few matches"; "" where the library tells no more than that it failed.
std::string because(reason why)
{
    return why == reason::none || why == reason::pipeline_failed ? "" : std::string(": ") + name_of(why);
}

}  // namespace

std::string code_key(answer_code code)
{
    std::string key = name_of(code);
    std::replace(key.begin(), key.end(), ' ', '_');
    return key;
}

std::string start_of_rest(const sweep_result& result)
{
    const bool is_known = result.fitted_seconds >= 0.0 && result.failed_seconds > result.fitted_seconds;
    return is_known ? time_between(result.fitted_seconds, result.failed_seconds) : "";
}

std::string why_another_try(const sweep_result& result, const verdict& judged)
{
    return result.outcome == sweep_outcome::pipeline_failed
               ? "the sweep cannot be stitched beyond frame " + std::to_string(reach_of(result))
               : "the panorama is " + in_a_word(judged);
}

std::vector<std::string> notes_on(const sweep_result& result, const advice_facts& facts,
                                  const std::string& partial_panorama)
{
    const std::string what_is_left = partial_panorama.empty()
                                         ? "; nothing of a panorama is left"
                                         : "; what was composed until then is in " + partial_panorama;
    std::vector<std::string> notes;
    switch (result.outcome) {
    case sweep_outcome::input_failed:
        return {result.input_error + what_is_left};
    case sweep_outcome::pipeline_failed:
        notes = {"stitching failed at frame " + std::to_string(result.broken_at_frame) + ": "
                 + (result.failed_key_frame > 0 ? failed_key_frame(result) + " could not be joined to the panorama"
                                                : "the panorama could not be finished")
                 + because(result.why) + what_is_left};
        for (const std::string& line : help_for(result, facts)) {
            notes.push_back(line);
        }
        return notes;
    case sweep_outcome::given_up:
        return {"given up; nothing is written"};
    case sweep_outcome::complete:
        break;
    }
    if (result.failed_key_frame > 0) {
        notes.push_back("the panorama is without " + failed_key_frame(result) + ", which could not be joined"
                        + because(result.why));
    }
    return notes;
}

std::string note_on_reduction(cv::Size frame, int laid)
{
    if (laid <= 0 || laid >= frame.area()) {
        return "";
    }
    const double scale = std::sqrt(static_cast<double>(laid) / frame.area());
    return "frames reduced to " + std::to_string(greatest_frame_width) + " px for the panorama: "
           + shown({cvRound(scale * frame.width), cvRound(scale * frame.height)}) + " of " + shown(frame);
}

std::string note_on_size(int side)
{
    constexpr double near = 0.8;
    if (side < near * greatest_panorama_side) {
        return "";
    }
    return "the panorama is about " + std::to_string(side) + " px long by now; the library makes none of more than "
           + std::to_string(greatest_panorama_side) + " px";
}

std::string summary_line(const sweep_result& result, const written_files& written, const lost_frames& lost,
                         const std::vector<sweep_piece>& pieces, double seconds)
{
    std::string line = "no panorama";
    if (!written.panorama.file.empty()) {
        line = written.panorama.file + ": " + shown(written.panorama.size);
        line += written.uncropped != written.panorama.size ? " of " + shown(written.uncropped) : "";
    }
    const later_pieces later = behind_first(pieces);
    line += later.pieces > 0 ? "; up to the break " : "; ";
    line += counted(result.frames, "frame", "frames") + ", " + std::to_string(result.taken) + " taken";
    if (lost.unreadable > 0) {
        line += ", " + std::to_string(lost.unreadable) + " unreadable";
    }
    if (lost.dropped) {
        line += ", " + std::to_string(*lost.dropped) + " dropped";
    }
    const char* separator = result.frames > 1 ? " (answers: " : " (answer: ";
    for (int code = highest_code; code >= lowest_code; --code) {
        const auto met = static_cast<answer_code>(code);
        if (result.by_code[met] > 0) {
            line += separator + std::to_string(result.by_code[met]) + " " + name_of(met);
            separator = ", ";
        }
    }
    line += (result.frames > 0 ? "); " : "; ") + counted(result.key_frames, "key frame", "key frames");
    if (later.pieces > 0) {
        line += "; from there on " + counted(later.frames, "frame", "frames") + ", " + std::to_string(later.taken)
                + " taken";
    }
    if (!written.finished.file.empty()) {
        line += "; finished " + shown(written.finished.size) + " in " + written.finished.file;
    }
    if (!written.preview.file.empty()) {
        line += "; preview " + shown(written.preview.size) + " in " + written.preview.file;
    }
    char time[32];
    std::snprintf(time, sizeof time, "%.1f s", seconds);
    return line + "; " + time;
}

}  // namespace tarn::host
