// SPDX-License-Identifier: Apache-2.0
//
// One frame after the other: what a sweep makes of a view of pixels, what it answers, and how it holds back.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "support/random_input.h"
#include "support/rendered_sweep.h"
#include "support/stepped_time.h"
#include "support/sweep_fixture.h"
#include "support/watched_allocations.h"
#include "tarn_stitch_jni.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using namespace tarn;        // NOLINT(google-build-using-namespace): these are all about it

class SweepFeed : public sweep_fixture {
protected:
    /// Options of a sweep that keeps the key frames' images here.
    sweep_options keeping()
    {
        sweep_options result = options();
        result.on_key_frame = [this](const tarn::key_frame& key) { images_.push_back(key.image); };
        return result;
    }

    std::vector<cv::Mat> images_;
};

// -------------------------------------------------------------------------------------------------------- formats

/// A frame in memory of its own that ends with the last byte of the last row.
class tight_frame {
public:
    tight_frame(const cv::Mat& image, pixel_format format, std::size_t padding)
        : row_(static_cast<std::size_t>(image.cols) * image.elemSize()), stride_(row_ + padding),
          bytes_(stride_ * static_cast<std::size_t>(image.rows - 1) + row_, guard)
    {
        for (int y = 0; y < image.rows; ++y) {
            std::memcpy(bytes_.data() + stride_ * static_cast<std::size_t>(y), image.ptr(y), row_);
        }
        untouched_ = bytes_;
        view = {bytes_.data(), image.cols, image.rows, stride_, format};
    }

    bool is_untouched() const
    {
        return bytes_ == untouched_;
    }

    frame_view view;

private:
    static constexpr unsigned char guard = 0xA5;
    std::size_t row_;
    std::size_t stride_;
    std::vector<unsigned char> bytes_;
    std::vector<unsigned char> untouched_;
};

TEST_F(SweepFeed, EveryFormatAndStrideGivesTheSamePixels)
{
    const cv::Mat& rgba = frames().front();
    cv::Mat bgr;
    cv::cvtColor(rgba, bgr, cv::COLOR_RGBA2BGR);
    cv::Mat bgra;
    cv::cvtColor(rgba, bgra, cv::COLOR_RGBA2BGRA);
    cv::Mat gray;
    cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
    cv::Mat gray_bgr;
    cv::cvtColor(gray, gray_bgr, cv::COLOR_GRAY2BGR);

    struct {
        pixel_format format;
        const cv::Mat& image;
        const cv::Mat& expected;
    } const cases[] = {{pixel_format::rgba, rgba, bgr},
                       {pixel_format::bgra, bgra, bgr},
                       {pixel_format::bgr, bgr, bgr},
                       {pixel_format::gray, gray, gray_bgr}};

    for (const auto& one : cases) {
        for (const int width : {320, 319, 161}) {
            for (const std::size_t padding : {0U, 1U, 13U, 320U}) {
                SCOPED_TRACE("format " + std::to_string(static_cast<int>(one.format)) + ", " + std::to_string(width)
                             + " px, padding " + std::to_string(padding));
                const cv::Rect part(0, 0, width, 240);
                const tight_frame frame(one.image(part), one.format, padding);
                images_.clear();
                sweep sweeping = sweep::begin(keeping());
                const frame_answer answer = sweeping.feed(frame.view);
                EXPECT_TRUE(answer.taken);
                EXPECT_TRUE(frame.is_untouched());
                ASSERT_EQ(images_.size(), 1U);
                EXPECT_TRUE(same_pixels(one.expected(part), images_.front()));
            }
        }
    }
}

TEST_F(SweepFeed, StrideOfZeroIsNoPadding)
{
    const tight_frame frame(frames().front()(cv::Rect(0, 0, 161, 120)).clone(), pixel_format::rgba, 0);
    frame_view view = frame.view;
    view.row_stride = 0;
    sweep sweeping = sweep::begin(keeping());
    EXPECT_TRUE(sweeping.feed(view).taken);
    cv::Mat expected;
    cv::cvtColor(frames().front()(cv::Rect(0, 0, 161, 120)), expected, cv::COLOR_RGBA2BGR);
    ASSERT_EQ(images_.size(), 1U);
    EXPECT_TRUE(same_pixels(expected, images_.front()));
}

TEST_F(SweepFeed, FrameSpansItsRowsAndNoPaddingBehindTheLastOne)
{
    const unsigned char pixels[1] = {};
    EXPECT_EQ(size_in_bytes({pixels, 20, 10, 0, pixel_format::rgba}), 800U);
    EXPECT_EQ(size_in_bytes({pixels, 20, 10, 100, pixel_format::bgra}), 980U);
    EXPECT_EQ(size_in_bytes({pixels, 20, 10, 61, pixel_format::bgr}), 609U);
    EXPECT_EQ(size_in_bytes({pixels, 20, 1, 100, pixel_format::gray}), 20U);
    EXPECT_EQ(size_in_bytes({pixels, 1, 16384, 0x7fffffff, pixel_format::gray}), 16383ULL * 0x7fffffff + 1);
    refusal(sweep_problem::bad_argument, [&] { size_in_bytes({pixels, 20, 10, 79, pixel_format::rgba}); });
    refusal(sweep_problem::bad_argument, [&] { size_in_bytes({pixels, 0, 10, 0, pixel_format::gray}); });
}

TEST_F(SweepFeed, ViewOfAnImageIsThatImage)
{
    for (const int type : {CV_8UC4, CV_8UC3, CV_8UC1}) {
        const cv::Mat large(40, 50, type, cv::Scalar::all(7));
        const cv::Mat part = large(cv::Rect(3, 5, 20, 30));
        const frame_view view = view_of(part);
        EXPECT_EQ(view.pixels, part.data);
        EXPECT_EQ(view.width, 20);
        EXPECT_EQ(view.height, 30);
        EXPECT_EQ(view.row_stride, large.step[0]);
        EXPECT_EQ(view.format, type == CV_8UC4   ? pixel_format::rgba
                               : type == CV_8UC3 ? pixel_format::bgr
                                                 : pixel_format::gray);
    }
}

TEST_F(SweepFeed, WhatIsNoFrameHasNoView)
{
    for (const int type : {CV_8UC2, CV_16UC3, CV_32FC1, CV_8SC4, CV_64FC4}) {
        refusal(sweep_problem::bad_argument, [&] { view_of(cv::Mat(4, 4, type)); });
    }
    refusal(sweep_problem::bad_argument, [] { view_of(cv::Mat()); });
    refusal(sweep_problem::bad_argument, [] { view_of(cv::Mat(3, std::vector<int>{4, 4, 4}.data(), CV_8UC3)); });
    refusal(sweep_problem::bad_argument, [] { view_of(cv::Mat(1, 16385, CV_8UC1)); });
}

TEST_F(SweepFeed, WrongArgumentsAreNamedAndTheSweepGoesOn)
{
    sweep sweeping = sweep::begin(options());

    struct row {
        const char* named;
        void (*spoil)(frame_view& view);
    };

    const row rows[] = {
        {"null", [](frame_view& v) { v.pixels = nullptr; }},
        {"width is 0", [](frame_view& v) { v.width = 0; }},
        {"width is -320", [](frame_view& v) { v.width = -320; }},
        {"width is 16385", [](frame_view& v) { v.width = 16385; }},
        {"height is 0", [](frame_view& v) { v.height = 0; }},
        {"height is -1", [](frame_view& v) { v.height = -1; }},
        {"height is 16385", [](frame_view& v) { v.height = 16385; }},
        {"row_stride is 1279", [](frame_view& v) { v.row_stride = 1279; }},
        {"row_stride is 1; ", [](frame_view& v) { v.row_stride = 1; }},
        {"row_stride is 18446744073709551615", [](frame_view& v) { v.row_stride = ~std::size_t{0}; }},
        {"format is 0", [](frame_view& v) { v.format = static_cast<pixel_format>(0); }},
        {"format is 5", [](frame_view& v) { v.format = static_cast<pixel_format>(5); }},
        {"format is -1", [](frame_view& v) { v.format = static_cast<pixel_format>(-1); }},
    };
    for (const row& one : rows) {
        frame_view wrong = view(0);
        one.spoil(wrong);
        const auto feeding = [&] { sweeping.feed(wrong); };
        EXPECT_NE(refusal(sweep_problem::bad_argument, feeding).find(one.named), std::string::npos) << one.named;
        const auto finishing = [&] { sweeping.finish({&wrong}); };
        EXPECT_NE(refusal(sweep_problem::bad_argument, finishing).find(one.named), std::string::npos);
    }
    for (const int hint : {-1, 5, 1000}) {
        const auto feeding = [&] { sweeping.feed(view(0), static_cast<direction_code>(hint)); };
        EXPECT_NE(refusal(sweep_problem::bad_argument, feeding).find(std::to_string(hint)), std::string::npos);
        finish_options wrong;
        wrong.hint = static_cast<direction_code>(hint);
        refusal(sweep_problem::bad_argument, [&] { sweeping.finish(wrong); });
    }
    refusal(sweep_problem::bad_argument, [&] { sweeping.wait_for_room(-1); });
    EXPECT_EQ(sweeping.status().key_frames, 0);
    EXPECT_TRUE(sweeping.feed(view(0)).taken);
}

TEST_F(SweepFeed, FramesOfAnySizeAreAnswered)
{
    sweep sweeping = sweep::begin(options());
    for (const int width : {1, 2, 17, 16384}) {
        for (const int height : {1, 3, 40}) {
            const cv::Mat image(height, width, CV_8UC1, cv::Scalar::all(90));
            const frame_answer answer = sweeping.feed(view_of(image));
            EXPECT_FALSE(answer.taken);
            // Sixteen thousand pixels by one have no rows left when they are three hundred wide.
            EXPECT_EQ(answer.why, width > 600 * height ? reason::unusable_frame : reason::too_few_corners);
            EXPECT_EQ(answer.detail.empty(), answer.why == reason::too_few_corners);
        }
    }
}

// -------------------------------------------------------------------------------------------------------- answers

TEST_F(SweepFeed, AnswersTellWhatBecameOfEachFrame)
{
    sweep sweeping = sweep::begin(options());
    const std::vector<frame_answer> answers = feed(sweeping, 0, 12);
    const frame_answer& first = answers.front();
    EXPECT_EQ(first.code, code_normal);
    EXPECT_TRUE(first.taken);
    EXPECT_TRUE(first.placed);
    EXPECT_FALSE(first.registered);
    EXPECT_EQ(first.key_frame, 1);
    EXPECT_EQ(first.key_frames, 1);
    EXPECT_EQ(first.outline[2], cv::Point2f(300, 225));
    int key_frames = 1;
    for (std::size_t i = 1; i < answers.size(); ++i) {
        SCOPED_TRACE(i);
        const frame_answer& answer = answers[i];
        EXPECT_TRUE(answer.taken);
        EXPECT_TRUE(answer.registered);
        EXPECT_EQ(answer.why, reason::none);
        EXPECT_EQ(answer.direction, direction_right);
        EXPECT_NEAR(answer.move_distance, frame_step * 300.0 / 320.0, 0.3);
        EXPECT_GE(answer.corners_found, answer.inliers);
        EXPECT_GE(answer.corners_tracked, answer.inliers);
        EXPECT_GE(answer.inliers, 10);
        EXPECT_GE(answer.milliseconds, 0.0);
        EXPECT_EQ(answer.key_frame != 0, answer.overlap < 0.7f);
        key_frames += answer.key_frame != 0 ? 1 : 0;
        EXPECT_EQ(answer.key_frames, key_frames);
        if (answer.key_frame != 0) {
            EXPECT_EQ(answer.key_frame, key_frames);
        }
        EXPECT_NEAR(answer.outline[0].x, static_cast<double>(i) * frame_step * 300.0 / 320.0, 1.5);
        EXPECT_NEAR(answer.angles[0], 90.0f, 1.0f);
        EXPECT_NEAR(answer.scales[0], 1.0f, 0.02f);
    }
    EXPECT_GE(key_frames, 3);
    const sweep_status status = sweeping.status();
    EXPECT_EQ(status.key_frames, key_frames);
    EXPECT_EQ(status.first_failed_key_frame, 0);
}

TEST_F(SweepFeed, RejectedFramesSayWhy)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 4);
    const preview_view before = sweeping.preview();
    for (int i = 1; i <= 12; ++i) {
        const frame_answer answer = sweeping.feed(blank_view());
        EXPECT_EQ(answer.code, i < 10 ? code_normal : code_lost);
        EXPECT_FALSE(answer.taken);
        EXPECT_EQ(answer.why, reason::too_few_corners);
        EXPECT_EQ(answer.direction, direction_right) << "of the frame taken last";
        EXPECT_EQ(answer.outline, before.outline);
    }
    const preview_view after = sweeping.preview();
    EXPECT_EQ(after.pixels.data, before.pixels.data);
    EXPECT_TRUE(after.has_outline);
    EXPECT_EQ(after.outline, before.outline);
    EXPECT_FALSE(after.frozen);

    const frame_answer back = sweeping.feed(view(2), direction_right);
    EXPECT_EQ(back.code, code_wrong_way);
    EXPECT_EQ(back.why, reason::against_the_hint);
    EXPECT_FALSE(back.taken);
}

TEST_F(SweepFeed, PreviewShowsWhatThereIsAfterEachCall)
{
    sweep sweeping = sweep::begin(options());
    EXPECT_TRUE(sweeping.preview().pixels.empty());
    EXPECT_FALSE(sweeping.preview().has_outline);
    sweeping.feed(blank_view());
    EXPECT_FALSE(sweeping.preview().has_outline);
    for (std::size_t i = 0; i < 8; ++i) {
        const frame_answer answer = sweeping.feed(view(i));
        const preview_view preview = sweeping.preview();
        EXPECT_EQ(preview.pixels.data, getCurrentPanoramsShowMat().data);
        EXPECT_EQ(preview.pixels.type(), CV_8UC3);
        EXPECT_TRUE(preview.has_outline);
        EXPECT_EQ(preview.outline, answer.outline);
    }
}

TEST_F(SweepFeed, FrameDuringAnotherOneIsBusy)
{
    sweep sweeping = sweep::begin(options());
    stepper.hold_at(worker_stage::launching, 1);
    frame_answer inside;
    std::thread camera([&] { inside = sweeping.feed(view(0)); });
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::launching, 1));

    const frame_answer answer = sweeping.feed(view(1));
    EXPECT_EQ(answer.code, code_lost);
    EXPECT_EQ(answer.why, reason::busy);
    EXPECT_FALSE(answer.taken);
    EXPECT_EQ(sweeping.status().key_frames, 0) << "looks show what there was before";
    EXPECT_TRUE(sweeping.preview().pixels.empty());
    EXPECT_TRUE(sweeping.is_current());
    EXPECT_TRUE(sweeping.wait_for_room(0));
    EXPECT_FALSE(sweeping.directory().empty());

    stepper.let_go(worker_stage::launching, 1);
    camera.join();
    EXPECT_TRUE(inside.taken);
    EXPECT_TRUE(sweeping.feed(view(1)).taken);
}

TEST_F(SweepFeed, ThreadThatCannotBeStartedIsTold)
{
    sweep sweeping = sweep::begin(options());
    stepper.at(worker_stage::launching, 2, [] {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "no more threads");
    });
    std::size_t i = 0;
    frame_answer answer;
    do {
        answer = sweeping.feed(view(i));
        ++i;
    } while (answer.taken && i < frames().size());
    EXPECT_EQ(answer.why, reason::no_thread);
    EXPECT_NE(answer.detail.find("no more threads"), std::string::npos);
    EXPECT_EQ(answer.code, code_normal);
    EXPECT_EQ(answer.key_frame, 0);
    EXPECT_EQ(answer.key_frames, 2);
    ASSERT_TRUE(wait_for_turns(1));
    const sweep_status status = sweeping.status();
    EXPECT_EQ(status.under_way, 0) << "for the second one there is no worker";
    EXPECT_EQ(status.first_failed_key_frame, 2);
    EXPECT_EQ(status.why, reason::no_thread);
    EXPECT_TRUE(sweeping.feed(view(i - 1)).registered) << "the live path goes on";

    const panorama result = sweep::begin(options()).finish();
    EXPECT_EQ(result.why, reason::no_frames) << "the next sweep knows nothing of it";
}

TEST_F(SweepFeed, LackOfMemoryIsTold)
{
    sweep sweeping = sweep::begin(options());
    feed(sweeping, 0, 2);
    ASSERT_TRUE(sweeping.wait_for_room(0));  // workers allocate, too
    ASSERT_TRUE(wait_for_workers());
    int failures = 0;
    for (int number = 1; number < 60; ++number) {
        const watched_allocations scarce(number, run_out_of_memory);
        const frame_answer answer = sweeping.feed(view(2));
        if (!scarce.came_so_far()) {
            break;
        }
        EXPECT_EQ(answer.why, reason::no_memory);
        EXPECT_FALSE(answer.taken);
        EXPECT_FALSE(answer.detail.empty());
        EXPECT_EQ(answer.code, code_normal);
        EXPECT_EQ(answer.direction, direction_right);
        ++failures;
    }
    EXPECT_GT(failures, 0);
    EXPECT_TRUE(sweeping.feed(view(2)).taken);
}

// --------------------------------------------------------------------------------------------------------- pacing

TEST_F(SweepFeed, NoMoreThanSoManyKeyFramesAreUnderWay)
{
    for (const int most : {1, 2, 3}) {
        sweep_options paced = options();
        paced.most_under_way = most;
        std::atomic<int> greatest{0};
        on_worker_stage([&greatest](worker_stage stage, int index) {
            if (stage == worker_stage::launching) {
                greatest = std::max(greatest.load(), index - look_at_pipeline().turns_over);
            }
        });
        sweep sweeping = sweep::begin(paced);
        feed(sweeping, 0, frames().size());
        EXPECT_LE(greatest, most);
        EXPECT_EQ(sweeping.finish().extent, panorama_extent::whole);
    }
}

TEST_F(SweepFeed, HoldsBackUntilThereIsRoom)
{
    sweep_options paced = options();
    paced.most_under_way = 1;
    int waits = 0;
    paced.while_waiting = [&](int under_way) {
        EXPECT_EQ(under_way, 1);
        if (++waits == 5) {
            stepper.let_go(worker_stage::turn_taken, 1);
        }
        return true;
    };
    stepper.hold_at(worker_stage::turn_taken, 1);
    sweep sweeping = sweep::begin(paced);
    EXPECT_TRUE(sweeping.feed(view(0)).taken);
    EXPECT_EQ(waits, 0);
    EXPECT_TRUE(sweeping.feed(view(1)).taken);
    EXPECT_GE(waits, 5);
    EXPECT_EQ(sweeping.status().under_way, 0);
}

TEST_F(SweepFeed, DeclinedWaitDropsTheFrame)
{
    sweep_options paced = options();
    paced.most_under_way = 1;
    bool goes_on = false;
    paced.while_waiting = [&](int) { return goes_on; };
    stepper.hold_at(worker_stage::turn_taken, 1);
    sweep sweeping = sweep::begin(paced);
    feed(sweeping, 0, 1);
    take_output();
    const frame_answer answer = sweeping.feed(view(1));
    EXPECT_EQ(answer.code, code_lost);
    EXPECT_EQ(answer.why, reason::cancelled);
    EXPECT_FALSE(answer.taken);
    goes_on = true;
    stepper.let_go(worker_stage::turn_taken, 1);
    EXPECT_TRUE(sweeping.feed(view(1)).taken);
}

TEST_F(SweepFeed, CameraDoesNotWait)
{
    sweep_options camera = options();
    camera.while_waiting = [](int) {
        ADD_FAILURE() << "a wait";
        return true;
    };
    hold_workers();
    sweep sweeping = sweep::begin(camera);
    feed(sweeping, 0, 12);
    EXPECT_GE(sweeping.status().under_way, 3);
    EXPECT_FALSE(sweeping.wait_for_room(0, std::chrono::milliseconds(0)));
    EXPECT_TRUE(sweeping.wait_for_room(100));
    int polls = 0;
    EXPECT_FALSE(sweeping.wait_for_room(0, std::chrono::milliseconds::max(), [&](int under_way) {
        EXPECT_GE(under_way, 3);
        return ++polls < 3;
    }));
    EXPECT_EQ(polls, 3);
    release_workers();
    EXPECT_TRUE(sweeping.wait_for_room(0));
    EXPECT_EQ(sweeping.status().under_way, 0);
}

TEST_F(SweepFeed, WorkersThatDoNotMoveEndTheWait)
{
    sweep_options paced = options();
    paced.most_under_way = 1;
    stepper.hold_at(worker_stage::turn_taken, 1);
    sweep sweeping = sweep::begin(paced);
    feed(sweeping, 0, 1);
    max_wait_seconds = usual_wait;
    {
        const stepped_time time;
        const frame_answer answer = sweeping.feed(view(1));
        EXPECT_EQ(answer.code, code_pipeline_failed);
        EXPECT_EQ(answer.why, reason::timed_out);
        EXPECT_FALSE(answer.taken);
        EXPECT_EQ(time.polls(), 3 * usual_wait * 500 + 1);
        EXPECT_FALSE(sweeping.wait_for_room(0));
    }
    {
        // Changed while the wait lasts.
        const stepped_time time([](int poll) {
            if (poll == 1000) {
                store_release(max_wait_seconds, 1);
            }
        });
        EXPECT_EQ(sweeping.feed(view(1)).why, reason::timed_out);
        EXPECT_EQ(time.polls(), 3 * 500 + 1);
    }
    {
        const stepped_time time;
        EXPECT_FALSE(sweeping.wait_for_room(0, std::chrono::milliseconds(500)));
        EXPECT_EQ(time.polls(), 250);
        EXPECT_FALSE(sweeping.wait_for_room(0, std::chrono::milliseconds(-5)));
        EXPECT_EQ(time.polls(), 250);
    }
    max_wait_seconds = patient_wait;
    stepper.let_go(worker_stage::turn_taken, 1);
    EXPECT_TRUE(sweeping.feed(view(1)).taken);
}

TEST_F(SweepFeed, DroppedFrameIsFedAgainWhenThePipelineComesBack)
{
    sweep_options paced = options();
    paced.most_under_way = 4;
    int logs = 0;
    paced.on_log = [&logs](const std::string&) { ++logs; };
    paced.while_waiting = [&](int) {
        stepper.let_go(worker_stage::file_written, 3);
        return true;
    };
    sweep sweeping = sweep::begin(paced);
    tarn_stitcher.iou_thresh = 0.9f;  // so that the third key frame still overlaps with the first
    stepper.at(worker_stage::registered, 2, run_out_of_memory);
    stepper.hold_at(worker_stage::turn_taken, 2);
    stepper.hold_at(worker_stage::file_written, 3);
    const std::size_t next = feed_until_key_frame(sweeping, 3);
    ASSERT_TRUE(stepper.wait_until_at(worker_stage::file_written, 3));
    stepper.let_go(worker_stage::turn_taken, 2);
    ASSERT_TRUE(wait_for_turns(2));
    EXPECT_EQ(sweeping.status().pipeline, pipeline_failed);

    logs = 0;
    const frame_answer answer = sweeping.feed(view(next));
    EXPECT_TRUE(answer.taken);
    EXPECT_EQ(logs, 2) << "dropped, and fed again";
    const sweep_status status = sweeping.status();
    EXPECT_EQ(status.pipeline, pipeline_ready);
    EXPECT_EQ(status.first_failed_key_frame, 2);
    EXPECT_EQ(status.why, reason::no_memory);
    const panorama result = sweeping.finish();
    EXPECT_EQ(result.extent, panorama_extent::whole);
    EXPECT_EQ(result.first_failed_key_frame, 2) << "may be set though the panorama goes on";
}

TEST_F(SweepFeed, KeyFramesComeAtTheOverlapThatTheSweepWasBegunWith)
{
    const auto overlaps_of_key_frames = [this](std::optional<float> overlap) {
        sweep_options asked = options();
        asked.most_under_way = 2;
        asked.key_frame_overlap = overlap.value_or(asked.key_frame_overlap);
        sweep sweeping = sweep::begin(asked);
        std::vector<float> result;
        for (const frame_answer& answer : feed(sweeping, 0, frames().size())) {
            if (answer.key_frame > 1) {
                result.push_back(answer.overlap);
            }
        }
        return result;
    };
    const std::vector<float> usual = overlaps_of_key_frames(std::nullopt);
    EXPECT_EQ(tarn_stitcher.iou_thresh, 0.7f);
    const std::vector<float> near = overlaps_of_key_frames(0.85f);
    EXPECT_GT(near.size(), usual.size());
    for (const float overlap : usual) {
        EXPECT_LT(overlap, 0.7f);
    }
    for (const float overlap : near) {
        EXPECT_LT(overlap, 0.85f);
    }
    EXPECT_GT(*std::max_element(near.begin(), near.end()), 0.7f);
    EXPECT_EQ(overlaps_of_key_frames(std::nullopt), usual) << "it holds for one sweep";
}

TEST_F(SweepFeed, FailedPipelineAnswersForEver)
{
    for (const int most : {0, 3}) {
        sweep_options paced = options();
        paced.most_under_way = most;
        stepper.at(worker_stage::registered, 2, run_out_of_memory);
        sweep sweeping = sweep::begin(paced);
        const std::size_t next = feed_until_key_frame(sweeping, 2);
        ASSERT_TRUE(wait_for_turns(2));
        for (int i = 0; i < 2; ++i) {
            const frame_answer answer = sweeping.feed(view(next));
            EXPECT_EQ(answer.code, code_pipeline_failed);
            EXPECT_EQ(answer.why, reason::pipeline_failed);
            EXPECT_EQ(answer.key_frames, 2);
        }
        EXPECT_EQ(sweeping.status().why, reason::no_memory);
    }
}

}  // namespace
