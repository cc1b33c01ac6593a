// SPDX-License-Identifier: Apache-2.0
//
// Memory that is refused, at any point: the outcome says so, there is no picture, and the next call is as good as any.
#include <new>

#include <gtest/gtest.h>

#include "finishing_sweeps.h"
#include "support/watched_allocations.h"
#include "tarn_finishing.h"

namespace {

using namespace tarn::finishing;
using tarn::test::run_out_of_memory;
using tarn::test::watched_allocations;

constexpr int never = 1 << 30;

std::vector<key_frame> few_key_frames()
{
    const auto sweep = tarn::test::slide({240, 180}, tarn::test::moving_right, 15.0, 13);
    auto key_frames = tarn::test::key_frames_of(sweep, 4);
    // One that only its live motion joins.
    const cv::Mat fog(sweep.frame_size, CV_8UC3, cv::Scalar::all(128));
    key_frames.back().image = [fog]() -> cv::Mat { return cv::Mat(fog); };
    return key_frames;
}

bool same_bytes(const cv::Mat& a, const cv::Mat& b)
{
    return !a.empty() && a.size() == b.size() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

void expect_refusal(const std::vector<key_frame>& key_frames, int number)
{
    finishing_result result;
    {
        const watched_allocations scarce(number, run_out_of_memory);
        result = finish(key_frames);
        ASSERT_TRUE(scarce.came_so_far()) << number;
    }
    EXPECT_EQ(result.outcome, status::out_of_memory) << "allocation " << number << ": " << result.explanation;
    EXPECT_TRUE(result.picture.empty()) << number;
    EXPECT_EQ(result.frames.size(), key_frames.size()) << number;
    EXPECT_FALSE(result.explanation.empty()) << number;
}

TEST(FinishingMemory, RefusedAtAnyStageItIsSaidAndNothingIsLost)
{
    const auto key_frames = few_key_frames();
    const finishing_result undisturbed = finish(key_frames);
    ASSERT_EQ(undisturbed.outcome, status::ok) << undisturbed.explanation;
    ASSERT_EQ(undisturbed.joined_by_live_motion + undisturbed.joined_by_alignment, 1);

    int all = 0;
    {
        const watched_allocations counting(never, [] {});
        ASSERT_EQ(finish(key_frames).outcome, status::ok);
        all = never - counting.remaining();
    }
    ASSERT_GT(all, 100);
    constexpr int tries = 60;
    for (int k = 0; k <= tries; ++k) {
        expect_refusal(key_frames, 1 + (all - 1) * k / tries);
    }
    const finishing_result again = finish(key_frames);
    EXPECT_TRUE(same_bytes(again.picture, undisturbed.picture));
}

TEST(FinishingMemory, WhoeverReadsAKeyFrameMaySayItInBothWays)
{
    auto key_frames = few_key_frames();
    key_frames[1].image = []() -> cv::Mat { throw std::bad_alloc(); };
    EXPECT_EQ(finish(key_frames).outcome, status::out_of_memory);
    key_frames[1].image = []() -> cv::Mat {
        run_out_of_memory();
        return {};
    };
    EXPECT_EQ(finish(key_frames).outcome, status::out_of_memory);
}

}  // namespace
