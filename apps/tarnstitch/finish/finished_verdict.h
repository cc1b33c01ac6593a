// SPDX-License-Identifier: Apache-2.0
//
// Looking at a finished picture: how much of the sweep is left in the rectangle that it was cut to. Pure functions.
#pragma once

#include <string>
#include <vector>

#include "panorama_verdict.h"

namespace tarn::host {

/// What cutting the picture to a rectangle has left of the sweep.
struct crop_effect {
    /// Of each key frame that has a place, in the order of the sweep: the part of it that lies in the picture, 0 to 1.
    std::vector<double> parts_in_picture;
    double lost = 0.0;           ///< of all that was seen, by area, 0 to 1
    double lost_at_begin = 0.0;  ///< of the sweep's length, 0 to 1, at the end where it begins
    double lost_at_end = 0.0;    ///< at the one where it stops
};

struct finished_verdict {
    grade how_good = grade::good;  ///< good, flawed or bad
    int placed = 0;                ///< key frames that have a place
    int in_picture = 0;            ///< of these, those of which at least half lies in the picture
    int lost_at_begin = 0;         ///< key frames before the first one of these
    int lost_at_end = 0;           ///< key frames behind the last one of these
};

/// Judges by the part of the key frames that are in the picture: flawed below nine tenths, bad below six. Flawed, too,
/// where a fifth of the length is missing at the ends.
finished_verdict judge_finished(const crop_effect& cropped);

/// What is missing, how much of it, and what keeps it; "" of a good one.
std::string sentence_on(const finished_verdict& judged, const crop_effect& cropped);

}  // namespace tarn::host
