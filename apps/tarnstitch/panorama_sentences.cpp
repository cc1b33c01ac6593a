// SPDX-License-Identifier: Apache-2.0
//
// A verdict in words.
#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "judgement.h"
#include "panorama_verdict.h"

namespace tarn::host {

namespace {

std::string with_digits(const char* format, double number)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), format, number);
    return text.data();
}

std::string percent(double part)
{
    constexpr double hundred = 100.0;
    return with_digits("%.0f %%", hundred * part);
}

/// What may be done about a wedge, behind what it looks like.
std::string cause_of_wedge(const verdict& judged)
{
    switch (judged.numbers.path) {
    case camera_path::turning:
        return "the camera turned, and the library lays all frames on the plane of the first one; a shorter turn fits";
    case camera_path::walking:
        return "the camera was carried past things at different distances; turn on the spot, do not walk";
    case camera_path::tilting:
        return "the camera was tilted on the way; hold it level";
    case camera_path::sliding:
        return "the camera came nearer or went away, or looked at its scene aslant";
    case camera_path::unknown:
        break;
    }
    return "small errors add up from key frame to key frame; a slower sweep along one axis has fewer";
}

/// Why frames were not taken, by the code that most of those have that were taken with or without trouble.
std::string cause_of_gaps(const sweep_result& result)
{
    if (many_with_code(result, code_wrong_way)) {
        return "the camera moved against --direction";
    }
    if (many_with_code(result, code_lost)) {
        return "they did not fit to what was before, as after a jerk, a blur or a large thing that passes";
    }
    return "they had too little detail, or did not fit to what was before";
}

std::string cause_of_nothing(const sweep_result& result, const verdict& judged)
{
    if (result.frames <= 1) {
        return "there is no other one";
    }
    constexpr double few = 0.5;
    return judged.numbers.taken < few ? cause_of_gaps(result) : "the camera hardly moved";
}

std::string sentence_on(fault what, const verdict& judged, const sweep_result& result)
{
    const measured_result& numbers = judged.numbers;
    switch (what) {
    case fault::nothing_gained:
        return "the panorama shows nothing beyond the first frame: " + cause_of_nothing(result, judged);
    case fault::stretched:
        return "the panorama is a wedge, in which frames differ in size by " + with_digits("%.1f", numbers.stretch)
               + " times: " + cause_of_wedge(judged);
    case fault::sheared:
        return "the panorama is slanted, by up to " + with_digits("%.0f", numbers.shear)
               + " degrees: " + cause_of_wedge(judged);
    case fault::mostly_empty:
        return percent(1.0 - numbers.filled) + " of the panorama is empty: it goes aslant through its rectangle";
    case fault::frames_missing:
        break;
    }
    return "only " + std::to_string(result.taken) + " of " + std::to_string(result.frames)
           + " frames could be taken: " + cause_of_gaps(result);
}

/// What --finish does about it, or has done.
std::string remedy_for(const verdict& judged, const verdict_context& context)
{
    const bool is_about_shape = std::any_of(judged.faults.begin(), judged.faults.end(), [](fault one) {
        return one == fault::stretched || one == fault::sheared || one == fault::mostly_empty;
    });
    if (context.finished_is_good.value_or(false)) {
        return judged.how_good == grade::nothing ? "the finished picture shows more"
                                                 : "the finished picture is made anew, without this";
    }
    if (is_about_shape && context.finishing_can_be_asked_for && judged.how_good != grade::nothing) {
        return judged.numbers.path == camera_path::turning
                   ? "--finish makes a picture that is bent as the camera turned"
                   : "--finish makes another picture, of all frames at once";
    }
    return "";
}

}  // namespace

std::vector<std::string> sentences_on(const verdict& judged, const sweep_result& result, const verdict_context& context)
{
    std::vector<std::string> sentences;
    bool is_wedge = false;
    for (const fault what : judged.faults) {
        const bool is_of_wedge = what == fault::stretched || what == fault::sheared;
        if (!(is_of_wedge && is_wedge)) {  // they have one cause
            sentences.push_back(sentence_on(what, judged, result));
        }
        is_wedge = is_wedge || is_of_wedge;
    }
    if (const std::string remedy = remedy_for(judged, context); !remedy.empty() && !sentences.empty()) {
        sentences.push_back(remedy);
    }
    return sentences;
}

std::string in_a_word(const verdict& judged)
{
    if (judged.faults.empty()) {
        return "good";
    }
    switch (judged.faults.front()) {
    case fault::nothing_gained:
        return "no more than one frame";
    case fault::stretched:
        return "a wedge";
    case fault::sheared:
        return "slanted";
    case fault::mostly_empty:
        return "mostly empty";
    case fault::frames_missing:
        break;
    }
    return "without many of the frames";
}

}  // namespace tarn::host
