// SPDX-License-Identifier: Apache-2.0
//
// videoStitch on ordinary and on key frames, beside its floor, the library calls that a frame needs, once each, and
// beside a plain transcription of the whole call; what a key frame adds beside a bare warp and copies of the frame's
// own box.
#include <algorithm>
#include <iostream>
#include <map>
#include <streambuf>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "high_res_worker.h"
#include "internal/preview_composition.h"
#include "internal/shared_state.h"
#include "internal/worker_life.h"
#include "internal/worker_pool.h"
#include "reference/pixels.h"
#include "rivals.h"
#include "support/plain_live_path.h"
#include "support/rendered_sweep.h"
#include "tarn_stitch_jni.h"

namespace {

using points = std::vector<cv::Point2f>;

constexpr size_t beyond_caches = size_t{96} << 20;  // bytes that one round of frames takes at least

std::string size_name(cv::Size size)
{
    return std::to_string(size.width) + 'x' + std::to_string(size.height);
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

// The frames of one round, of a camera that goes there and back, again and again.
struct frame_round {
    std::vector<cv::Mat> frames;
    std::vector<bool> is_key_frame;  // in the second round

    bool is_timed(size_t i, bool key_frames) const
    {
        return is_key_frame[i] == key_frames;
    }
};

// A camera that sways a little: no frame shows so much that is new that it becomes a key frame. Or one that strides,
// so that some do.
frame_round there_and_back(cv::Size size, bool key_frames)
{
    const size_t bytes = static_cast<size_t>(size.area()) * 4;
    const int beyond = static_cast<int>(beyond_caches / bytes / 2 + 2);
    const int there = key_frames ? std::max(beyond, 13) : beyond;
    const double step = key_frames ? size.width * 0.08 : size.width * 0.06 / there;
    const auto sweep = tarn::test::slide_there_and_back(size, tarn::test::moving_right, step, there, there);
    frame_round round;
    for (int i = 0; i < sweep.length(); ++i) {
        round.frames.push_back(sweep.host_frame(i));
    }
    const quiet_live_path quiet;
    resetStitch("");
    for (int repeated = 0; repeated < 2; ++repeated) {
        round.is_key_frame.clear();
        for (const cv::Mat& frame : round.frames) {
            const int before = tarn_stitcher.big_frame_index;
            videoStitch(frame, tarn::test::no_direction, 0);
            round.is_key_frame.push_back(tarn_stitcher.big_frame_index != before);
        }
    }
    return round;
}

// The round of that kind, made when it is first asked for. All are kept, 2 GB: rivals come in random order.
const frame_round& round_of(cv::Size size, bool key_frames)
{
    static std::map<std::pair<int, bool>, frame_round> rounds;
    const auto [place, is_new] = rounds.try_emplace({size.width, key_frames});
    if (is_new) {
        place->second = there_and_back(size, key_frames);
    }
    return place->second;
}

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
            cv::calcOpticalFlowPyrLK(reference_, gray_, reference_corners_, places_, found_, errors_, cv::Size(21, 21),
                                     3, cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01), 0,
                                     0.0001);
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

    // What a key frame needs beside that: the frame warped into its box, and the box copied twice.
    void box_of_frame()
    {
        cv::warpPerspective(small_, warped_, cv::Matx33d::eye(), small_.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                            cv::Scalar());
        warped_.copyTo(before_);
        warped_.copyTo(box_);
    }

private:
    cv::Mat bgr_, small_, gray_, reference_, warped_, before_, box_;
    points corners_, reference_corners_, places_, from_, to_;
    std::vector<uchar> found_, mask_;
    std::vector<float> errors_;
};

// Both ways through two rounds: every field the same after each frame, and the key frames those that are timed.
bool agrees_with_plain_steps(const frame_round& round, bool key_frames)
{
    const quiet_live_path quiet;
    resetStitch("");
    tarn::test::plain_live_path plain(tarn_stitcher);
    int timed = 0;
    for (int repeated = 0; repeated < 2; ++repeated) {
        for (size_t i = 0; i < round.frames.size(); ++i) {
            const int key_frames_before = tarn_stitcher.big_frame_index;
            const int code = videoStitch(round.frames[i], tarn::test::no_direction, 0)[0];
            if (code != plain.feed_host_frame(round.frames[i], tarn::test::no_direction)
                || !plain.differences(tarn_stitcher).empty()) {
                return false;
            }
            const bool is_key_frame = tarn_stitcher.big_frame_index != key_frames_before;
            if (repeated > 0 && is_key_frame != round.is_key_frame[i]) {
                return false;
            }
            timed += round.is_timed(i, key_frames) ? 1 : 0;
        }
    }
    return tarn_stitcher.failed_count == 0 && timed > 0;
}

// Times what is done with the frames of one kind, in second rounds: before each, everything begins anew, and a first
// one passes untimed.
template <typename Begin, typename Feed>
void time_second_rounds(benchmark::State& state, const frame_round& round, bool key_frames, Begin begin, Feed feed)
{
    const auto first_round = [&] {
        begin();
        for (size_t i = 0; i < round.frames.size(); ++i) {
            feed(i);
        }
    };
    tarn::bench::time_frames(state, round.frames.size(), first_round, feed,
                             [&](size_t i) { return round.is_timed(i, key_frames); });
}

void time_bare_calls(benchmark::State& state, const frame_round& round, bool key_frames)
{
    bare_calls calls;
    time_second_rounds(
        state, round, key_frames, [] {},
        [&](size_t i) {
            calls.frame(round.frames[i]);
            if (round.is_key_frame[i]) {
                calls.box_of_frame();
            }
        });
}

void time_plain_steps(benchmark::State& state, const frame_round& round, bool key_frames)
{
    const quiet_live_path quiet;
    tarn::test::plain_live_path plain(tarn_stitcher);
    const auto begin = [&] {
        resetStitch("");
        plain = tarn::test::plain_live_path(tarn_stitcher);
    };
    time_second_rounds(state, round, key_frames, begin,
                       [&](size_t i) { plain.feed_host_frame(round.frames[i], tarn::test::no_direction); });
}

void time_video_stitch(benchmark::State& state, const frame_round& round, bool key_frames)
{
    const quiet_live_path quiet;
    time_second_rounds(
        state, round, key_frames, [] { resetStitch(""); },
        [&](size_t i) { videoStitch(round.frames[i], tarn::test::no_direction, 0); });
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

// How many tasks make a round in which each has left the caches when its turn comes again, if only so many bytes of
// each are touched.
size_t tasks_in_a_round(size_t touched)
{
    return beyond_caches / touched + 1;
}

// The same task again and again, each time elsewhere in memory, for those who read all of the panorama.
std::vector<key_frame_task> key_frames_after(int count, bool upwards)
{
    std::vector<key_frame_task> tasks = {key_frame_after(count, upwards)};
    const size_t round = tasks_in_a_round(tasks[0].panorama.total() * 3);
    while (tasks.size() < round) {
        tasks.push_back(tasks[0]);
        tasks.back().panorama = tasks[0].panorama.clone();
        tasks.back().frame = tasks[0].frame.clone();
    }
    return tasks;
}

// What a key frame adds to the host's call: the preview, and a worker that is started; it ends at once.
cv::Mat composed(key_frame_task& task)
{
    cv::Mat grown = tarn::grown_preview(task.panorama, task.size, task.old_place);
    tarn::paste_onto_preview(task.panorama, task.old_place, grown, task.frame, task.frame_place, task.box_from_frame,
                             task.corners);
    static const std::vector<float> angles(4, 90.0f);
    static const std::vector<float> scales(4, 1.0f);
    tarn::launch_worker(task.frame, angles, scales, tarn::test::moving_right, 2);
    return grown;
}

cv::Mat plainly_composed(const key_frame_task& task)
{
    cv::Mat grown = cv::Mat::zeros(task.size, CV_8UC3);
    task.panorama.copyTo(grown(cv::Rect(task.old_place, task.panorama.size())));
    cv::Mat warped;
    cv::warpPerspective(task.frame, warped, task.box_from_frame, task.frame_place.size(), cv::INTER_LINEAR,
                        cv::BORDER_CONSTANT, cv::Scalar());
    cv::Mat before = grown.clone();
    warped.copyTo(grown(task.frame_place));
    reference::optimizeSeam(before, grown, task.corners);
    return grown;
}

// The same with the grown panorama, for those who touch nothing of it but the frame's box: they need more tasks, whose
// panoramas have nothing beside it.
std::vector<key_frame_task> boxes_after(int count, bool upwards)
{
    const key_frame_task whole = key_frame_after(count, upwards);
    const cv::Mat box = plainly_composed(whole)(whole.frame_place).clone();
    std::vector<key_frame_task> tasks(tasks_in_a_round((whole.frame.total() + box.total()) * 3), whole);
    for (key_frame_task& task : tasks) {
        task.panorama = cv::Mat(whole.size, CV_8UC3);
        box.copyTo(task.panorama(task.frame_place));
        task.frame = whole.frame.clone();
    }
    return tasks;
}

// The frame's box: warped, kept as it was, overwritten.
void bare_box_work(const key_frame_task& task, cv::Mat& whole)
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
    const quiet_live_path quiet;
    resetStitch("");
    std::vector<key_frame_task> tasks = key_frames_after(count, upwards);
    cv::Mat kept;  // as the task keeps its panorama until the new one is there
    tarn::bench::time_frames(
        state, tasks.size(), [] {}, [&](size_t i) { kept = compose(tasks[i]); });
}

void time_bare_boxes(benchmark::State& state, int count, bool upwards)
{
    std::vector<key_frame_task> tasks = boxes_after(count, upwards);
    tarn::bench::time_frames(
        state, tasks.size(), [] {}, [&](size_t i) { bare_box_work(tasks[i], tasks[i].panorama); });
}

void time_boxes_in_copies(benchmark::State& state, int count, bool upwards)
{
    std::vector<key_frame_task> tasks = key_frames_after(count, upwards);
    for (key_frame_task& task : tasks) {
        task.panorama = plainly_composed(task);
    }
    cv::Mat kept;
    tarn::bench::time_frames(
        state, tasks.size(), [] {},
        [&](size_t i) {
            cv::Mat whole = tasks[i].panorama.clone();
            bare_box_work(tasks[i], whole);
            kept = whole;
        });
}

bool composes_as_plainly(int count, bool upwards)
{
    const quiet_live_path quiet;
    resetStitch("");
    key_frame_task task = key_frame_after(count, upwards);
    return cv::norm(composed(task), plainly_composed(task), cv::NORM_INF) == 0.0;
}

void add_composition_rivals(int count, bool upwards, int threads)
{
    const std::string subject = "what a key frame adds";
    const std::string input = tarn::bench::on_threads(
        std::to_string(count) + " key frames" + (upwards ? ", moving the origin" : ""), threads);
    tarn::bench::add({subject, "bare warp and copies of the box", input, threads},
                     [=](benchmark::State& state) { time_bare_boxes(state, count, upwards); });
    // What an image without gaps takes that grows.
    tarn::bench::add({subject, "the same in a copy of the whole", input, threads},
                     [=](benchmark::State& state) { time_boxes_in_copies(state, count, upwards); });
    tarn::bench::add({subject, "plain steps", input, threads},
                     [=](benchmark::State& state) { time_composition(state, count, upwards, plainly_composed); });
    tarn::bench::add(
        {subject, "shipped", input, threads}, [=] { return composes_as_plainly(count, upwards); },
        [=](benchmark::State& state) { time_composition(state, count, upwards, composed); });
}

void add_frame_rivals(cv::Size size, bool key_frames, int threads)
{
    const std::string subject = key_frames ? "key frame" : "ordinary frame";
    const std::string input = tarn::bench::on_threads(size_name(size), threads);
    const double pixels = size.area();
    tarn::bench::add({subject, "bare library calls", input, threads, pixels},
                     [=](benchmark::State& state) { time_bare_calls(state, round_of(size, key_frames), key_frames); });
    tarn::bench::add({subject, "plain transcription", input, threads, pixels},
                     [=](benchmark::State& state) { time_plain_steps(state, round_of(size, key_frames), key_frames); });
    tarn::bench::add(
        {subject, "videoStitch", input, threads, pixels},
        [=] { return agrees_with_plain_steps(round_of(size, key_frames), key_frames); },
        [=](benchmark::State& state) { time_video_stitch(state, round_of(size, key_frames), key_frames); });
}

TARN_RIVALS(live_path_rivals)
{
    for (const bool key_frames : {false, true}) {
        for (const cv::Size size :
             {cv::Size(640, 480), cv::Size(1280, 720), cv::Size(1920, 1080), cv::Size(3840, 2160)}) {
            for (const int threads : {1, 2}) {
                add_frame_rivals(size, key_frames, threads);
            }
        }
    }
    for (const int count : {5, 12, 60}) {
        for (const bool upwards : {false, true}) {
            for (const int threads : {1, 2}) {
                add_composition_rivals(count, upwards, threads);
            }
        }
    }
}

}  // namespace
