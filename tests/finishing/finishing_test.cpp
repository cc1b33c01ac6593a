// SPDX-License-Identifier: Apache-2.0
//
// Whole pictures: from rendered sweeps whose truth is known, from a sample, and from input that is not as it should be.
#include <atomic>
#include <chrono>
#include <set>
#include <stdexcept>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "finishing_sweeps.h"
#include "live_key_frames.h"
#include "support/sample_video.h"
#include "support/stitcher_fixture.h"
#include "tarn_finishing.h"

namespace {

using namespace tarn::finishing;
using tarn::test::key_frames_of;
using tarn::test::mean_error;
using tarn::test::panorama_room;
using tarn::test::rendered_sweep;

const cv::Size small_frame(320, 240);

rendered_sweep short_slide()
{
    return tarn::test::slide(small_frame, tarn::test::moving_right, 15.0, 21);
}

/// Mean difference of two pictures of the same size.
double difference(const cv::Mat& a, const cv::Mat& b)
{
    return cv::norm(a, b, cv::NORM_L1) / static_cast<double>(a.total() * a.elemSize());
}

bool same_bytes(const cv::Mat& a, const cv::Mat& b)
{
    return !a.empty() && a.size() == b.size() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

key_frame still(int number, const cv::Mat& picture)
{
    return {number, cv::Mat(), [picture]() -> cv::Mat { return cv::Mat(picture); }};
}

TEST(FinishingPicture, ASlideIsRecognisedAndEveryPointLiesWhereItBelongs)
{
    const rendered_sweep sweep = short_slide();
    const auto key_frames = key_frames_of(sweep, 4, 4.0);
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_EQ(result.motion, camera_motion::sliding);
    EXPECT_EQ(result.drawn_on, projection::plane);
    EXPECT_FALSE(result.viewers.known);
    EXPECT_EQ(result.frames.size(), key_frames.size());
    EXPECT_LT(mean_error(result, sweep, key_frames), 0.15);
    EXPECT_EQ(cv::countNonZero(result.mask), static_cast<int>(result.mask.total()));
    EXPECT_GT(result.picture.cols, small_frame.width + 15 * 20 - 8);
    EXPECT_GT(result.picture.rows, small_frame.height - 6);
}

TEST(FinishingPicture, ThePictureShowsTheSceneAsItIs)
{
    const rendered_sweep sweep = short_slide();
    const auto key_frames = key_frames_of(sweep, 4);
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok);
    // The plane as the picture should show it.
    const cv::Point2d origin = result.picture_from_frame(0, {0, 0}, small_frame);
    cv::Mat truth;
    cv::warpPerspective(sweep.plane, truth, sweep.plane_from_frame[0] * tarn::test::translation(-origin.x, -origin.y),
                        result.picture.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
    cv::Mat shifted;
    cv::warpPerspective(sweep.plane, shifted,
                        sweep.plane_from_frame[0] * tarn::test::translation(-origin.x + 1, -origin.y),
                        result.picture.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
    // Without the finest detail, which is lost when a pixel is drawn between pixels.
    cv::Mat picture;
    for (const auto& [from, to] : {std::pair(result.picture, &picture), {truth, &truth}, {shifted, &shifted}}) {
        cv::GaussianBlur(from, *to, {}, 1.5);
    }
    EXPECT_LT(difference(picture, truth), 0.4 * difference(shifted, truth));
}

/// Standard deviation of what is finer than a pixel and a half, gray levels.
double finest_detail(const cv::Mat& picture)
{
    cv::Mat gray;
    cv::cvtColor(picture, gray, cv::COLOR_BGR2GRAY);
    gray.convertTo(gray, CV_32F);
    cv::Mat coarse;
    cv::GaussianBlur(gray, coarse, {}, 1.5);
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(gray - coarse, mean, deviation);
    return deviation[0];
}

TEST(FinishingPicture, ThePictureIsAsSharpAsItsKeyFrames)
{
    // Drawn between pixels, each key frame by another part of one.
    const rendered_sweep sweep = tarn::test::turn(small_frame, tarn::test::moving_right, 350.0, 2.0, 13);
    const auto key_frames = key_frames_of(sweep, 4);
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    // Around the middle of a key frame the picture shows it as large as it was.
    constexpr int side = 100;  // px
    double of_frames = 0.0;
    double of_picture = 0.0;
    for (std::size_t i = 0; i < key_frames.size(); ++i) {
        const cv::Point middle(small_frame.width / 2, small_frame.height / 2);
        const cv::Point there = result.picture_from_frame(static_cast<int>(i), middle, small_frame);
        const cv::Rect around(-side / 2, -side / 2, side, side);
        of_frames += finest_detail(key_frames[i].image()(around + middle));
        of_picture += finest_detail(result.picture(around + there));
    }
    EXPECT_GT(of_picture, 0.97 * of_frames);
}

TEST(FinishingPicture, ATurnIsRecognisedWithItsFocalLength)
{
    const double focal = 350.0;
    const rendered_sweep sweep = tarn::test::turn(small_frame, tarn::test::moving_right, focal, 2.0, 25);
    const auto key_frames = key_frames_of(sweep, 4);
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_EQ(result.motion, camera_motion::turning);
    EXPECT_NEAR(result.focal_length, focal / small_frame.width, 0.02 * focal / small_frame.width);
    EXPECT_EQ(result.drawn_on, projection::cylinder);
    ASSERT_TRUE(result.viewers.known);
    EXPECT_EQ(result.viewers.projection_type, "cylindrical");
    EXPECT_NEAR(result.viewers.full_size.width, 360.0 / result.horizontal_field_of_view * result.picture.cols, 1.0);
    EXPECT_EQ(result.viewers.cropped_area.size(), result.picture.size());
    EXPECT_EQ(result.viewers.cropped_area & cv::Rect(cv::Point(), result.viewers.full_size),
              result.viewers.cropped_area);
}

TEST(FinishingPicture, ATurnUpwardsIsDrawnOnACylinderThatLies)
{
    const rendered_sweep sweep = tarn::test::turn({240, 320}, tarn::test::moving_down, 300.0, 2.0, 29);
    const finishing_result result = finish(key_frames_of(sweep, 4));
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_EQ(result.motion, camera_motion::turning);
    EXPECT_EQ(result.drawn_on, projection::turned_cylinder);
    EXPECT_FALSE(result.viewers.known);
    EXPECT_GT(result.picture.rows, 2 * result.picture.cols);
}

TEST(FinishingPicture, MoreThanAFullTurnClosesAndIsNoWiderThanOne)
{
    const panorama_room room;
    const auto key_frames = room.sweep(24, 17.0);
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_EQ(result.motion, camera_motion::turning);
    EXPECT_NEAR(result.focal_length, room.focal / room.frame_size.width, 0.005);
    EXPECT_NEAR(result.horizontal_field_of_view, 360.0, 0.5);
    EXPECT_EQ(result.viewers.full_size.width, result.picture.cols);
    // Both ends show the same place.
    const cv::Mat seam_left = result.picture.colRange(0, 2);
    const cv::Mat seam_right = result.picture.colRange(result.picture.cols - 2, result.picture.cols);
    const cv::Mat elsewhere = result.picture.colRange(300, 302);
    EXPECT_LT(2 * difference(seam_left, seam_right), difference(seam_left, elsewhere));
}

TEST(FinishingPicture, TheHorizonIsLevelThoughTheCameraLooksDown)
{
    const panorama_room room;
    const finishing_result result = finish(room.sweep(9, 12.0, -0.25));
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    // Frame centres all lie on one level line.
    double least = 1e9;
    double most = -1e9;
    for (int i = 0; i < 9; ++i) {
        const double y = result.picture_from_frame(i, {159.5, 119.5}, room.frame_size).y;
        least = std::min(least, y);
        most = std::max(most, y);
    }
    EXPECT_LT(most - least, 3.0);
}

TEST(FinishingPicture, AFrameWithoutFeaturesStandsWhereTheLivePathSawIt)
{
    const rendered_sweep sweep = short_slide();
    auto key_frames = key_frames_of(sweep, 4);
    const cv::Mat fog(small_frame, CV_8UC3, cv::Scalar::all(128));
    // At the end, where nothing goes past it.
    key_frames.back().image = [fog]() -> cv::Mat { return cv::Mat(fog); };
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_EQ(result.frames.back().placement, placed_by::live_motion);
    EXPECT_EQ(result.joined_by_live_motion, 1);
    EXPECT_LT(mean_error(result, sweep, key_frames), 1.0);
    EXPECT_GT(result.picture.cols, small_frame.width + 15 * 20 - 8);
}

TEST(FinishingPicture, AFrameThatNothingJoinsIsLeftOutAndNamed)
{
    const rendered_sweep sweep = short_slide();
    auto key_frames = key_frames_of(sweep, 4);
    const cv::Mat fog(small_frame, CV_8UC3, cv::Scalar::all(128));
    key_frames.push_back(still(99, fog));
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_EQ(result.frames.back().number, 99);
    EXPECT_EQ(result.frames.back().placement, placed_by::nothing);
    EXPECT_EQ(result.frames.back().omitted, left_out::unplaced);
}

TEST(FinishingPicture, FramesThatAddNothingAreLeftOut)
{
    const rendered_sweep sweep = tarn::test::slide_there_and_back(small_frame, tarn::test::moving_right, 15.0, 20, 20);
    const auto key_frames = key_frames_of(sweep, 2);
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok);
    int used = 0;
    for (const frame_report& frame : result.frames) {
        used += frame.omitted == left_out::no ? 1 : 0;
        EXPECT_NE(frame.omitted, left_out::unplaced);
    }
    EXPECT_LT(used, static_cast<int>(key_frames.size()) / 2);
    EXPECT_LT(mean_error(result, sweep, key_frames), 0.15);
}

TEST(FinishingPicture, PairsGrowWithTheSweepAndNotWithItsSquare)
{
    const auto pairs_of = [](int length) {
        return finish(key_frames_of(tarn::test::slide(small_frame, tarn::test::moving_right, 40.0, length), 1))
            .pairs_compared;
    };
    const int few = pairs_of(8);
    EXPECT_GE(few, 7);
    EXPECT_LE(pairs_of(16), 2 * few + 4);
}

TEST(FinishingPicture, ExposureStepsVanish)
{
    const rendered_sweep sweep = short_slide();
    auto key_frames = key_frames_of(sweep, 4);
    for (std::size_t i = 0; i < key_frames.size(); ++i) {
        cv::Mat picture = key_frames[i].image() * (i % 2 == 0 ? 0.7 : 1.0);
        key_frames[i].image = [picture]() -> cv::Mat { return cv::Mat(picture); };
    }
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok);
    EXPECT_GT(result.frames[2].gain / result.frames[3].gain, 0.0);
    for (std::size_t i = 0; i + 1 < key_frames.size(); ++i) {
        const frame_report& a = result.frames[i];
        const frame_report& b = result.frames[i + 1];
        if (a.omitted == left_out::no && b.omitted == left_out::no) {
            EXPECT_NEAR(i % 2 == 0 ? a.gain / b.gain : b.gain / a.gain, 1.0 / 0.7, 0.08);
        }
    }
}

TEST(FinishingPicture, TheBytesAreTheSameWhateverTheNumberOfThreads)
{
    const auto key_frames = key_frames_of(tarn::test::turn(small_frame, tarn::test::moving_right, 350.0, 3.0, 9), 1);
    const int before = cv::getNumThreads();
    cv::setNumThreads(1);
    cv::theRNG().state = 1;
    const finishing_result one = finish(key_frames);
    cv::setNumThreads(2);
    cv::theRNG().state = 99;
    const finishing_result two = finish(key_frames);
    cv::setNumThreads(before);
    EXPECT_TRUE(same_bytes(one.picture, two.picture));
    EXPECT_TRUE(same_bytes(one.mask, two.mask));
}

TEST(FinishingPicture, CropNoneShowsAllAndAutomaticNoLessThanFull)
{
    const panorama_room room;
    auto key_frames = room.sweep(5, 14.0);
    // A hand that is not steady.
    for (int i = 0; i < 5; ++i) {
        const cv::Mat picture = room.frame(panorama_room::rotation((i - 2) * 0.25, i % 2 == 0 ? 0.03 : -0.03));
        key_frames[static_cast<std::size_t>(i)].image = [picture]() -> cv::Mat { return cv::Mat(picture); };
    }
    finishing_options options;
    const finishing_result full = finish(key_frames, options);
    options.cropping = crop::none;
    const finishing_result all = finish(key_frames, options);
    options.cropping = crop::automatic;
    const finishing_result automatic = finish(key_frames, options);
    ASSERT_EQ(full.outcome, status::ok) << full.explanation;
    ASSERT_EQ(all.outcome, status::ok);
    ASSERT_EQ(automatic.outcome, status::ok);
    EXPECT_LT(cv::countNonZero(all.mask), static_cast<int>(all.mask.total()));
    EXPECT_EQ(cv::countNonZero(full.mask), static_cast<int>(full.mask.total()));
    EXPECT_GE(static_cast<double>(automatic.picture.total()), 0.97 * static_cast<double>(full.picture.total()));
    cv::Mat gray;
    cv::cvtColor(automatic.picture, gray, cv::COLOR_BGR2GRAY);
    EXPECT_EQ(cv::countNonZero(gray < 10), 0);  // the sphere has no pixel that dark
}

TEST(FinishingPicture, ASampleSweepIsFinished)
{
    const auto sweep = tarn::test::live_key_frames(tarn::test::sample_video("parking_pan.mp4"));
    ASSERT_TRUE(sweep.reached_the_end);
    const finishing_result result = finish(sweep.key_frames);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_EQ(result.motion, camera_motion::turning);
    for (const frame_report& frame : result.frames) {
        EXPECT_EQ(frame.placement, placed_by::features);
    }
    EXPECT_GT(result.picture.cols, 800);
    EXPECT_GT(result.picture.rows, 290);
}

TEST(FinishingInput, NothingIsRefused)
{
    EXPECT_EQ(finish({}).outcome, status::no_key_frames);
}

TEST(FinishingInput, OneKeyFrameIsThePicture)
{
    const cv::Mat picture = short_slide().frame(0);
    const finishing_result result = finish({still(3, picture)});
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_EQ(result.motion, camera_motion::none);
    EXPECT_TRUE(same_bytes(result.picture, picture));
    EXPECT_EQ(cv::countNonZero(result.mask), static_cast<int>(picture.total()));
    EXPECT_EQ(result.frames.at(0).number, 3);
}

TEST(FinishingInput, FramesMayBeGrayOrHostFrames)
{
    const cv::Mat picture = short_slide().frame(0);
    EXPECT_TRUE(same_bytes(finish({still(0, tarn::test::host_frame_from(picture))}).picture, picture));
    cv::Mat gray;
    cv::cvtColor(picture, gray, cv::COLOR_BGR2GRAY);
    EXPECT_EQ(finish({still(0, gray)}).outcome, status::ok);
    EXPECT_EQ(finish({still(0, cv::Mat(gray.size(), CV_32F, cv::Scalar(0)))}).outcome, status::unreadable);
    EXPECT_EQ(finish({still(0, cv::Mat(gray.size(), CV_8UC2, cv::Scalar::all(0)))}).outcome, status::unreadable);
}

TEST(FinishingInput, FramesOfUnequalSizeAreJoined)
{
    const rendered_sweep sweep = short_slide();
    auto key_frames = key_frames_of(sweep, 4);
    cv::Mat larger;
    cv::resize(key_frames[2].image(), larger, cv::Size(), 2.0, 2.0, cv::INTER_CUBIC);
    key_frames[2].image = [larger]() -> cv::Mat { return cv::Mat(larger); };
    key_frames[2].placement.release();
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    const cv::Point2d as_small = result.picture_from_frame(1, {200, 100}, small_frame);
    const cv::Point2d as_large = result.picture_from_frame(2, {2 * (200 - 60) + 0.5, 200.5}, larger.size());
    EXPECT_LT(cv::norm(as_small - as_large), 0.5);
}

TEST(FinishingInput, BlackFramesGiveABlackPicture)
{
    const cv::Mat black = cv::Mat::zeros(small_frame, CV_8UC3);
    auto key_frames = key_frames_of(short_slide(), 4);
    for (key_frame& frame : key_frames) {
        frame.image = [black]() -> cv::Mat { return cv::Mat(black); };
    }
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_EQ(cv::norm(result.picture, cv::NORM_INF), 0.0);
    EXPECT_EQ(result.joined_by_live_motion, static_cast<int>(key_frames.size()));
    EXPECT_GT(result.picture.cols, small_frame.width + 15 * 20 - 10);
}

TEST(FinishingInput, UselessPlacementsDoNoHarm)
{
    auto key_frames = key_frames_of(short_slide(), 4);
    key_frames[1].placement = cv::Mat::zeros(3, 3, CV_64F);
    key_frames[2].placement = cv::Mat::eye(3, 3, CV_32F);
    key_frames[3].placement = (cv::Mat_<double>(3, 3) << 1, 0, 1e7, 0, 1, 1e7, 0, 0, 1);
    key_frames[4].placement = (cv::Mat_<double>(3, 3) << 1, 0, std::nan(""), 0, 1, 0, 0, 0, 1);
    const finishing_result result = finish(key_frames);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_LT(mean_error(result, short_slide(), key_frames), 0.2);
}

TEST(FinishingInput, AFrameThatCannotBeReadIsNamed)
{
    auto key_frames = key_frames_of(short_slide(), 4);
    key_frames[2].image = [] { return cv::Mat(); };
    finishing_result result = finish(key_frames);
    EXPECT_EQ(result.outcome, status::unreadable);
    EXPECT_EQ(result.failed_number, key_frames[2].number);
    EXPECT_TRUE(result.picture.empty());
    key_frames[2].image = []() -> cv::Mat { throw std::runtime_error("gone"); };
    EXPECT_EQ(finish(key_frames).outcome, status::unreadable);
    key_frames[2].image = nullptr;
    EXPECT_EQ(finish(key_frames).outcome, status::unreadable);
}

TEST(FinishingInput, AFrameThatIsGoneWhenItIsReadAgainIsNamed)
{
    auto key_frames = key_frames_of(short_slide(), 4);
    const cv::Mat picture = key_frames[0].image();
    int reads = 0;
    key_frames[0].image = [&reads, picture] { return ++reads > 1 ? cv::Mat() : picture; };
    const finishing_result result = finish(key_frames);
    EXPECT_EQ(result.outcome, status::unreadable);
    EXPECT_EQ(result.failed_number, key_frames[0].number);
}

TEST(FinishingInput, RefusedMemoryIsSaidToBeRefusedMemory)
{
    auto key_frames = key_frames_of(short_slide(), 4);
    key_frames[1].image = []() -> cv::Mat { throw std::bad_alloc(); };
    EXPECT_EQ(finish(key_frames).outcome, status::out_of_memory);
}

TEST(FinishingInput, APictureThatWouldBeTooLargeIsMadeSmaller)
{
    const auto key_frames = key_frames_of(short_slide(), 4);
    finishing_options options;
    options.most_megapixels = 0.02;
    const finishing_result result = finish(key_frames, options);
    ASSERT_EQ(result.outcome, status::ok) << result.explanation;
    EXPECT_LE(static_cast<double>(result.picture.total()), 0.022e6);
    EXPECT_GE(static_cast<double>(result.picture.total()), 0.015e6);
    EXPECT_LT(result.scale, 0.5);
}

TEST(FinishingProgress, StagesComeInOrderAndEachCanBeCancelled)
{
    const auto key_frames = key_frames_of(short_slide(), 4);
    std::set<stage> seen;
    stage last = stage::reading;
    finishing_options options;
    int calls = 0;
    options.progress = [&](stage now, double part) {
        EXPECT_GE(static_cast<int>(now) + (now == stage::pairing && last == stage::placing ? 1 : 0),
                  static_cast<int>(last));
        EXPECT_GE(part, 0.0);
        EXPECT_LE(part, 1.0);
        seen.insert(now);
        last = now;
        ++calls;
        return true;
    };
    ASSERT_EQ(finish(key_frames, options).outcome, status::ok);
    EXPECT_EQ(seen.size(), 6U);
    for (const stage wanted : seen) {
        options.progress = [wanted](stage now, double) { return now != wanted; };
        const finishing_result result = finish(key_frames, options);
        EXPECT_EQ(result.outcome, status::cancelled) << name_of(wanted);
        EXPECT_TRUE(result.picture.empty());
        EXPECT_EQ(result.frames.size(), key_frames.size());
    }
}

}  // namespace
