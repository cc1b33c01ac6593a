// SPDX-License-Identifier: Apache-2.0
//
// Between the viewer's orientation and the library's. The library takes frames as a camera's sensor delivers
// them when the device is held upright, and so turns its high-resolution panorama by 90 degrees clockwise; the
// preview it leaves as the frames were. Upright frames are therefore turned counter-clockwise first, and the
// preview is turned back. Pure functions.
#pragma once

#include <opencv2/core.hpp>

namespace tarn::host {

/// How frames are turned before the library gets them.
enum class frame_turn {
    counter_clockwise,  ///< for upright frames: both panoramas come out upright
    none,               ///< for frames in the sensor's orientation
};

/// The way in which the camera moves, as somebody who watches the input sees it.
enum class camera_motion { any, right, left, up, down };

/// A frame of the input as the library takes it: turned, and R,G,B,A. Always a new image.
/// @param image  CV_8UC3, B,G,R
cv::Mat frame_for_library(const cv::Mat& image, frame_turn turn);

/// The preview as the input's viewer sees it. May share the pixels of `preview`.
cv::Mat preview_for_viewer(const cv::Mat& preview, frame_turn turn);

/// The library's direction hint (1 down, 2 up, 3 right, 4 left in the frames that it gets, 0 for none).
int direction_hint(camera_motion motion, frame_turn turn);

}  // namespace tarn::host
