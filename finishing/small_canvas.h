// SPDX-License-Identifier: Apache-2.0
//
// The key frames drawn small, on which it is decided which of them are used, how bright they are made and where they
// meet. This header is the library's own.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "surface.h"
#include "working_frames.h"

namespace tarn::finishing {

/// A key frame on the small surface.
struct small_drawing {
    int index = 0;   ///< of the key frame
    cv::Rect place;  ///< on the small surface
    cv::Mat image;   ///< CV_8UC3
    cv::Mat mask;    ///< 255 where the frame shows something
};

/// The small surface that fits the frames' small copies.
drawing_surface small_surface_for(const drawing_surface& surface, const std::vector<working_frame>& frames);

/// Draws the key frames that have a place, and says of those that cannot be drawn why.
std::vector<small_drawing> draw_small(const drawing_surface& small_surface, const std::vector<working_frame>& frames,
                                      std::vector<frame_report>& reports, const progress_meter& progress);

/// Takes out drawings that add nothing: of which others show all, and that leave neighbours enough in common.
void leave_out_superfluous(std::vector<small_drawing>& drawings, const camera_set& cameras,
                           const std::vector<working_frame>& frames, std::vector<frame_report>& reports);

/// The rectangle around all drawings.
cv::Rect area_of(const std::vector<small_drawing>& drawings);

}  // namespace tarn::finishing
