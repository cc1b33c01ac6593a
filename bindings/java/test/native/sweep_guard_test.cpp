// SPDX-License-Identifier: Apache-2.0
//
// Several threads at the library's door: who is let in, who is answered at once, who waits. Stepped by the stages
// of the library itself, and run under ThreadSanitizer.
#include <atomic>
#include <filesystem>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/rendered_sweep.h"
#include "support/stitcher_fixture.h"
#include "sweep_guard.h"

namespace {

using namespace tarn::binding;
using tarn::worker_stage;
using tarn::test::rendered_sweep;

constexpr int busy = 0;
constexpr int normal = 1;
constexpr int failed = -1;

class SweepGuard : public tarn::test::stitcher_fixture {
protected:
    void TearDown() override
    {
        end_sweep(sweep_);
        stitcher_fixture::TearDown();
    }

    sweep_id begin()
    {
        sweep_ = begin_sweep(directory());
        return sweep_;
    }

    // A call that stays inside the library, where it launches a worker, until it is let go.
    class call_inside {
    public:
        std::promise<void> let_go;
        std::future<int> answer;

        call_inside() = default;
        call_inside(call_inside&&) = default;
        call_inside& operator=(call_inside&&) = default;
        call_inside(const call_inside&) = delete;
        call_inside& operator=(const call_inside&) = delete;
        ~call_inside() = default;
    };

    call_inside enter(int direction = 0)
    {
        call_inside call;
        auto inside = std::make_shared<std::promise<void>>();
        auto go_on = std::make_shared<std::future<void>>(call.let_go.get_future());
        auto first = std::make_shared<std::atomic<bool>>(true);
        on_worker_stage([inside, go_on, first](worker_stage stage, int) {
            if (stage == worker_stage::launching && first->exchange(false)) {
                inside->set_value();
                go_on->wait();
            }
        });
        auto is_inside = inside->get_future();
        call.answer = std::async(std::launch::async, [this, direction] {
            return register_frame(sweep_, sweep_frames_.host_frame(0), direction, false);
        });
        is_inside.wait();
        return call;
    }

    sweep_id sweep_ = 0;
    rendered_sweep sweep_frames_ = tarn::test::slide({320, 240}, tarn::test::moving_right, 12.0, 8);
};

TEST_F(SweepGuard, AnswersBusyToAFrameWhileAnotherOneIsInside)
{
    begin();
    auto call = enter();
    EXPECT_EQ(register_frame(sweep_, sweep_frames_.host_frame(1), 0, false), busy);
    call.let_go.set_value();
    EXPECT_EQ(call.answer.get(), normal);
}

TEST_F(SweepGuard, AFrameThatWasAnsweredBusyIsNotCountedAsARejectedOne)
{
    begin();
    auto call = enter();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(register_frame(sweep_, sweep_frames_.host_frame(1), 0, false), busy);
    }
    call.let_go.set_value();
    EXPECT_EQ(call.answer.get(), normal);
    EXPECT_EQ(tarn_stitcher.failed_count, 0);
    EXPECT_NE(register_frame(sweep_, sweep_frames_.host_frame(1), 0, false), busy);
}

TEST_F(SweepGuard, AFailedPipelineComesBeforeBusy)
{
    begin();
    auto call = enter();
    tarn::store_release(big_stitch_status, tarn::pipeline_failed);
    EXPECT_EQ(register_frame(sweep_, sweep_frames_.host_frame(1), 0, false), failed);
    tarn::store_release(big_stitch_status, tarn::pipeline_empty);
    call.let_go.set_value();
    call.answer.get();
}

TEST_F(SweepGuard, TheLastFrameWaitsForTheOneInsideAndIsNeverAnsweredBusy)
{
    begin();
    auto call = enter();
    auto last = std::async(std::launch::async,
                           [this] { return register_frame(sweep_, sweep_frames_.host_frame(1), 0, true); });
    call.let_go.set_value();
    EXPECT_EQ(call.answer.get(), normal);
    EXPECT_EQ(last.get(), normal);
    EXPECT_EQ(look_at_sweep(sweep_).panorama, directory() + "big_stitch.jpg");
    EXPECT_EQ(look_at_sweep(sweep_).pending_key_frames, 0);
}

TEST_F(SweepGuard, ALookNeverWaitsForTheCallInside)
{
    begin();
    auto call = enter();
    const sweep_view view = look_at_sweep(sweep_);  // would never return if it waited
    EXPECT_TRUE(view.preview.empty());
    EXPECT_EQ(view.panorama, "");
    EXPECT_EQ(view.pending_key_frames, 0);
    call.let_go.set_value();
    call.answer.get();
    EXPECT_EQ(look_at_sweep(sweep_).preview.size(), tarn::test::working_copy_size(sweep_frames_.frame_size));
}

TEST_F(SweepGuard, ANewSweepWaitsForTheCallInside)
{
    begin();
    auto call = enter();
    std::atomic<bool> let_go{false};
    const std::string next_directory = root() + "next/";
    std::filesystem::create_directory(next_directory);
    auto next = std::async(std::launch::async, [&] {
        const sweep_id begun = begin_sweep(next_directory);
        EXPECT_TRUE(let_go.load());
        return begun;
    });
    let_go = true;
    call.let_go.set_value();
    call.answer.get();
    const sweep_id begun = next.get();
    EXPECT_NE(begun, 0);
    EXPECT_NE(begun, sweep_);
    EXPECT_THROW(register_frame(sweep_, sweep_frames_.host_frame(1), 0, false), sweep_is_over);
    sweep_ = begun;
}

TEST_F(SweepGuard, ANewSweepTellsALastFrameToGiveUpItsWait)
{
    begin();
    hold_workers();
    max_wait_seconds = 100000;  // only giving up ends the wait
    auto inside = std::make_shared<std::promise<void>>();
    auto is_inside = inside->get_future();
    on_worker_stage([inside](worker_stage stage, int) {
        if (stage == worker_stage::launching) {
            inside->set_value();
        }
    });
    auto last = std::async(std::launch::async,
                           [this] { return register_frame(sweep_, sweep_frames_.host_frame(0), 0, true); });
    is_inside.wait();
    on_worker_stage(nullptr);
    const sweep_id old = sweep_;
    begin();
    last.get();
    EXPECT_NE(sweep_, old);
    EXPECT_EQ(max_wait_seconds, 100000);
    EXPECT_EQ(look_at_sweep(sweep_).panorama, "");
}

TEST_F(SweepGuard, AFrameThatWaitedWhileItsSweepWasReplacedIsNotTaken)
{
    begin();
    auto call = enter();
    const sweep_id old = sweep_;
    auto last = std::async(std::launch::async,
                           [this, old] { return register_frame(old, sweep_frames_.host_frame(1), 0, true); });
    auto next = std::async(std::launch::async, [this] { return begin_sweep(directory()); });
    call.let_go.set_value();
    call.answer.get();
    sweep_ = next.get();
    try {
        last.get();  // it had its turn before the new sweep …
    } catch (const sweep_is_over&) {
        EXPECT_EQ(tarn_stitcher.big_frame_index, 0);  // … or never
    }
    EXPECT_TRUE(look_at_sweep(sweep_).preview.empty());
}

TEST_F(SweepGuard, EndingRemovesTheDirectoryAndOnlyTheCurrentSweepCanBeEnded)
{
    const sweep_id old = begin();
    begin();
    end_sweep(old);
    EXPECT_TRUE(std::filesystem::exists(directory()));
    EXPECT_EQ(tarn_stitcher.local_path, directory());
    end_sweep(sweep_);
    EXPECT_FALSE(std::filesystem::exists(directory()));
    EXPECT_THROW(look_at_sweep(sweep_), sweep_is_over);
    end_sweep(sweep_);
}

TEST_F(SweepGuard, NoSweepIsNamedZero)
{
    begin();
    end_sweep(sweep_);
    EXPECT_THROW(look_at_sweep(0), sweep_is_over);
    EXPECT_THROW(register_frame(0, sweep_frames_.host_frame(0), 0, false), sweep_is_over);
}

TEST_F(SweepGuard, ADirectoryThatTheLibraryCannotEnterLeavesTheOldSweepInPlace)
{
    begin();
    EXPECT_EQ(begin_sweep("/proc/version/sweep/"), 0);
    EXPECT_NO_THROW(look_at_sweep(sweep_));
}

TEST_F(SweepGuard, ANewSweepGetsItsTurnAlthoughAnotherThreadNeverPauses)
{
    begin();
    std::atomic<sweep_id> current{sweep_};
    std::atomic<bool> enough{false};
    std::thread camera([&] {
        for (int i = 0; !enough; ++i) {
            try {
                register_frame(current, sweep_frames_.host_frame(i % 8), 0, false);
            } catch (const sweep_is_over&) {
                // Another one has begun.
            }
        }
    });
    const int sweeps = tarn::test::scaled_count(50, 5);
    for (int i = 0; i < sweeps; ++i) {
        current = begin();
    }
    enough = true;
    camera.join();
}

TEST_F(SweepGuard, FramesLooksAndNewSweepsFromManyThreadsAtOnce)
{
    begin();
    const int rounds = tarn::test::scaled_count(40, 4);
    std::atomic<sweep_id> current{sweep_};
    const auto tolerant = [](const auto& call) {
        try {
            call();
        } catch (const sweep_is_over&) {
            // Another thread has begun another one.
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < rounds * 8; ++i) {
                tolerant([&] {
                    const bool is_last = i % 16 == 15;
                    const int code = register_frame(current, sweep_frames_.host_frame(i % 8), 0, is_last);
                    EXPECT_GE(code, -1);
                    EXPECT_LE(code, 6);
                });
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < rounds * 20; ++i) {
            tolerant([&] {
                const sweep_view view = look_at_sweep(current);
                EXPECT_GE(view.pending_key_frames, 0);
                EXPECT_TRUE(view.preview.empty() || cv::sum(view.preview)[0] > 0);
            });
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; i < rounds; ++i) {
            current = begin_sweep(directory());
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    sweep_ = current;
}

}  // namespace
