// SPDX-License-Identifier: Apache-2.0
//
// Sweeps that are disturbed: tasks replaced while their workers are at any stage, which must leave nothing behind,
// and sweeps whose workers are delayed, which must give the same panorama to the last byte.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "internal/shared_state.h"
#include "internal/worker_life.h"
#include "internal/worker_pool.h"
#include "support/random_input.h"
#include "support/rendered_sweep.h"
#include "support/watched_allocations.h"
#include "support/worker_stepper.h"
#include "tarn_stitch_jni.h"

namespace {

namespace fs = std::filesystem;
using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using tarn::worker_stage;

const std::vector<worker_stage> all_stages = {worker_stage::started,          worker_stage::frame_prepared,
                                              worker_stage::frame_described,  worker_stage::file_written,
                                              worker_stage::polling_for_base, worker_stage::polling_for_idle,
                                              worker_stage::polling_for_turn, worker_stage::turn_taken,
                                              worker_stage::registered,       worker_stage::composed};

// -------------------------------------------------------------------------------------- one worker, one stage

class ReplacedTask : public worker_fixture {
protected:
    /// Launches a worker with the index 2 and holds it at `stage`.
    void bring_to(worker_stage stage)
    {
        const int visits_before = stepper.times_at(stage, 2);
        const int turns_before = stepper.times_at(worker_stage::turn_taken, 1);
        stepper.hold_at(stage, 2);
        switch (stage) {
        case worker_stage::polling_for_base:
            launch_sphere_switch();
            break;
        case worker_stage::polling_for_idle:
            stepper.hold_at(worker_stage::turn_taken, 1);
            launch_key_frame(1);
            ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 1, turns_before + 1));
            launch_key_frame(2);
            break;
        case worker_stage::polling_for_turn:
            launch_key_frame(2);
            break;
        default:
            add_key_frame(1);
            launch_key_frame(2);
            break;
        }
        ASSERT_TRUE(stepper.wait_until_at(stage, 2, visits_before + 1));
    }

    /// Replaces the task while the worker is held, lets it go, and checks that nothing shows of it.
    void expect_nothing_left_behind(worker_stage stage, const std::string& new_directory)
    {
        bring_to(stage);
        const std::string old_directory = big_local_path;
        const int polls_before = stepper.times_at(stage, 2);

        resetStitch(new_directory.c_str());
        const std::string path_before = getTestCurrentPanoramaShow();
        const shared_state fresh = look_at_shared_state();
        EXPECT_EQ(fresh.status, 0);
        EXPECT_EQ(fresh.ticket, 0);
        EXPECT_TRUE(fresh.panorama.empty());
        stepper.let_go(stage, 2);
        stepper.let_go(worker_stage::turn_taken, 1);

        ASSERT_TRUE(wait_for_workers());
        EXPECT_EQ(stepper.times_at(stage, 2), polls_before) << "gone at once, not a poll later";
        EXPECT_TRUE(same_state(fresh, look_at_shared_state()));
        EXPECT_EQ(tarn::look_at_pipeline().first_failed_frame, 0);
        EXPECT_EQ(std::string(getTestCurrentPanoramaShow()), path_before);
        if (!new_directory.empty()) {
            EXPECT_TRUE(entries_of(new_directory).empty());
        }
        if (new_directory != old_directory) {
            EXPECT_FALSE(fs::exists(old_directory));
        }
    }

    std::string new_directory(int number) const
    {
        std::string path = root() + "next" + std::to_string(number) + "/";
        fs::create_directory(path);
        return path;
    }
};

TEST_F(ReplacedTask, WorkerAtAnyStageLeavesNothingBehindInTheSameDirectory)
{
    for (const worker_stage stage : all_stages) {
        SCOPED_TRACE(static_cast<int>(stage));
        expect_nothing_left_behind(stage, directory());
    }
}

TEST_F(ReplacedTask, WorkerAtAnyStageLeavesNothingBehindInAnotherDirectory)
{
    int number = 0;
    for (const worker_stage stage : all_stages) {
        SCOPED_TRACE(static_cast<int>(stage));
        expect_nothing_left_behind(stage, new_directory(number++));
    }
}

TEST_F(ReplacedTask, WorkerAtAnyStageLeavesNothingBehindInATaskWithoutDirectory)
{
    const fs::path before = fs::current_path();
    for (const worker_stage stage : all_stages) {
        SCOPED_TRACE(static_cast<int>(stage));
        fs::current_path(before);
        resetStitch(new_directory(1).c_str());
        fs::create_directory(root() + "current");
        fs::current_path(root() + "current");
        expect_nothing_left_behind(stage, "");
        EXPECT_TRUE(entries_of(root() + "current").empty());
    }
    fs::current_path(before);
}

TEST_F(ReplacedTask, ConstructingATaskDirectlyShutsTheOldWorkersOutJustTheSame)
{
    bring_to(worker_stage::turn_taken);

    const TarnStitcher another(directory());
    const shared_state fresh = look_at_shared_state();
    stepper.let_go(worker_stage::turn_taken, 2);

    ASSERT_TRUE(wait_for_workers());
    EXPECT_TRUE(same_state(fresh, look_at_shared_state()));
    EXPECT_EQ(big_stitch_status, 0);
}

TEST_F(ReplacedTask, WorkerThatCouldGrowThePanoramaInPlaceWritesNoneOfTheOldTasksPixels)
{
    for (int index = 1; index <= 3; ++index) {
        add_key_frame(index);
    }
    stepper.hold_at(worker_stage::composed, 4);
    launch_key_frame(4);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::composed, 4));
    const cv::Mat shown = tarn::look_at_pipeline().panorama;  // as a host may keep it
    const cv::Mat before = shown.clone();

    resetStitch(directory().c_str());
    const shared_state fresh = look_at_shared_state();
    stepper.let_go(worker_stage::composed, 4);

    ASSERT_TRUE(wait_for_workers());
    EXPECT_TRUE(same_state(fresh, look_at_shared_state()));
    EXPECT_EQ(fresh.status, 0);
    EXPECT_TRUE(same_pixels(before, shown));
}

TEST_F(ReplacedTask, WorkerThatMakesRoomForThePanoramaDoesNotHandItOver)
{
    add_key_frame(1);
    shared_state fresh;
    std::unique_ptr<watched_allocations> room_is_made;
    stepper.at(worker_stage::composed, 2, [&] {
        room_is_made = std::make_unique<watched_allocations>(1, [&] {
            resetStitch(directory().c_str());
            fresh = look_at_shared_state();
        });
    });
    add_key_frame(2);
    ASSERT_TRUE(room_is_made && room_is_made->came_so_far()) << "between the composition and the hand-over";
    room_is_made.reset();

    EXPECT_EQ(fresh.status, 0);
    EXPECT_EQ(fresh.ticket, 0);
    EXPECT_TRUE(same_state(fresh, look_at_shared_state()));
}

TEST_F(ReplacedTask, ReplacementAtTheMomentOfTheHandOverIsWhole)
{
    // Either comes first; what the worker hands over belongs to its own task or to none.
    for (int i = 0; i < scaled_count(10, 3); ++i) {
        resetStitch(directory().c_str());
        for (int index = 1; index <= 3; ++index) {
            add_key_frame(index);
        }
        const int visits = stepper.times_at(worker_stage::composed, 4);
        launch_key_frame(4);
        ASSERT_TRUE(stepper.wait_until_at(worker_stage::composed, 4, visits + 1));
        resetStitch(directory().c_str());
        const shared_state fresh = look_at_shared_state();
        EXPECT_EQ(fresh.status, 0);
        EXPECT_EQ(fresh.ticket, 0);
        EXPECT_TRUE(fresh.panorama.empty());
        ASSERT_TRUE(wait_for_workers());
        EXPECT_TRUE(same_state(fresh, look_at_shared_state()));
    }
}

TEST_F(ReplacedTask, FailingWorkerOfTheOldTaskDoesNotFailTheNewOne)
{
    for (const worker_stage stage : {worker_stage::started, worker_stage::turn_taken}) {
        SCOPED_TRACE(static_cast<int>(stage));
        resetStitch(directory().c_str());
        add_key_frame(1);
        stepper.hold_at(stage, 2);
        stepper.at(stage, 2, [this] { resetStitch(directory().c_str()); });
        // Without this, the frame would fail.
        tarn::launch_worker(cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 90, 90)), right_angles(), full_size(), 3, 2);
        ASSERT_TRUE(stepper.wait_until_at(stage, 2));
        stepper.at(stage, 2, nullptr);
        stepper.let_go(stage, 2);
        ASSERT_TRUE(wait_for_workers());
        EXPECT_EQ(big_stitch_status, 0);
        EXPECT_EQ(big_frame_num, 0);
        EXPECT_EQ(tarn::look_at_pipeline().first_failed_frame, 0);
    }
}

TEST_F(ReplacedTask, ErrorRaisedByAnOldWorkerDoesNotFailTheNewTask)
{
    for (const worker_stage stage : all_stages) {
        if (stage == worker_stage::started || stage == worker_stage::polling_for_base) {
            continue;
        }
        SCOPED_TRACE(static_cast<int>(stage));
        resetStitch(directory().c_str());
        stepper.at(stage, 2, [this] {
            resetStitch(directory().c_str());
            throw std::runtime_error("an error after the task was replaced");
        });
        bring_to(stage);
        stepper.let_go(stage, 2);
        stepper.let_go(worker_stage::turn_taken, 1);
        ASSERT_TRUE(wait_for_workers());
        stepper.at(stage, 2, nullptr);
        EXPECT_EQ(big_stitch_status, 0);
        EXPECT_EQ(big_frame_num, 0);
    }
}

TEST_F(ReplacedTask, TimeOutOfAnOldWorkerDoesNotFailTheNewTask)
{
    bring_to(worker_stage::polling_for_turn);
    tarn::store_release(max_wait_seconds, 0);
    resetStitch(directory().c_str());
    stepper.let_go(worker_stage::polling_for_turn, 2);
    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_stitch_status, 0);
    EXPECT_EQ(big_frame_num, 0);
}

TEST_F(ReplacedTask, OldWorkersDoNotWaitForTurnsOfTheNewTask)
{
    // Old ones wait for turns that come up in the new task, too.
    for (int index = 2; index <= 5; ++index) {
        launch_key_frame(index);
    }
    launch_sphere_switch();
    for (int index = 2; index <= 5; ++index) {
        ASSERT_TRUE(stepper.wait_until_at(worker_stage::polling_for_turn, index));
    }
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::polling_for_base, 2));

    resetStitch(directory().c_str());
    add_key_frame(1);

    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_frame_num, 1);
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_FALSE(SP);
    EXPECT_EQ(entries_of(directory()), std::vector<std::string>({"big_frame1.jpg"}));
}

TEST_F(ReplacedTask, SphereWaitThatWouldNeverEndIsLeftByItsWorkerAtTheNextPoll)
{
    launch_sphere_switch();
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::polling_for_base, 2, 5));

    resetStitch(directory().c_str());
    const int polls = stepper.times_at(worker_stage::polling_for_base, 2);

    ASSERT_TRUE(wait_for_workers());
    EXPECT_LE(stepper.times_at(worker_stage::polling_for_base, 2), polls + 1);
    EXPECT_EQ(stepper.times_at(worker_stage::frame_prepared, 2), 0);
}

TEST_F(ReplacedTask, TaskThatStaysBecauseTheNewDirectoryCannotBeMadeKeepsItsWorkers)
{
    bring_to(worker_stage::file_written);

    resetStitch((root() + "no/such/parent/").c_str());
    stepper.let_go(worker_stage::file_written, 2);

    ASSERT_TRUE(wait_for_workers());
    EXPECT_EQ(big_stitch_status, 3);
    EXPECT_EQ(big_frame_num, 2);
}

TEST_F(ReplacedTask, DirectCallWhoseTaskIsReplacedReturnsWithoutAnException)
{
    for (const worker_stage stage : all_stages) {
        if (stage == worker_stage::polling_for_base) {
            continue;
        }
        SCOPED_TRACE(static_cast<int>(stage));
        resetStitch(directory().c_str());
        add_key_frame(1);
        if (stage == worker_stage::polling_for_idle) {
            tarn::store_release(big_stitch_status, 2);
        } else if (stage == worker_stage::polling_for_turn) {
            tarn::store_release(big_frame_num, 0);
        }
        stepper.at(stage, 2, [this] { resetStitch(directory().c_str()); });

        EXPECT_NO_THROW(add_key_frame(2));

        EXPECT_EQ(big_stitch_status, 0);
        EXPECT_EQ(big_frame_num, 0);
        EXPECT_TRUE(entries_of(directory()).empty());
        stepper.at(stage, 2, nullptr);
    }
}

// ------------------------------------------------------------------------------------------------ whole sweeps

class DisturbedSweep : public worker_fixture {
protected:
    void SetUp() override
    {
        worker_fixture::SetUp();
        const rendered_sweep sweep = slide(cv::Size(320, 240), moving_right, 24.0, 15);
        for (int i = 0; i < sweep.length(); ++i) {
            frames_.push_back(sweep.host_frame(i));
        }
        undisturbed_ = panorama_of_a_sweep();
        ASSERT_FALSE(undisturbed_.empty());
        key_frames_ = tarn_stitcher.big_frame_index;
        ASSERT_GE(key_frames_, 4);
    }

    int length() const
    {
        return static_cast<int>(frames_.size());
    }

    void feed(int i)
    {
        EXPECT_GT(videoStitch(frames_[static_cast<size_t>(i)], moving_right, i == length() - 1 ? 1 : 0)[0], 0)
            << "frame " << i;
    }

    /// The file of a whole sweep of the current task.
    std::vector<unsigned char> panorama_of_a_sweep()
    {
        for (int i = 0; i < length(); ++i) {
            feed(i);
        }
        take_output();
        if (std::string(getCurrentPanoramaShow()).empty()) {
            ADD_FAILURE() << "no panorama: status " << tarn::look_at_pipeline().status << ", ticket "
                          << tarn::look_at_pipeline().turns_over;
            return {};
        }
        return bytes_of(getCurrentPanoramaShow());
    }

    void expect_complete_sweep(const std::string& in_directory)
    {
        EXPECT_TRUE(panorama_of_a_sweep() == undisturbed_) << "another panorama than without disturbance";
        const tarn::pipeline_snapshot pipeline = tarn::look_at_pipeline();
        EXPECT_EQ(pipeline.status, 3);
        EXPECT_EQ(pipeline.turns_over, key_frames_);
        EXPECT_EQ(pipeline.first_failed_frame, 0);
        std::vector<std::string> names;
        for (int i = 1; i <= key_frames_; ++i) {
            names.push_back("big_frame" + std::to_string(i) + ".jpg");
        }
        names.emplace_back("big_stitch.jpg");
        EXPECT_EQ(entries_of(in_directory), names);
    }

    void expect_fresh_task(const std::string& in_directory)
    {
        const tarn::pipeline_snapshot pipeline = tarn::look_at_pipeline();
        EXPECT_EQ(pipeline.status, 0);
        EXPECT_EQ(pipeline.turns_over, 0);
        EXPECT_TRUE(pipeline.panorama.empty());
        EXPECT_TRUE(entries_of(in_directory).empty());
    }

    int key_frames_ = 0;

private:
    std::vector<cv::Mat> frames_;
    std::vector<unsigned char> undisturbed_;
};

TEST_F(DisturbedSweep, SweepsCancelledAtRandomMomentsLeaveNothingBehind)
{
    random_input random;
    const std::vector<std::string> directories = {directory(), root() + "second/", root() + "third/"};
    std::string current = directory();
    const auto reset = [&](bool to_another) {
        if (to_another) {
            current = directories[static_cast<size_t>(random.integer(0, 2))];
            fs::create_directory(current);
        }
        resetStitch(current.c_str());
        expect_fresh_task(current);
    };

    const int sweeps = scaled_count(200, 10);
    for (int i = 0; i < sweeps && !HasFailure(); ++i) {
        SCOPED_TRACE(::testing::Message() << "sweep " << i);
        reset(random.one_in(3));
        const int frames = random.integer(1, length());
        for (int k = 0; k < frames; ++k) {
            feed(k);
        }
        if (random.one_in(2)) {
            usleep(static_cast<useconds_t>(random.integer(0, 40000)));  // only to hit another moment
        }
        // Each old task has some that would wait for ever.
        if (random.one_in(4)) {
            launch_sphere_switch();
            launch_key_frame(9);
        }

        reset(random.one_in(3));
        expect_complete_sweep(current);
    }
    ASSERT_TRUE(wait_for_workers());
    expect_fresh_task((reset(false), current));
}

TEST_F(DisturbedSweep, ResetsInQuickSuccessionLeaveNoWorkerBehind)
{
    random_input random;
    const int rounds = scaled_count(100, 10);
    for (int i = 0; i < rounds && !HasFailure(); ++i) {
        resetStitch(directory().c_str());
        expect_fresh_task(directory());
        launch_key_frame(1);
        launch_sphere_switch();
        launch_key_frame(random.integer(1, 3));
    }
    resetStitch(directory().c_str());
    expect_fresh_task(directory());
    ASSERT_TRUE(wait_for_workers());
    expect_fresh_task(directory());
    expect_complete_sweep(directory());
}

TEST_F(DisturbedSweep, PipelineMayBeLookedAtFromAnyThreadAtAnyTime)
{
    std::atomic<bool> done{false};
    std::atomic<int> inconsistent{0};
    std::thread onlooker([&] {
        while (!done) {
            const tarn::pipeline_snapshot seen = tarn::look_at_pipeline();
            // A ready pipeline has a panorama, and an empty one none.
            if ((seen.status == 3) == seen.panorama.empty() && seen.status != 2) {
                ++inconsistent;
            }
            tarn::workers_in_flight();
        }
    });
    for (int i = 0; i < 5; ++i) {
        resetStitch(directory().c_str());
        for (int k = 0; k < length() / 2; ++k) {
            feed(k);
            getTestCurrentPanoramaShow();
        }
    }
    resetStitch(directory().c_str());
    expect_complete_sweep(directory());
    done = true;
    onlooker.join();
    EXPECT_EQ(inconsistent, 0);
}

// -------------------------------------------------------------------------------------------------- same bytes

TEST_F(DisturbedSweep, DelayedWorkersGiveTheSamePanorama)
{
    random_input random;
    const std::vector<worker_stage> before_the_turn = {worker_stage::started, worker_stage::frame_prepared,
                                                       worker_stage::frame_described, worker_stage::file_written};
    const std::vector<worker_stage> anywhere = {worker_stage::started,         worker_stage::frame_prepared,
                                                worker_stage::frame_described, worker_stage::file_written,
                                                worker_stage::turn_taken,      worker_stage::registered,
                                                worker_stage::composed};
    const auto any_of = [&random](const std::vector<worker_stage>& stages) {
        return stages[static_cast<size_t>(random.integer(0, static_cast<int>(stages.size()) - 1))];
    };
    const int rounds = scaled_count(30, 4);
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        // Each worker stops somewhere until a later one, which depends on nobody before it there, has reached some
        // stage before its turn.
        worker_stepper delays;
        for (int index = 1; index < key_frames_; ++index) {
            const int later = random.integer(index + 1, key_frames_);
            const worker_stage awaited = any_of(before_the_turn);
            delays.at(any_of(anywhere), index, [&delays, awaited, later] { delays.wait_until_at(awaited, later); });
        }
        on_worker_stage(delays.observer());
        resetStitch(directory().c_str());
        expect_complete_sweep(directory());
        ASSERT_TRUE(wait_for_workers());
    }
}

TEST_F(DisturbedSweep, WorkersInStrictSequenceGiveTheSamePanorama)
{
    resetStitch(directory().c_str());
    for (int index = 2; index <= key_frames_; ++index) {
        stepper.at(worker_stage::launching, index, [this] { wait_for_workers(); });
    }
    expect_complete_sweep(directory());
}

TEST_F(DisturbedSweep, AnyNumberOfThreadsOfTheImageLibraryGivesTheSamePanorama)
{
    for (const int threads : {1, 2, 3, 8, 0}) {
        SCOPED_TRACE(threads);
        cv::setNumThreads(threads);
        resetStitch(directory().c_str());
        expect_complete_sweep(directory());
        ASSERT_TRUE(wait_for_workers());
    }
}

TEST_F(DisturbedSweep, ThreadsThatHaveDrawnRandomNumbersBeforeGiveTheSamePanorama)
{
    random_input random;
    for (int round = 0; round < 3; ++round) {
        cv::theRNG().state = static_cast<std::uint64_t>(random.integer(1, 1 << 30));
        for (int index = 1; index <= key_frames_; ++index) {
            const auto seed = static_cast<std::uint64_t>(random.integer(1, 1 << 30));
            stepper.at(worker_stage::started, index, [seed] { cv::theRNG().state = seed; });
        }
        resetStitch(directory().c_str());
        expect_complete_sweep(directory());
        ASSERT_TRUE(wait_for_workers());
    }
}

TEST_F(DisturbedSweep, WorkersCalledOnTheHostsThreadGiveTheSamePanoramaAsThreads)
{
    const auto last_panorama = [](const std::function<void(int)>& add) {
        for (int index = 1; index <= 5; ++index) {
            add(index);
        }
        while (tarn::look_at_pipeline().turns_over < 5) {
            usleep(1000);
        }
        return tarn::look_at_pipeline().panorama;
    };
    resetStitch(directory().c_str());
    const cv::Mat by_threads = last_panorama(&launch_key_frame);
    resetStitch(directory().c_str());
    cv::theRNG().next();
    const cv::Mat by_calls = last_panorama(&add_key_frame);
    EXPECT_TRUE(same_pixels(by_threads, by_calls));
}

}  // namespace
