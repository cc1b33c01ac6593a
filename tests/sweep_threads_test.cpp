// SPDX-License-Identifier: Apache-2.0
//
// A sweep used by several threads at once: every call is answered as the header says, whatever the others do.
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/random_input.h"
#include "support/sweep_fixture.h"
#include "tarn_stitch_jni.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using namespace tarn;        // NOLINT(google-build-using-namespace): these are all about it

class SweepThreads : public sweep_fixture {
protected:
    /// A sweep whose second key frame is held, so that a finish waits.
    sweep held_sweep(sweep_options with)
    {
        stepper.hold_at(worker_stage::turn_taken, 2);
        sweep result = sweep::begin(std::move(with));
        feed_until_key_frame(result, 2);
        EXPECT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 2));
        return result;
    }

    /// A callback by which the other thread knows that the wait has begun.
    finish_options telling()
    {
        finish_options result;
        result.on_progress = [this](int, int) {
            waits_ = true;
            return true;
        };
        return result;
    }

    void wait_until_it_waits() const
    {
        while (!waits_) {
            std::this_thread::yield();
        }
    }

    std::atomic<bool> waits_{false};
};

TEST_F(SweepThreads, CancelEndsAFinishThatWaits)
{
    sweep sweeping = held_sweep(options());
    panorama result;
    std::thread finishing([&] { result = sweeping.finish(telling()); });
    wait_until_it_waits();
    sweeping.cancel();
    finishing.join();
    EXPECT_EQ(result.extent, panorama_extent::partial) << "what there was";
    EXPECT_EQ(result.why, reason::cancelled);
    expect_over(sweeping);
    EXPECT_TRUE(private_directories().empty());
}

TEST_F(SweepThreads, CancelEndsAFinishWithALastFrame)
{
    sweep sweeping = held_sweep(options());
    panorama result;
    const frame_view last = view(9);
    finish_options ending = telling();
    ending.last_frame = &last;
    std::thread finishing([&] { result = sweeping.finish(ending); });
    wait_until_it_waits();
    sweeping.cancel();
    finishing.join();
    EXPECT_EQ(result.why, reason::cancelled);
    EXPECT_TRUE(result.last_frame.taken);
    expect_over(sweeping);
}

TEST_F(SweepThreads, CancelEndsAFeedThatHoldsBack)
{
    sweep_options paced = options();
    paced.most_under_way = 1;
    paced.while_waiting = [this](int) {
        waits_ = true;
        return true;
    };
    stepper.hold_at(worker_stage::turn_taken, 1);
    sweep sweeping = sweep::begin(paced);
    feed(sweeping, 0, 1);
    frame_answer answer;
    std::thread feeding([&] { answer = sweeping.feed(view(1)); });
    wait_until_it_waits();
    sweeping.cancel();
    feeding.join();
    EXPECT_EQ(answer.why, reason::cancelled);
    EXPECT_FALSE(answer.taken);
    expect_over(sweeping);
}

TEST_F(SweepThreads, NewSweepEndsAFinishThatWaits)
{
    sweep sweeping = held_sweep(options());
    panorama result;
    std::thread finishing([&] { result = sweeping.finish(telling()); });
    wait_until_it_waits();
    sweep next = sweep::begin(options());
    finishing.join();
    EXPECT_EQ(result.why, reason::cancelled);
    expect_over(sweeping);
    stepper.let_everybody_go();
    feed(next, 0, 6);
    EXPECT_EQ(next.finish().extent, panorama_extent::whole);
}

TEST_F(SweepThreads, RefusedBeginDoesNotEndTheWait)
{
    sweep sweeping = held_sweep(options());
    panorama result;
    std::thread finishing([&] { result = sweeping.finish(telling()); });
    wait_until_it_waits();
    sweep_options wrong;
    wrong.directory = "/";
    refusal(sweep_problem::directory_unusable, [&] { sweep::begin(wrong); });
    stepper.let_everybody_go();
    finishing.join();
    EXPECT_EQ(result.extent, panorama_extent::whole);
}

TEST_F(SweepThreads, ResetByTheHostEndsAFinishThatWaits)
{
    sweep sweeping = held_sweep(options());
    panorama result;
    std::thread finishing([&] { result = sweeping.finish(telling()); });
    wait_until_it_waits();
    resetStitch(directory().c_str());
    finishing.join();
    EXPECT_NE(result.extent, panorama_extent::whole);
    EXPECT_EQ(result.why, reason::cancelled);
    expect_over(sweeping);
}

TEST_F(SweepThreads, SecondFinishWaitsForTheFirst)
{
    sweep sweeping = held_sweep(options());
    panorama first;
    panorama second;
    std::thread one([&] { first = sweeping.finish(telling()); });
    wait_until_it_waits();
    const frame_view last = view(8);
    std::thread other([&] { second = sweeping.finish({&last}); });
    const frame_answer busy = sweeping.feed(view(9));
    EXPECT_EQ(busy.why, reason::busy);
    stepper.let_everybody_go();
    one.join();
    other.join();
    EXPECT_EQ(first.extent, panorama_extent::whole);
    EXPECT_EQ(second.extent, panorama_extent::whole);
    EXPECT_EQ(second.key_frames, first.key_frames + 1);
}

TEST_F(SweepThreads, FeedDuringAFailedSweepsFinishSaysThatItHasFailed)
{
    stepper.at(worker_stage::registered, 2, [] { throw std::bad_alloc(); });
    sweep sweeping = sweep::begin(options());
    stepper.hold_at(worker_stage::turn_taken, 2);
    stepper.hold_at(worker_stage::file_written, 3);
    feed_until_key_frame(sweeping, 3);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::file_written, 3));
    stepper.let_go(worker_stage::turn_taken, 2);
    ASSERT_TRUE(wait_for_turns(2));
    std::thread finishing([&] { sweeping.finish(telling()); });
    wait_until_it_waits();
    const frame_answer answer = sweeping.feed(view(9));
    EXPECT_EQ(answer.code, code_pipeline_failed);
    EXPECT_EQ(answer.why, reason::pipeline_failed);
    sweeping.cancel();
    finishing.join();
}

TEST_F(SweepThreads, BeginAndCancelAreNotStarvedByAStreamOfFrames)
{
    std::atomic<bool> stops{false};
    std::optional<sweep> sweeping(sweep::begin(options()));
    std::vector<std::thread> cameras;
    for (int n = 0; n < 2; ++n) {
        cameras.emplace_back([&] {
            while (!stops) {
                try {
                    sweeping->feed(blank_view());
                } catch (const sweep_error&) {
                    return;  // over
                }
            }
        });
    }
    sweep next = sweep::begin(options());
    for (std::thread& camera : cameras) {
        camera.join();
    }
    stops = true;
    expect_over(*sweeping);
    EXPECT_TRUE(next.is_current());
}

/// Three threads call whatever comes to mind. Each answer is one that the header has, and afterwards a sweep is as good
/// as any.
TEST_F(SweepThreads, AnyCallsInAnyOrderAreAnswered)
{
    max_wait_seconds = usual_wait;
    const int calls = scaled_count(120, 40);
    std::mutex handles_mutex;
    auto current = std::make_shared<sweep>(sweep::begin(options()));
    const auto handle = [&] {
        const std::lock_guard<std::mutex> lock(handles_mutex);
        return current;
    };
    std::atomic<int> taken{0};
    std::atomic<int> wholes{0};

    const auto one_call = [&](std::mt19937_64& random) {
        const std::shared_ptr<sweep> mine = handle();
        const std::uint64_t choice = random() % 100;
        const frame_view frame = view(random() % frames().size());
        if (choice < 60) {
            const frame_answer answer = mine->feed(frame);
            EXPECT_GE(answer.code, lowest_code);
            EXPECT_LE(answer.code, highest_code);
            taken += answer.taken ? 1 : 0;
        } else if (choice < 80) {
            const sweep_status status = mine->status();
            EXPECT_GE(status.under_way, 0);
            EXPECT_LE(status.under_way, status.key_frames);
            const preview_view preview = mine->preview();
            EXPECT_EQ(preview.pixels.empty(), preview.pixels.cols == 0);
            mine->directory();
        } else if (choice < 84) {
            mine->wait_for_room(1, std::chrono::milliseconds(random() % 20));
        } else if (choice < 90) {
            int polls = 0;
            finish_options ending;
            ending.last_frame = choice < 87 ? &frame : nullptr;
            ending.on_progress = [&](int, int) { return ++polls < 50; };
            const panorama result = mine->finish(ending);
            EXPECT_EQ(result.image.empty(), result.extent == panorama_extent::missing);
            wholes += result.extent == panorama_extent::whole ? 1 : 0;
        } else if (choice < 94) {
            mine->cancel();
            EXPECT_FALSE(mine->is_current());
        } else {
            sweep_options any = options();
            any.most_under_way = static_cast<int>(choice % 3);
            auto next = std::make_shared<sweep>(sweep::begin(any));
            const std::lock_guard<std::mutex> lock(handles_mutex);
            current.swap(next);
        }
    };
    std::vector<std::thread> threads;
    for (std::uint64_t n = 0; n < 3; ++n) {
        threads.emplace_back([&, n] {
            std::mt19937_64 random(test_seed() + n);
            for (int i = 0; i < calls; ++i) {
                try {
                    one_call(random);
                } catch (const sweep_error& error) {
                    EXPECT_EQ(static_cast<int>(error.problem()), static_cast<int>(sweep_problem::over)) << error.what();
                    // The next thread to come here begins anew.
                    auto next = std::make_shared<sweep>(sweep::begin(options()));
                    const std::lock_guard<std::mutex> lock(handles_mutex);
                    current.swap(next);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    current.reset();
    EXPECT_TRUE(private_directories().empty());
    EXPECT_GT(taken, 0);

    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 6);
    EXPECT_EQ(sweeping.finish().extent, panorama_extent::whole);
}

}  // namespace
