// SPDX-License-Identifier: Apache-2.0
//
// videoStitch beside its floor, the library calls that a frame needs, once each, and beside a plain transcription
// of the whole call; what a key frame adds beside a bare warp and copies of the frame's own box.
#include <algorithm>
#include <iostream>
#include <streambuf>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "preview_composition.h"
#include "rivals.h"
#include "support/plain_live_path.h"
#include "support/rendered_sweep.h"
#include "tarn_stitch_jni.h"
#include "worker_protocol.h"

namespace {

using points = std::vector<cv::Point2f>;

constexpr size_t beyond_caches = size_t{96} << 20;  // bytes that one round of frames takes at least

std::string size_name(cv::Size size)
{
    return std::to_string(size.width) + 'x' + std::to_string(size.height);
}

// A camera that sways: no frame shows so much that is new that it becomes a key frame.
const std::vector<cv::Mat>& swaying_frames(cv::Size size)
{
    static std::pair<cv::Size, std::vector<cv::Mat>> kept;  // of one size only: they are large
    if (kept.first != size) {
        kept.second.clear();
        const size_t bytes = static_cast<size_t>(size.area()) * 4;
        const int there = static_cast<int>(beyond_caches / bytes / 2 + 2);
        const auto sweep = tarn::test::slide_there_and_back(size, tarn::test::moving_right,
                                                            size.width * 0.06 / there, there, there);
        for (int i = 0; i < sweep.length(); ++i) {
            kept.second.push_back(sweep.host_frame(i));
        }
        kept.first = size;
    }
    return kept.second;
}

// Lets the log vanish while it lives, and workers end before they have begun: only the host's thread is timed.
class quiet_live_path {
public:
    quiet_live_path() : console_(std::cout.rdbuf(&nowhere_))
    {
        tarn::worker_stage_hook = [](tarn::worker_stage stage, int) {
            if (stage == tarn::worker_stage::started) {
                throw tarn::task_replaced();
            }
        };
    }

    ~quiet_live_path()
    {
        resetStitch("");
        while (tarn::workers_in_flight() > 0) {
            std::this_thread::yield();
        }
        tarn::worker_stage_hook = nullptr;
        std::cout.rdbuf(console_);
    }

    quiet_live_path(const quiet_live_path&) = delete;
    quiet_live_path& operator=(const quiet_live_path&) = delete;

private:
    struct : std::streambuf {
        int overflow(int c) override
        {
            return c;
        }

        std::streamsize xsputn(const char*, std::streamsize count) override
        {
            return count;
        }
    } nowhere_;

    std::streambuf* console_;
};

// The library calls that an ordinary frame needs, in sequence, once each, with everything kept that can be.
class bare_calls {
public:
    void frame(const cv::Mat& rgba)
    {
        const float scale = std::min(1.0f, 300.0f / static_cast<float>(rgba.cols));
        cv::cvtColor(rgba, bgr_, cv::COLOR_RGBA2BGR);
        cv::resize(bgr_, small_, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
        cv::cvtColor(small_, gray_, cv::COLOR_BGR2GRAY);
        cv::goodFeaturesToTrack(gray_, corners_, 80, 0.01, 10.0, cv::noArray(), 3, false, 0.04);
        if (!reference_.empty()) {
            cv::calcOpticalFlowPyrLK(
                reference_, gray_, reference_corners_, places_, found_, errors_, cv::Size(21, 21), 3,
                cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01), 0, 0.0001);
            from_.clear();
            to_.clear();
            for (size_t i = 0; i < found_.size(); ++i) {
                if (found_[i] != 0) {
                    from_.push_back(places_[i]);
                    to_.push_back(reference_corners_[i]);
                }
            }
            benchmark::DoNotOptimize(cv::findHomography(from_, to_, cv::RANSAC, 3.0, mask_));
        }
        std::swap(reference_, gray_);
        std::swap(reference_corners_, corners_);
    }

private:
    cv::Mat bgr_, small_, gray_, reference_;
    points corners_, reference_corners_, places_, from_, to_;
    std::vector<uchar> found_, mask_;
    std::vector<float> errors_;
};

// Both ways through all frames: every field the same after each.
bool agrees_with_plain_steps(const std::vector<cv::Mat>& frames)
{
    const quiet_live_path quiet;
    resetStitch("");
    tarn::test::plain_live_path plain(tarn_stitcher);
    for (const cv::Mat& frame : frames) {
        const int code = videoStitch(frame, tarn::test::no_direction, 0)[0];
        if (code != plain.feed_host_frame(frame, tarn::test::no_direction)
            || !plain.differences(tarn_stitcher).empty()) {
            return false;
        }
    }
    return tarn_stitcher.failed_count == 0 && tarn_stitcher.big_frame_index == 1;
}

void time_bare_calls(benchmark::State& state, cv::Size size)
{
    const auto& frames = swaying_frames(size);
    bare_calls calls;
    calls.frame(frames.back());
    tarn::bench::time_frames(
        state, frames.size(), [] {}, [&](size_t i) { calls.frame(frames[i]); });
}

void time_plain_steps(benchmark::State& state, cv::Size size)
{
    const auto& frames = swaying_frames(size);
    const quiet_live_path quiet;
    resetStitch("");
    tarn::test::plain_live_path plain(tarn_stitcher);
    plain.feed_host_frame(frames.back(), 0);
    tarn::bench::time_frames(
        state, frames.size(), [] {},
        [&](size_t i) { plain.feed_host_frame(frames[i], tarn::test::no_direction); });
}

void time_video_stitch(benchmark::State& state, cv::Size size)
{
    const auto& frames = swaying_frames(size);
    const quiet_live_path quiet;
    resetStitch("");
    videoStitch(frames.back(), 0, 0);
    tarn::bench::time_frames(
        state, frames.size(), [] {}, [&](size_t i) { videoStitch(frames[i], tarn::test::no_direction, 0); });
}

// A sweep of key frames: what each adds to the panorama before it.
struct key_frame_task {
    cv::Mat panorama;  // so far
    cv::Mat frame;
    cv::Point old_place;
    cv::Rect frame_place;
    cv::Size size;
    cv::Mat box_from_frame;
    points corners;  // in the grown panorama
};

// The panorama after so many key frames of a camera that moves to the right, and a little downwards or upwards.
key_frame_task key_frame_after(int count, bool upwards)
{
    constexpr int width = 300;
    constexpr int height = 169;
    constexpr int step = 80;
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(step * 64 + width, 2 * height));
    key_frame_task task;
    const int drift = upwards ? 2 : 0;
    const int x = count * step;
    task.panorama = plane(cv::Rect(0, 10, x - step + width, height)).clone();
    task.frame = plane(cv::Rect(x, 10 - drift, width, height)).clone();
    task.old_place = {0, drift};
    task.frame_place = {x, 0, width, height};
    task.size = {x + width, height + drift};
    task.box_from_frame = cv::Mat::eye(3, 3, CV_64F);
    task.box_from_frame.at<double>(0, 2) = 0.25;
    const auto left = static_cast<float>(x);
    task.corners = {{left, 0}, {left + width, 0}, {left + width, height}, {left, height}};
    return task;
}

cv::Mat composed(key_frame_task& task)
{
    cv::Mat grown = tarn::grown_preview(task.panorama, task.size, task.old_place);
    tarn::paste_onto_preview(task.panorama, task.old_place, grown, task.frame, task.frame_place,
                             task.box_from_frame, task.corners);
    return grown;
}

cv::Mat plainly_composed(key_frame_task& task)
{
    cv::Mat grown = cv::Mat::zeros(task.size, CV_8UC3);
    task.panorama.copyTo(grown(cv::Rect(task.old_place, task.panorama.size())));
    cv::Mat warped;
    cv::warpPerspective(task.frame, warped, task.box_from_frame, task.frame_place.size(), cv::INTER_LINEAR,
                        cv::BORDER_CONSTANT, cv::Scalar());
    cv::Mat before = grown.clone();
    warped.copyTo(grown(task.frame_place));
    optimizeSeam(before, grown, task.corners);
    return grown;
}

// The frame's box: warped, kept as it was, overwritten, and the seam in it.
void bare_box_work(key_frame_task& task, cv::Mat& whole)
{
    cv::Mat warped;
    cv::warpPerspective(task.frame, warped, task.box_from_frame, task.frame_place.size(), cv::INTER_LINEAR,
                        cv::BORDER_CONSTANT, cv::Scalar());
    cv::Mat before = whole(task.frame_place).clone();
    warped.copyTo(whole(task.frame_place));
    benchmark::DoNotOptimize(before);
}

template <typename Function>
void time_composition(benchmark::State& state, int count, bool upwards, Function compose)
{
    key_frame_task task = key_frame_after(count, upwards);
    cv::Mat kept;  // as the task keeps its panorama until the new one is there
    tarn::bench::time_frames(
        state, 1000, [] {}, [&](size_t) { kept = compose(task); });
}

void add_composition_rivals(int count, bool upwards)
{
    const std::string input = std::to_string(count) + " key frames" + (upwards ? ", moving the origin" : "");
    tarn::bench::add({"preview of a key frame", "bare warp and copies of the box", input, 1},
                     [=](benchmark::State& state) {
                         key_frame_task task = key_frame_after(count, upwards);
                         cv::Mat whole = composed(task);
                         tarn::bench::time_frames(
                             state, 1000, [] {}, [&](size_t) { bare_box_work(task, whole); });
                     });
    tarn::bench::add({"preview of a key frame", "plain steps", input, 1}, [=](benchmark::State& state) {
        time_composition(state, count, upwards, plainly_composed);
    });
    tarn::bench::add(
        {"preview of a key frame", "shipped", input, 1},
        [=] {
            key_frame_task task = key_frame_after(count, upwards);
            return cv::norm(composed(task), plainly_composed(task), cv::NORM_INF) == 0.0;
        },
        [=](benchmark::State& state) { time_composition(state, count, upwards, composed); });
}

TARN_RIVALS(live_path_rivals)
{
    using tarn::bench::add;
    for (const cv::Size size :
         {cv::Size(640, 480), cv::Size(1280, 720), cv::Size(1920, 1080), cv::Size(3840, 2160)}) {
        for (const int threads : {1, 2}) {
            const std::string input = size_name(size) + (threads == 1 ? "" : " on two threads");
            const double pixels = size.area();
            add({"ordinary frame", "bare library calls", input, threads, pixels},
                [=](benchmark::State& state) { time_bare_calls(state, size); });
            add({"ordinary frame", "plain transcription", input, threads, pixels},
                [=](benchmark::State& state) { time_plain_steps(state, size); });
            add(
                {"ordinary frame", "videoStitch", input, threads, pixels},
                [=] { return agrees_with_plain_steps(swaying_frames(size)); },
                [=](benchmark::State& state) { time_video_stitch(state, size); });
        }
    }
    for (const int count : {5, 12, 60}) {
        add_composition_rivals(count, false);
        add_composition_rivals(count, true);
    }
}

}  // namespace
