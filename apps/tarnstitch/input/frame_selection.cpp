// SPDX-License-Identifier: Apache-2.0
//
// Choosing frames.
#include "frame_selection.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <vector>

namespace tarn::host {

namespace {

/// A time stamp of a video is a multiple of some fraction of a second, rounded; so are the times asked for.
constexpr double rounding = 1e-6;  // s

bool is_number(const std::string& text, bool fraction_allowed)
{
    const std::size_t point = text.find('.');
    const std::string whole = text.substr(0, point);
    const std::string fraction = point == std::string::npos ? "" : text.substr(point + 1);
    const auto digits_only = [](const std::string& part) {
        return part.find_first_not_of("0123456789") == std::string::npos;
    };
    constexpr std::size_t most_digits = 9;
    return !whole.empty() && whole.size() <= most_digits && fraction.size() <= most_digits && digits_only(whole)
           && digits_only(fraction) && (point == std::string::npos || (fraction_allowed && !fraction.empty()));
}

}  // namespace

frame_selector::verdict frame_selector::judge(const frame_stamp& stamp)
{
    if (selection_.needs_times()) {
        if (selection_.end >= 0.0 && stamp.seconds >= selection_.end - rounding) {
            return verdict::end;
        }
        if (stamp.seconds < selection_.start - rounding) {
            return verdict::leave_out;
        }
    }
    if (in_range_++ % selection_.step != 0) {
        return verdict::leave_out;
    }
    if (selection_.fps > 0.0) {
        // Time is divided into slots, each of which gives its first frame: the rate holds over any length.
        const double slot = std::floor((stamp.seconds - selection_.start) * selection_.fps + rounding);
        if (slot < next_slot_) {
            return verdict::leave_out;
        }
        next_slot_ = slot + 1.0;
    }
    return verdict::take;
}

int frame_selector::expected(int announced, double rate) const
{
    double frames = announced;
    if (selection_.needs_times()) {
        if (rate <= 0.0) {
            return 0;
        }
        if (announced > 0 || selection_.end >= 0.0) {
            double end = announced > 0 ? announced / rate : selection_.end;
            if (selection_.end >= 0.0) {
                end = std::min(end, selection_.end);
            }
            const double length = std::max(0.0, end - selection_.start);
            frames = length * rate / selection_.step;
            if (selection_.fps > 0.0) {
                frames = std::min(frames, std::ceil(length * selection_.fps - rounding));
            }
            // Where the input does not say how long it is, an end may be beyond all that there can be.
            constexpr double most = 1e9;
            return frames <= most ? static_cast<int>(std::ceil(frames - rounding)) : 0;
        }
    }
    return static_cast<int>(std::ceil(frames / selection_.step));
}

double parse_time(const std::string& text)
{
    constexpr double none = -1.0;
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, ':');) {
        parts.push_back(part);
    }
    constexpr std::size_t most_parts = 3;
    constexpr double sixty = 60.0;
    if (parts.empty() || parts.size() > most_parts || text.back() == ':') {
        return none;
    }
    double seconds = 0.0;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const bool last = i + 1 == parts.size();
        if (!is_number(parts[i], last)) {
            return none;
        }
        const double value = std::stod(parts[i]);
        if (i > 0 && value >= sixty) {
            return none;
        }
        seconds = seconds * sixty + value;
    }
    return seconds;
}

}  // namespace tarn::host
