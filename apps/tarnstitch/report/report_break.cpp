// SPDX-License-Identifier: Apache-2.0
//
// The two pictures made as the library made them, matched, and turned upright.
#include "report_break.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace tarn::host {

namespace {

constexpr int least_matches = 20;

std::string number_and_words(int number, const char* one, const char* many)
{
    return std::to_string(number) + " " + (number == 1 ? one : many);
}

int agreeing(const matched_pictures& pictures)
{
    return static_cast<int>(std::count_if(pictures.matches.begin(), pictures.matches.end(),
                                          [](const found_match& match) { return match.agrees; }));
}

const reported_key_frame* key_frame_of(const report_collector& collected, int number)
{
    const auto& all = collected.key_frames();
    const auto found =
        std::find_if(all.begin(), all.end(), [number](const reported_key_frame& one) { return one.number == number; });
    return found == all.end() ? nullptr : &*found;
}

const reported_frame* frame_of(const report_collector& collected, int key_frame)
{
    const reported_key_frame* const found = key_frame_of(collected, key_frame);
    return found == nullptr ? nullptr : &collected.frames()[found->frame];
}

/// The picture with which a worker registers its key frame; empty where it is not kept any more.
cv::Mat registered_picture(const report_collector& collected, int key_frame)
{
    const cv::Mat picture = collected.worker_picture(key_frame);
    const reported_frame* const frame = frame_of(collected, key_frame);
    if (picture.empty() || frame == nullptr) {
        return {};
    }
    const frame_bending bends = bending_of(*frame, frame_of(collected, 2));
    return bent(picture, bends.way, bends.angle);
}

cv::Mat small_picture(const reported_key_frame& key_frame)
{
    return cv::imdecode(key_frame.picture, cv::IMREAD_COLOR);
}

/// Quarter turns, clockwise, from a worker's picture to the upright one.
int quarters_of_worker_picture(frame_turn turn)
{
    constexpr int all = 4;
    return (2 * all - quarters_of(turn) - 1) % all;
}

sweep_break break_at_key_frame(const report_collector& collected, const sweep_result& result,
                               const reported_key_frame& before, const reported_key_frame& after)
{
    const int number = after.number;
    const auto frame_number = [&](const reported_key_frame& one) {
        return std::to_string(collected.frames()[one.frame].stamp.number);
    };
    sweep_break found;
    found.id = "broke";
    found.title = "Where it broke";
    found.text = "Key frame " + std::to_string(number) + " (frame " + frame_number(after)
                 + ") could not be joined to key frame " + std::to_string(number - 1) + " (frame "
                 + frame_number(before) + ")"
                 + (result.why == reason::none ? "" : std::string(": ") + name_of(result.why)) + ".";
    found.caption = "Key frame " + std::to_string(number - 1) + " on the left, key frame " + std::to_string(number)
                    + " on the right. ";
    const cv::Mat first = registered_picture(collected, number - 1);
    const cv::Mat second = registered_picture(collected, number);
    if (first.empty() || second.empty()) {
        found.pictures = {small_picture(before), small_picture(after)};
        found.caption += "They are not kept in full, so what they share is not known.";
        return found;
    }
    found.pictures = turned_clockwise(matches_of_workers(first, second), quarters_of_worker_picture(collected.turn()));
    const auto pairs = static_cast<int>(found.pictures.matches.size());
    found.caption += std::to_string(found.pictures.found_before) + " and "
                     + number_and_words(found.pictures.found_after, "feature", "features") + " were found in them, "
                     + number_and_words(pairs, "pair", "pairs") + " among these (" + std::to_string(least_matches)
                     + " are needed), of which " + std::to_string(agreeing(found.pictures))
                     + " agree on one motion: unbroken lines.";
    return found;
}

sweep_break break_at_gap(const reported_gap& gap, frame_turn turn)
{
    constexpr int all = 4;
    sweep_break found;
    found.id = "lost";
    found.title = "Where the camera was lost";
    found.text = number_and_words(gap.frames, "frame", "frames") + " in a row did not fit, from frame "
                 + std::to_string(gap.frame_after) + " on"
                 + (gap.why == reason::none ? "" : std::string(": ") + name_of(gap.why)) + ".";
    found.pictures = turned_clockwise(matches_of_live_path(gap.before, gap.after), (all - quarters_of(turn)) % all);
    const auto followed = static_cast<int>(found.pictures.matches.size());
    found.caption = "Frame " + std::to_string(gap.frame_before) + ", the last that was taken, on the left; frame "
                    + std::to_string(gap.frame_after) + " on the right. Of "
                    + number_and_words(found.pictures.found_before, "corner", "corners") + " "
                    + std::to_string(followed) + (followed == 1 ? " was" : " were") + " found again, of which "
                    + std::to_string(agreeing(found.pictures)) + " agree on one motion: unbroken lines.";
    return found;
}

}  // namespace

frame_bending bending_of(const reported_frame& key_frame, const reported_frame* second)
{
    constexpr float right_angle = 90.0f;
    constexpr double least_scale = 0.95;
    constexpr float sphere_above = 1.5f;    // degrees
    constexpr float cylinder_above = 2.0f;  // degrees

    struct shape {
        float sides;   ///< deviation of the corners on one side, degrees: left, right
        float levels;  ///< of those on one level: top, bottom
        bool keeps_its_size;
    };

    const auto shape_of = [](const reported_frame& frame) {
        const auto deviation = [&frame](std::size_t a, std::size_t b) {
            return std::fabs(right_angle - (frame.angles.at(a) + frame.angles.at(b)) / 2.0f);
        };
        const float mean = (frame.scales[0] + frame.scales[1] + frame.scales[2] + frame.scales[3]) * 0.25f;
        return shape{std::max(deviation(0, 3), deviation(1, 2)), std::max(deviation(0, 1), deviation(2, 3)),
                     mean > least_scale};
    };
    const shape own = shape_of(key_frame);
    bool on_sphere = false;
    if (second != nullptr && key_frame.key_frame >= 2) {
        const shape decisive = shape_of(*second);
        on_sphere = decisive.levels > sphere_above && second->direction == direction_up && decisive.keeps_its_size;
    }
    if (on_sphere) {
        return {bending::sphere, own.levels};
    }
    if (own.keeps_its_size && own.sides > cylinder_above) {
        return {bending::cylinder, own.sides};
    }
    return {};
}

matched_pictures turned_clockwise(const matched_pictures& pictures, int quarters)
{
    matched_pictures result = pictures;
    const auto turned_once = [](const cv::Point2f& point, const cv::Mat& picture) {
        return cv::Point2f(static_cast<float>(picture.rows) - point.y, point.x);
    };
    for (int i = 0; i < quarters; ++i) {
        for (found_match& match : result.matches) {
            match.before = turned_once(match.before, result.before);
            match.after = turned_once(match.after, result.after);
        }
        for (cv::Mat* const picture : {&result.before, &result.after}) {
            cv::Mat turned;
            cv::rotate(*picture, turned, cv::ROTATE_90_CLOCKWISE);
            *picture = turned;
        }
    }
    return result;
}

std::vector<sweep_break> breaks_of(const report_collector& collected, const sweep_result& result)
{
    std::vector<sweep_break> breaks;
    if (result.failed_key_frame > 1) {
        const reported_key_frame* const before = key_frame_of(collected, result.failed_key_frame - 1);
        const reported_key_frame* const after = key_frame_of(collected, result.failed_key_frame);
        if (before != nullptr && after != nullptr) {
            breaks.push_back(break_at_key_frame(collected, result, *before, *after));
        }
    }
    if (collected.gap()) {
        breaks.push_back(break_at_gap(*collected.gap(), collected.turn()));
    }
    return breaks;
}

}  // namespace tarn::host
