// SPDX-License-Identifier: Apache-2.0
//
// The worker by stage, its turn as the panorama grows, and the time from the call with the last frame to the file.
#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "high_res_worker.h"
#include "internal/high_res_composition.h"
#include "internal/shared_state.h"
#include "internal/worker_life.h"
#include "reference/composition.h"
#include "rivals.h"
#include "support/rendered_sweep.h"
#include "tarn_stitch_jni.h"
#include "whole_task.h"

namespace {

using clock_type = std::chrono::steady_clock;
using tarn::worker_stage;

constexpr int key_frame_count = 60;
const cv::Size frame_size(1920, 1080);

double milliseconds_between(clock_type::time_point from, clock_type::time_point to)
{
    return std::chrono::duration<double, std::milli>(to - from).count();
}

const std::vector<float> right_angles(4, 90.0f);
const std::vector<float> full_size(4, 1.0f);

// A sweep with its frames, which are rendered when they are first needed, and the panorama that it makes when nobody
// looks on or hurries; empty if that is not the scene.
struct known_sweep {
    tarn::test::rendered_sweep sweep;
    std::vector<cv::Mat> frames;
    cv::Mat panorama;
};

// Key frames of a camera that moves down in its own coordinates, which is to the side when it is held upright.
const known_sweep& key_frames()
{
    static const known_sweep known = [] {
        known_sweep made;
        made.sweep = tarn::test::slide(frame_size, tarn::test::moving_down, 240.0, key_frame_count);
        std::vector<int> all;
        const tarn::sweep task = tarn::sweep::begin();
        for (int i = 0; i < key_frame_count; ++i) {
            made.frames.push_back(made.sweep.frame(i));
            all.push_back(i);
            tarn::launch_worker(made.frames.back(), right_angles, full_size, tarn::test::moving_down, i + 1);
            while (tarn::look_at_pipeline().turns_over <= i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
        const cv::Mat panorama = tarn::look_at_pipeline().panorama;
        if (tarn::bench::shows_the_plane(panorama, made.sweep, all)) {
            made.panorama = panorama;
        }
        return made;
    }();
    return known;
}

// A sweep as a host feeds it.
const known_sweep& camera_sweep()
{
    static const known_sweep known = [] {
        known_sweep made;
        made.sweep = tarn::test::slide(frame_size, tarn::test::moving_down, 24.0, 90);
        const int length = made.sweep.length();
        std::vector<int> key_frames;
        tarn::sweep sweep = tarn::sweep::begin();
        for (int i = 0; i < length; ++i) {
            made.frames.push_back(made.sweep.host_frame(i));
            if (i + 1 == length || sweep.feed(tarn::view_of(made.frames.back())).key_frame > 0) {
                key_frames.push_back(i);
            }
            sweep.wait_for_room(0);
        }
        const tarn::frame_view last_frame = tarn::view_of(made.frames.back());
        const tarn::panorama result = sweep.finish({&last_frame});
        if (tarn::bench::wrote_the_panorama(sweep, result)
            && tarn::bench::shows_the_plane(result.image, made.sweep, key_frames)) {
            made.panorama = result.image;
        }
        return made;
    }();
    return known;
}

using stage_times = std::map<worker_stage, clock_type::time_point>;

std::mutex stages_mutex;
std::map<int, stage_times> stages;  // by the worker's index

void note_stage(worker_stage stage, int index)
{
    const std::lock_guard<std::mutex> lock(stages_mutex);
    stages[index][stage] = clock_type::now();
}

// Milliseconds between two stages, the median over the workers from one index to another.
double between(worker_stage from, worker_stage to, int first_index, int last_index)
{
    std::vector<double> values;
    for (int index = first_index; index <= last_index; ++index) {
        values.push_back(milliseconds_between(stages[index][from], stages[index][to]));
    }
    return tarn::bench::median(values);
}

// One sweep, worker after worker on this thread, so that each stage has the machine to itself.
void time_stages(benchmark::State& state)
{
    const known_sweep& known = key_frames();
    for ([[maybe_unused]] auto iteration : state) {
        const tarn::sweep task = tarn::sweep::begin();
        stages.clear();
        tarn::worker_stage_hook = &note_stage;
        std::vector<double> hand_overs(key_frame_count + 1);
        std::vector<double> turns(key_frame_count + 1);
        double whole = 0.0;
        for (int index = 1; index <= key_frame_count; ++index) {
            const cv::Mat& frame = known.frames[static_cast<size_t>(index) - 1];
            const clock_type::time_point begin = clock_type::now();
            stitch_big_image(frame, right_angles, full_size, tarn::test::moving_down, index);
            const clock_type::time_point end = clock_type::now();
            whole += milliseconds_between(begin, end);
            hand_overs[static_cast<size_t>(index)] = milliseconds_between(stages[index][worker_stage::composed], end);
            turns[static_cast<size_t>(index)] = milliseconds_between(stages[index][worker_stage::turn_taken], end);
        }
        tarn::worker_stage_hook = nullptr;
        if (!tarn::bench::same_pixels(tarn::look_at_pipeline().panorama, known.panorama)) {
            state.SkipWithError("another panorama than that of the undisturbed sweep");
            return;
        }
        state.SetIterationTime(whole / 1e3);
        const int last = key_frame_count;
        state.counters["prepare"] = between(worker_stage::started, worker_stage::frame_prepared, 2, last);
        state.counters["describe"] = between(worker_stage::frame_prepared, worker_stage::frame_described, 2, last);
        state.counters["write file"] = between(worker_stage::frame_described, worker_stage::file_written, 2, last);
        state.counters["register"] = between(worker_stage::turn_taken, worker_stage::registered, 2, last);
        state.counters["merge"] = between(worker_stage::registered, worker_stage::composed, 2, last);
        state.counters["hand over"] = tarn::bench::median({hand_overs.begin() + 2, hand_overs.end()});
        state.counters["longest turn"] = *std::max_element(turns.begin() + 2, turns.end());
        // Medians over five turns about each: single ones copy the panorama into larger storage.
        for (const int at : {5, 20, 40, 58}) {
            state.counters["turn " + std::to_string(at)] =
                tarn::bench::median({turns.begin() + at - 2, turns.begin() + at + 3});
        }
    }
}

// A sweep fed at the rate of a camera; then the time from the call with the last frame to the file.
void time_last_frame(benchmark::State& state)
{
    const known_sweep& known = camera_sweep();
    for ([[maybe_unused]] auto iteration : state) {
        tarn::sweep sweep = tarn::sweep::begin();
        stages.clear();
        tarn::worker_stage_hook = &note_stage;
        clock_type::time_point due = clock_type::now();
        for (auto frame = known.frames.begin(); frame + 1 != known.frames.end(); ++frame) {
            std::this_thread::sleep_until(due);
            due += std::chrono::microseconds(33333);
            sweep.feed(tarn::view_of(*frame));
        }
        std::this_thread::sleep_until(due);
        const tarn::frame_view last_frame = tarn::view_of(known.frames.back());
        const clock_type::time_point begin = clock_type::now();
        const tarn::panorama result = sweep.finish({&last_frame});
        const clock_type::time_point end = clock_type::now();
        tarn::worker_stage_hook = nullptr;
        if (!tarn::bench::wrote_the_panorama(sweep, result)
            || !tarn::bench::same_pixels(result.image, known.panorama)) {
            state.SkipWithError("another panorama than that of the undisturbed sweep");
            return;
        }
        std::vector<uchar> bytes;
        const clock_type::time_point encoding = clock_type::now();
        cv::imencode(".jpg", result.image, bytes);
        const double encode = milliseconds_between(encoding, clock_type::now());
        stage_times& last = stages[result.key_frames];
        const double work = milliseconds_between(last[worker_stage::started], last[worker_stage::file_written])
                            + milliseconds_between(last[worker_stage::turn_taken], last[worker_stage::composed]);
        const double total = milliseconds_between(begin, end);
        state.SetIterationTime(total / 1e3);
        state.counters["own work"] = work;
        state.counters["encoding"] = encode;
        state.counters["beyond both"] = total - work - encode;
        state.counters["key frames"] = result.key_frames;
    }
}

// What a turn composes: the panorama of so many key frames, with room to grow, and a frame at its end.
struct composition_task {
    cv::Mat panorama;
    cv::Mat frame;
    cv::Mat panorama_from_frame;

    explicit composition_task(int count)
    {
        const cv::Size prepared = tarn::test::prepared_size(frame_size);
        constexpr int step = 140;
        const int width = prepared.width + (count - 1) * step;
        const cv::Mat& texture = tarn::test::textured_plane(cv::Size(2816, 2816));
        cv::Mat storage(prepared.height + 100, width + width / 2, CV_8UC3);
        panorama = storage(cv::Rect(0, 50, width, prepared.height));
        for (int x = 0; x < width; x += 1400) {
            const cv::Rect part(x, 0, std::min(1400, width - x), prepared.height);
            texture(cv::Rect(cv::Point(x % 1000, 100), part.size())).copyTo(panorama(part));
        }
        frame = texture(cv::Rect(cv::Point(300, 900), prepared)).clone();
        panorama_from_frame = cv::Mat(tarn::test::translation(width - prepared.width + step + 0.4, -1.6));
    }

    // The panorama that a turn leaves behind; the one before is in the same storage.
    cv::Mat compose() const
    {
        const auto merged = tarn::merge_frame(panorama, frame, panorama_from_frame);
        return tarn::can_grow_in_place(panorama, *merged, 1) ? tarn::grow_in_place(panorama, *merged) : cv::Mat();
    }
};

// Tasks of one length, enough to leave the caches between two turns of each. They take their room when they are
// touched first, before anything is timed.
std::vector<composition_task> composition_tasks(int count)
{
    constexpr int round = 20;  // a turn touches 5 MB and more
    std::vector<composition_task> tasks;
    for (int i = 0; i < round; ++i) {
        tasks.emplace_back(count);
        tasks.back().compose();
    }
    return tasks;
}

void add_composition(int count, int threads)
{
    const std::string subject = "composition in a turn";
    const std::string input = tarn::bench::on_threads(std::to_string(count) + " key frames", threads);
    tarn::bench::add({subject, "plain transcription", input, threads}, [count](benchmark::State& state) {
        const std::vector<composition_task> tasks = composition_tasks(count);
        cv::Mat kept;  // as the task keeps its panorama until the new one is there
        tarn::bench::time_frames(
            state, tasks.size(), [] {},
            [&](size_t i) {
                kept = reference::compose(tasks[i].panorama, tasks[i].frame, tasks[i].panorama_from_frame).image;
            });
    });
    tarn::bench::add(
        {subject, "shipped", input, threads},
        [count] {
            const composition_task task(count);
            const cv::Mat expected = reference::compose(task.panorama, task.frame, task.panorama_from_frame).image;
            return tarn::bench::same_pixels(task.compose(), expected);
        },
        [count](benchmark::State& state) {
            const std::vector<composition_task> tasks = composition_tasks(count);
            tarn::bench::time_frames(
                state, tasks.size(), [] {}, [&](size_t i) { benchmark::DoNotOptimize(tasks[i].compose()); });
        });
}

TARN_RIVALS(worker_rivals)
{
    for (const int threads : {1, 2}) {
        for (const int count : {5, 20, 40, 60}) {
            add_composition(count, threads);
        }
    }
    for (const int threads : {1, 2}) {
        tarn::bench::add(
            {"worker by stage, ms", "one sweep", tarn::bench::on_threads("60 key frames of 1920x1080", threads),
             threads, 0.0, 5},
            [] { return !key_frames().panorama.empty(); }, time_stages);
    }
    for (const int threads : {1, 2}) {
        tarn::bench::add(
            {"from last frame to file, ms", "one sweep",
             tarn::bench::on_threads("90 frames of 1920x1080 at 30 per second", threads), threads, 0.0, 9, true},
            [] { return !camera_sweep().panorama.empty(); }, time_last_frame);
    }
}

}  // namespace
