// SPDX-License-Identifier: Apache-2.0
//
// A host's frame on its way into the library: checked, then converted in one pass. Any thread.
#pragma once

#include <opencv2/core.hpp>

#include "tarn_sweep.h"

namespace tarn {

/// @throws sweep_error (bad_argument), naming the member and its value
void check_frame(const frame_view& frame);

/// @throws sweep_error (bad_argument) unless it is one of the five
void check_hint(direction_code hint);

/// The pixels of a view that has been checked, CV_8UC3, B,G,R, in an image of the library's own. Reads each row once,
/// and nothing beside the rows.
/// @throws cv::Exception for a lack of memory
cv::Mat bgr_from(const frame_view& frame);

}  // namespace tarn
