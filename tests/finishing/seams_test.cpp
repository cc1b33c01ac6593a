// SPDX-License-Identifier: Apache-2.0
#include <set>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "finishing/seams.h"
#include "support/rendered_sweep.h"

namespace {

using namespace tarn::finishing;

const std::function<bool(stage, double)> silent;

std::vector<small_drawing> two_drawings()
{
    const cv::Mat& plane = tarn::test::textured_plane({1200, 400}, 3);
    std::vector<small_drawing> drawings;
    for (const int x : {0, 100}) {
        small_drawing drawing;
        drawing.index = x / 100;
        drawing.place = cv::Rect(x - 30, -10, 240, 160);
        drawing.image = plane(drawing.place + cv::Point(30, 10)).clone();
        drawing.mask = cv::Mat(drawing.place.size(), CV_8UC1, cv::Scalar(255));
        drawings.push_back(drawing);
    }
    return drawings;
}

std::vector<block_gains> no_gains(std::size_t count)
{
    block_gains gains;
    gains.grid = cv::Mat(2, 2, CV_32FC3, cv::Scalar::all(1.0));
    return std::vector<block_gains>(count, gains);
}

/// Who owns the pixels of a rectangle of the small surface.
std::set<int> owners_in(const ownership& owners, cv::Rect area)
{
    std::set<int> result;
    const cv::Mat part = owners.owner(area - owners.area.tl());
    for (auto pixel = part.begin<short>(); pixel != part.end<short>(); ++pixel) {
        result.insert(*pixel);
    }
    return result;
}

TEST(FinishingSeams, EveryPixelHasAnOwnerThatShowsIt)
{
    const auto drawings = two_drawings();
    const ownership owners = find_seams(drawings, no_gains(2), 0, progress_meter(silent));
    EXPECT_EQ(owners.area, cv::Rect(-30, -10, 340, 160));
    EXPECT_EQ(cv::countNonZero(owners.covered), owners.area.area());
    EXPECT_EQ(owners_in(owners, {-30, -10, 100, 160}), std::set<int>{0});
    EXPECT_EQ(owners_in(owners, {211, -10, 99, 160}), std::set<int>{1});
    EXPECT_EQ(owners_in(owners, owners.area), (std::set<int>{0, 1}));
}

TEST(FinishingSeams, TheCutGoesAroundWhatHasMoved)
{
    for (const int x : {110, 125, 140, 155}) {
        auto drawings = two_drawings();
        // Somebody who is there in one frame only.
        const cv::Rect somebody(x, 40, 18, 40);
        drawings[1].image(somebody - drawings[1].place.tl()).setTo(cv::Scalar(250, 20, 20));
        const ownership owners = find_seams(drawings, no_gains(2), 0, progress_meter(silent));
        EXPECT_EQ(owners_in(owners, somebody).size(), 1U) << x;
    }
}

TEST(FinishingSeams, OwnersReachBeyondWhatIsSeenAsFarAsAsked)
{
    auto drawings = two_drawings();
    drawings[0].mask(cv::Rect(0, 0, 20, 30)) = 0;
    const auto unowned = [&](int reach) {
        const ownership owners = find_seams(drawings, no_gains(2), reach, progress_meter(silent));
        return cv::countNonZero(owners.owner < 0);
    };
    EXPECT_EQ(unowned(0), 600);
    EXPECT_LT(unowned(3), 600);
    EXPECT_GT(unowned(3), 0);
    EXPECT_EQ(unowned(1000), 0);
}

TEST(FinishingSeams, ADrawingThatShowsNothingNewOwnsNothing)
{
    auto drawings = two_drawings();
    drawings.push_back(drawings[0]);
    drawings.back().index = 2;
    const ownership owners = find_seams(drawings, no_gains(3), 0, progress_meter(silent));
    EXPECT_EQ(owners_in(owners, owners.area).count(2), 0U);
}

}  // namespace
