// SPDX-License-Identifier: Apache-2.0
//
// A whole sweep, every frame registered, beside cv::Stitcher on its key frames alone: time, peak memory and
// geometric error. And what a sweep takes by its length. Each runs in a process of its own, whose greatest memory is
// what is reported; the frames are in memory before it starts, and are taken off.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching.hpp>

#include "rivals.h"
#include "support/rendered_sweep.h"
#include "support/sample_video.h"
#include "tarn_stitch_jni.h"
#include "whole_task.h"

namespace {

// What one process has to say.
struct figures {
    double seconds = 0.0;
    double cpu_seconds = 0.0;
    double megabytes = 0.0;        // the most that was resident beyond the sweep's frames
    double input_megabytes = 0.0;  // of them, images that had to be made to be handed over all at once
    // px of the frame, mean over corners and pairs of neighbouring key frames; -1: not measured
    double error = -1.0;
    double panorama_megabytes = 0.0;
    int key_frames = 0;
    bool is_right = false;
};

double resident_megabytes(const char* key)
{
    double kilobytes = 0.0;
    if (std::FILE* const status = std::fopen("/proc/self/status", "r")) {
        std::array<char, 256> line{};
        const std::string format = std::string(key) + ": %lf kB";
        while (std::fgets(line.data(), line.size(), status) != nullptr
               && std::sscanf(line.data(), format.c_str(), &kilobytes) != 1) {
        }
        std::fclose(status);
    }
    return kilobytes / 1024.0;
}

// What `work` writes in a process of its own; nothing when that fails. This process must have no threads then: a
// process with threads cannot be forked.
template <typename Value>
std::vector<Value> from_own_process(const std::function<std::vector<Value>()>& work)
{
    static_assert(std::is_trivially_copyable_v<Value>);
    std::array<int, 2> ends{};
    std::vector<Value> result;
#ifdef __GLIBC__
    malloc_trim(0);  // what this process has freed would be used again and not be counted
#endif
    if (pipe(ends.data()) != 0) {
        return result;
    }
    const pid_t child = fork();
    if (child == 0) {
        bool is_written = true;
        for (const Value& value : work()) {
            is_written = is_written && write(ends[1], &value, sizeof value) == sizeof value;
        }
        _exit(is_written ? 0 : 1);
    }
    close(ends[1]);
    Value value{};
    while (child > 0 && read(ends[0], &value, sizeof value) == static_cast<ssize_t>(sizeof value)) {
        result.push_back(value);
    }
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return result;
}

// What the process has taken so far: called when what is timed is over, before its answer is looked at.
void note_usage(figures& own)
{
    own.cpu_seconds = tarn::bench::process_cpu_seconds();
    own.megabytes = resident_megabytes("VmHWM");
}

// Runs `work`, which times itself and notes its usage, in a process of its own.
figures in_own_process(int threads, const std::function<void(figures&)>& work)
{
    const auto result = from_own_process<figures>([&] {
        figures own;
        cv::setNumThreads(threads);
        const double before = resident_megabytes("VmRSS");
        const double cpu_before = tarn::bench::process_cpu_seconds();
        try {
            work(own);
        } catch (const std::exception&) {
            own.is_right = false;
        }
        own.cpu_seconds -= cpu_before;
        own.megabytes -= before;
        return std::vector<figures>{own};
    });
    return result.empty() ? figures() : result[0];
}

// The frames of a sweep as a host hands them over, and the truth.
struct sweep_input {
    std::string name;
    std::vector<cv::Mat> frames;
    std::vector<cv::Matx33d> plane_from_frame;
    std::vector<int> key_frames;  // by their number, as the library chooses them
};

using clock_type = std::chrono::steady_clock;

double seconds_since(clock_type::time_point begin)
{
    return std::chrono::duration<double>(clock_type::now() - begin).count();
}

constexpr double greatest_error = 2.0;  // px: more is no panorama

// Mean distance of the corners of each key frame, mapped into the one before, from where they belong. `after` has
// the frames' places in the panorama, `before` at the same index that of the one before in the same panorama.
double pair_error(const sweep_input& input, const std::vector<int>& key_frames, const std::vector<cv::Matx33d>& before,
                  const std::vector<cv::Matx33d>& after)
{
    double sum = 0.0;
    for (size_t i = 1; i < key_frames.size(); ++i) {
        const auto truth_of = [&](size_t k) { return input.plane_from_frame[static_cast<size_t>(key_frames[k])]; };
        sum += tarn::test::mean_corner_error(before[i].inv() * after[i], truth_of(i - 1).inv() * truth_of(i),
                                             input.frames[0].size());
    }
    return sum / static_cast<double>(key_frames.size() - 1);
}

// Every frame through the library, as fast as the workers follow, to the finished file.
void run_library(const sweep_input& input, figures& own, std::vector<int>* key_frames)
{
    tarn::sweep sweep = tarn::sweep::begin();
    const clock_type::time_point begin = clock_type::now();
    tarn::panorama made;
    std::vector<int> numbers;
    std::vector<cv::Matx33d> before_places;
    std::vector<cv::Matx33d> places;
    cv::Size old_size;
    const cv::Matx33d prepared_from_frame = tarn::test::frame_from_prepared(input.frames[0].size()).inv();
    const size_t length = input.frames.size();
    for (size_t i = 0; i < length; ++i) {
        const tarn::frame_view frame = tarn::view_of(input.frames[i]);
        const bool is_last = i + 1 == length;
        if (is_last) {
            made = sweep.finish({&frame});
        }
        if ((is_last ? made.last_frame : sweep.feed(frame)).key_frame > 0) {
            numbers.push_back(static_cast<int>(i));
            // One key frame at a time, so that each one's place can be read.
            sweep.wait_for_room(0);
            // A frame at the very edge has moved the panorama by as many pixels as that has grown.
            const cv::Matx33d place = cv::Matx33d(neighbour_homo);
            const auto corners = tarn::test::mapped_corners(place, tarn::test::prepared_size(input.frames[0].size()));
            const double left = std::min({corners[0].x, corners[1].x, corners[2].x, corners[3].x});
            const double top = std::min({corners[0].y, corners[1].y, corners[2].y, corners[3].y});
            const cv::Size growth = big_stitch_image.size() - old_size;
            const cv::Matx33d shift =
                tarn::test::translation(left < 1e-3 ? growth.width : 0, top < 1e-3 ? growth.height : 0);
            before_places.push_back(places.empty() ? cv::Matx33d::eye() : shift * places.back());
            places.push_back(place * prepared_from_frame);
            old_size = big_stitch_image.size();
        }
    }
    own.seconds = seconds_since(begin);
    note_usage(own);
    own.key_frames = static_cast<int>(numbers.size());
    own.error = pair_error(input, numbers, before_places, places);
    own.is_right = tarn::bench::wrote_the_panorama(sweep, made) && own.error < greatest_error;
    if (key_frames != nullptr) {
        *key_frames = numbers;
    }
}

// The key frames alone through OpenCV's own stitcher, to an encoded file.
void run_stitcher(const sweep_input& input, cv::Stitcher::Mode mode, figures& own)
{
    const clock_type::time_point begin = clock_type::now();
    std::vector<cv::Mat> images;
    for (const int number : input.key_frames) {
        images.emplace_back();
        cv::cvtColor(input.frames[static_cast<size_t>(number)], images.back(), cv::COLOR_RGBA2BGR);
        own.input_megabytes += static_cast<double>(images.back().total()) * 3 / 1048576.0;
    }
    const auto stitcher = cv::Stitcher::create(mode);
    cv::Mat panorama;
    const cv::Stitcher::Status status = stitcher->stitch(images, panorama);
    std::vector<uchar> bytes;
    if (status == cv::Stitcher::OK) {
        cv::imencode(".jpg", panorama, bytes);
    }
    own.seconds = seconds_since(begin);
    note_usage(own);
    own.is_right = status == cv::Stitcher::OK && stitcher->component().size() == images.size();
    own.key_frames = static_cast<int>(stitcher->component().size());
    if (!own.is_right) {
        return;
    }
    // Its cameras are of its working scale: affine maps out of the panorama (SCANS), or rotations and lenses.
    const double scale = stitcher->workScale();
    const cv::Matx33d work_from_frame(scale, 0, 0, 0, scale, 0, 0, 0, 1);
    std::vector<cv::Matx33d> places;
    std::vector<int> numbers;
    for (size_t i = 0; i < stitcher->component().size(); ++i) {
        const cv::detail::CameraParams camera = stitcher->cameras()[i];
        cv::Mat_<double> map;
        camera.R.convertTo(map, CV_64F);
        const cv::Matx33d lens(cv::Mat_<double>(camera.K()));
        places.push_back(mode == cv::Stitcher::SCANS ? work_from_frame.inv() * cv::Matx33d(map).inv() * work_from_frame
                                                     : cv::Matx33d(map) * lens.inv() * work_from_frame);
        numbers.push_back(input.key_frames[static_cast<size_t>(stitcher->component()[i])]);
    }
    std::vector<cv::Matx33d> before_places = places;
    std::rotate(before_places.begin(), before_places.end() - 1, before_places.end());
    own.error = pair_error(input, numbers, before_places, places);
}

void report(benchmark::State& state, int threads, const std::function<void(figures&)>& work)
{
    for ([[maybe_unused]] auto iteration : state) {
        const figures result = in_own_process(threads, work);
        if (!result.is_right) {
            state.SkipWithError("no panorama");
            return;
        }
        state.SetIterationTime(result.seconds);
        state.counters["cpu s"] = result.cpu_seconds;
        state.counters["peak MB"] = result.megabytes;
        if (result.input_megabytes > 0.0) {
            state.counters["of it input MB"] = result.input_megabytes;
        }
        state.counters["key frames"] = result.key_frames;
        if (result.error >= 0.0) {
            state.counters["error px"] = result.error;
        }
        if (result.panorama_megabytes > 0.0) {
            state.counters["panorama MB"] = result.panorama_megabytes;
        }
    }
}

// Made when it is first needed; the library's own choice of key frames goes to its rivals. At most 12 of them.
const sweep_input& hall_slide()
{
    static sweep_input input;
    if (input.frames.empty()) {
        for (const cv::Mat& frame : tarn::test::sample_video("hall_slide.mp4")) {
            input.frames.push_back(tarn::test::host_frame_from(frame));
        }
        input.plane_from_frame = tarn::test::sample_ground_truth("hall_slide.gt.csv");
    }
    return input;
}

const sweep_input& rendered()
{
    static sweep_input input;
    if (input.frames.empty()) {
        const auto sweep = tarn::test::slide(cv::Size(1920, 1080), tarn::test::moving_right, 36.0, 100);
        for (int i = 0; i < sweep.length(); ++i) {
            input.frames.push_back(sweep.host_frame(i));
        }
        input.plane_from_frame = sweep.plane_from_frame;
    }
    return input;
}

std::vector<int> key_frames_of(const sweep_input& input)
{
    return from_own_process<int>([&] {
        figures own;
        std::vector<int> numbers;
        cv::setNumThreads(2);
        run_library(input, own, &numbers);
        return numbers;
    });
}

void add_sweep(const std::string& name, const sweep_input& (*input)(), int threads)
{
    const auto with_key_frames = [input] {
        cv::setNumThreads(1);  // a process with threads cannot be forked
        static std::map<const sweep_input*, sweep_input> complete;
        sweep_input& whole = complete[&input()];
        if (whole.frames.empty()) {
            whole = input();
            whole.key_frames = key_frames_of(whole);
        }
        return &whole;
    };
    const std::string subject = "whole sweep";
    const std::string threaded = tarn::bench::on_threads(name, threads);
    const auto add_stitcher = [=](const std::string& by, cv::Stitcher::Mode mode, int repetitions) {
        tarn::bench::add({subject, by, threaded, threads, 0.0, repetitions}, [=](benchmark::State& state) {
            const sweep_input* const whole = with_key_frames();
            report(state, threads, [=](figures& own) { run_stitcher(*whole, mode, own); });
        });
    };
    add_stitcher("cv::Stitcher PANORAMA, key frames only", cv::Stitcher::PANORAMA, threads == 1 ? 2 : 3);
    add_stitcher("cv::Stitcher SCANS, key frames only", cv::Stitcher::SCANS, 7);
    tarn::bench::add({subject, "tarn::sweep, every frame", threaded, threads, 0.0, 9}, [=](benchmark::State& state) {
        const sweep_input* const whole = with_key_frames();
        report(state, threads, [=](figures& own) { run_library(*whole, own, nullptr); });
    });
}

// A sweep of so many frames, each made when it is its turn, so that only the library holds several. The time that
// making them takes is no time of the library's; no worker is at work meanwhile.
void run_length(const tarn::test::rendered_sweep& rendered, figures& own)
{
    const int length = rendered.length();
    tarn::sweep sweep = tarn::sweep::begin();
    tarn::panorama made;
    double live = 0.0;
    double rendering_cpu = 0.0;
    std::vector<int> key_frames;
    for (int i = 0; i < length; ++i) {
        const double cpu_begin = tarn::bench::process_cpu_seconds();
        const cv::Mat image = rendered.host_frame(i);
        rendering_cpu += tarn::bench::process_cpu_seconds() - cpu_begin;
        const tarn::frame_view frame = tarn::view_of(image);
        if (i + 1 == length) {
            made = sweep.finish({&frame});
            key_frames.push_back(i);
            break;
        }
        const clock_type::time_point begin = clock_type::now();
        const bool is_key_frame = sweep.feed(frame).key_frame > 0;
        live += seconds_since(begin);
        if (is_key_frame) {
            key_frames.push_back(i);
        }
        sweep.wait_for_room(0);
    }
    own.seconds = live / (length - 1);
    note_usage(own);
    own.cpu_seconds -= rendering_cpu;
    own.key_frames = made.key_frames;
    own.is_right =
        tarn::bench::wrote_the_panorama(sweep, made) && tarn::bench::shows_the_plane(made.image, rendered, key_frames);
    own.panorama_megabytes = static_cast<double>(made.image.total()) * 3 / 1048576.0;
}

void add_length(int length, int threads)
{
    tarn::bench::add({"by length, ms per frame", "tarn::sweep",
                      tarn::bench::on_threads(std::to_string(length) + " frames of 1280x720", threads), threads, 0.0,
                      std::clamp(2000 / length, 3, 7)},
                     [=](benchmark::State& state) {
                         cv::setNumThreads(1);  // a process with threads cannot be forked
                         // The plane that is seen is made out here: it is no memory of the library's.
                         const auto sweep =
                             tarn::test::slide(cv::Size(1280, 720), tarn::test::moving_down, 6.0, length);
                         report(state, threads, [&](figures& own) { run_length(sweep, own); });
                     });
}

TARN_RIVALS(sweep_rivals)
{
    for (const int threads : {1, 2}) {
        add_sweep("hall_slide", hall_slide, threads);
    }
    add_sweep("rendered 1920x1080", rendered, 2);  // on one, too, PANORAMA alone would take minutes more
    for (const int length : {50, 100, 200, 400, 800}) {
        add_length(length, 1);
    }
    for (const int length : {50, 100, 200, 400}) {
        add_length(length, 2);
    }
}

}  // namespace
