// SPDX-License-Identifier: Apache-2.0
//
// The command-line host's way of driving the library: pace, failures in mid-sweep, what is collected at the end.
// The workers are stepped through the library's stages, and the host by its input and by its observers.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
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
#include "interruption.h"
#include "panorama_verdict.h"
#include "picture_list.h"
#include "support/rendered_sweep.h"
#include "support/stitcher_fixture.h"
#include "sweep.h"

using namespace tarn::host;
using tarn::worker_stage;
using tarn::test::picture_list;
namespace fs = std::filesystem;

namespace {

/// A feed that tells of each frame before it gives it: its number, from 1. The answer to the one before is there then.
class watched_input : public sweep_input {
public:
    watched_input(const std::vector<cv::Mat>& pictures, std::function<void(int)> comes)
        : feed_(std::make_unique<picture_list>(pictures), {}, frame_turn::none), comes_(std::move(comes))
    {
    }

    bool next(feed_frame& frame) override
    {
        if (!feed_.next(frame)) {
            return false;
        }
        ++given_;
        if (comes_) {
            comes_(given_);
        }
        return true;
    }

private:
    frame_feed feed_;
    std::function<void(int)> comes_;
    int given_ = 0;
};

/// Tells when the sweep waits for workers, and for how many.
class waiting_observer : public sweep_observer {
public:
    explicit waiting_observer(std::function<void(int)> waits) : waits_(std::move(waits))
    {
    }

    void frame_done(const frame_record& frame) override
    {
        records.push_back(frame);
    }

    void waiting(int key_frames) override
    {
        if (waits_) {
            waits_(key_frames);
        }
    }

    std::vector<frame_record> records;

private:
    std::function<void(int)> waits_;
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
    const tarn::test::rendered_sweep sweep = tarn::test::slide({480, 360}, tarn::test::moving_right, 48.0, length);
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
    /// What a test steps a sweep by.
    struct steps {
        std::function<void(int)> frame_comes;   ///< before it is handed over; its number, from 1
        std::function<void(int)> sweep_waits;   ///< for so many key frames
        std::function<void()> library_answers;  ///< to a frame
    };

    sweep_result sweep_through(const std::vector<cv::Mat>& pictures, int workers = 2, const steps& told = {})
    {
        std::string working_directory;
        watched_input input(pictures, [&](int number) {
            working_directory = tarn_stitcher.local_path;
            if (told.frame_comes) {
                told.frame_comes(number);
            }
        });
        waiting_observer observer(told.sweep_waits);
        sweep_settings settings;
        settings.workers = workers;
        settings.observers = {&observer};
        if (told.library_answers) {
            settings.on_log = [&](const std::string&) { told.library_answers(); };
        }
        sweep_result result = run_sweep(input, settings);
        EXPECT_EQ(observer.records.size(), static_cast<std::size_t>(result.frames));
        int with_a_code = 0;
        for (int code = tarn::lowest_code; code <= tarn::highest_code; ++code) {
            with_a_code += result.by_code[static_cast<tarn::answer_code>(code)];
        }
        EXPECT_EQ(with_a_code, result.frames);
        EXPECT_LE(result.taken, result.frames);
        EXPECT_FALSE(fs::exists(working_directory)) << "the library has not left its working directory";
        EXPECT_EQ(take_output(), "") << "the library's lines are not the host's";
        return result;
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

TEST_F(HostSweep, AnyNumberOfThreadsAndWorkersGivesTheSameBytes)
{
    const std::vector<cv::Mat> pictures = pictures_of_a_slide(24);
    sweep_result first;
    // More than there are processors, whatever their number is on this machine.
    for (const int threads : {1, 2, 3, 4, 7, 16}) {
        cv::setNumThreads(threads);
        for (const int workers : {1, 3, 6}) {
            SCOPED_TRACE(std::to_string(threads) + " threads, " + std::to_string(workers) + " workers");
            const sweep_result result = sweep_through(pictures, workers);
            EXPECT_EQ(result.outcome, sweep_outcome::complete);
            if (first.panorama_file.empty()) {
                first = result;
            }
            EXPECT_FALSE(result.panorama_file.empty());
            EXPECT_EQ(result.panorama_file, first.panorama_file);
            ASSERT_EQ(result.preview.size(), first.preview.size());
            EXPECT_EQ(cv::norm(result.preview, first.preview, cv::NORM_INF), 0.0);
        }
    }
    cv::setNumThreads(-1);
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
    }
}

TEST_F(HostSweep, SlowLastWorkerIsWaitedFor)
{
    constexpr int length = 8;
    auto last_index = std::make_shared<std::atomic<int>>(0);
    auto waited_for = std::make_shared<door>();
    on_worker_stage([last_index, waited_for](worker_stage stage, int big_frame_index) {
        if (stage == worker_stage::turn_taken && big_frame_index == last_index->load()) {
            waited_for->wait();
        }
    });
    int waits = 0;
    steps told;
    told.frame_comes = [&](int number) { *last_index = number == length ? tarn_stitcher.big_frame_index + 1 : 0; };
    told.sweep_waits = [&](int key_frames) {
        if (*last_index != 0 && tarn_stitcher.big_frame_index == *last_index) {
            EXPECT_EQ(key_frames, 1);
            if (++waits == 3) {
                waited_for->open();
            }
        }
    };
    const sweep_result result = sweep_through(pictures_of_a_slide(length), 2, told);
    EXPECT_GE(waits, 3);
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
    EXPECT_EQ(result.by_code[tarn::code_pipeline_failed], 1);
    EXPECT_NE(result.why, tarn::reason::none);
    EXPECT_NE(result.why, tarn::reason::pipeline_failed);
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
    steps told;
    told.frame_comes = [&](int number) { *last_index = number == length ? tarn_stitcher.big_frame_index + 1 : 0; };
    const sweep_result result = sweep_through(pictures_of_a_slide(length), 2, told);
    EXPECT_EQ(result.outcome, sweep_outcome::pipeline_failed);
    EXPECT_EQ(result.broken_at_frame, length);
    EXPECT_EQ(result.failed_key_frame, last_index->load());
    EXPECT_EQ(result.failed_frame, length);
    EXPECT_EQ(result.taken, length - 1);
    EXPECT_TRUE(is_jpeg_of(result.panorama_file, result.panorama.size()));
}

TEST_F(HostSweep, PanoramaThatIsNotThereThoughNoWorkerFailedBreaksTheSweep)
{
    // A ticket that stands beyond the last key frame, whose worker is in its turn still.
    constexpr int length = 8;
    auto last_index = std::make_shared<std::atomic<int>>(0);
    auto sweep_is_over = std::make_shared<door>();
    on_worker_stage([last_index, sweep_is_over](worker_stage stage, int big_frame_index) {
        if (stage == worker_stage::turn_taken && big_frame_index == last_index->load()) {
            sweep_is_over->wait();
        }
    });
    steps told;
    told.frame_comes = [&](int number) { *last_index = number == length ? tarn_stitcher.big_frame_index + 1 : 0; };
    told.sweep_waits = [&](int) {
        if (*last_index != 0 && tarn_stitcher.big_frame_index == *last_index) {
            tarn::store_release(big_frame_num, *last_index + 1);
        }
    };
    const sweep_result result = sweep_through(pictures_of_a_slide(length), 2, told);
    sweep_is_over->open();
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
    // There are no more than these two: one that started after the failure would pass its ticket on at once. Once the
    // failure shows, a second wait without a call between them is that for the pipeline to come back, after the call
    // that was answered -1; only then may the next worker take its turn.
    int calls = 0;
    int waits_since_it_failed = 0;
    steps told;
    told.library_answers = [&] {
        ++calls;
        waits_since_it_failed = 0;
    };
    told.sweep_waits = [&](int) {
        if (tarn::look_at_pipeline().status == tarn::pipeline_failed && ++waits_since_it_failed == 2) {
            host_has_met_the_failure->open();
        }
    };
    const sweep_result result = sweep_through(pictures_of_a_slide(length), 2, told);
    EXPECT_EQ(calls, length + 1);  // the frame answered -1 was handed over again
    EXPECT_EQ(result.outcome, sweep_outcome::complete);
    EXPECT_EQ(result.failed_key_frame, failing);
    EXPECT_EQ(result.frames, length);
    EXPECT_EQ(result.taken, length);
    EXPECT_EQ(result.by_code[tarn::code_pipeline_failed], 0);
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
    EXPECT_EQ(result.why, tarn::reason::no_thread);
    EXPECT_TRUE(result.panorama_file.empty());
}

TEST_F(HostSweep, PanoramaNeedsNoWorkingFile)
{
    constexpr int length = 8;
    const std::vector<cv::Mat> pictures = pictures_of_a_slide(length);
    const std::vector<unsigned char> undisturbed = sweep_through(pictures).panorama_file;
    ASSERT_FALSE(undisturbed.empty());
    const auto no_directory = [] { fs::remove_all(tarn_stitcher.local_path); };
    const auto no_place_for_the_file = [] {
        fs::create_directories(tarn_stitcher.local_path + "big_stitch.jpg/occupied");
    };
    for (const std::function<void()>& disturb :
         {std::function<void()>(no_directory), std::function<void()>(no_place_for_the_file)}) {
        steps told;
        told.frame_comes = [&](int number) {
            if (number == length / 2) {
                disturb();
            }
        };
        const sweep_result result = sweep_through(pictures, 2, told);
        EXPECT_EQ(result.outcome, sweep_outcome::complete);
        EXPECT_EQ(result.panorama_file, undisturbed);
    }
}

TEST_F(HostSweep, PlacesOfKeyFramesAreThoseOfTheSlide)
{
    constexpr int length = 20;
    const sweep_result result = sweep_through(pictures_of_a_slide(length));
    EXPECT_EQ(result.frame, cv::Size(360, 480));
    // The last one is composed without being placed live.
    ASSERT_EQ(result.composed.size(), static_cast<std::size_t>(result.key_frames));
    EXPECT_EQ(result.places.size(), result.composed.size() - 1);
    double reached = -1.0;
    for (const tarn::composed_key_frame& one : result.composed) {
        EXPECT_NEAR(one.panorama_from_frame(0, 0), 1.0, 0.02);
        EXPECT_NEAR(one.panorama_from_frame(0, 1), 0.0, 0.02);
        EXPECT_GT(one.panorama_from_frame(1, 2), reached);
        reached = one.panorama_from_frame(1, 2);
    }
    EXPECT_NEAR(reached, (length - 1) * 48, 10);
    const verdict judged = judge(result);
    EXPECT_EQ(judged.how_good, grade::good);
    EXPECT_EQ(judged.numbers.path, camera_path::sliding);
}

TEST_F(HostSweep, PlacesOfKeyFramesMoveWithThePanorama)
{
    constexpr int length = 20;
    std::vector<cv::Mat> pictures = pictures_of_a_slide(length);
    std::reverse(pictures.begin(), pictures.end());
    const sweep_result result = sweep_through(pictures);
    ASSERT_GT(result.composed.size(), 2U);
    EXPECT_EQ(result.composed.front().key_frame, 1);
    EXPECT_NEAR(result.composed.front().panorama_from_frame(1, 2), (length - 1) * 48, 10);
    EXPECT_NEAR(result.composed.back().panorama_from_frame(1, 2), 0.0, 2.0);
}

TEST_F(HostSweep, NearerKeyFramesAreMore)
{
    const std::vector<cv::Mat> pictures = pictures_of_a_slide(20);
    watched_input input(pictures, nullptr);
    sweep_settings settings;
    settings.key_frame_overlap = 0.9f;
    EXPECT_GT(run_sweep(input, settings).key_frames, sweep_through(pictures).key_frames);
}

TEST_F(HostSweep, WorkingFilesAreKeptWhereTheyAreWanted)
{
    const std::string kept = root() + "kept";
    fs::create_directory(kept);
    watched_input input(pictures_of_a_slide(8), nullptr);
    sweep_settings settings;
    settings.kept_files = kept;
    const sweep_result result = run_sweep(input, settings);
    std::vector<std::string> expected = {"big_stitch.jpg"};
    for (int number = 1; number <= result.key_frames; ++number) {
        expected.push_back("big_frame" + std::to_string(number) + ".jpg");
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(entries_of(kept), expected);
}

TEST_F(HostSweep, PictureThatTheLibraryDoesNotTakeEndsTheSweep)
{
    const sweep_result result = sweep_through({cv::Mat(20, 16385, CV_8UC3, cv::Scalar::all(90))});
    EXPECT_EQ(result.outcome, sweep_outcome::input_failed);
    EXPECT_EQ(result.input_error.rfind("picture 1 cannot be stitched: ", 0), 0U) << result.input_error;
    EXPECT_EQ(result.frames, 0);
    EXPECT_TRUE(result.panorama_file.empty());
}

/// A stop cannot be taken back, so each is asked for in a process of its own.
class HostSweepDeathTest : public HostSweep {
protected:
    /// Asks to stop when the second frame waits for the first one's worker, which is held until then.
    static sweep_result stopped_while_it_waits(stop_kind kind)
    {
        static door asked_for;
        tarn::worker_stage_hook = [](worker_stage stage, int) {
            if (stage == worker_stage::started) {
                asked_for.wait();
            }
        };
        watched_input input(pictures_of_a_slide(12), nullptr);
        waiting_observer observer([kind](int) {
            ask_to_stop(kind);
            asked_for.open();
        });
        sweep_settings settings;
        settings.workers = 1;
        settings.observers = {&observer};
        return run_sweep(input, settings);
    }
};

TEST_F(HostSweepDeathTest, StopWhileItWaitsMakesTheFrameTheLastOne)
{
    EXPECT_EXIT(
        {
            const sweep_result result = stopped_while_it_waits(stop_kind::interrupted);
            const bool ended = result.outcome == sweep_outcome::complete && result.frames == 2 && result.taken == 2
                               && result.last_frame == 2 && result.key_frames == 2
                               && is_jpeg_of(result.panorama_file, result.panorama.size());
            std::_Exit(ended ? EXIT_SUCCESS : EXIT_FAILURE);
        },
        testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST_F(HostSweepDeathTest, GivingUpWhileItWaitsLeavesNothing)
{
    EXPECT_EXIT(
        {
            const sweep_result result = stopped_while_it_waits(stop_kind::give_up);
            const bool ended = result.outcome == sweep_outcome::given_up && result.frames == 1
                               && result.panorama.empty() && result.panorama_file.empty();
            std::_Exit(ended ? EXIT_SUCCESS : EXIT_FAILURE);
        },
        testing::ExitedWithCode(EXIT_SUCCESS), "");
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
    EXPECT_THROW(frame_feed(std::make_unique<picture_list>(std::vector<cv::Mat>(3)), {}, frame_turn::none), host_error);
}
