// SPDX-License-Identifier: Apache-2.0
//
// What became of one frame, in full: the live path measures it, a sweep hands it to its host.
#pragma once

#include <array>
#include <string>

#include <opencv2/core.hpp>

#include "vocabulary.h"

namespace tarn {

using corners = std::array<cv::Point2f, 4>;  ///< top-left, top-right, bottom-right, bottom-left of a frame, mapped

/// What became of one frame. Everything is in the frames' own orientation.
struct frame_answer {
    answer_code code = code_normal;  ///< what videoStitch would answer
    reason why = reason::none;       ///< why it was not taken
    std::string detail;              ///< what OpenCV said of an unusable frame; else ""

    bool taken = false;  ///< registered, or composed: the panorama and the sweep go on from it
    int key_frame = 0;   ///< its number among the key frames, from 1, if it was given to a worker; else 0
    int key_frames = 0;  ///< given to workers so far

    bool registered = false;  ///< compared with the frame taken before, so that what follows was measured
    direction_code direction = direction_undecided;  ///< of the frame taken last
    float move_distance = 0.0f;  ///< px of a frame scaled to a width of 300, from the frame taken before
    int corners_found = 0;       ///< in this frame
    int corners_tracked = 0;     ///< of the reference's, found again
    int inliers = 0;             ///< of these, that agree on one motion
    float overlap = 0.0f;        ///< with the last key frame, 0 to 1; below 0.7, or what the sweep was
                                 ///< begun with, a frame becomes one

    bool placed = false;  ///< the frame was taken and lies in the preview
    corners outline{};    ///< of the frame taken last, in the preview; may reach beyond it until the next key frame
    std::array<float, 4> angles{90.0f, 90.0f, 90.0f, 90.0f};  ///< degrees, of the frame measured last, mapped into the
                                                              ///< last key frame: its corners
    std::array<float, 4> scales{1.0f, 1.0f, 1.0f, 1.0f};      ///< its sides, top first, clockwise, over a frame's own

    double milliseconds = 0.0;  ///< spent in the library on it, waits for room not included
};

}  // namespace tarn
