// SPDX-License-Identifier: Apache-2.0
//
// What a picture lacks of what was seen, because it is a rectangle. Pure. This header is the library's own.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "seams.h"
#include "small_canvas.h"
#include "surface.h"
#include "tarn_finishing.h"

namespace tarn::finishing {

/// Around a rectangle of a smaller surface, what that is on a larger one: every pixel whose place lies in it.
/// @param factor  px of the larger surface for one of the smaller
cv::Rect enlarged(cv::Rect small, double factor);

/// A full turn of a surface that goes around, in its pixels, along the axis on which it does; nought on the other one,
/// and on a plane.
cv::Size turn_of(const drawing_surface& surface);

/// @param drawn        every key frame that has a place on the small surface, in the order of the sweep; at least one
/// @param owners       who of them shows what
/// @param small_scale  px of the small surface for one of the full one
/// @param surface      at full size
/// @param area         the picture, on it
/// @param reports      by index of the key frames: part_in_picture is set of those that are drawn
cut_off measure_cut(const std::vector<small_drawing>& drawn, const ownership& owners, double small_scale,
                    const drawing_surface& surface, cv::Rect area, std::vector<frame_report>& reports);

}  // namespace tarn::finishing
