// SPDX-License-Identifier: Apache-2.0
//
// Gains by block, so that key frames are equally bright where they show the same. This header is the library's own.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "small_canvas.h"

namespace tarn::finishing {

/// Gains of a key frame: one of each colour for each cell of a grid over its drawing.
struct block_gains {
    cv::Mat grid;        ///< CV_32FC3; the value of a cell holds at its middle
    double cell = 32.0;  ///< px of the small surface

    double mean() const;
};

/// The gains of all drawings together: what overlaps becomes equal, what is one frame's own stays as it is where it
/// can. The time grows with the number of drawings.
std::vector<block_gains> balance_exposure(const std::vector<small_drawing>& drawings, const progress_meter& progress);

/// Multiplies an image by the gains. What would grow too bright by that is brightened less, so that it is not cut off:
/// values stay in their order, and 255 stays 255.
/// @param image        CV_8UC3; changed in place
/// @param first        where its top-left pixel lies, px of the small surface from the drawing's top-left pixel
/// @param small_scale  px of the small surface for one of the image
void apply_gains(const block_gains& gains, cv::Mat& image, cv::Point2d first, double small_scale);

}  // namespace tarn::finishing
