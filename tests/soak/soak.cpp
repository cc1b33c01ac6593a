// SPDX-License-Identifier: Apache-2.0
//
// Long runs in one process. Usage: tarn_soak cancel|frames|keyframes|sweeps|hasty|traffic|slow COUNT
//
//   cancel     COUNT sweeps cancelled at random moments and restarted, in the same directory and in changing ones; each
//              tenth is followed by a whole sweep, whose panorama must be that of an undisturbed one, byte for byte
//   frames     one sweep of COUNT frames of a camera that sways about its first view
//   keyframes  one sweep of COUNT frames of a camera that goes back and forth, so that every few frames a key frame is
//              due; ends early when the high-resolution pipeline does
//   sweeps     COUNT short whole sweeps, each with the same panorama, byte for byte
//   hasty      one sweep of COUNT frames of a camera that is swayed too fast to be followed: most frames are rejected,
//              and the places that they leave behind lead ever farther away
//   traffic    the same of a camera that stands still, before things that move across its view; begun again whenever
//              the high-resolution pipeline ends, which is soon
//   slow       one sweep of COUNT frames of a camera that hardly moves: 108,000 are an hour
//
// Threads and descriptors must come back to their level, and so must memory, up to what an allocator keeps. How the
// time per frame develops is printed, not judged.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "internal/shared_state.h"
#include "internal/worker_pool.h"
#include "preview_limit.h"
#include "resources.h"
#include "support/rendered_sweep.h"
#include "support/sample_video.h"
#include "support/sanitizers.h"
#include "tarn_stitch_jni.h"

namespace {

namespace fs = std::filesystem;
using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers

constexpr double memory_margin = 40.0;  // MiB that allocators and stacks may keep beyond the level after warming up
constexpr int warming_up = 20;          // rounds at most, after which the level is taken
const cv::Size frame_size(320, 240);

/// A wait that takes longer means a thread that will never end. Slow builds on a busy machine stay far below.
constexpr auto patience = std::chrono::minutes(4);

void require(bool holds, const std::string& what)
{
    if (!holds) {
        std::fprintf(stderr, "not so: %s\n", what.c_str());
        std::exit(1);
    }
}

/// Swallows what the library logs.
class no_output : public std::streambuf {
    int overflow(int character) override
    {
        return character;
    }

    std::streamsize xsputn(const char* /*text*/, std::streamsize length) override
    {
        return length;
    }
};

class private_root {
public:
    private_root()
    {
        std::string pattern = (fs::temp_directory_path() / "tarn-soak-XXXXXX").string();
        require(mkdtemp(pattern.data()) != nullptr, "a private directory");
        path_ = pattern + "/";
    }

    ~private_root()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }

    private_root(const private_root&) = delete;
    private_root& operator=(const private_root&) = delete;

    /// A directory in it, made if it is missing.
    std::string directory(int number) const
    {
        std::string path = path_ + "sweep" + std::to_string(number) + "/";
        fs::create_directory(path);
        return path;
    }

private:
    std::string path_;
};

void wait_for_workers()
{
    const auto start = std::chrono::steady_clock::now();
    while (tarn::workers_in_flight() > 0) {
        require(std::chrono::steady_clock::now() - start < patience, "workers end");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// A thread is gone from the system's list a moment after its last own instruction.
resources settled_resources(const resources& level)
{
    const auto start = std::chrono::steady_clock::now();
    resources now = resources_now();
    while (now.threads > level.threads && std::chrono::steady_clock::now() - start < patience) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        now = resources_now();
    }
    return now;
}

/// Watches what the process holds after each round, from the end of the warming up on.
class watch {
public:
    explicit watch(int rounds) : warm_(std::min(warming_up, rounds / 2))
    {
    }

    /// @param allowed  MiB that what the sweep has to show may take beyond the level
    void after_round(double allowed = 0.0)
    {
        ++round_;
        if (round_ <= warm_) {
            const resources now = resources_now();
            level_.resident = std::max(level_.resident, now.resident);
            level_.threads = std::max(level_.threads, now.threads);
            level_.descriptors = std::max(level_.descriptors, now.descriptors);
            return;
        }
        last_ = settled_resources(level_);
        greatest_ = std::max(greatest_, last_.resident);
        course_.push_back(last_.resident);
        require(last_.threads <= level_.threads, "threads are back: " + text_of(last_) + ", were " + text_of(level_));
        require(last_.descriptors <= level_.descriptors,
                "descriptors are back: " + text_of(last_) + ", were " + text_of(level_));
#ifndef TARN_SANITIZED  // sanitizers keep freed memory for a while
        require(last_.resident <= level_.resident + memory_margin + allowed,
                "memory is back: " + text_of(last_) + ", was " + text_of(level_));
#endif
    }

    void report() const
    {
        std::printf("held after warming up: %s\nheld at the end:       %s (greatest %.1f MiB)\nMiB by tenths:",
                    text_of(level_).c_str(), text_of(last_).c_str(), greatest_);
        for (std::size_t tenth = 1; tenth <= 10 && !course_.empty(); ++tenth) {
            std::printf(" %.0f", course_[std::max<std::size_t>(course_.size() * tenth / 10, 1) - 1]);
        }
        std::printf("\n");
    }

private:
    int warm_;
    int round_ = 0;
    resources level_;
    resources last_;
    double greatest_ = 0.0;
    std::vector<double> course_;
};

std::vector<cv::Mat> host_frames(const rendered_sweep& sweep)
{
    std::vector<cv::Mat> frames;
    for (int i = 0; i < sweep.length(); ++i) {
        frames.push_back(sweep.host_frame(i));
    }
    return frames;
}

std::string panorama_bytes()
{
    const std::string path = getCurrentPanoramaShow();
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A whole sweep in `directory`: the bytes of its panorama.
std::string whole_sweep(const std::vector<cv::Mat>& frames, const std::string& directory)
{
    resetStitch(directory.c_str());
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const int code = videoStitch(frames[i], moving_right, i + 1 == frames.size() ? 1 : 0)[0];
        require(code > 0, "frame " + std::to_string(i) + " is taken, not answered " + std::to_string(code));
    }
    wait_for_workers();
    std::string bytes = panorama_bytes();
    const tarn::pipeline_snapshot pipeline = tarn::look_at_pipeline();
    require(!bytes.empty(), "the sweep has a panorama: status " + std::to_string(pipeline.status) + ", "
                                + std::to_string(pipeline.turns_over) + " of "
                                + std::to_string(tarn_stitcher.big_frame_index) + " turns over, first failure "
                                + std::to_string(pipeline.first_failed_frame) + ", path \"" + getCurrentPanoramaShow()
                                + "\", directory " + (fs::exists(directory) ? "there" : "gone"));
    return bytes;
}

void cancel(int count)
{
    const private_root root;
    const std::vector<cv::Mat> frames = host_frames(slide(frame_size, moving_right, 24.0, 15));
    const std::string undisturbed = whole_sweep(frames, root.directory(0));
    std::mt19937 random(20240229);
    watch held(count);
    int whole = 0;
    for (int i = 0; i < count; ++i) {
        const std::string directory = root.directory(random() % 3 == 0 ? static_cast<int>(random() % 3) : 0);
        resetStitch(directory.c_str());
        const std::size_t fed = 1 + random() % frames.size();
        for (std::size_t k = 0; k < fed; ++k) {
            // Seldom, the sweep is cancelled only when it is over.
            const bool ends = k + 1 == frames.size();
            require(videoStitch(frames[k], moving_right, ends ? 1 : 0)[0] > 0, "a frame is taken");
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 40000));
        resetStitch((random() % 2 == 0 ? directory : root.directory(static_cast<int>(random() % 3))).c_str());
        wait_for_workers();
        if (i % 10 == 9) {
            require(whole_sweep(frames, root.directory(static_cast<int>(random() % 3))) == undisturbed,
                    "a whole sweep gives the undisturbed one's bytes");
            ++whole;
        }
        held.after_round();
    }
    std::printf("%d sweeps cancelled, %d whole ones between them, all with the undisturbed one's bytes\n", count,
                whole);
    held.report();
}

void sweeps(int count)
{
    const private_root root;
    const std::vector<cv::Mat> frames = host_frames(slide(frame_size, moving_right, 24.0, 12));
    const std::string first = whole_sweep(frames, root.directory(0));
    watch held(count);
    for (int i = 1; i < count; ++i) {
        require(whole_sweep(frames, root.directory(i % 2)) == first, "every sweep gives the first one's bytes");
        held.after_round();
    }
    std::printf("%d sweeps of %zu frames, all with the same bytes\n", count, frames.size());
    held.report();
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

enum class failure { none, ends, begins_again };

/// One sweep over `frames`, again and again, until `count` have been fed.
/// @param when_it_fails  what happens when the pipeline does
void one_sweep(int count, const std::vector<cv::Mat>& frames, failure when_it_fails)
{
    const bool may_fail = when_it_fails != failure::none;
    const private_root root;
    resetStitch(root.directory(0).c_str());
    std::vector<double> milliseconds;
    std::map<int, int> codes;
    constexpr int rounds_of_watch = 50;
    watch held(rounds_of_watch);
    cv::Size preview;
    for (int i = 0; i < count; ++i) {
        const auto start = std::chrono::steady_clock::now();
        const int code = videoStitch(frames[static_cast<std::size_t>(i) % frames.size()], 0, 0)[0];
        milliseconds.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        ++codes[code];
        require(may_fail || tarn_stitcher.failed_count == 0, "no frame is rejected");
        if (code == -1) {
            require(may_fail, "frame " + std::to_string(i) + " is taken");
            if (when_it_fails == failure::begins_again) {
                wait_for_workers();
                resetStitch(root.directory(0).c_str());
                continue;
            }
            std::printf("the pipeline ended with frame %d, key frame %d\n", i,
                        tarn::look_at_pipeline().first_failed_frame);
            milliseconds.pop_back();
            break;
        }
        wait_for_workers();
        if (i % std::max(1, count / rounds_of_watch) == 0) {
            // The panorama, twice while it grows, with as much again in reserve.
            const cv::Mat panorama = tarn::look_at_pipeline().panorama;
            const std::size_t preview_pixels = tarn_stitcher.last_stitch_image.total();
            require(preview_pixels <= static_cast<std::size_t>(tarn::usual_preview_limit), "the preview has its limit");
            held.after_round(static_cast<double>(4 * panorama.total() * 3 + 2 * preview_pixels * 3) / 1048576.0);
        }
        preview = cv::Size(std::max(preview.width, tarn_stitcher.last_stitch_image.cols),
                           std::max(preview.height, tarn_stitcher.last_stitch_image.rows));
    }
    if (codes.count(-1) == 0 && !may_fail) {
        require(videoStitch(frames[0], 0, 1)[0] > 0, "the last frame is taken");
        require(!panorama_bytes().empty(), "the sweep has a panorama");
    }
    const cv::Mat panorama = tarn::look_at_pipeline().panorama;
    std::printf("%zu frames, %d key frames, preview at most %d x %d%s, panorama %d x %d\ncodes:", milliseconds.size(),
                tarn_stitcher.big_frame_index, preview.width, preview.height,
                tarn::preview_is_frozen() ? " (frozen)" : "", panorama.cols, panorama.rows);
    for (const auto& [code, times] : codes) {
        std::printf("  %d: %d times", code, times);
    }
    const auto tenth = static_cast<std::ptrdiff_t>(std::max<std::size_t>(1, milliseconds.size() / 10));
    std::printf("\ntime per frame, median: first tenth %.2f ms, last tenth %.2f ms\n",
                median({milliseconds.begin(), milliseconds.begin() + tenth}),
                median({milliseconds.end() - tenth, milliseconds.end()}));
    held.report();
}

/// A camera that sways by `reach` pixels to both sides of its first view, `length` frames to and fro.
std::vector<cv::Mat> swaying(double reach, int length)
{
    rendered_sweep sweep = slide(frame_size, moving_right, 2.0 * reach, 2);
    const cv::Matx33d middle = sweep.plane_from_frame[0] * translation(reach, 0);
    sweep.plane_from_frame.clear();
    for (int i = 0; i < length; ++i) {
        const double phase = 2.0 * CV_PI * i / length;
        sweep.plane_from_frame.push_back(middle * translation(reach * std::sin(phase), 0.2 * std::sin(3.0 * phase)));
    }
    return host_frames(sweep);
}

/// The sweep over the car park, each 14th of its frames, to and fro.
std::vector<cv::Mat> hasty()
{
    constexpr std::size_t step = 14;
    std::vector<cv::Mat> frames;
    const std::vector<cv::Mat>& video = tarn::test::sample_video("parking_pan.mp4");
    for (std::size_t i = 0; i < video.size(); i += step) {
        cv::Mat small;
        cv::resize(video[i], small, frame_size, 0, 0, cv::INTER_AREA);
        frames.push_back(tarn::test::host_frame_from(small));
    }
    for (std::size_t i = frames.size() - 1; i-- > 1;) {
        frames.push_back(frames[i]);
    }
    return frames;
}

/// A still view, of which most is hidden by what passes before it, some fast and some slowly, to both sides.
std::vector<cv::Mat> traffic()
{
    constexpr int length = 120;
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(1600, 1200));
    std::vector<cv::Mat> frames;
    for (int i = 0; i < length; ++i) {
        cv::Mat view = plane(cv::Rect(cv::Point(0, 0), frame_size)).clone();
        constexpr int lanes = 4;
        const int height = frame_size.height / (lanes + 1);
        for (int lane = 0; lane < lanes; ++lane) {
            const int speed = (lane % 2 == 0 ? 1 : -1) * (12 + 5 * lane);  // px per frame
            const int place = 600 + speed * (i % 20);
            const cv::Rect passing(place, 300 + 60 * lane, frame_size.width, height);
            plane(passing).copyTo(view.rowRange(lane * height, (lane + 1) * height));
        }
        frames.push_back(tarn::test::host_frame_from(view));
    }
    return frames;
}

/// Each frame of a camera that turns to and fro, seen many times, as if it hardly moved.
std::vector<cv::Mat> slow()
{
    constexpr int times = 8;
    std::vector<cv::Mat> frames;
    for (const cv::Mat& frame : swaying(90.0, 600)) {
        frames.insert(frames.end(), times, frame);
    }
    return frames;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string what = argc == 3 ? argv[1] : "";
    const int count = argc == 3 ? std::atoi(argv[2]) : 0;
    if (count < 2) {
        std::fprintf(stderr, "usage: tarn_soak cancel|frames|keyframes|sweeps|hasty|traffic|slow COUNT\n");
        return 2;
    }
    no_output nowhere;
    std::streambuf* const console = std::cout.rdbuf(&nowhere);
    max_wait_seconds = 600;  // nobody gives up because the machine is busy
#ifdef __GLIBC__
    // Memory that one worker has given back serves the next one, however many of them there are at once.
    mallopt(M_ARENA_MAX, 1);
#endif
    if (what == "cancel") {
        cancel(count);
    } else if (what == "frames") {
        one_sweep(count, swaying(10.0, 200), failure::none);
    } else if (what == "keyframes") {
        one_sweep(count, swaying(110.0, 120), failure::ends);
    } else if (what == "hasty") {
        one_sweep(count, hasty(), failure::ends);
    } else if (what == "traffic") {
        one_sweep(count, traffic(), failure::begins_again);
    } else if (what == "slow") {
        one_sweep(count, slow(), failure::ends);
    } else if (what == "sweeps") {
        sweeps(count);
    } else {
        std::fprintf(stderr, "not known: %s\n", what.c_str());
        return 2;
    }
    resetStitch("");
    wait_for_workers();
    std::cout.rdbuf(console);
    return 0;
}
