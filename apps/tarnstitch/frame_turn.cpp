// SPDX-License-Identifier: Apache-2.0
//
// Turning frames, previews and directions.
#include "frame_turn.h"

#include <opencv2/imgproc.hpp>

namespace tarn::host {

cv::Mat frame_for_library(const cv::Mat& image, frame_turn turn)
{
    cv::Mat turned = image;
    if (turn == frame_turn::counter_clockwise) {
        // Into an image of its own: turning a square one in place would write to the source's pixels.
        turned = cv::Mat();
        cv::rotate(image, turned, cv::ROTATE_90_COUNTERCLOCKWISE);
    }
    cv::Mat rgba;
    cv::cvtColor(turned, rgba, cv::COLOR_BGR2RGBA);
    return rgba;
}

cv::Mat preview_for_viewer(const cv::Mat& preview, frame_turn turn)
{
    if (turn == frame_turn::none || preview.empty()) {
        return preview;
    }
    cv::Mat turned;
    cv::rotate(preview, turned, cv::ROTATE_90_CLOCKWISE);
    return turned;
}

int direction_hint(camera_motion motion, frame_turn turn)
{
    constexpr int none = 0;
    constexpr int down = 1;
    constexpr int up = 2;
    constexpr int right = 3;
    constexpr int left = 4;
    // Turned counter-clockwise, what was on the right is at the top, and so on round.
    const bool turned = turn == frame_turn::counter_clockwise;
    switch (motion) {
    case camera_motion::right:
        return turned ? up : right;
    case camera_motion::left:
        return turned ? down : left;
    case camera_motion::up:
        return turned ? left : up;
    case camera_motion::down:
        return turned ? right : down;
    case camera_motion::any:
        break;
    }
    return none;
}

}  // namespace tarn::host
