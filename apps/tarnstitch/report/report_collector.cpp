// SPDX-License-Identifier: Apache-2.0
//
// Frame by frame, with as little work as the page allows.
#include "report_collector.h"

#include <algorithm>
#include <cstddef>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "report_pictures.h"
#include "working_copy.h"

namespace tarn::host {

namespace {

/// A frame as the live path looks at it, in colours.
cv::Mat live_picture(const cv::Mat& frame)
{
    cv::Mat copy;
    image_resize(frame, copy, working_width, 1);
    return copy;
}

cv::Point2f mapped(const cv::Matx33d& homography, double x, double y)
{
    const cv::Vec3d place = homography * cv::Vec3d(x, y, 1.0);
    return {static_cast<float>(place[0] / place[2]), static_cast<float>(place[1] / place[2])};
}

}  // namespace

report_collector::report_collector(frame_turn turn, int workers)
    // A failure shows when the next frames come, which may be key frames themselves: one for each worker.
    : turn_(turn), pictures_kept_(static_cast<std::size_t>(workers) + 2)
{
}

void report_collector::frame_done(const frame_record& frame)
{
    const frame_answer& answer = frame.answer;
    reported_frame one;
    one.stamp = frame.stamp;
    one.code = answer.code;
    one.taken = answer.taken;
    one.measured = answer.registered && answer.taken;
    one.key_frame = answer.key_frame;
    one.direction = answer.direction;
    one.move = answer.move_distance;
    one.overlap = answer.overlap;
    one.inliers = answer.inliers;
    one.angles = answer.angles;
    one.scales = answer.scales;
    one.milliseconds = answer.milliseconds;
    one.done = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
    frames_.push_back(one);
    if (frame.key_frame != nullptr && answer.key_frame > 0) {
        add_key_frame(frame);
    }
    if (frame.pixels != nullptr) {
        follow_gap(frame);
    }
}

void report_collector::add_key_frame(const frame_record& frame)
{
    constexpr int longest_side = 320;
    constexpr int quality = 90;  // it may be compressed once more
    const tarn::key_frame& given = *frame.key_frame;
    const cv::Mat worker_picture = as_worker_takes_it(given.image);
    const cv::Mat upright = panorama_for_viewer(worker_picture, turn_);

    reported_key_frame one;
    one.number = frame.answer.key_frame;
    one.frame = frames_.size() - 1;
    one.size = turn_ == frame_turn::none ? given.image.size() : cv::Size(given.image.rows, given.image.cols);
    cv::imencode(".jpg", no_larger_than(upright, longest_side), one.picture, {cv::IMWRITE_JPEG_QUALITY, quality});
    one.placed = given.placed;
    if (given.placed) {
        const double width = given.working_size.width;
        const double height = given.working_size.height;
        one.in_plane = {mapped(given.plane_from_frame, 0.0, 0.0), mapped(given.plane_from_frame, width, 0.0),
                        mapped(given.plane_from_frame, width, height), mapped(given.plane_from_frame, 0.0, height)};
        if (frame.preview.has_outline) {
            preview_from_plane_ = frame.preview.outline[0] - one.in_plane[0];
        }
    }
    key_frames_.push_back(std::move(one));

    worker_pictures_.push_back({frame.answer.key_frame, worker_picture});
    if (worker_pictures_.size() > pictures_kept_) {
        worker_pictures_.pop_front();
    }
}

/// A run of frames that do not fit is worth a picture once it is as long as one of which the library says so. Until then
/// the frames are held as they came, which costs nothing.
void report_collector::follow_gap(const frame_record& frame)
{
    constexpr int worth_telling = 10;
    if (frame.answer.taken) {
        open_gap_ = {};
        first_rejected_pixels_.release();
        last_taken_pixels_ = *frame.pixels;
        last_taken_ = frame.stamp.number;
        return;
    }
    ++open_gap_.frames;
    if (open_gap_.frames == 1) {
        open_gap_.frame_before = last_taken_;
        open_gap_.frame_after = frame.stamp.number;
        open_gap_.why = frame.answer.why;
        first_rejected_pixels_ = *frame.pixels;
    }
    if (last_taken_pixels_.empty() || open_gap_.frames < worth_telling || (gap_ && open_gap_.frames <= gap_->frames)) {
        return;
    }
    if (open_gap_.before.empty()) {
        open_gap_.before = live_picture(last_taken_pixels_);
        open_gap_.after = live_picture(first_rejected_pixels_);
    }
    gap_ = open_gap_;
}

cv::Mat report_collector::worker_picture(int key_frame) const
{
    const auto found = std::find_if(worker_pictures_.begin(), worker_pictures_.end(),
                                    [key_frame](const kept_picture& one) { return one.key_frame == key_frame; });
    return found == worker_pictures_.end() ? cv::Mat() : found->picture;
}

}  // namespace tarn::host
