// SPDX-License-Identifier: Apache-2.0
//
// What is drawn along a sweep: curves with their limits, lanes of answers, bars of workers. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "curve.h"
#include "report_collector.h"

namespace tarn::host {

/// Points that a curve has at most, however long the sweep is.
constexpr std::size_t most_points = 2000;

/// Plots are drawn on an area of 1000 by 100.
constexpr double plot_width = 1000.0;
constexpr double plot_height = 100.0;

/// What a sweep is drawn along: the input's time where it has one, else the frames' numbers.
class sweep_axis {
public:
    explicit sweep_axis(const std::vector<reported_frame>& frames);

    bool has_times() const
    {
        return has_times_;
    }

    /// Where a frame lies, 0 to 1000.
    double place(const frame_stamp& stamp) const;

    /// What stands below the axis, from its beginning to its end in even steps.
    std::vector<std::string> ticks() const;

private:
    double value(const frame_stamp& stamp) const;

    bool has_times_;
    double from_ = 0.0;
    double to_ = 0.0;
};

/// One measured quantity, frame by frame.
struct plot {
    std::string id;
    std::string title;
    std::string unit;        ///< what is drawn, with its unit
    std::string sign;        ///< of the unit, as it stands behind a number; "" without one
    std::string rule = {};   ///< the thresholds, as a sentence; "" without any
    std::string found = {};  ///< the least and the greatest value, and how many frames are beyond a threshold
    double bottom = 0.0;
    double top = 1.0;
    std::vector<double> limits = {};       ///< the thresholds
    std::vector<curve_point> points = {};  ///< x: 0 to 1000; most_points at most
    std::vector<int> frame_numbers = {};   ///< of the points
};

/// All quantities of a sweep.
std::vector<plot> plots_of(const report_collector& collected, const sweep_axis& axis);

/// The greatest deviation of a frame's corners from right angles, degrees.
double tilt_of(const reported_frame& frame);

/// The mean of its four sides, as parts of a frame's own.
double scale_of(const reported_frame& frame);

/// Where frames were given one answer, or were not taken.
struct answer_lane {
    std::string words;
    answer_code code = code_normal;
    bool is_taken = true;  ///< false for the lane of those that were not, whatever their answer
    int count = 0;
    std::string path = {};  ///< on an area of 1000 by 10
};

std::vector<answer_lane> answer_lanes(const std::vector<reported_frame>& frames, const sweep_axis& axis);

/// What a worker took its time for; negative where it did not come to it.
struct worker_times {
    int key_frame = 0;
    double begun = 0.0;     ///< seconds since the sweep began
    double prepare = -1.0;  ///< ms; likewise those that follow
    double wait = -1.0;
    double registering = -1.0;
    double compose = -1.0;
};

std::vector<worker_times> times_of(const std::vector<worker_turn>& turns, worker_turn::instant begun);

}  // namespace tarn::host
