// SPDX-License-Identifier: Apache-2.0
//
// From frames to what can be drawn. The thresholds are the library's.
#include "report_plots.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <functional>
#include <optional>
#include <set>

#include "frame_turn.h"

namespace tarn::host {

namespace {

constexpr double fastest = 10.0;            // px
constexpr double key_frame_below = 0.7;     // overlap
constexpr double few_details_below = 50.0;  // inliers
constexpr double very_few_below = 20.0;     // inliers
constexpr double skewed_sideways = 8.0;     // degrees, of frames that move along their rows
constexpr double skewed_upright = 5.0;      // degrees, along their columns
constexpr double bent_above = 0.95;         // scale

bool is_along_rows(direction_code direction)
{
    return direction == direction_right || direction == direction_left;
}

std::string counted_frames(std::size_t count)
{
    return count == 0 ? "no frame" : std::to_string(count) + (count == 1 ? " frame" : " frames");
}

using value_of = std::function<double(const reported_frame&)>;

/// Points of the frames that were measured, and what they come to.
void fill(plot& drawn, const std::vector<reported_frame>& frames, const sweep_axis& axis, const value_of& value,
          int digits)
{
    struct numbered {
        std::vector<curve_point> points;
        std::vector<int> numbers;
    } all;

    bool gap = true;
    for (const reported_frame& frame : frames) {
        if (!frame.measured || !std::isfinite(value(frame))) {
            gap = true;
            continue;
        }
        all.points.push_back({axis.place(frame.stamp), value(frame), gap});
        all.numbers.push_back(frame.stamp.number);
        gap = false;
    }
    if (all.points.empty()) {
        drawn.found = "Nothing was measured.";
        return;
    }
    const auto [least, greatest] = std::minmax_element(
        all.points.begin(), all.points.end(), [](const curve_point& a, const curve_point& b) { return a.y < b.y; });
    drawn.found = "From " + short_number(least->y, digits) + " to " + short_number(greatest->y, digits) + drawn.sign;
    drawn.top = greatest->y > drawn.top ? round_above(greatest->y) : drawn.top;
    drawn.bottom = std::min(drawn.bottom, least->y);
    // The frames' numbers go along as the points are thinned.
    drawn.points = thinned(all.points, most_points);
    auto next = all.points.begin();
    for (const curve_point& point : drawn.points) {
        next = std::find_if(next, all.points.end(),
                            [&point](const curve_point& one) { return one.x == point.x && one.y == point.y; });
        drawn.frame_numbers.push_back(all.numbers[static_cast<std::size_t>(next - all.points.begin())]);
        ++next;
    }
}

/// Adds to what was found how many frames are beyond a threshold.
void tell_beyond(plot& drawn, const std::vector<reported_frame>& frames, const std::string& words,
                 const std::function<bool(const reported_frame&)>& is_beyond)
{
    if (drawn.points.empty()) {
        return;
    }
    const auto count = static_cast<std::size_t>(std::count_if(
        frames.begin(), frames.end(), [&](const reported_frame& frame) { return frame.measured && is_beyond(frame); }));
    drawn.found += "; " + counted_frames(count) + " " + words;
}

/// The usual time between two frames, ms; none where the input has no times.
std::optional<double> frame_interval(const std::vector<reported_frame>& frames)
{
    std::vector<double> intervals;
    for (std::size_t i = 1; i < frames.size(); ++i) {
        const double interval = frames[i].stamp.seconds - frames[i - 1].stamp.seconds;
        if (frames[i - 1].stamp.seconds >= 0.0 && interval > 0.0) {
            intervals.push_back(interval);
        }
    }
    if (intervals.empty()) {
        return std::nullopt;
    }
    const auto middle = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
    std::nth_element(intervals.begin(), middle, intervals.end());
    constexpr double milliseconds = 1000.0;
    return *middle * milliseconds;
}

plot motion_plot(const std::vector<reported_frame>& frames, const sweep_axis& axis)
{
    plot drawn{"motion", "Motion", "px from frame to frame, of a frame 300 px wide", " px"};
    drawn.rule = "Too fast above 10 px on average of ten frames.";
    drawn.limits = {fastest};
    drawn.top = fastest * 1.25;
    fill(
        drawn, frames, axis, [](const reported_frame& frame) { return frame.move; }, 1);
    tell_beyond(drawn, frames, "above 10 px", [](const reported_frame& frame) { return frame.move > fastest; });
    return drawn;
}

plot overlap_plot(const std::vector<reported_frame>& frames, const sweep_axis& axis)
{
    plot drawn{"overlap", "Overlap", "part shared with the last key frame, 0 to 1", ""};
    drawn.rule = "A frame below 0.7 becomes a key frame.";
    drawn.limits = {key_frame_below};
    fill(
        drawn, frames, axis, [](const reported_frame& frame) { return frame.overlap; }, 2);
    tell_beyond(drawn, frames, "below 0.7",
                [](const reported_frame& frame) { return frame.overlap < static_cast<float>(key_frame_below); });
    return drawn;
}

plot inliers_plot(const std::vector<reported_frame>& frames, const sweep_axis& axis)
{
    plot drawn{"inliers", "Inliers", "points that agree on one motion, a number", ""};
    drawn.rule = "Few details below 50, very few below 20.";
    drawn.limits = {few_details_below, very_few_below};
    drawn.top = 100.0;
    fill(
        drawn, frames, axis, [](const reported_frame& frame) { return frame.inliers; }, 0);
    tell_beyond(drawn, frames, "below 50",
                [](const reported_frame& frame) { return frame.inliers < few_details_below; });
    return drawn;
}

plot tilt_plot(const report_collector& collected, const sweep_axis& axis)
{
    const std::vector<reported_frame>& frames = collected.frames();
    plot drawn{"tilt", "Tilt", "degrees by which a corner differs from 90, against the last key frame", "°"};
    std::set<std::string> sideways;
    std::set<std::string> upright;
    for (const reported_frame& frame : frames) {
        if (frame.measured && frame.direction != direction_undecided) {
            (is_along_rows(frame.direction) ? sideways : upright)
                .insert(motion_name(motion_for_viewer(frame.direction, collected.turn())));
        }
    }
    drawn.top = skewed_sideways * 1.25;
    for (const auto& [directions, limit] : {std::pair(upright, skewed_upright), std::pair(sideways, skewed_sideways)}) {
        std::string words;
        for (const std::string& direction : directions) {
            words += (words.empty() ? "" : " or ") + direction;
        }
        if (!words.empty()) {
            drawn.limits.push_back(limit);
            drawn.rule += (drawn.rule.empty() ? "" : " ") + std::string("Skewed above ") + short_number(limit, 0)
                          + "° where the camera moves " + words + ".";
        }
    }
    fill(drawn, frames, axis, tilt_of, 2);
    tell_beyond(drawn, frames, "skewed", [](const reported_frame& frame) {
        return tilt_of(frame) > (is_along_rows(frame.direction) ? skewed_sideways : skewed_upright);
    });
    return drawn;
}

plot scale_plot(const std::vector<reported_frame>& frames, const sweep_axis& axis)
{
    plot drawn{"scale", "Scale", "mean of a frame's sides against the last key frame's, 1 for equal", ""};
    drawn.rule = "A key frame below 0.95 is not bent onto a cylinder.";
    drawn.limits = {bent_above};
    constexpr double bottom = 0.8;
    drawn.bottom = bottom;
    drawn.top = 2.0 - bottom;
    fill(drawn, frames, axis, scale_of, 3);
    tell_beyond(drawn, frames, "below 0.95", [](const reported_frame& frame) { return scale_of(frame) < bent_above; });
    return drawn;
}

plot time_plot(const std::vector<reported_frame>& frames, const sweep_axis& axis)
{
    plot drawn{"milliseconds", "Time", "ms in the library for each frame", " ms"};
    const std::optional<double> interval = frame_interval(frames);
    if (interval) {
        drawn.rule = "The input's frames are " + short_number(*interval, 1) + " ms apart.";
        drawn.limits = {*interval};
        drawn.top = round_above(*interval);
    }
    fill(
        drawn, frames, axis, [](const reported_frame& frame) { return frame.milliseconds; }, 1);
    if (interval) {
        tell_beyond(drawn, frames, "that took longer",
                    [&](const reported_frame& frame) { return frame.milliseconds > *interval; });
    }
    return drawn;
}

/// Draws one band of all neighbours that belong to a lane, and of those that cannot be told apart on the page.
void draw_lane(answer_lane& lane, const std::vector<reported_frame>& frames, const sweep_axis& axis,
               const std::function<bool(const reported_frame&)>& belongs)
{
    constexpr double least_width = 1.5;  // so that a single frame is seen
    double band_begin = 0.0;
    double band_end = -1.0;
    const auto close_band = [&] {
        if (band_end >= 0.0) {
            lane.path += "M" + short_number(band_begin, 1) + " 0H" + short_number(band_end, 1) + "V10H"
                         + short_number(band_begin, 1) + "z";
        }
    };
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (!belongs(frames[i])) {
            continue;
        }
        ++lane.count;
        const double begin = axis.place(frames[i].stamp);
        const double end = i + 1 < frames.size() ? axis.place(frames[i + 1].stamp) : plot_width;
        if (begin > band_end) {
            close_band();
            band_begin = std::min(begin, plot_width - least_width);
        }
        band_end = std::max(end, band_begin + least_width);
    }
    close_band();
}

}  // namespace

// ------------------------------------------------------------------------------------------------------ the axis

sweep_axis::sweep_axis(const std::vector<reported_frame>& frames)
    : has_times_(!frames.empty() && std::all_of(frames.begin(), frames.end(), [](const reported_frame& frame) {
          return frame.stamp.seconds >= 0.0;
      }))
{
    if (!frames.empty()) {
        from_ = value(frames.front().stamp);
        to_ = value(frames.back().stamp);
    }
}

double sweep_axis::value(const frame_stamp& stamp) const
{
    return has_times_ ? stamp.seconds : stamp.number;
}

double sweep_axis::place(const frame_stamp& stamp) const
{
    return to_ > from_ ? (value(stamp) - from_) / (to_ - from_) * plot_width : plot_width / 2.0;
}

std::vector<std::string> sweep_axis::ticks() const
{
    constexpr int steps = 4;
    std::vector<std::string> words;
    for (int i = 0; i <= steps; ++i) {
        const double at = from_ + (to_ - from_) * i / steps;
        words.push_back(has_times_ ? short_number(at, to_ - from_ < steps ? 2 : 1) + " s"
                                   : short_number(std::round(at), 0));
    }
    words.erase(std::unique(words.begin(), words.end()), words.end());
    return words;
}

// ---------------------------------------------------------------------------------------------- what is drawn on it

std::vector<plot> plots_of(const report_collector& collected, const sweep_axis& axis)
{
    const std::vector<reported_frame>& frames = collected.frames();
    return {motion_plot(frames, axis),  overlap_plot(frames, axis), inliers_plot(frames, axis),
            tilt_plot(collected, axis), scale_plot(frames, axis),   time_plot(frames, axis)};
}

double tilt_of(const reported_frame& frame)
{
    constexpr float right_angle = 90.0f;
    float greatest = 0.0f;
    for (const float angle : frame.angles) {
        greatest = std::max(greatest, std::fabs(angle - right_angle));
    }
    return greatest;
}

double scale_of(const reported_frame& frame)
{
    return (frame.scales[0] + frame.scales[1] + frame.scales[2] + frame.scales[3]) * 0.25f;
}

std::vector<answer_lane> answer_lanes(const std::vector<reported_frame>& frames, const sweep_axis& axis)
{
    std::vector<answer_lane> lanes;
    for (int number = highest_code; number >= lowest_code; --number) {
        const auto code = static_cast<answer_code>(number);
        lanes.push_back({name_of(code), code, true});
        draw_lane(lanes.back(), frames, axis, [code](const reported_frame& frame) { return frame.code == code; });
    }
    lanes.push_back({"not taken", code_lost, false});
    draw_lane(lanes.back(), frames, axis, [](const reported_frame& frame) { return !frame.taken; });
    lanes.erase(std::remove_if(lanes.begin(), lanes.end(), [](const answer_lane& lane) { return lane.count == 0; }),
                lanes.end());
    return lanes;
}

std::vector<worker_times> times_of(const std::vector<worker_turn>& turns, worker_turn::instant begun)
{
    const auto between = [](worker_turn::instant from, worker_turn::instant to) {
        const bool both = from != worker_turn::instant() && to != worker_turn::instant();
        return both ? std::chrono::duration<double, std::milli>(to - from).count() : -1.0;
    };
    std::vector<worker_times> all;
    for (const worker_turn& turn : turns) {
        worker_times times;
        times.key_frame = turn.key_frame;
        times.begun = std::chrono::duration<double>(turn.begun - begun).count();
        times.prepare = between(turn.begun, turn.prepared);
        const bool has_turn = turn.taken != worker_turn::instant();
        times.wait = between(turn.prepared, has_turn ? turn.taken : turn.ended);
        // The first key frame is the panorama: there is nothing to register.
        const bool is_registered = turn.registered != worker_turn::instant();
        times.registering = between(turn.taken, turn.registered);
        times.compose = between(is_registered ? turn.registered : turn.taken, turn.ended);
        all.push_back(times);
    }
    return all;
}

}  // namespace tarn::host
