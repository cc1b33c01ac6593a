// SPDX-License-Identifier: Apache-2.0
//
// Which frames of an input are taken: a stretch of it, and of that perhaps not every frame. Pure functions.
#pragma once

#include <string>

namespace tarn::host {

/// Where a picture stands in its input.
struct frame_stamp {
    int number = 0;         ///< 1, 2, 3, … in the order of the input
    double seconds = -1.0;  ///< from the input's beginning; negative when the input has no times
};

/// What is asked for. Times are in seconds from the input's beginning.
struct frame_selection {
    double start = 0.0;  ///< the first moment taken
    double end = -1.0;   ///< the first moment not taken any more; negative for none
    int step = 1;        ///< every so many frames one is taken
    double fps = 0.0;    ///< at most so many frames in a second are taken; 0 for all

    /// Whether times are needed to tell.
    bool needs_times() const
    {
        return start > 0.0 || end >= 0.0 || fps > 0.0;
    }
};

/// Applies a selection to the pictures of an input, one after the other.
class frame_selector {
public:
    explicit frame_selector(const frame_selection& selection) : selection_(selection)
    {
    }

    enum class verdict { take, leave_out, end };

    /// @param stamp  of the next picture; numbers and times rise from call to call
    verdict judge(const frame_stamp& stamp);

    /// About how many pictures are taken of `announced`, which come at `rate` per second; 0 when either is needed
    /// and not known (0).
    int expected(int announced, double rate) const;

private:
    frame_selection selection_;
    int in_range_ = 0;         ///< pictures met within the stretch
    double next_slot_ = -1.0;  ///< with a rate: the number of the slot in which the next one is taken
};

/// Reads a time: seconds ("90", "12.5"), m:ss or h:mm:ss, each with a fraction perhaps.
/// @returns seconds; negative when it is none
double parse_time(const std::string& text);

}  // namespace tarn::host
