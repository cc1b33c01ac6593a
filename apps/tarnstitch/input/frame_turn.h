// SPDX-License-Identifier: Apache-2.0
//
// Between the viewer's orientation and the library's. The library takes frames as a camera's sensor delivers
// them when the device is held upright, and so turns its high-resolution panorama by 90 degrees clockwise; the
// preview it leaves as the frames were. Frames may be handed over turned in three ways, and whatever the library
// says or gives is turned back, so that users only ever see their own orientation. Pure functions.
#pragma once

#include <array>

#include <opencv2/core.hpp>

#include "vocabulary.h"

namespace tarn::host {

/// How upright frames are turned before the library gets them.
enum class frame_turn { counter_clockwise, clockwise, none };

/// How the user wants them turned.
enum class turn_choice { automatic, counter_clockwise, clockwise, none };

/// The way in which the camera moves, as somebody who watches the input sees it.
enum class camera_motion { any, right, left, up, down };

/// Quarter turns, clockwise, by which a frame is turned for the library.
int quarters_of(frame_turn turn);

/// The turn that a choice means.
frame_turn turn_for(turn_choice choice);

/// The turn of a second try, when the sweep could not be stitched with the first.
frame_turn other_turn(frame_turn turn);

/// "counter-clockwise", "clockwise" or "not at all".
const char* turn_name(frame_turn turn);

/// "right", "left", "up", "down" or "none".
const char* motion_name(camera_motion motion);

/// A frame of the input as the library takes it: turned. May share the pixels of `image`; empty of an empty one.
cv::Mat frame_for_library(const cv::Mat& image, frame_turn turn);

/// A preview, or a frame that was handed over, as the input's viewer sees it. May share the pixels of `preview`.
cv::Mat preview_for_viewer(const cv::Mat& preview, frame_turn turn);

/// A high-resolution panorama as the input's viewer sees it. May share the pixels of `panorama`.
cv::Mat panorama_for_viewer(const cv::Mat& panorama, frame_turn turn);

/// The library's direction, in the frames that it gets.
direction_code direction_hint(camera_motion motion, frame_turn turn);

/// The same back: a direction of the library's in the viewer's words.
camera_motion motion_for_viewer(direction_code direction, frame_turn turn);

/// Four values that go with the corners of a frame (top-left, top-right, bottom-right, bottom-left), or with its
/// sides (top, right, bottom, left), in the viewer's order instead of the library's.
std::array<float, 4> corners_for_viewer(const std::array<float, 4>& values, frame_turn turn);

/// A point of a preview (x to the right, y downward, from the top left corner of its area) as a point of
/// preview_for_viewer.
/// @param size  of the preview as the library has it
cv::Point2f preview_point_for_viewer(const cv::Point2f& point, const cv::Size& size, frame_turn turn);

}  // namespace tarn::host
