// SPDX-License-Identifier: Apache-2.0
//
// Places from one piece's plane and one orientation into another.
#include "key_frame_collector.h"

#include <algorithm>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "working_copy.h"

namespace tarn::host {

namespace {

/// From a pixel of a frame to one of its copy; both count from the centre of the first.
cv::Matx33d copy_from_full(cv::Size size)
{
    const double scale = std::min(1.0, static_cast<double>(working_width) / size.width);
    const double shift = (scale - 1.0) / 2.0;
    return {scale, 0, shift, 0, scale, shift, 0, 0, 1};
}

cv::Matx33d turned_from_upright(cv::Size upright, frame_turn turn)
{
    switch (turn) {
    case frame_turn::counter_clockwise:
        return {0, 1, 0, -1, 0, upright.width - 1.0, 0, 0, 1};
    case frame_turn::clockwise:
        return {0, -1, upright.height - 1.0, 1, 0, 0, 0, 0, 1};
    case frame_turn::none:
        break;
    }
    return cv::Matx33d::eye();
}

/// From a frame's copy into the preview in which its outline lies.
std::optional<cv::Matx33d> preview_from_copy(const corners& outline, cv::Size copy)
{
    const auto width = static_cast<float>(copy.width);
    const auto height = static_cast<float>(copy.height);
    const std::vector<cv::Point2f> own = {{0, 0}, {width, 0}, {width, height}, {0, height}};
    const std::vector<cv::Point2f> placed(outline.begin(), outline.end());
    if (!cv::checkRange(placed)) {
        return std::nullopt;
    }
    const cv::Matx33d homography(cv::getPerspectiveTransform(own, placed));
    const bool is_usable = cv::checkRange(cv::Mat(homography)) && cv::determinant(homography) != 0.0;
    return is_usable ? std::optional(homography) : std::nullopt;
}

}  // namespace

cv::Matx33d turned_copy_from_upright_copy(cv::Size upright, frame_turn turn)
{
    const cv::Size turned = turn == frame_turn::none ? upright : cv::Size(upright.height, upright.width);
    return copy_from_full(turned) * turned_from_upright(upright, turn) * copy_from_full(upright).inv();
}

key_frame_collector::key_frame_collector(frame_turn turn, double memory) : turn_(turn), pictures_(memory)
{
}

void key_frame_collector::add(const cv::Mat& upright, const frame_stamp& stamp,
                              const std::optional<cv::Matx33d>& plane_from_turned)
{
    std::optional<cv::Matx33d> placement;
    if (plane_from_turned && is_linked_) {
        placement = common_from_piece_ * *plane_from_turned * turned_copy_from_upright_copy(upright.size(), turn_);
    }
    // The frame that ends one piece begins the next.
    if (!key_frames_.empty() && key_frames_.back().stamp.number == stamp.number) {
        if (!key_frames_.back().placement) {
            key_frames_.back().placement = placement;
        }
        return;
    }
    key_frames_.push_back({stamp, pictures_.add(upright), placement});
}

void key_frame_collector::key_frame(const tarn::key_frame& frame, const frame_stamp& stamp)
{
    if (must_begin_with_ && *must_begin_with_ != stamp.number) {
        is_linked_ = false;
    }
    must_begin_with_.reset();
    piece_from_key_frame_ = frame.placed ? std::optional(frame.plane_from_frame) : std::nullopt;
    copy_size_ = frame.working_size;
    add(preview_for_viewer(frame.image, turn_), stamp, piece_from_key_frame_);
}

void key_frame_collector::frame_taken(const feed_frame& frame, const frame_answer& answer)
{
    taken_ = frame;
    piece_from_taken_.reset();
    if (answer.key_frame > 0) {
        piece_from_taken_ = piece_from_key_frame_;
        piece_from_preview_.reset();
        if (const auto own = preview_from_copy(answer.outline, copy_size_); own && answer.placed && piece_from_taken_) {
            piece_from_preview_ = *piece_from_taken_ * own->inv();
        }
    } else if (answer.placed && piece_from_preview_) {
        if (const auto own = preview_from_copy(answer.outline, copy_size_)) {
            piece_from_taken_ = *piece_from_preview_ * *own;
        }
    }
}

std::optional<feed_frame> key_frame_collector::begin_piece()
{
    ++pieces_;
    std::optional<feed_frame> first = taken_;
    if (first) {
        // What came after it has failed, and is handed over once more.
        while (!key_frames_.empty() && key_frames_.back().stamp.number > first->stamp.number) {
            key_frames_.pop_back();
        }
        add(preview_for_viewer(first->bgr, turn_), first->stamp, piece_from_taken_);
        is_linked_ = is_linked_ && piece_from_taken_.has_value();
        common_from_piece_ = common_from_piece_ * piece_from_taken_.value_or(cv::Matx33d::eye());
        must_begin_with_ = first->stamp.number;
        first->last = false;
    } else if (!key_frames_.empty()) {
        is_linked_ = false;
    }
    taken_.reset();
    piece_from_taken_.reset();
    piece_from_key_frame_.reset();
    piece_from_preview_.reset();
    return first;
}

}  // namespace tarn::host
