// SPDX-License-Identifier: Apache-2.0
//
// Bundle adjustment: the cameras that explain all links at once. This header is the library's own.
#pragma once

#include <functional>
#include <vector>

#include "camera_model.h"

namespace tarn::finishing {

/// Distances between where a link's points are in frame j and where the cameras say, in parts of the longer side.
std::vector<double> residuals_of(const camera_set& cameras, const frame_link& link);

/// Median over the points of links by features; of all links where there are none. 0 without links.
double median_residual(const camera_set& cameras, const std::vector<frame_link>& links);

/// Moves the cameras so that a robust sum of squares of the residuals becomes least. The time it takes grows with the
/// number of links, but for the solution of one system of equations in each step, which is soon there for some hundred
/// cameras.
/// @param fixed       index of the camera that stays
/// @param most_steps  at most so many
/// @param each_step   called before each; may throw
/// @returns the cost, which is comparable between motions
double adjust_cameras(camera_set& cameras, const std::vector<frame_link>& links, int fixed, int most_steps,
                      const std::function<void()>& each_step);

/// Finds the motion and the cameras: all that are possible are tried, and the simplest that explains the links as well
/// as any other is taken.
camera_set find_cameras(const std::vector<frame_link>& links, int count, const std::function<void()>& each_step);

}  // namespace tarn::finishing
