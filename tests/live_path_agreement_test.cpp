// SPDX-License-Identifier: Apache-2.0
//
// The live path against one plain list of steps, field by field and bit by bit: random sweeps, previews of any kind,
// a shortage of memory.
#include <algorithm>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "support/live_fixture.h"
#include "support/plain_live_path.h"
#include "support/watched_allocations.h"

namespace {

using namespace tarn::test;

/// One random sweep: motions, jumps, blank and spoiled frames, hints, limits. Everything must agree after each.
class AgainstPlainSteps : public LiveRegistration, public testing::WithParamInterface<int> {};

TEST_P(AgainstPlainSteps, RandomSweepAgreesFieldByFieldToTheLastBit)
{
    cv::RNG random(static_cast<std::uint64_t>(GetParam()) * 7919 + 17);
    const cv::Size sizes[] = {{240, 180}, {160, 300}, {301, 200}, {480, 360}, {299, 299}};
    const cv::Size size = sizes[random.uniform(0, 5)];
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(1024, 1024));
    const auto new_task = [&] {
        resetStitch(directory().c_str());
        tarn_stitcher.iou_thresh = random.uniform(0.6f, 0.98f);
        tarn_stitcher.failed_thresh = random.uniform(2, 11);
        tarn_stitcher.matches_thresh = random.uniform(0, 25);
        tarn_stitcher.inline_thresh = random.uniform(0.0f, 0.8f);
        tarn_stitcher.area_thresh = random.uniform(0.3f, 0.9f);
    };
    new_task();
    const double unit = std::max(1.0, size.width / 300.0);

    plain_live_path plain(tarn_stitcher);
    cv::Point2d position(300, 300);
    cv::Point2d velocity(random.uniform(-9.0, 9.0), random.uniform(-9.0, 9.0));
    cv::Matx33d bend = cv::Matx33d::eye();
    std::size_t launches = 0;
    std::size_t key_frames = 0;
    std::vector<std::pair<cv::Mat, cv::Mat>> kept;
    const int length = 50;
    for (int i = 0; i < length; ++i) {
        if (plain.failed_count > 12) {  // lost: another sweep from here
            new_task();
            const int code = plain.code;
            plain = plain_live_path(tarn_stitcher);
            plain.code = code;
            launches = 0;
            bend = cv::Matx33d::eye();
        }
        if (random.uniform(0, 8) == 0)
            velocity = {random.uniform(-14.0, 14.0), random.uniform(-14.0, 14.0)};
        if (random.uniform(0, 25) == 0)
            velocity = -velocity;
        position += velocity * unit;
        position.x = std::clamp(position.x, 40.0, 500.0);
        position.y = std::clamp(position.y, 40.0, 500.0);
        bend(0, 1) += random.gaussian(0.006);
        bend(1, 0) += random.gaussian(0.004);
        bend(2, 0) += random.gaussian(1.5e-5 / unit);
        bend(2, 1) += random.gaussian(1.5e-5 / unit);
        cv::Mat frame;
        cv::warpPerspective(plane, frame, tarn::test::translation(position.x, position.y) * bend, size,
                            cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REFLECT_101);
        switch (random.uniform(0, 20)) {
        case 0:
            frame = blank(size);
            break;
        case 1:
            cv::flip(frame, frame, 1);
            break;
        case 2:
            random.fill(frame, cv::RNG::UNIFORM, 0, 256);
            break;
        case 3:
            cv::GaussianBlur(frame, frame, cv::Size(0, 0), 6.0);
            break;
        case 4:
            frame(cv::Rect(0, 0, size.width, size.height / 2)).setTo(cv::Scalar::all(90));
            break;
        default:
            break;
        }
        const int hint = random.uniform(0, 3) == 0 ? random.uniform(0, 5) : 0;

        // What a host may keep: pixels that never change.
        if (random.uniform(0, 4) == 0) {
            for (const cv::Mat& image : {tarn_stitcher.last_frame, getCurrentPanoramsShowMat(),
                                         tarn_stitcher.last_check_data.scaled_gray_frame}) {
                kept.emplace_back(image, image.clone());
            }
        }
        if (random.uniform(0, 30) == 0)
            kept.clear();
        // What a host may write.
        if (plain.frame_index > 0 && random.uniform(0, 25) == 0) {
            const uchar value = static_cast<uchar>(random.uniform(0, 256));
            for (cv::Mat* reference : {&plain.reference_gray, &tarn_stitcher.last_check_data.scaled_gray_frame}) {
                *reference = reference->clone();
                reference->col(reference->cols / 2).setTo(value);
            }
        }

        cv::setNumThreads(random.uniform(1, 3));
        const int code = random.uniform(0, 2) == 0 ? videoStitch(tarn::test::host_frame_from(frame), hint, 0)[0]
                                                   : tarn_stitcher.ofcheck_stitch(frame = frame.clone(), hint, 0)[0];
        EXPECT_EQ(code, plain.feed(frame, hint)) << "frame " << i;
        const cv::Mat preview = getCurrentPanoramsShowMat();
        ASSERT_TRUE(preview.empty() || preview.isContinuous());
        for (const auto& [image, copy] : kept)
            ASSERT_TRUE(same_pixels(image, copy)) << "frame " << i;
        ASSERT_EQ(plain.differences(tarn_stitcher), "") << "frame " << i << " of sweep " << GetParam();
        launches += take_launches().size();
        ASSERT_EQ(launches, plain.hand_offs.size());
        key_frames += launches > 1 ? 1 : 0;
    }
    EXPECT_GT(key_frames, 0U) << "a sweep that went nowhere proves little";
}

INSTANTIATE_TEST_SUITE_P(Sweeps, AgainstPlainSteps, testing::Range(0, 16));

// The preview is a field that a host may set.
TEST_F(LiveRegistration, PreviewOfAnotherKindIsGrownAsThePlainStepsGrowIt)
{
    const cv::Mat large = view(0, 0, cv::Size(640, 480));
    for (const cv::Mat& preview :
         {cv::Mat(), cv::Mat(0, 240, CV_8UC3), cv::Mat(180, 0, CV_8UC3), cv::Mat(0, 240, CV_8UC1), large,
          large(cv::Rect(10, 20, 300, 200)), cv::Mat(180, 240, CV_8UC1, cv::Scalar(90)),
          cv::Mat(180, 240, CV_8UC4, cv::Scalar::all(90)), cv::Mat(180, 240, CV_16UC3, cv::Scalar::all(300)),
          cv::Mat(180, 240, CV_32FC3, cv::Scalar::all(7.5)), cv::Mat(2000, 2000, CV_8UC4, cv::Scalar::all(9))}) {
        resetStitch(directory().c_str());
        int code = 0;
        for (const int x : {0, 25}) {
            code = videoStitch(tarn::test::host_frame_from(view(x, 0)), no_direction, 0)[0];
        }
        ASSERT_EQ(tarn_stitcher.big_frame_index, 1);
        tarn_stitcher.last_stitch_image = preview;
        plain_live_path expected(tarn_stitcher);
        expected.code = code;
        const cv::Mat frame = tarn::test::host_frame_from(view(50, 0));
        EXPECT_EQ(videoStitch(frame, no_direction, 0)[0], expected.feed_host_frame(frame, no_direction));
        EXPECT_EQ(expected.differences(tarn_stitcher), "") << preview.size() << ", type " << preview.type();
        EXPECT_EQ(tarn_stitcher.big_frame_index, 2);
    }
}

// ---------------------------------------------------------------------------------------------- short of memory

class ShortOfMemory : public LiveRegistration, public testing::WithParamInterface<int> {};

TEST_P(ShortOfMemory, FrameFedAgainIsRegisteredAsByPlainSteps)
{
    cv::setNumThreads(GetParam());
    // Each allocation that the second frame takes fails once. The frames are of another size every time, so that
    // no storage is there from the time before.
    bool fails = true;
    int number = 1;
    for (; fails; ++number) {
        resetStitch(directory().c_str());
        const cv::Size size(200 + number, 150);
        const cv::Mat first = tarn::test::host_frame_from(view(0, 0, size));
        const cv::Mat second = tarn::test::host_frame_from(view(5, 2, size));
        const cv::Mat third = tarn::test::host_frame_from(view(9, 1, size));
        ASSERT_EQ(videoStitch(first, no_direction, 0)[0], 1);
        {
            const tarn::test::watched_allocations short_of_memory(number, tarn::test::run_out_of_memory);
            videoStitch(second, no_direction, 0);
            fails = short_of_memory.came_so_far();
        }
        plain_live_path plain(tarn_stitcher);
        for (const cv::Mat& frame : {second, third}) {
            const int code = videoStitch(frame, no_direction, 0)[0];
            EXPECT_EQ(code, plain.feed_host_frame(frame, no_direction)) << "allocation " << number;
            ASSERT_EQ(plain.differences(tarn_stitcher), "") << "allocation " << number;
        }
    }
    EXPECT_GT(number, 20) << "so many images a frame takes at least";
}

INSTANTIATE_TEST_SUITE_P(Threads, ShortOfMemory, testing::Values(1, 2));

}  // namespace
