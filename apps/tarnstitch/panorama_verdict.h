// SPDX-License-Identifier: Apache-2.0
//
// Looking at a result: what is wrong with a panorama, and why. What is looked at are numbers: where the key frames lie,
// how much of the picture is filled, how much longer it is than one frame, how many frames were taken, and with which
// codes. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "sweep.h"

namespace tarn::host {

/// How the camera has moved, as the places of the key frames show it.
enum class camera_path {
    unknown,  ///< too few of them are placed, or they contradict each other
    turning,  ///< about a point: places spread as those of a turning camera of a usual focal length do
    sliding,  ///< along something flat: they keep their size and shape
    walking,  ///< past things that do not lie in one plane: they change size or shape as no turning camera's do
    tilting,  ///< the horizon turns: they roll against the first one
};

/// What there is to measure.
struct measured_result {
    double stretch =
        1.0;              ///< a key frame's greatest size in the picture over the smallest, by the roots of areas; 1 or
                          ///< more
    double shear = 0.0;   ///< greatest deviation of a key frame's corner in the picture from a right angle, degrees
    double roll = 0.0;    ///< greatest turn of a key frame against the first one, degrees
    double length = 0.0;  ///< the panorama's longer growth: its width over a frame's, or its height over a frame's
    double filled = 0.0;  ///< part of the panorama that is not empty, 0 to 1
    double taken = 0.0;   ///< part of the frames handed over that were taken, 0 to 1
    camera_path path = camera_path::unknown;
};

/// What is wrong with a result.
enum class fault {
    nothing_gained,  ///< the panorama shows nothing beyond the first frame
    stretched,       ///< frames become larger, or smaller, along the sweep: the picture is a wedge
    sheared,         ///< frames become slanted along the sweep
    mostly_empty,    ///< much of the picture is black
    frames_missing,  ///< many frames were not taken
};

/// How good a result is.
enum class grade {
    good,     ///< nothing to say
    flawed,   ///< what is wrong can be seen, and the picture may still be of use
    bad,      ///< not what anybody wants
    nothing,  ///< no panorama, or one that shows no more than its first frame
};

struct verdict {
    grade how_good = grade::nothing;
    measured_result numbers;
    std::vector<fault> faults;  ///< the worst first
};

/// Measures and judges what a sweep has come to.
verdict judge(const sweep_result& result);

/// What stands beside a panorama when it is told of.
struct verdict_context {
    bool finishing_can_be_asked_for = false;  ///< whether --finish is there, and was not asked for
    /// Whether there is a finished picture of the whole sweep that shows more than one frame; none where none was asked
    /// for.
    std::optional<bool> finished_is_good;
};

/// What is wrong with a panorama and why, a sentence for each fault, the worst first; none of a good one.
std::vector<std::string> sentences_on(const verdict& judged, const sweep_result& result,
                                      const verdict_context& context);

/// The worst fault in a word or two, behind "the panorama is": "a wedge"; "good" without one.
std::string in_a_word(const verdict& judged);

/// Whether one panorama of a sweep is better than another: of a better grade, or of the same and less stretched.
bool is_better_picture(const verdict& one, const verdict& other);

/// "good", "flawed", "bad", "nothing"
const char* key_of(grade how_good);

/// "stretched"
const char* key_of(fault what);

/// "turning"
const char* key_of(camera_path path);

}  // namespace tarn::host
