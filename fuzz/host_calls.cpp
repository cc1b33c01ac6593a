// SPDX-License-Identifier: Apache-2.0
//
// Any sequence of calls that a host may make, from one thread: frames of real sweeps and frames of any size, type,
// content and stride, any hint, resets in between, getters in any order. The live path's state is compared with
// that of a plain transcription after every frame.
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <streambuf>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "input_bytes.h"
#include "internal/shared_state.h"
#include "internal/worker_pool.h"
#include "private_directory.h"
#include "reference/pixels.h"
#include "support/plain_live_path.h"
#include "target.h"
#include "tarn_stitch_jni.h"

using namespace tarn::fuzz;  // NOLINT(google-build-using-namespace): the targets' own helpers
namespace fs = std::filesystem;

namespace {

constexpr int most_calls = 40;
constexpr int frames_per_strip = 10;
constexpr int longest_wait = 2;  // s, of a worker for its turn

/// A wait that takes longer means a worker that will never end.
constexpr auto patience = std::chrono::minutes(4);

/// Frames of the sample sweeps, CV_8UC4, R,G,B,A.
std::vector<std::vector<cv::Mat>> sweeps;

/// What the result array held after the call before, whatever the task.
int last_code = 0;

/// Swallows what the library logs.
class no_output : public std::streambuf {
    int overflow(int character) override
    {
        return character;
    }
};

void load_sweeps()
{
    for (const char* name : {"river_pan.jpg", "parking_pan.jpg", "hall_slide.jpg"}) {
        const cv::Mat strip = cv::imread(std::string(TARN_FUZZ_MATERIAL_DIR "/") + name);
        check(!strip.empty(), "the frames in fuzz/material can be read");
        const int height = strip.rows / frames_per_strip;
        sweeps.emplace_back();
        for (int i = 0; i < frames_per_strip; ++i) {
            cv::Mat frame;
            cv::cvtColor(strip(cv::Rect(0, i * height, strip.cols, height)), frame, cv::COLOR_BGR2RGBA);
            sweeps.back().push_back(frame);
        }
    }
}

cv::Mat any_frame(input_bytes& input)
{
    static constexpr int types[] = {CV_8UC4,  CV_8UC4,  CV_8UC4,   CV_8UC3,  CV_8UC1,     CV_8UC2,
                                    CV_16UC4, CV_16UC3, CV_16SC1,  CV_32FC3, CV_32FC1,    CV_64FC4,
                                    CV_8SC3,  CV_32SC4, CV_8UC(5), CV_16FC1, CV_8UC(512), CV_32FC4};
    const int type = types[input.byte() % std::size(types)];
    const int greatest = CV_MAT_CN(type) > 4 ? 20 : 400;
    const bool is_thin = input.byte() >= 240;
    cv::Size size(input.integer(0, greatest), input.integer(0, greatest));
    if (is_thin) {
        size = input.flag() ? cv::Size(input.integer(1, 3), 3000) : cv::Size(5000, input.integer(1, 3));
    }
    return input.image(size, type);
}

/// The calls of one input, and what is known of their results.
class host {
public:
    explicit host(input_bytes& input) : input_(input)
    {
        reset(directory(0));
    }

    void make_call()
    {
        switch (input_.byte() % 16) {
        case 0:
            any_reset();
            break;
        case 1:
            feed(any_frame(input_), input_.integer(-1, 6), 0);
            break;
        case 2:
            feed(input_.flag() ? cv::Mat() : any_frame(input_), input_.integer(-2147483647, 2147483647),
                 input_.byte() % 8 == 0 ? 1 : 0);
            break;
        case 3:
            feed(next_frame(), input_.byte() % 5, input_.integer(-2, 2));
            break;
        case 4:
            look();
            break;
        case 5:
            changed_frame();
            break;
        case 6:
            for (int i = input_.integer(1, 11); i > 0; --i) {
                feed(sweeps[0][0].clone().setTo(cv::Scalar(200, 180, 160, 255)), 0, 0);
            }
            break;
        default:
            sweep_ = input_.byte() % sweeps.size();
            for (int i = input_.integer(1, 6); i > 0; --i) {
                feed(next_frame(), hint_, 0);
            }
            break;
        }
        if (input_.byte() % 4 == 0) {
            look();
        }
        if (input_.byte() % 4 != 0) {
            wait_until_at_most(2);
        }
    }

    void finish()
    {
        reset("");
        wait_until_at_most(0);
        for (const kept_header& kept : kept_) {
            check(same_image(kept.shared, kept.copy), "pixels that were handed out never change");
        }
    }

    static std::string directory(int number)
    {
        return private_directory() + "sweep" + std::to_string(number) + "/";
    }

private:
    struct kept_header {
        cv::Mat shared;
        cv::Mat copy;
    };

    cv::Mat next_frame()
    {
        const std::vector<cv::Mat>& frames = sweeps[sweep_];
        const int step = input_.byte();
        if (step >= 224) {
            backwards_ = !backwards_;
        }
        const int count = static_cast<int>(frames.size());
        at_ = (at_ + (backwards_ ? count - 1 : 1)) % count;
        return frames[static_cast<std::size_t>(at_)];
    }

    void changed_frame()
    {
        cv::Mat frame = next_frame().clone();
        switch (input_.byte() % 6) {
        case 0:
            cv::flip(frame, frame, input_.integer(-1, 1));
            break;
        case 1:
            cv::rotate(frame, frame, input_.integer(0, 2));
            break;
        case 2:
            frame = frame * (static_cast<double>(input_.byte()) / 128.0);
            break;
        case 3:
            frame(cv::Rect(input_.integer(0, 100), input_.integer(0, 70), 28, 26)).setTo(cv::Scalar::all(0));
            break;
        case 4:
            cv::resize(frame, frame, cv::Size(input_.integer(1, 700), input_.integer(1, 500)));
            break;
        default: {
            std::vector<cv::Point2f> from = {{0, 0}, {127, 0}, {127, 95}, {0, 95}};
            std::vector<cv::Point2f> to = from;
            for (cv::Point2f& corner : to) {
                corner += cv::Point2f(static_cast<float>(input_.integer(-40, 40)),
                                      static_cast<float>(input_.integer(-40, 40)));
            }
            cv::warpPerspective(frame, frame, cv::getPerspectiveTransform(from, to), frame.size());
            break;
        }
        }
        feed(frame, hint_, 0);
    }

    /// Hands a frame over, as a view of a larger image or not, and checks all that can be known of the answer.
    void feed(const cv::Mat& content, int direction, int is_last_one)
    {
        std::optional<guarded_view> guarded;
        cv::Mat frame = content;
        if (!content.empty() && content.dims == 2 && input_.byte() % 2 == 0) {
            frame = guarded.emplace(content).view();
        }
        const int* result = videoStitch(frame, direction, is_last_one);
        check(result[0] >= -1 && result[0] <= 6, "a result code is one of -1 to 6");
        check(result[1] == 0, "the second value is 0");
        check(!guarded || guarded->guards_are_untouched(), "the bytes around a frame are untouched");
        check(content.empty() || same_image(content, frame), "a frame is only read");
        check(tarn_stitcher.stitcher_status != 1, "no call leaves the stitcher busy");
        const int code_before = std::exchange(last_code, result[0]);
        if (plain_ == nullptr) {
            return;
        }
        if (is_last_one != 0) {
            plain_->big_frame_index = tarn_stitcher.big_frame_index;
            check_files();
            return;
        }
        if (result[0] == -1) {
            // Dropped at once, as the workers have failed. After another such answer it may as well be that answer,
            // left standing by an error; what became of the frame is then not known.
            if (code_before == -1) {
                plain_.reset();
            }
            return;
        }
        cv::Mat bgr;
        try {
            CV_Assert(content.depth() != CV_32F);
            cv::cvtColor(content, bgr, cv::COLOR_RGBA2BGR);
        } catch (const cv::Exception&) {
            check(result[0] == code_before, "a frame that raises an error leaves the result");
            return;
        }
        plain_->code = code_before;
        check(plain_->feed(bgr, direction) == result[0], "the result code is that of the plain live path");
        const std::string differences = plain_->differences(tarn_stitcher);
        if (!differences.empty()) {
            std::cerr << differences << "\n";
        }
        check(differences.empty(), "the task's fields are those of the plain live path");
    }

    void any_reset()
    {
        switch (input_.byte() % 8) {
        case 0:
            reset("");
            break;
        case 1:
            resetStitch(nullptr);
            start();
            break;
        case 2:
            // Its parent is missing: the old task stays.
            resetStitch((private_directory() + "missing/sweep/").c_str());
            break;
        case 3:
            remove_tree(directory(1));  // created again by the library, unless a worker keeps it
            reset(directory(1));
            break;
        default:
            fs::create_directory(directory(input_.byte() % 3));
            reset(directory(input_.byte() % 3));
            break;
        }
    }

    void reset(const std::string& path)
    {
        check(resetStitch(path.c_str()) == 1, "resetStitch answers 1");
        start();
    }

    void start()
    {
        hint_ = input_.byte() % 8 < 5 ? 0 : input_.byte() % 5;
        plain_ = std::make_unique<tarn::test::plain_live_path>(tarn_stitcher);
    }

    void look()
    {
        const cv::Mat preview = getCurrentPanoramsShowMat();
        check(preview.empty() || preview.type() == CV_8UC3, "the preview is CV_8UC3");
        const std::unique_ptr<int[]> pixels(nativeCarrier_getCurrentPanoramaShow());
        const std::vector<int> expected = reference::matToBitmapArray(preview);
        check(std::memcmp(pixels.get(), expected.data(), expected.size() * sizeof(int)) == 0,
              "the exported pixels are the preview's");
        kept_.push_back({preview, preview.clone()});
        const std::string path = getCurrentPanoramaShow();
        check(path.empty() || path == tarn_stitcher.local_path + "big_stitch.jpg", "the panorama's path");
        static_cast<void>(std::string(getTestCurrentPanoramaShow()).size());
        const tarn::pipeline_snapshot pipeline = tarn::look_at_pipeline();
        check(pipeline.status == 0 || (pipeline.status >= 2 && pipeline.status <= 4), "the pipeline's status");
        // Of 8 bits, unless the first frame that a worker got was the last of its sweep, which is never registered.
        check(pipeline.panorama.empty() || pipeline.panorama.channels() == 3, "the panorama has three channels");
        kept_.push_back({pipeline.panorama, pipeline.panorama.clone()});
        while (kept_.size() > 6) {
            check(same_image(kept_.front().shared, kept_.front().copy), "pixels that were handed out never change");
            kept_.erase(kept_.begin());
        }
        check_files();
    }

    /// Nothing but frame files and the panorama, and nothing outside of the directory.
    static void check_files()
    {
        for (const auto& entry : fs::directory_iterator(private_directory())) {
            const std::string name = entry.path().filename().string();
            check(entry.is_directory() && name.rfind("sweep", 0) == 0, "nothing outside the working directory");
            for (const auto& file : fs::directory_iterator(entry.path())) {
                const std::string inside = file.path().filename().string();
                check(inside.rfind("big_frame", 0) == 0 || inside == "big_stitch.jpg" || inside.front() == '.',
                      "nothing but the library's own files in it");
            }
        }
    }

    static void wait_until_at_most(int in_flight)
    {
        const auto start = std::chrono::steady_clock::now();
        while (tarn::workers_in_flight() > in_flight) {
            check(std::chrono::steady_clock::now() - start < patience, "workers end");
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            // The second frame of a sphere waits without a limit for a base that may never come.
            if (in_flight > 0 && std::chrono::steady_clock::now() - start > std::chrono::milliseconds(300)) {
                return;
            }
        }
    }

    input_bytes& input_;
    std::unique_ptr<tarn::test::plain_live_path> plain_;
    std::vector<kept_header> kept_;
    std::size_t sweep_ = 0;
    int at_ = 0;
    bool backwards_ = false;
    int hint_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    static auto& nowhere = *new no_output;  // never destroyed: the stream is flushed after everything else
    std::cout.rdbuf(&nowhere);
    cv::setNumThreads(1);
    max_wait_seconds = longest_wait;
    load_sweeps();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // A task without a directory writes into the current one.
    const fs::path current = fs::current_path();
    fs::create_directory(host::directory(0));
    fs::create_directory(private_directory() + "sweep_current");
    fs::current_path(private_directory() + "sweep_current");
    input_bytes input(data, size);
    host caller(input);
    for (int i = 0; i < most_calls && !input.at_end(); ++i) {
        caller.make_call();
    }
    caller.finish();
    for (const auto& entry : fs::directory_iterator(".")) {
        fs::remove(entry.path());
    }
    fs::current_path(current);
    return 0;
}
