// SPDX-License-Identifier: Apache-2.0
#include "live_key_frames.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <thread>

#include <opencv2/imgproc.hpp>

#include "internal/worker_pool.h"
#include "support/rendered_sweep.h"
#include "tarn_stitch_jni.h"

namespace tarn::test {

namespace {

/// A task in a directory of its own, and the library's log out of the way.
class quiet_live_task {
public:
    quiet_live_task() : console_(std::cout.rdbuf(nullptr))
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "tarnstitch_finishing_XXXXXX").string();
        const char* const made = mkdtemp(pattern.data());
        directory_ = std::string(made != nullptr ? made : ".") + '/';
        restart();
    }

    ~quiet_live_task()
    {
        resetStitch("");
        wait_for_workers();
        std::filesystem::remove_all(directory_);
        std::cout.rdbuf(console_);
        std::cout.clear();
    }

    quiet_live_task(const quiet_live_task&) = delete;
    quiet_live_task& operator=(const quiet_live_task&) = delete;

    void restart() const
    {
        resetStitch(directory_.c_str());
    }

    static void wait_for_workers()
    {
        while (workers_in_flight() > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

private:
    std::streambuf* console_;
    std::string directory_;
};

/// Follows the live path's reference in the preview as it was at first.
class preview_origin {
public:
    /// Before a frame is handed over.
    void note()
    {
        reference_ = tarn_stitcher.last_check_data.scaled_gray_frame;
        owed_ = {tarn_stitcher.total_shift_x, tarn_stitcher.total_shift_y};
        size_ = tarn_stitcher.last_stitch_image.size();
    }

    bool was_taken() const
    {
        return tarn_stitcher.last_check_data.scaled_gray_frame.data != reference_.data;
    }

    /// After a frame was taken.
    void follow(bool is_key_frame)
    {
        cv::Point2d moved(tarn_stitcher.total_shift_x - owed_.x, tarn_stitcher.total_shift_y - owed_.y);
        if (is_key_frame && !reference_.empty()) {
            // The preview has grown, by what it owed before and by what this frame needed. Only a frame that lies at
            // its very edge has moved it.
            const cv::Matx33d place(tarn_stitcher.last_check_data.homo);
            const auto corners = mapped_corners(place, tarn_stitcher.last_check_data.scaled_gray_frame.size());
            const double left = std::min(corners[0].x, corners[3].x);
            const double top = std::min(corners[0].y, corners[1].y);
            const cv::Size growth = tarn_stitcher.last_stitch_image.size() - size_;
            moved.x = left < 1e-3 ? std::max(0.0, growth.width - owed_.x) : 0.0;
            moved.y = top < 1e-3 ? std::max(0.0, growth.height - owed_.y) : 0.0;
        }
        preview_from_first_ = translation(moved.x, moved.y) * preview_from_first_;
    }

    cv::Matx33d place_of_reference() const
    {
        return preview_from_first_.inv() * cv::Matx33d(tarn_stitcher.last_check_data.homo);
    }

private:
    cv::Mat reference_;
    cv::Point2d owed_;
    cv::Size size_;
    cv::Matx33d preview_from_first_ = cv::Matx33d::eye();
};

}  // namespace

live_sweep live_key_frames(const std::vector<cv::Mat>& frames)
{
    live_sweep result;
    const quiet_live_task task;
    preview_origin origin;
    int last_taken = -1;
    cv::Matx33d last_place;
    const auto add = [&](int number, const cv::Matx33d& place) {
        const cv::Mat picture = frames[static_cast<std::size_t>(number)];
        result.key_frames.push_back({number, cv::Mat(place), [picture]() -> cv::Mat { return cv::Mat(picture); }});
    };
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const int key_frames_before = tarn_stitcher.big_frame_index;
        origin.note();
        videoStitch(host_frame_from(frames[i]), no_direction, 0);
        const bool is_key_frame = tarn_stitcher.big_frame_index > key_frames_before;
        // One worker at a time; one that fails must not end the live path.
        quiet_live_task::wait_for_workers();
        big_stitch_status = 0;
        if (origin.was_taken()) {
            origin.follow(is_key_frame);
            last_taken = static_cast<int>(i);
            last_place = origin.place_of_reference();
            if (is_key_frame) {
                add(last_taken, last_place);
            }
        }
    }
    if (last_taken >= 0 && result.key_frames.back().number != last_taken) {
        add(last_taken, last_place);
    }
    constexpr int nearly = 5;  // frames
    result.reached_the_end = last_taken + nearly >= static_cast<int>(frames.size());
    return result;
}

}  // namespace tarn::test
