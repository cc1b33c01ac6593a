// SPDX-License-Identifier: Apache-2.0
//
// Turning frames, previews, panoramas and directions.
#include "frame_turn.h"

#include <cstddef>
#include <optional>

namespace tarn::host {

int quarters_of(frame_turn turn)
{
    switch (turn) {
    case frame_turn::clockwise:
        return 1;
    case frame_turn::counter_clockwise:
        return 3;
    case frame_turn::none:
        break;
    }
    return 0;
}

namespace {

/// Quarter turns, clockwise, from the library's orientation back to the viewer's.
int quarters_back(frame_turn turn)
{
    return (4 - quarters_of(turn)) % 4;
}

cv::Mat turned(const cv::Mat& image, int quarters)
{
    if (quarters == 0 || image.empty()) {
        return image;
    }
    static constexpr std::array<cv::RotateFlags, 3> flags = {cv::ROTATE_90_CLOCKWISE, cv::ROTATE_180,
                                                             cv::ROTATE_90_COUNTERCLOCKWISE};
    // Into an image of its own: turning a square one in place would write to the source's pixels.
    cv::Mat result;
    cv::rotate(image, result, flags.at(static_cast<std::size_t>(quarters) - 1));
    return result;
}

/// The four ways in the order of quarter turns, clockwise, with the library's codes for them.
constexpr std::array<camera_motion, 4> round_the_clock = {camera_motion::up, camera_motion::right, camera_motion::down,
                                                          camera_motion::left};
constexpr std::array<direction_code, 4> codes_round_the_clock = {direction_up, direction_right, direction_down,
                                                                 direction_left};

template <typename Value>
std::optional<int> place_in(const std::array<Value, 4>& values, Value wanted)
{
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] == wanted) {
            return static_cast<int>(i);
        }
    }
    return std::nullopt;
}

}  // namespace

frame_turn turn_for(turn_choice choice)
{
    switch (choice) {
    case turn_choice::clockwise:
        return frame_turn::clockwise;
    case turn_choice::none:
        return frame_turn::none;
    case turn_choice::counter_clockwise:
    case turn_choice::automatic:
        break;
    }
    return frame_turn::counter_clockwise;
}

frame_turn other_turn(frame_turn turn)
{
    return turn == frame_turn::counter_clockwise ? frame_turn::clockwise : frame_turn::counter_clockwise;
}

const char* turn_name(frame_turn turn)
{
    switch (turn) {
    case frame_turn::counter_clockwise:
        return "counter-clockwise";
    case frame_turn::clockwise:
        return "clockwise";
    case frame_turn::none:
        break;
    }
    return "not at all";
}

const char* motion_name(camera_motion motion)
{
    switch (motion) {
    case camera_motion::right:
        return "right";
    case camera_motion::left:
        return "left";
    case camera_motion::up:
        return "up";
    case camera_motion::down:
        return "down";
    case camera_motion::any:
        break;
    }
    return "none";
}

cv::Mat frame_for_library(const cv::Mat& image, frame_turn turn)
{
    return turned(image, quarters_of(turn));
}

cv::Mat preview_for_viewer(const cv::Mat& preview, frame_turn turn)
{
    return turned(preview, quarters_back(turn));
}

cv::Mat panorama_for_viewer(const cv::Mat& panorama, frame_turn turn)
{
    // One of the quarters is the library's own work already.
    return turned(panorama, (quarters_back(turn) + 3) % 4);
}

direction_code direction_hint(camera_motion motion, frame_turn turn)
{
    const std::optional<int> place = place_in(round_the_clock, motion);
    return place ? codes_round_the_clock.at(static_cast<std::size_t>((*place + quarters_of(turn)) % 4))
                 : direction_undecided;
}

camera_motion motion_for_viewer(direction_code direction, frame_turn turn)
{
    const std::optional<int> place = place_in(codes_round_the_clock, direction);
    return place ? round_the_clock.at(static_cast<std::size_t>((*place + quarters_back(turn)) % 4))
                 : camera_motion::any;
}

std::array<float, 4> corners_for_viewer(const std::array<float, 4>& values, frame_turn turn)
{
    // Turned clockwise, what was at the top left is at the top right, the next in the order.
    std::array<float, 4> result{};
    for (std::size_t i = 0; i < values.size(); ++i) {
        result.at((i + static_cast<std::size_t>(quarters_back(turn))) % values.size()) = values.at(i);
    }
    return result;
}

cv::Point2f preview_point_for_viewer(const cv::Point2f& point, const cv::Size& size, frame_turn turn)
{
    cv::Point2f result = point;
    cv::Size area = size;
    for (int quarter = quarters_back(turn); quarter > 0; --quarter) {
        result = {static_cast<float>(area.height) - result.y, result.x};
        area = {area.height, area.width};
    }
    return result;
}

}  // namespace tarn::host
