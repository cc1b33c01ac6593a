// SPDX-License-Identifier: Apache-2.0
//
// The command-line host's way of driving the library: pace, failures in mid-sweep, what is collected at the end.
// The workers are stepped through the library's stages, and the host's own calls are seen by the lines that the
// library logs on entering and leaving a frame.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "frame_feed.h"
#include "frame_source.h"
#include "frame_turn.h"
#include "host_error.h"
#include "picture_list.h"
#include "support/rendered_sweep.h"
#include "support/stitcher_fixture.h"
#include "sweep.h"

using namespace tarn::host;
using tarn::worker_stage;
using tarn::test::picture_list;
namespace fs = std::filesystem;

namespace {

/// Passes on what is written to std::cout and tells when the library enters and leaves a frame.
class frame_watcher : public std::streambuf {
public:
    explicit frame_watcher(std::function<void()> entered, std::function<void()> left)
        : entered_(std::move(entered)), left_(std::move(left)), behind_(std::cout.rdbuf(this))
    {
    }

    ~frame_watcher() override
    {
        std::cout.rdbuf(behind_);
    }

protected:
    int_type overflow(int_type character) override
    {
        return behind_->sputc(traits_type::to_char_type(character));
    }

    std::streamsize xsputn(const char* text, std::streamsize count) override
    {
        const std::string_view view(text, static_cast<std::size_t>(count));
        if (view.find("input_frame shape is") != std::string_view::npos) {
            entered_();
        }
        if (view.find("videoStitch finish") != std::string_view::npos) {
            left_();
        }
        return behind_->sputn(text, count);
    }

private:
    std::function<void()> entered_;
    std::function<void()> left_;
    std::streambuf* behind_;
};

/// A door that a worker waits at until the host has come to some point.
class door {
public:
    void open()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        opened_.notify_all();
    }

    void wait()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        opened_.wait(lock, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
};

/// A slide to the right; every third or so of its frames is a key frame.
std::vector<cv::Mat> pictures_of_a_slide(int length)
{
    const tarn::test::rendered_sweep sweep =
        tarn::test::slide({480, 360}, tarn::test::moving_right, 48.0, length);
    std::vector<cv::Mat> pictures;
    for (int index = 0; index < length; ++index) {
        pictures.push_back(sweep.frame(index));
    }
    return pictures;
}

bool is_jpeg_of(const std::vector<unsigned char>& bytes, const cv::Size& size)
{
    const cv::Mat image = bytes.empty() ? cv::Mat() : cv::imdecode(bytes, cv::IMREAD_COLOR);
    return !image.empty() && image.size() == size;
}

class HostSweep : public tarn::test::stitcher_fixture {
protected:
    sweep_result sweep_through(const std::vector<cv::Mat>& pictures, int workers = 2)
    {
        frame_feed feed(std::make_unique<picture_list>(pictures), {}, frame_turn::none);
        sweep_settings settings;
        settings.working_directory = directory();
        settings.workers = workers;
        sweep_result result = run_sweep(feed, settings);
        EXPECT_EQ(std::accumulate(result.by_code.begin(), result.by_code.end(), 0), result.frames);
        EXPECT_LE(result.taken, result.frames);
        EXPECT_FALSE(fs::exists(directory())) << "the library has not left its working directory";
        return result;
    }

    static int with_code(const sweep_result& result, int code)
    {
        return result.by_code[static_cast<std::size_t>(code - lowest_code)];
    }
};

}  // namespace

TEST_F(HostSweep, CompleteSweepGivesPanoramaAndPreview)
{
    const sweep_result result = sweep_through(pictures_of_a_slide(12));
    EXPECT_EQ(result.outcome, sweep_outcome::complete);
    EXPECT_EQ(result.frames, 12);
    EXPECT_EQ(result.taken, 12);
    EXPECT_GE(result.key_frames, 4);
    EXPECT_EQ(result.failed_key_frame, 0);
    EXPECT_TRUE(is_jpeg_of(result.panorama_file, result.panorama.size()));
    // Turned clockwise: as high as the sweep is wide.
    EXPECT_NEAR(result.panorama.size().height, 480 + 11 * 48, 10);
    EXPECT_NEAR(result.panorama.size().width, 360, 10);
    EXPECT_GT(result.preview.cols, 500);
}

TEST_F(HostSweep, NeverMoreKeyFramesOnTheirWayThanWorkers)
{
    const std::vector<cv::Mat> pictures = pictures_of_a_slide(24);
    std::vector<unsigned char> first_panorama;
    for (const int workers : {1, 2, 4}) {
        auto most = std::make_shared<std::atomic<int>>(0);
        on_worker_stage([most](worker_stage stage, int big_frame_index) {
            if (stage == worker_stage::launching) {
                const int on_their_way = big_frame_index - tarn::look_at_pipeline().turns_over;
                *most = std::max(most->load(), on_their_way);
            }
        });
        const sweep_result result = sweep_through(pictures, workers);
        EXPECT_EQ(result.outcome, sweep_outcome::complete);
        EXPECT_GE(most->load(), 1);
        EXPECT_LE(most->load(), workers);
        first_panorama = first_panorama.empty() ? result.panorama_file : first_panorama;
        EXPECT_EQ(result.panorama_file, first_panorama) << workers;
        fs::create_directory(directory());
    }
    fs::remove(directory());
}

TEST_F(HostSweep, LastWorkerSlowerThanTheLibraryWaitsIsWaitedFor)
{
    constexpr int length = 8;
    auto last_index = std::make_shared<std::atomic<int>>(0);
    auto given_up = std::make_shared<door>();
    // In its turn, all waits of its own behind it, the last worker makes the library give up its wait for it.
    on_worker_stage([last_index, given_up](worker_stage stage, int big_frame_index) {
        if (stage == worker_stage::turn_taken && big_frame_index == last_index->load()) {
            tarn::store_release(max_wait_seconds, 0);
            given_up->wait();
        }
    });
    int entered = 0;
    bool gave_up_without_a_file = false;
    const frame_watcher watcher(
        [&] {
            if (++entered == length) {
                *last_index = tarn_stitcher.big_frame_index + 1;
            }
        },
        [&] {
            if (entered == length) {
                gave_up_without_a_file = tarn_stitcher.big_stitch_image_path.empty();
                tarn::store_release(max_wait_seconds, patient_wait);
                given_up->open();
            }
        });
    const sweep_result result = sweep_through(pictures_of_a_slide(length));
    EXPECT_TRUE(gave_up_without_a_file);
    EXPECT_EQ(result.outcome, sweep_outcome::complete);
    EXPECT_TRUE(is_jpeg_of(result.panorama_file, result.panorama.size()));
    EXPECT_NEAR(result.panorama.size().height, 480 + (length - 1) * 48, 10);
}

TEST_F(HostSweep, FailureInMidSweepIsTracedToItsKeyFrame)
{
    constexpr int failing = 3;
    on_worker_stage([](worker_stage stage, int big_frame_index) {
        if (stage == worker_stage::registered && big_frame_index == failing) {
            throw std::runtime_error("no memory");
        }
    });
    const sweep_result result = sweep_through(pictures_of_a_slide(20), 1);
    EXPECT_EQ(result.outcome, sweep_outcome::pipeline_failed);
    EXPECT_EQ(result.failed_key_frame, failing);
    EXPECT_GT(result.failed_frame, 1);
    EXPECT_EQ(result.broken_at_frame, result.frames);
    EXPECT_GT(result.broken_at_frame, result.failed_frame);
    EXPECT_LT(result.frames, 20);
    EXPECT_EQ(with_code(result, -1), 1);
    EXPECT_TRUE(is_jpeg_of(result.panorama_file, result.panorama.size()));
    EXPECT_GT(result.panorama.size().height, 480);  // two key frames
    EXPECT_FALSE(result.preview.empty());
}

TEST_F(HostSweep, FailureOfTheBaseLeavesNoPanoramaButThePreview)
{
    on_worker_stage([](worker_stage stage, int) {
        if (stage == worker_stage::turn_taken) {
            throw std::runtime_error("no memory");
        }
    });
    const sweep_result result = sweep_through(pictures_of_a_slide(8), 1);
    EXPECT_EQ(result.outcome, sweep_outcome::pipeline_failed);
    EXPECT_EQ(result.failed_key_frame, 1);
    EXPECT_EQ(result.failed_frame, 1);
    EXPECT_TRUE(result.panorama_file.empty());
    EXPECT_FALSE(result.preview.empty());
}

TEST_F(HostSweep, FailureOfTheLastWorkerIsSeenThoughTheLibraryAnswersNormal)
{
    constexpr int length = 8;
    auto last_index = std::make_shared<std::atomic<int>>(0);
    on_worker_stage([last_index](worker_stage stage, int big_frame_index) {
        if (stage == worker_stage::composed && big_frame_index == last_index->load()) {
            throw std::runtime_error("no memory");
        }
    });
    int entered = 0;
    const frame_watcher watcher(
        [&] {
            if (++entered == length) {
                *last_index = tarn_stitcher.big_frame_index + 1;
            }
        },
        [] {});
    const sweep_result result = sweep_through(pictures_of_a_slide(length));
    EXPECT_EQ(result.outcome, sweep_outcome::pipeline_failed);
    EXPECT_EQ(result.broken_at_frame, length);
    EXPECT_EQ(result.failed_key_frame, last_index->load());
    EXPECT_EQ(result.failed_frame, length);
    EXPECT_EQ(result.taken, length - 1);
    EXPECT_TRUE(is_jpeg_of(result.panorama_file, result.panorama.size()));
}

TEST_F(HostSweep, PanoramaThatIsNotThereThoughNoWorkerFailedBreaksTheSweep)
{
    // No file, and a ticket that stands beyond the last key frame: the library has nothing to write, and says that
    // all is well.
    constexpr int length = 8;
    int left = 0;
    const frame_watcher watcher([] {},
                                [&] {
                                    if (++left == length) {
                                        tarn_stitcher.big_stitch_image_path.clear();
                                        tarn::store_release(big_frame_num, tarn_stitcher.big_frame_index + 1);
                                    }
                                });
    const sweep_result result = sweep_through(pictures_of_a_slide(length));
    EXPECT_EQ(result.outcome, sweep_outcome::pipeline_failed);
    EXPECT_EQ(result.broken_at_frame, length);
    EXPECT_EQ(result.failed_key_frame, 0);
    EXPECT_TRUE(is_jpeg_of(result.panorama_file, result.panorama.size()));
}

TEST_F(HostSweep, PipelineThatAWaitingWorkerBringsBackGoesOnAndNoFrameIsLost)
{
    constexpr int failing = 2;
    constexpr int length = 20;
    auto next_one_works = std::make_shared<door>();
    auto host_has_met_the_failure = std::make_shared<door>();
    on_worker_stage([=](worker_stage stage, int big_frame_index) {
        if (stage == worker_stage::registered && big_frame_index == failing) {
            next_one_works->wait();
            throw std::runtime_error("no memory");
        }
        if (stage == worker_stage::frame_prepared && big_frame_index == failing + 1) {
            next_one_works->open();
        }
        if (stage == worker_stage::file_written && big_frame_index == failing + 1) {
            host_has_met_the_failure->wait();
        }
    });
    // There are no more than these two: one that started after the failure would pass its ticket on at once. The
    // call that finds the pipeline failed on entry answers -1; only then may the next worker take its turn.
    bool met = false;
    int calls = 0;
    const frame_watcher watcher(
        [&] {
            ++calls;
            met = met || tarn::look_at_pipeline().status == tarn::pipeline_failed;
        },
        [&] {
            if (met) {
                host_has_met_the_failure->open();
            }
        });
    const sweep_result result = sweep_through(pictures_of_a_slide(length), 2);
    EXPECT_EQ(calls, length + 1);  // the frame answered -1 was handed over again
    EXPECT_EQ(result.outcome, sweep_outcome::complete);
    EXPECT_EQ(result.failed_key_frame, failing);
    EXPECT_EQ(result.frames, length);
    EXPECT_EQ(result.taken, length);
    EXPECT_EQ(with_code(result, -1), 0);
    EXPECT_TRUE(is_jpeg_of(result.panorama_file, result.panorama.size()));
    EXPECT_NEAR(result.panorama.size().height, 480 + (length - 1) * 48, 10);
}

TEST_F(HostSweep, WorkerThatCannotBeStartedBreaksTheSweepInsteadOfHangingIt)
{
    tarn::store_release(max_wait_seconds, 0);
    on_worker_stage([](worker_stage stage, int) {
        if (stage == worker_stage::launching) {
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
        }
    });
    const sweep_result result = sweep_through(pictures_of_a_slide(8), 1);
    EXPECT_EQ(result.outcome, sweep_outcome::pipeline_failed);
    EXPECT_TRUE(result.panorama_file.empty());
}

TEST_F(HostSweep, WorkingFileThatIsMissingOrCutShortIsMadeAgainFromThePanorama)
{
    constexpr int length = 8;
    const std::vector<cv::Mat> pictures = pictures_of_a_slide(length);
    const std::vector<unsigned char> undisturbed = sweep_through(pictures).panorama_file;
    ASSERT_FALSE(undisturbed.empty());
    for (const bool missing : {true, false}) {
        fs::create_directory(directory());
        int entered = 0;
        const frame_watcher watcher([&] { ++entered; },
                                    [&] {
                                        const std::string file = directory() + "big_stitch.jpg";
                                        if (entered == length && missing) {
                                            fs::remove(file);
                                        } else if (entered == length) {
                                            fs::resize_file(file, fs::file_size(file) / 2);
                                        }
                                    });
        const sweep_result result = sweep_through(pictures);
        EXPECT_EQ(result.outcome, sweep_outcome::complete);
        EXPECT_EQ(result.panorama_file, undisturbed) << missing;
    }
}

TEST_F(HostSweep, PictureOfAnotherSizeEndsTheSweepAndKeepsWhatThereIs)
{
    std::vector<cv::Mat> pictures = pictures_of_a_slide(12);
    pictures[8] = cv::Mat(100, 480, CV_8UC3, cv::Scalar::all(0));
    const sweep_result result = sweep_through(pictures);
    EXPECT_EQ(result.outcome, sweep_outcome::input_failed);
    EXPECT_EQ(result.input_error, "picture 9 is of 480x100 pixels, the frames before it of 480x360");
    EXPECT_EQ(result.frames, 8);
    EXPECT_TRUE(is_jpeg_of(result.panorama_file, result.panorama.size()));
    EXPECT_FALSE(result.preview.empty());
    pictures.resize(8);
    const sweep_result before = sweep_through(pictures);
    EXPECT_EQ(cv::norm(result.panorama, before.panorama, cv::NORM_INF), 0.0);
}

TEST_F(HostSweep, OnePictureBeforeOneOfAnotherSizeIsThePanorama)
{
    std::vector<cv::Mat> pictures = pictures_of_a_slide(2);
    pictures[1] = cv::Mat(100, 480, CV_8UC3, cv::Scalar::all(0));
    const sweep_result result = sweep_through(pictures);
    EXPECT_EQ(result.outcome, sweep_outcome::input_failed);
    EXPECT_EQ(result.frames, 1);
    EXPECT_TRUE(is_jpeg_of(result.panorama_file, result.panorama.size()));
}

TEST_F(HostSweep, PreviewOfASweepWithoutDetailsIsItsLastFrame)
{
    const cv::Mat blank(600, 900, CV_8UC3, cv::Scalar(10, 200, 60));
    const cv::Mat last(600, 900, CV_8UC3, cv::Scalar(90, 20, 160));
    const sweep_result result = sweep_through({blank, blank, last});
    EXPECT_EQ(result.outcome, sweep_outcome::complete);
    EXPECT_EQ(result.key_frames, 1);
    EXPECT_EQ(result.taken, 1);
    EXPECT_EQ(result.panorama.size(), cv::Size(600, 900));
    ASSERT_EQ(result.preview.size(), cv::Size(300, 200));
    EXPECT_EQ(result.preview.at<cv::Vec3b>(100, 100), cv::Vec3b(90, 20, 160));
}

TEST_F(HostSweep, UnreadablePicturesAreLeftOutAtBothEnds)
{
    std::vector<cv::Mat> pictures = pictures_of_a_slide(6);
    pictures.insert(pictures.begin(), cv::Mat());
    pictures.emplace_back();
    frame_feed feed(std::make_unique<picture_list>(pictures), {}, frame_turn::none);
    feed_frame frame;
    std::vector<int> numbers;
    std::vector<bool> last;
    while (feed.next(frame)) {
        numbers.push_back(frame.stamp.number);
        last.push_back(frame.last);
    }
    EXPECT_EQ(numbers, (std::vector<int>{2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(last, (std::vector<bool>{false, false, false, false, false, true}));
    EXPECT_EQ(feed.unreadable(), 2);
    EXPECT_EQ(feed.early_end(), "");
    EXPECT_THROW(frame_feed(std::make_unique<picture_list>(std::vector<cv::Mat>(3)), {}, frame_turn::none),
                 host_error);
}
