// SPDX-License-Identifier: Apache-2.0
//
// The picture at full size, strip by strip: whatever its size, a strip and the key frames that it shows are in memory.
// This header is the library's own.
#pragma once

#include <functional>
#include <vector>

#include <opencv2/core.hpp>

#include "exposure.h"
#include "seams.h"
#include "small_canvas.h"
#include "surface.h"

namespace tarn::finishing {

/// All that the picture is made from.
struct picture_plan {
    drawing_surface surface;   ///< at full size
    cv::Rect area;             ///< of the picture, on it
    double small_scale = 1.0;  ///< px of the small surface for one of the full one
    double frame_scale = 1.0;  ///< px of the picture for one of a key frame, in the middle
    double frame_side = 0.0;   ///< px of the picture for the shorter side of a key frame
    std::vector<small_drawing> drawings;
    std::vector<block_gains> gains;
    ownership owners;
    bool fills_gaps = false;  ///< whether what nobody shows is filled with what lies beside it
};

/// @param picture      allocated and filled, CV_8UC3
/// @param mask         the same, CV_8UC1: 255 where a key frame shows something
/// @param frame_image  the picture of a key frame, by index
/// @param cache_bytes  see finishing_options
void blend_strips(const picture_plan& plan, const std::function<cv::Mat(int index)>& frame_image, double cache_bytes,
                  const progress_meter& progress, cv::Mat& picture, cv::Mat& mask);

}  // namespace tarn::finishing
