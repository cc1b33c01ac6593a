// SPDX-License-Identifier: Apache-2.0
//
// The lines on a sweep.
#include "report.h"

#include <array>
#include <cstdio>

namespace tarn::host {

namespace {

std::string counted(int count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string size_or_none(const char* what, const cv::Size& size)
{
    if (size.empty()) {
        return std::string("no ") + what;
    }
    return std::string(what) + " " + std::to_string(size.width) + "x" + std::to_string(size.height);
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

}  // namespace

const char* code_name(int code)
{
    static constexpr std::array names = {"pipeline failed",  "lost",      "normal",   "few details",
                                         "very few details", "wrong way", "too fast", "skewed"};
    if (code < lowest_code || code > highest_code) {
        return "unknown";
    }
    return names[static_cast<std::size_t>(code - lowest_code)];
}

std::vector<std::string> notes_on(const sweep_result& result, const std::string& partial_panorama)
{
    const std::string what_is_left = partial_panorama.empty()
                                         ? "; nothing of a panorama is left"
                                         : "; what was composed until then is in " + partial_panorama;
    switch (result.outcome) {
    case sweep_outcome::input_failed:
        return {result.input_error + what_is_left};
    case sweep_outcome::pipeline_failed:
        return {"stitching failed at frame " + std::to_string(result.broken_at_frame) + ": "
                + (result.failed_key_frame > 0
                       ? failed_key_frame(result) + " could not be joined to the panorama"
                       : "the panorama could not be finished")
                + what_is_left};
    case sweep_outcome::complete:
        break;
    }
    std::vector<std::string> notes;
    if (result.failed_key_frame > 0) {
        notes.push_back("the panorama is without " + failed_key_frame(result) + ", which could not be joined");
    }
    if (result.frames == 1) {
        notes.emplace_back("the input has one frame only, so the panorama is that frame");
    }
    return notes;
}

std::string summary_line(const sweep_result& result, int unreadable, double seconds)
{
    std::string line =
        counted(result.frames, "frame", "frames") + ", " + std::to_string(result.taken) + " taken";
    if (unreadable > 0) {
        line += ", " + std::to_string(unreadable) + " unreadable";
    }
    const char* separator = " (";
    for (int code = highest_code; code >= lowest_code; --code) {
        const int count = result.by_code[static_cast<std::size_t>(code - lowest_code)];
        if (count > 0) {
            line += separator + std::to_string(count) + " " + code_name(code);
            separator = ", ";
        }
    }
    char time[32];
    std::snprintf(time, sizeof time, "%.1f s", seconds);
    return line + (result.frames > 0 ? "); " : "; ") + counted(result.key_frames, "key frame", "key frames")
           + "; " + size_or_none("panorama", result.panorama_size) + ", "
           + size_or_none("preview", result.preview.size()) + "; " + time;
}

}  // namespace tarn::host
