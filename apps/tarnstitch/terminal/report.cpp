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

/// The first turn of those there are that has not been tried: with every other one features are found anew.
std::string untried_turn(const std::vector<frame_turn>& tried)
{
    constexpr std::array<std::pair<frame_turn, const char*>, 3> turns = {{{frame_turn::none, "--turn none"},
                                                                          {frame_turn::counter_clockwise, "--turn ccw"},
                                                                          {frame_turn::clockwise, "--turn cw"}}};
    for (const auto& [turn, option] : turns) {
        if (std::find(tried.begin(), tried.end(), turn) == tried.end()) {
            return option;
        }
    }
    return "";
}

/// What the user can do about what most frames met; "" if there is no such thing.
std::string help_by_codes(const sweep_result& result)
{
    struct advice {
        answer_code code;
        const char* help;
    };

    static constexpr std::array all = {
        advice{code_too_fast, "the camera moved too fast: a slower sweep, or a higher frame rate"},
        advice{code_skewed, "the frames are skewed: hold the camera level, turn it about one axis only"},
        advice{code_very_few_details, "there is too little to see: more texture, more light"},
        advice{code_few_details, "there is little to see: more texture, more light"},
        advice{code_lost, "frames did not fit to what was before: overlap more, come back to where the panorama ends"},
    };
    const auto* const met =
        std::find_if(all.begin(), all.end(), [&result](const advice& one) { return many_with_code(result, one.code); });
    return met == all.end() ? "" : met->help;
}

/// What may help a sweep that could not be stitched; "" when there is nothing to try. Frames that were left out come
/// before all but the direction: without them points are lost and distances grow, which is what the codes tell of.
std::string help_for(const sweep_result& result, const tried_ways& tried)
{
    if (many_with_code(result, code_wrong_way)) {
        return "what may help: the camera moved against --direction: another direction, or none";
    }
    std::string help;
    const auto add = [&help](const std::string& more) {
        if (!more.empty()) {
            help += (help.empty() ? "what may help: " : "; or ") + more;
        }
    };
    if (!tried.thinning.empty()) {
        add("all frames, without " + tried.thinning);
    }
    if (const std::string by_codes = help_by_codes(result); !by_codes.empty()) {
        add(by_codes);
        return help;
    }
    if (result.fitted_seconds >= 0.0 && result.failed_seconds > result.fitted_seconds) {
        add("--end " + time_between(result.fitted_seconds, result.misfit_seconds) + " for the part before, --start "
            + time_between(result.fitted_seconds, result.failed_seconds) + " for the part after");
    } else if (result.frames > 1 && tried.thinning.empty()) {
        add("smaller steps between the pictures");
    }
    add(untried_turn(tried.turns));
    return help;
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

std::vector<std::string> notes_on(const sweep_result& result, const tried_ways& tried,
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
        if (const std::string help = help_for(result, tried); !help.empty()) {
            notes.push_back(help);
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
    if (result.frames == 1) {
        notes.emplace_back("the sweep has one frame only, so the panorama is that frame");
    }
    return notes;
}

std::string summary_line(const sweep_result& result, const written_files& written, const lost_frames& lost,
                         double seconds)
{
    std::string line = counted(result.frames, "frame", "frames") + ", " + std::to_string(result.taken) + " taken";
    if (lost.unreadable > 0) {
        line += ", " + std::to_string(lost.unreadable) + " unreadable";
    }
    if (lost.dropped) {
        line += ", " + std::to_string(*lost.dropped) + " dropped";
    }
    const char* separator = " (";
    for (int code = highest_code; code >= lowest_code; --code) {
        const auto met = static_cast<answer_code>(code);
        if (result.by_code[met] > 0) {
            line += separator + std::to_string(result.by_code[met]) + " " + name_of(met);
            separator = ", ";
        }
    }
    char time[32];
    std::snprintf(time, sizeof time, "%.1f s", seconds);
    line += (result.frames > 0 ? "); " : "; ") + counted(result.key_frames, "key frame", "key frames") + "; "
            + (written.panorama.file.empty() ? "no panorama" : "panorama " + shown(written.panorama.size));
    if (!written.panorama.file.empty()) {
        line += written.uncropped != written.panorama.size ? " of " + shown(written.uncropped) : "";
        line += " in " + written.panorama.file;
    }
    if (!written.finished.file.empty()) {
        line += ", finished " + shown(written.finished.size) + " in " + written.finished.file;
    }
    if (!written.preview.file.empty()) {
        line += ", preview " + shown(written.preview.size) + " in " + written.preview.file;
    }
    return line + "; " + time;
}

}  // namespace tarn::host
