// SPDX-License-Identifier: Apache-2.0
//
// What is found wrong with a panorama, from places of key frames that are known.
#include <cmath>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "panorama_verdict.h"

using namespace tarn::host;

namespace {

constexpr double degree = CV_PI / 180.0;
const cv::Size copy_size(300, 400);
const cv::Size frame_size(640, 480);

/// A panorama of two frames' width that is full, and of which all frames were taken.
sweep_result good_sweep()
{
    sweep_result result;
    result.frames = 100;
    result.taken = 100;
    result.by_code[tarn::code_normal] = 100;
    result.frame = frame_size;
    result.panorama = cv::Mat(480, 1280, CV_8UC3, cv::Scalar::all(90));
    result.composed = {{frame_size, cv::Matx33d::eye()}, {frame_size, {1, 0, 640, 0, 1, 0, 0, 0, 1}}};
    return result;
}

/// The key frames of a camera, where `plane_from_camera` has those of number 0, 1, 2, ...
std::vector<key_frame_place> places_of(const std::function<cv::Matx33d(int)>& plane_from_camera)
{
    const double focal_length = 400.0;  // px of a copy
    const cv::Matx33d pixels(focal_length, 0, copy_size.width / 2.0, 0, focal_length, copy_size.height / 2.0, 0, 0, 1);
    std::vector<key_frame_place> places;
    for (int i = 0; i < 6; ++i) {
        places.push_back({copy_size, pixels * plane_from_camera(i) * pixels.inv()});
    }
    return places;
}

/// About the vertical axis.
cv::Matx33d turned(double angle)
{
    return {std::cos(angle), 0, std::sin(angle), 0, 1, 0, -std::sin(angle), 0, std::cos(angle)};
}

cv::Matx33d rolled(double angle)
{
    return {std::cos(angle), -std::sin(angle), 0, std::sin(angle), std::cos(angle), 0, 0, 0, 1};
}

camera_path path_of(const std::function<cv::Matx33d(int)>& plane_from_camera)
{
    sweep_result result = good_sweep();
    result.places = places_of(plane_from_camera);
    return judge(result).numbers.path;
}

using faults = std::vector<fault>;

}  // namespace

TEST(Verdict, FullPanoramaOfLevelFramesIsGood)
{
    const verdict judged = judge(good_sweep());
    EXPECT_EQ(judged.how_good, grade::good);
    EXPECT_TRUE(judged.faults.empty());
    EXPECT_DOUBLE_EQ(judged.numbers.stretch, 1.0);
    EXPECT_NEAR(judged.numbers.shear, 0.0, 1e-9);
    EXPECT_DOUBLE_EQ(judged.numbers.length, 2.0);
    EXPECT_DOUBLE_EQ(judged.numbers.filled, 1.0);
    EXPECT_DOUBLE_EQ(judged.numbers.taken, 1.0);
    EXPECT_TRUE(sentences_on(judged, good_sweep(), {true, std::nullopt}).empty());
}

TEST(Verdict, NothingBeyondTheFirstFrameIsNothing)
{
    sweep_result result = good_sweep();
    result.panorama = cv::Mat(480, 640, CV_8UC3, cv::Scalar::all(90));
    EXPECT_EQ(judge(result).how_good, grade::nothing);
    EXPECT_EQ(judge(result).faults, faults{fault::nothing_gained});
    EXPECT_EQ(sentences_on(judge(result), result, {}),
              std::vector<std::string>{"the panorama shows nothing beyond the first frame: the camera hardly moved"});
    // What a hand shakes is not a panorama; a side that is longer by a tenth is, whichever it is.
    result.panorama = cv::Mat(500, 670, CV_8UC3, cv::Scalar::all(90));
    EXPECT_EQ(judge(result).how_good, grade::nothing);
    for (const cv::Size size : {cv::Size(704, 480), cv::Size(640, 528)}) {
        result.panorama = cv::Mat(size, CV_8UC3, cv::Scalar::all(90));
        EXPECT_EQ(judge(result).how_good, grade::good);
    }
    result.panorama = cv::Mat();
    EXPECT_EQ(judge(result).how_good, grade::nothing);
    result = {};
    result.frames = 1;
    EXPECT_EQ(sentences_on(judge(result), result, {}),
              std::vector<std::string>{"the panorama shows nothing beyond the first frame: there is no other one"});
}

TEST(Verdict, GrowthFromTheFirstFrameToTheLastIsAWedge)
{
    for (const double factor : {3.1, 1.0 / 3.1}) {
        sweep_result result = good_sweep();
        result.composed.push_back({frame_size, cv::Matx33d::diag({factor, factor, 1.0})});
        const verdict judged = judge(result);
        EXPECT_NEAR(judged.numbers.stretch, 3.1, 1e-9);
        EXPECT_EQ(judged.how_good, grade::bad);
        EXPECT_EQ(judged.faults, faults{fault::stretched});
        EXPECT_EQ(in_a_word(judged), "a wedge");
        EXPECT_EQ(sentences_on(judged, result, {})[0].find(
                      "the panorama is a wedge, in which frames differ in size by 3.1 times: "),
                  0U);
    }
    // The middle may be what grows: the camera comes back.
    sweep_result result = good_sweep();
    result.composed.insert(result.composed.begin() + 1, {frame_size, cv::Matx33d::diag({1.8, 1.8, 1.0})});
    EXPECT_EQ(judge(result).how_good, grade::flawed);
    // What a frame's own size is does not matter: some are bent, and narrower for it.
    result = good_sweep();
    result.composed.push_back({{500, 470}, cv::Matx33d::eye()});
    EXPECT_DOUBLE_EQ(judge(result).numbers.stretch, 1.0);
}

TEST(Verdict, SlantedFramesAreToldOnceWithTheWedgeThatTheyMake)
{
    sweep_result result = good_sweep();
    result.composed.push_back({frame_size, {1, std::tan(30.0 * degree), 0, 0, 1, 0, 0, 0, 1}});
    verdict judged = judge(result);
    EXPECT_NEAR(judged.numbers.shear, 30.0, 1e-6);
    EXPECT_EQ(judged.how_good, grade::flawed);
    EXPECT_EQ(judged.faults, faults{fault::sheared});
    EXPECT_EQ(sentences_on(judged, result, {}).size(), 1U);
    result.composed.push_back({frame_size, {3, 3 * std::tan(45.0 * degree), 0, 0, 3, 0, 0, 0, 1}});
    judged = judge(result);
    EXPECT_EQ(judged.faults, (faults{fault::stretched, fault::sheared}));
    EXPECT_EQ(sentences_on(judged, result, {}).size(), 1U);
}

TEST(Verdict, MuchBlackIsMostlyEmpty)
{
    sweep_result result = good_sweep();
    result.panorama.colRange(0, 512).setTo(cv::Scalar::all(0));  // 40 %
    EXPECT_EQ(judge(result).how_good, grade::flawed);
    EXPECT_NEAR(judge(result).numbers.filled, 0.6, 1e-9);
    result.panorama.colRange(0, 900).setTo(cv::Scalar::all(0));
    EXPECT_EQ(judge(result).how_good, grade::bad);
    EXPECT_EQ(judge(result).faults, faults{fault::mostly_empty});
    EXPECT_EQ(sentences_on(judge(result), result, {})[0],
              "70 % of the panorama is empty: it goes aslant through its rectangle");
}

TEST(Verdict, FramesThatWereNotTakenAreCounted)
{
    sweep_result result = good_sweep();
    result.frames = 29;
    result.taken = 13;
    result.by_code[tarn::code_lost] = 16;
    EXPECT_EQ(judge(result).how_good, grade::bad);
    EXPECT_EQ(sentences_on(judge(result), result, {}),
              std::vector<std::string>{"only 13 of 29 frames could be taken: they did not fit to what was before, as "
                                       "after a jerk, a blur or a large thing that passes"});
    result.taken = 20;
    EXPECT_EQ(judge(result).how_good, grade::flawed);
    result.taken = 25;
    EXPECT_EQ(judge(result).how_good, grade::good);
}

TEST(Verdict, WorstFaultComesFirst)
{
    sweep_result result = good_sweep();
    result.composed.push_back({frame_size, cv::Matx33d::diag({1.8, 1.8, 1.0})});
    result.taken = 10;
    EXPECT_EQ(judge(result).faults, (faults{fault::frames_missing, fault::stretched}));
    EXPECT_EQ(in_a_word(judge(result)), "without many of the frames");
}

TEST(Verdict, TurnsSlidesWalksAndTiltsAreToldApart)
{
    EXPECT_EQ(path_of([](int i) { return turned(8.0 * degree * i); }), camera_path::turning);
    EXPECT_EQ(path_of([](int i) { return turned(-8.0 * degree * i); }), camera_path::turning);
    EXPECT_EQ(path_of([](int i) { return cv::Matx33d(1, 0, 0.2 * i, 0, 1, 0.01 * i, 0, 0, 1); }), camera_path::sliding);
    // A wall that the camera comes nearer to is flat all the same.
    EXPECT_EQ(path_of([](int i) { return cv::Matx33d(1 - 0.05 * i, 0, 0.2 * i, 0, 1 - 0.05 * i, 0, 0, 0, 1); }),
              camera_path::sliding);
    EXPECT_EQ(path_of([](int i) { return cv::Matx33d(1, 0, 0.1 * i, 0, 1, 0, 0.1 * i, 0.1 * i, 1); }),
              camera_path::walking);
    EXPECT_EQ(path_of([](int i) { return cv::Matx33d(1, 0, 0.2 * i, 0, 1, 0, 0, 0, 1) * rolled(6.0 * degree * i); }),
              camera_path::tilting);
    EXPECT_EQ(path_of([](int) { return cv::Matx33d::eye(); }), camera_path::unknown);
    sweep_result none = good_sweep();
    none.places.clear();
    EXPECT_EQ(judge(none).numbers.path, camera_path::unknown);
}

TEST(Verdict, WedgeSaysWhatTheCameraDidAndWhatFinishingDoes)
{
    sweep_result result = good_sweep();
    result.composed.push_back({frame_size, cv::Matx33d::diag({3.0, 3.0, 1.0})});
    result.places = places_of([](int i) { return turned(8.0 * degree * i); });
    const verdict judged = judge(result);
    const auto has = [&](const verdict_context& context, const std::string& words) {
        std::string all;
        for (const std::string& line : sentences_on(judged, result, context)) {
            all += line + "\n";
        }
        return all.find(words) != std::string::npos;
    };
    EXPECT_TRUE(has({}, "the camera turned"));
    EXPECT_FALSE(has({}, "--finish"));
    EXPECT_TRUE(has({true, std::nullopt}, "--finish makes a picture that is bent as the camera turned"));
    verdict_context finished;
    finished.finished_is_good = true;
    EXPECT_TRUE(has(finished, "the finished picture is made anew, without this"));
    finished.finished_is_good = false;
    EXPECT_FALSE(has(finished, "finished picture"));
}

TEST(Verdict, BetterPictureHasTheBetterGradeOrLessStretch)
{
    verdict one;
    verdict other;
    one.how_good = other.how_good = grade::bad;
    one.numbers.stretch = 2.5;
    other.numbers.stretch = 3.0;
    EXPECT_TRUE(is_better_picture(one, other));
    EXPECT_FALSE(is_better_picture(other, one));
    EXPECT_FALSE(is_better_picture(one, one));
    other.how_good = grade::flawed;
    EXPECT_TRUE(is_better_picture(other, one));
    // Less of a sweep is less stretched.
    other = one;
    one.numbers.stretch = 1.0;
    one.numbers.taken = 0.5;
    other.numbers.taken = 0.9;
    EXPECT_FALSE(is_better_picture(one, other));
}
