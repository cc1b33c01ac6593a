// SPDX-License-Identifier: Apache-2.0
//
// What the crop leaves of a sweep: drawings of known size at known places, and a whole picture of a sweep that climbs.
#include <gtest/gtest.h>

#include "finishing/crop_loss.h"
#include "finishing_sweeps.h"
#include "support/stitcher_fixture.h"
#include "tarn_finishing.h"

namespace {

using namespace tarn::finishing;

/// Full drawings of 100x50, each so far from the one before.
struct drawn_sweep {
    std::vector<small_drawing> drawings;
    ownership owners;
    std::vector<frame_report> reports;
    drawing_surface surface;

    drawn_sweep(int count, cv::Point first, cv::Point step)
    {
        const cv::Size size(100, 50);
        for (int i = 0; i < count; ++i) {
            small_drawing drawing;
            drawing.index = i;
            drawing.place = cv::Rect(first + i * step, size);
            drawing.mask = cv::Mat(size, CV_8UC1, cv::Scalar(255));
            drawings.push_back(drawing);
        }
        reports.resize(static_cast<std::size_t>(count));
        owners.area = area_of(drawings);
        owners.covered = cv::Mat::zeros(owners.area.size(), CV_8UC1);
        for (const small_drawing& drawing : drawings) {
            owners.covered(drawing.place - owners.area.tl()).setTo(255);
        }
    }

    cut_off cut_to(cv::Rect area)
    {
        return measure_cut(drawings, owners, 1.0, surface, area, reports);
    }
};

TEST(FinishingCropLoss, NothingIsLostOfAPictureThatShowsAll)
{
    drawn_sweep sweep(4, {-30, 7}, {60, -11});
    const cut_off lost = sweep.cut_to(sweep.owners.area);
    EXPECT_EQ(lost.part, 0.0);
    EXPECT_EQ(lost.at_beginning, 0.0);
    EXPECT_EQ(lost.at_end, 0.0);
    EXPECT_EQ(lost.seen, cv::Rect(cv::Point(), sweep.owners.area.size()));
    for (const frame_report& report : sweep.reports) {
        EXPECT_EQ(report.part_in_picture, 1.0);
    }
}

TEST(FinishingCropLoss, EachEndHasItsPartAndEachKeyFrame)
{
    // 500 columns are seen, of which the first 150 and the last 50 are cut off.
    drawn_sweep sweep(5, {0, 0}, {100, 0});
    const cut_off lost = sweep.cut_to({150, 10, 300, 40});
    EXPECT_NEAR(lost.part, 1.0 - 300.0 * 40 / (500 * 50), 1e-12);
    EXPECT_NEAR(lost.at_beginning, 0.3, 1e-12);
    EXPECT_NEAR(lost.at_end, 0.1, 1e-12);
    EXPECT_EQ(lost.seen, cv::Rect(-150, -10, 500, 50));
    EXPECT_EQ(sweep.reports[0].part_in_picture, 0.0);
    EXPECT_NEAR(sweep.reports[1].part_in_picture, 0.4, 1e-12);
    EXPECT_NEAR(sweep.reports[2].part_in_picture, 0.8, 1e-12);
    EXPECT_NEAR(sweep.reports[4].part_in_picture, 0.4, 1e-12);
}

TEST(FinishingCropLoss, TheBeginningIsWhereTheSweepBegan)
{
    drawn_sweep leftward(5, {0, 0}, {-100, 0});
    const cut_off lost = leftward.cut_to({-250, 0, 300, 50});
    EXPECT_NEAR(lost.at_beginning, 0.1, 1e-12);
    EXPECT_NEAR(lost.at_end, 0.3, 1e-12);

    drawn_sweep upward(5, {0, 0}, {10, -50});
    const cut_off of_height = upward.cut_to({0, -150, 100, 150});
    EXPECT_NEAR(of_height.at_beginning, 0.2, 1e-12);
    EXPECT_NEAR(of_height.at_end, 0.2, 1e-12);
    EXPECT_EQ(upward.reports[0].part_in_picture, 0.0);
}

TEST(FinishingCropLoss, WhatIsSeenTwiceInMoreThanATurnIsThereOnce)
{
    // Six drawings of a sixth of a turn, and one more that shows what the first one did.
    drawn_sweep sweep(7, {-300, 0}, {100, 0});
    sweep.surface.kind = projection::cylinder;
    sweep.surface.scale = 600 / (2 * CV_PI);
    const cut_off lost = sweep.cut_to({-300, 0, 600, 50});
    EXPECT_EQ(lost.part, 0.0);
    EXPECT_EQ(lost.at_beginning, 0.0);
    EXPECT_EQ(lost.at_end, 0.0);
    EXPECT_EQ(lost.seen, cv::Rect(0, 0, 600, 50));
    EXPECT_EQ(sweep.reports.back().part_in_picture, 1.0);
}

TEST(FinishingCropLoss, ASweepThatClimbsLosesItsEnds)
{
    // Eleven frames of 320x240, each 40 px to the right and 60 up: no rectangle shows both ends.
    constexpr int count = 11;
    tarn::test::rendered_sweep climb;
    climb.frame_size = {320, 240};
    climb.plane = tarn::test::textured_plane({320 + 40 * count, 240 + 60 * count}, 5);
    for (int i = 0; i < count; ++i) {
        climb.plane_from_frame.emplace_back(1, 0, 40.0 * i, 0, 1, 60.0 * (count - 1 - i), 0, 0, 1);
    }
    const finishing_result cut = finish(tarn::test::key_frames_of(climb, 1));
    finishing_options options;
    options.cropping = crop::none;
    const finishing_result all = finish(tarn::test::key_frames_of(climb, 1), options);
    ASSERT_EQ(cut.outcome, status::ok) << cut.explanation;
    ASSERT_EQ(all.outcome, status::ok) << all.explanation;
    EXPECT_EQ(all.lost.part, 0.0);
    EXPECT_EQ(all.lost.at_beginning, 0.0);
    EXPECT_EQ(all.lost.at_end, 0.0);
    EXPECT_EQ(all.lost.seen, cv::Rect(cv::Point(), all.picture.size()));
    EXPECT_EQ(cut.lost.seen.size(), all.picture.size());
    EXPECT_EQ(cut.lost.seen & cv::Rect(cv::Point(), cut.picture.size()), cv::Rect(cv::Point(), cut.picture.size()));
    const double kept = static_cast<double>(cut.picture.total()) / cv::countNonZero(all.mask);
    EXPECT_NEAR(cut.lost.part, 1.0 - kept, 0.02);
    EXPECT_NEAR(cut.lost.at_beginning + cut.lost.at_end, 1.0 - static_cast<double>(cut.picture.rows) / all.picture.rows,
                1e-9);
    EXPECT_GT(cut.lost.at_beginning + cut.lost.at_end, 0.3);
    // A key frame that its own corners tell to be outside.
    int outside = 0;
    for (std::size_t i = 0; i < cut.frames.size(); ++i) {
        const cv::Point2d corner = cut.picture_from_frame(static_cast<int>(i), {0, 0}, {320, 240});
        const cv::Rect2d place(corner, cv::Size2d(320, 240));
        const cv::Rect2d common = place & cv::Rect2d(0, 0, cut.picture.cols, cut.picture.rows);
        EXPECT_NEAR(cut.frames[i].part_in_picture, common.area() / place.area(), 0.03);
        EXPECT_NEAR(all.frames[i].part_in_picture, 1.0, 0.01);
        outside += cut.frames[i].part_in_picture == 0.0 ? 1 : 0;
    }
    EXPECT_GT(outside, 0);
}

TEST(FinishingCropLoss, OneKeyFrameLosesNothing)
{
    const cv::Mat picture(60, 80, CV_8UC3, cv::Scalar(10, 20, 30));
    const finishing_result result = finish({{0, cv::Mat(), [&] { return cv::Mat(picture); }}});
    ASSERT_EQ(result.outcome, status::ok);
    EXPECT_EQ(result.lost.part, 0.0);
    EXPECT_EQ(result.lost.seen, cv::Rect(0, 0, 80, 60));
    EXPECT_EQ(result.frames[0].part_in_picture, 1.0);
}

}  // namespace
