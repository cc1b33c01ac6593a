// SPDX-License-Identifier: Apache-2.0
//
// Full-size images for frame after frame.
#pragma once

#include <opencv2/core.hpp>

namespace tarn {

/// An image to be written, of unknown content: that of an earlier frame when nobody holds a header of it any more,
/// else a new one. The pages of a new image cost more time than its pixels. Any thread.
/// @throws cv::Exception for a lack of memory
cv::Mat take_spare_frame(cv::Size size, int type);

/// Lets go of the images that are kept to be used again. Any thread.
void release_spare_frames();

}  // namespace tarn
