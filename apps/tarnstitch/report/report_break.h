// SPDX-License-Identifier: Apache-2.0
//
// Where a sweep broke: the two frames, what they share, and words for it.
#pragma once

#include <string>
#include <vector>

#include "found_matches.h"
#include "report_collector.h"
#include "sweep.h"

namespace tarn::host {

/// A place at which something did not fit.
struct sweep_break {
    std::string id;  ///< of the section
    std::string title;
    std::string text;           ///< what happened there
    std::string caption;        ///< what the pictures are and share
    matched_pictures pictures;  ///< upright; without matches where none could be looked for
};

/// The key frame that could not be joined, beside the one before it; and the longest run of frames that did not fit,
/// beside the frame before it. None of a sweep in which all fitted.
std::vector<sweep_break> breaks_of(const report_collector& collected, const sweep_result& result);

/// The pictures and their matches turned: as they are after a clockwise turn by so many quarters.
matched_pictures turned_clockwise(const matched_pictures& pictures, int quarters);

/// How a key frame was bent before it was described, and by which angle.
struct frame_bending {
    bending way = bending::none;
    float angle = 0.0f;  ///< degrees
};

/// @param second  the second key frame of the sweep, which decides on the sphere; none before there is one
frame_bending bending_of(const reported_frame& key_frame, const reported_frame* second);

}  // namespace tarn::host
