// SPDX-License-Identifier: Apache-2.0
//
// One line for each frame, as comma-separated values or as JSON.
#include "frames_file.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "report.h"

namespace tarn::host {

namespace {

/// A value of a line: text or a number, null for what there is none of.
using named_value = std::pair<std::string, nlohmann::ordered_json>;

/// A number rounded to so many digits behind the point; null for what is no number.
nlohmann::ordered_json decimal(double value, int digits)
{
    if (!std::isfinite(value)) {
        return nullptr;
    }
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    const double rounded = std::strtod(text.data(), nullptr);
    return rounded == 0.0 ? 0.0 : rounded;  // no negative zero
}

/// How far the frame taken last reaches beyond the sides of the preview: the upper, the right, the lower, the left one.
std::array<float, 4> reach_beyond(const preview_view& preview)
{
    std::array<float, 4> reach{};
    for (const cv::Point2f& corner : preview.outline) {
        reach[0] = std::max(reach[0], -corner.y);
        reach[1] = std::max(reach[1], corner.x - static_cast<float>(preview.pixels.cols));
        reach[2] = std::max(reach[2], corner.y - static_cast<float>(preview.pixels.rows));
        reach[3] = std::max(reach[3], -corner.x);
    }
    return preview.has_outline ? reach : std::array<float, 4>{};
}

/// All that is told of a frame, in the order of the columns.
std::vector<named_value> values_of(const frame_record& frame, frame_turn turn)
{
    static constexpr std::array corners = {"top_left", "top_right", "bottom_right", "bottom_left"};
    static constexpr std::array sides = {"top", "right", "bottom", "left"};
    constexpr int time_digits = 6;
    constexpr int pixel_digits = 3;
    constexpr int angle_digits = 3;
    constexpr int scale_digits = 5;
    const frame_answer& answer = frame.answer;
    std::vector<named_value> values = {
        {"frame", frame.stamp.number},
        {"seconds", frame.stamp.seconds < 0.0 ? nlohmann::ordered_json() : decimal(frame.stamp.seconds, time_digits)},
        {"code", static_cast<int>(answer.code)},
        {"name", code_key(answer.code)},
        {"taken", answer.taken},
        {"key_frame", answer.key_frame > 0},
        {"direction", motion_name(motion_for_viewer(answer.direction, turn))},
        {"move_px", answer.registered && answer.taken ? decimal(answer.move_distance, pixel_digits) : nullptr},
    };
    const std::array<float, 4> angles = corners_for_viewer(answer.angles, turn);
    const std::array<float, 4> scales = corners_for_viewer(answer.scales, turn);
    const std::array<float, 4> beyond = corners_for_viewer(reach_beyond(frame.preview), turn);
    for (std::size_t i = 0; i < corners.size(); ++i) {
        values.emplace_back(std::string("angle_") + corners.at(i), decimal(angles.at(i), angle_digits));
    }
    for (std::size_t i = 0; i < sides.size(); ++i) {
        values.emplace_back(std::string("scale_") + sides.at(i), decimal(scales.at(i), scale_digits));
    }
    // What the preview grows by on the left and at the top moves its content.
    values.emplace_back("shift_x", decimal(beyond[3], pixel_digits));
    values.emplace_back("shift_y", decimal(beyond[0], pixel_digits));
    values.emplace_back("milliseconds", decimal(answer.milliseconds, pixel_digits));
    if (frame.piece > 0) {
        values.emplace_back("piece", frame.piece);
    }
    return values;
}

std::string as_csv(const nlohmann::ordered_json& value)
{
    if (value.is_boolean()) {
        return value.get<bool>() ? "1" : "0";
    }
    if (value.is_string()) {
        return value.get<std::string>();  // names of codes and directions: no commas, no quotes
    }
    return value.is_null() ? "" : value.dump();
}

}  // namespace

std::string csv_header(bool with_pieces)
{
    frame_record frame;
    frame.piece = with_pieces ? 1 : 0;
    std::string line;
    for (const named_value& value : values_of(frame, frame_turn::none)) {
        line += (line.empty() ? "" : ",") + value.first;
    }
    return line;
}

std::string frame_as_csv(const frame_record& frame, frame_turn turn)
{
    std::string line;
    for (const named_value& value : values_of(frame, turn)) {
        line += (line.empty() ? "" : ",") + as_csv(value.second);
    }
    return line;
}

std::string frame_as_json(const frame_record& frame, frame_turn turn)
{
    nlohmann::ordered_json line;
    for (const named_value& value : values_of(frame, turn)) {
        line[value.first] = value.second;
    }
    return line.dump();
}

frames_file::frames_file(const std::string& path, frame_turn turn, bool with_pieces)
    : file_(path), turn_(turn), csv_(small_ending_of(path) == ".csv"), piece_(with_pieces ? 1 : 0)
{
    if (csv_) {
        file_.append(csv_header(with_pieces) + "\n");
    }
}

void frames_file::frame_done(const frame_record& frame)
{
    frame_record told = frame;
    told.piece = piece_;
    file_.append((csv_ ? frame_as_csv(told, turn_) : frame_as_json(told, turn_)) + "\n");
}

void frames_file::piece_begins()
{
    piece_ += piece_ > 0 ? 1 : 0;
}

void frames_file::finish()
{
    file_.finish();
}

}  // namespace tarn::host
