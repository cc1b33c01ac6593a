// SPDX-License-Identifier: Apache-2.0
//
// Which key frames are compared: each with so many others, however long the sweep is. Pure. This header is the
// library's own.
#pragma once

#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "working_frames.h"

namespace tarn::finishing {

/// Two indices, the smaller one first.
using index_pair = std::pair<int, int>;

/// The part of frame `i` that frame `j` shows as well, 0 to 1.
/// @param j_from_i  of centred coordinates
double shared_part(const cv::Matx33d& j_from_i, cv::Size size_i, cv::Size size_j);

/// Neighbours in the sweep, and those next but one that overlap by their placements; sorted.
std::vector<index_pair> pairs_of_neighbours(const std::vector<working_frame>& frames);

/// Further pairs that overlap: where the camera comes back, or a turn closes. For each frame its few best ones; sorted.
/// @param j_from_i  where frame i is seen in frame j, of centred coordinates; nothing where that is unknown
std::vector<index_pair> pairs_that_overlap(const std::vector<working_frame>& frames,
                                           const std::vector<index_pair>& known,
                                           const std::function<std::optional<cv::Matx33d>(int i, int j)>& j_from_i);

}  // namespace tarn::finishing
