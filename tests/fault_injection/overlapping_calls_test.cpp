// SPDX-License-Identifier: Apache-2.0
//
// A host that breaks the rule that all calls belong to one thread at a time. Nothing crashes, and each call is
// answered: a frame that comes while another is inside is "busy", code 0; a reset waits for the frame inside and ends
// the wait of a last one; the getters always show something whole.
#include <array>
#include <atomic>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "fault_fixture.h"
#include "internal/shared_state.h"
#include "shared_access.h"
#include "support/counted_sleep.h"
#include "support/random_input.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using tarn::worker_stage;

class OverlappingCalls : public fault_fixture {
protected:
    /// A code out of the shared array, which another thread may be writing.
    static int code_of(const int* result)
    {
        return tarn::load_acquire(result[0]);
    }

    static int feed_overlapping(std::size_t i, int is_last_one)
    {
        return code_of(videoStitch(frames()[i], moving_right, is_last_one));
    }

    /// For the frame step itself, whose answer is its thread's own.
    cv::Mat first_frame_ = slide(cv::Size(320, 240), moving_right, 24.0, 15).frame(0);
};

TEST_F(OverlappingCalls, FrameThatComesWhileAnotherIsInsideIsBusy)
{
    stepper.hold_at(worker_stage::launching, 1);
    std::atomic<int> first_code{-9};
    std::thread first([&] { first_code = code_of(tarn_stitcher.ofcheck_stitch(first_frame_, 0, 0)); });
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::launching, 1));
    take_output();

    EXPECT_EQ(feed_overlapping(1, 0), 0);

    EXPECT_NE(take_output().find("check: The stitcher is still running other function!1\n"), std::string::npos);
    EXPECT_EQ(tarn_stitcher.stitcher_status, 1) << "the frame inside is still registered";
    stepper.let_go(worker_stage::launching, 1);
    first.join();
    EXPECT_EQ(first_code, 1) << "and has its own answer";
    EXPECT_EQ(feed(1), 1) << "the sweep goes on";
}

TEST_F(OverlappingCalls, ResetWaitsForTheFrameInside)
{
    stepper.hold_at(worker_stage::launching, 1);
    std::thread frame([&] { tarn_stitcher.ofcheck_stitch(first_frame_, 0, 0); });
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::launching, 1));
    {
        const counted_sleep sleeps([&](int number) {
            if (number == 5) {
                stepper.let_go(worker_stage::launching, 1);
                frame.join();
            }
        });
        resetStitch(directory().c_str());
        EXPECT_EQ(sleeps.sleeps(), std::vector<unsigned>(5, 100000U));
    }

    EXPECT_TRUE(tarn_stitcher.last_stitch_image.empty()) << "of the old task nothing is left";
    EXPECT_EQ(tarn_stitcher.frame_index, 0);
    ASSERT_TRUE(wait_for_workers());
    EXPECT_TRUE(entries_of(directory()).empty());
    EXPECT_FALSE(whole_sweep(directory()).empty());
}

TEST_F(OverlappingCalls, ResetGivesUpOnAFrameThatStaysInside)
{
    stepper.hold_at(worker_stage::launching, 1);
    std::thread frame([&] { tarn_stitcher.ofcheck_stitch(first_frame_, 0, 0); });
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::launching, 1));
    {
        const counted_sleep sleeps;
        EXPECT_EQ(resetStitch(directory().c_str()), 1);
        EXPECT_EQ(sleeps.sleeps(), std::vector<unsigned>(11, 100000U)) << "1.1 seconds";
    }
    EXPECT_EQ(feed_overlapping(1, 0), -1) << "the old task has ended";
    stepper.let_go(worker_stage::launching, 1);
    frame.join();

    EXPECT_EQ(tarn_stitcher.frame_index, 1) << "the frame inside had its task to itself";
    ASSERT_TRUE(wait_for_workers());
    EXPECT_TRUE(entries_of(directory()).empty()) << "its worker has left";
    EXPECT_EQ(feed(1), -1);
    EXPECT_FALSE(whole_sweep(directory()).empty()) << "another reset begins anew";
}

TEST_F(OverlappingCalls, ResetGivesUpOnAFileThatStaysUnwritten)
{
    ASSERT_EQ(feed(0), 1);
    ASSERT_TRUE(wait_for_workers());
    std::atomic<bool> is_writing{false};
    std::atomic<bool> disk_answers{false};
    std::thread writer([&] {
        const auto directory_stays = tarn::lock_directory();
        is_writing = true;
        while (!disk_answers) {
            std::this_thread::yield();
        }
    });
    while (!is_writing) {
        std::this_thread::yield();
    }
    EXPECT_EQ(resetStitch((root() + "other/").c_str()), 1);
    EXPECT_EQ(tarn_stitcher.local_path, directory());
    EXPECT_EQ(feed(1), -1) << "the old task has ended";
    disk_answers = true;
    writer.join();
    EXPECT_FALSE(whole_sweep(directory()).empty()) << "another reset begins anew";
}

TEST_F(OverlappingCalls, ResetEndsTheWaitOfALastFrame)
{
    stepper.hold_at(worker_stage::turn_taken, 1);
    std::atomic<int> last_code{-9};
    std::thread last([&] { last_code = code_of(tarn_stitcher.ofcheck_stitch(first_frame_, 0, 1)); });
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::turn_taken, 1));
    tarn::store_release(max_wait_seconds, 1000000);  // or else it would give up on its own

    resetStitch(directory().c_str());
    last.join();

    EXPECT_EQ(last_code, 1);
    EXPECT_EQ(std::string(getCurrentPanoramaShow()), "");
    stepper.let_go(worker_stage::turn_taken, 1);
    ASSERT_TRUE(wait_for_workers());
    EXPECT_TRUE(entries_of(directory()).empty());
    EXPECT_EQ(big_frame_num, 0);
}

TEST_F(OverlappingCalls, GettersShowSomethingWholeWhileFramesAreRegistered)
{
    std::atomic<bool> done{false};
    std::atomic<int> looks{0};
    std::thread onlooker([&] {
        while (!done) {
            const cv::Mat preview = getCurrentPanoramsShowMat();
            const std::unique_ptr<int[]> pixels(nativeCarrier_getCurrentPanoramaShow());
            EXPECT_TRUE(preview.empty() || preview.type() == CV_8UC3);
            EXPECT_NE(pixels, nullptr);
            const std::string path = getTestCurrentPanoramaShow();
            EXPECT_TRUE(path.empty() || path.rfind(directory(), 0) == 0) << path;
            ++looks;
        }
    });
    const std::vector<unsigned char> first = whole_sweep(directory());
    for (int i = scaled_count(10, 2); i > 0; --i) {
        EXPECT_TRUE(whole_sweep(directory()) == first);
    }
    while (looks == 0) {
        std::this_thread::yield();
    }
    done = true;
    onlooker.join();
    EXPECT_FALSE(first.empty());
    EXPECT_GT(looks, 0);
}

TEST_F(OverlappingCalls, AnyCallsFromThreeThreadsLeaveALibraryThatWorks)
{
    const std::vector<unsigned char> undisturbed = whole_sweep(directory());
    ASSERT_FALSE(undisturbed.empty());
    const std::array<std::string, 2> directories = {directory(), root() + "second/"};
    std::filesystem::create_directory(directories[1]);
    no_output nowhere;  // unlike the fixture's stream, for several threads
    std::streambuf* const caught = std::cout.rdbuf(&nowhere);
    const std::uint64_t seed = test_seed();

    const auto call_at_random = [&](std::uint64_t number) {
        random_input random(seed + number);
        for (int i = scaled_count(300, 60); i > 0; --i) {
            switch (random.integer(0, 12)) {
            case 0:
                resetStitch(directories[static_cast<std::size_t>(random.integer(0, 1))].c_str());
                break;
            case 1:
                EXPECT_GE(feed_overlapping(static_cast<std::size_t>(random.integer(0, 14)), 1), -1);
                break;
            case 2:
                videoStitch(cv::Mat(), 0, 0);
                break;
            case 3:
                getCurrentPanoramsShowMat();
                delete[] nativeCarrier_getCurrentPanoramaShow();
                break;
            case 4:
                EXPECT_NE(getTestCurrentPanoramaShow(), nullptr);
                EXPECT_NE(getCurrentPanoramaShow(), nullptr);
                tarn::look_at_pipeline();
                break;
            default: {
                const int code = feed_overlapping(static_cast<std::size_t>(i) % frames().size(), 0);
                EXPECT_GE(code, -1);
                EXPECT_LE(code, 6);
                break;
            }
            }
        }
    };
    std::vector<std::thread> threads;
    for (std::uint64_t number = 1; number <= 3; ++number) {
        threads.emplace_back(call_at_random, number);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    resetStitch("");
    EXPECT_TRUE(wait_for_workers());
    std::cout.rdbuf(caught);

    EXPECT_EQ(entries_of(root()).size() <= 2, true) << "nothing outside the working directories";
    std::filesystem::create_directory(directory());
    EXPECT_TRUE(whole_sweep(directory()) == undisturbed);
}

}  // namespace
