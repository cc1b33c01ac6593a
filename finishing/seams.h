// SPDX-License-Identifier: Apache-2.0
//
// Where key frames meet: along lines on which they are alike, around what has moved between them. This header is the
// library's own.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "exposure.h"
#include "small_canvas.h"

namespace tarn::finishing {

/// Which key frame is shown where, on the small surface.
struct ownership {
    cv::Rect area;    ///< on the small surface
    cv::Mat owner;    ///< CV_16SC1: number of the drawing; around what is seen that of the nearest one
    cv::Mat covered;  ///< 255 where a drawing shows something
};

/// Lays drawing after drawing on those before, each along the best cut: as many cuts as there are drawings.
/// @param reach  px around what is seen that get an owner as well
ownership find_seams(const std::vector<small_drawing>& drawings, const std::vector<block_gains>& gains, int reach,
                     const progress_meter& progress);

}  // namespace tarn::finishing
