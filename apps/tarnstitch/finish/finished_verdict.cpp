// SPDX-License-Identifier: Apache-2.0
//
// Counting, judging, and the words for it.
#include "finished_verdict.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace tarn::host {

namespace {

constexpr double flawed_below = 0.9;  // part of the key frames
constexpr double bad_below = 0.6;
constexpr double most_of_length = 0.2;

std::string percent(double part)
{
    constexpr double hundred = 100.0;
    return std::to_string(std::lround(hundred * part)) + " %";
}

/// "the first 3 and the last one"; "" where both ends are there.
std::string lost_ends(const finished_verdict& judged)
{
    const auto counted = [](const char* which, int count) {
        return std::string("the ") + which + " " + (count == 1 ? "one" : std::to_string(count));
    };
    std::string ends = judged.lost_at_begin > 0 ? counted("first", judged.lost_at_begin) : "";
    if (judged.lost_at_end > 0) {
        ends += (ends.empty() ? "" : " and ") + counted("last", judged.lost_at_end);
    }
    return ends;
}

}  // namespace

finished_verdict judge_finished(const crop_effect& cropped)
{
    const std::vector<double>& parts = cropped.parts_in_picture;
    finished_verdict judged;
    if (parts.empty()) {
        return judged;
    }
    const auto is_in_picture = [](double part_of_frame) { return part_of_frame >= 0.5; };
    judged.placed = static_cast<int>(parts.size());
    judged.in_picture = static_cast<int>(std::count_if(parts.begin(), parts.end(), is_in_picture));
    if (judged.in_picture > 0) {
        judged.lost_at_begin =
            static_cast<int>(std::distance(parts.begin(), std::find_if(parts.begin(), parts.end(), is_in_picture)));
        judged.lost_at_end =
            static_cast<int>(std::distance(parts.rbegin(), std::find_if(parts.rbegin(), parts.rend(), is_in_picture)));
    }
    const double part = static_cast<double>(judged.in_picture) / judged.placed;
    if (part < flawed_below) {
        judged.how_good = part < bad_below ? grade::bad : grade::flawed;
    } else if (cropped.lost_at_begin + cropped.lost_at_end >= most_of_length) {
        judged.how_good = grade::flawed;
    }
    return judged;
}

std::string sentence_on(const finished_verdict& judged, const crop_effect& cropped)
{
    if (judged.how_good == grade::good) {
        return "";
    }
    const std::string remedy = "; --crop=none keeps it, with empty corners";
    const int lost = judged.placed - judged.in_picture;
    if (static_cast<double>(judged.in_picture) / judged.placed >= flawed_below) {
        return "the finished picture lacks much of the sweep's ends: " + percent(cropped.lost_at_begin)
               + " of its length at the beginning and " + percent(cropped.lost_at_end) + " at the end are cut off, and "
               + percent(cropped.lost) + " of what was seen" + remedy;
    }
    const std::string ends = lost_ends(judged);
    const bool both = judged.lost_at_begin > 0 && judged.lost_at_end > 0;
    const std::string all = " of " + std::to_string(judged.placed) + " key frames";
    std::string which = std::to_string(lost) + all;
    if (!ends.empty()) {
        which = lost == judged.lost_at_begin + judged.lost_at_end ? ends + all : which + ", " + ends + " among them,";
    }
    return std::string("the finished picture lacks ") + (ends.empty() ? "a part" : (both ? "both ends" : "an end"))
           + " of the sweep: " + which + " lie outside its rectangle by more than half, and " + percent(cropped.lost)
           + " of what was seen is cut off" + remedy;
}

}  // namespace tarn::host
