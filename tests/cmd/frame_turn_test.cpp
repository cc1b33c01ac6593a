// SPDX-License-Identifier: Apache-2.0
//
// Turning frames for the library and its results back: what upright frames go in as, upright they come out.
#include <array>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "frame_turn.h"
#include "motion.h"

using namespace tarn::host;

namespace {

constexpr std::array all_turns = {frame_turn::counter_clockwise, frame_turn::clockwise, frame_turn::none};
constexpr std::array all_motions = {camera_motion::right, camera_motion::left, camera_motion::up, camera_motion::down};

class FrameTurn : public testing::TestWithParam<frame_turn> {};

std::string name_of_turn(const testing::TestParamInfo<frame_turn>& info)
{
    switch (info.param) {
    case frame_turn::counter_clockwise:
        return "CounterClockwise";
    case frame_turn::clockwise:
        return "Clockwise";
    case frame_turn::none:
        break;
    }
    return "None";
}

/// Where a point of an upright frame lies in the frame as the library gets it.
cv::Point2f in_the_librarys_frame(const cv::Point2f& point, const cv::Size2f& upright, frame_turn turn)
{
    switch (turn) {
    case frame_turn::counter_clockwise:
        return {point.y, upright.width - point.x};
    case frame_turn::clockwise:
        return {upright.height - point.y, point.x};
    case frame_turn::none:
        break;
    }
    return point;
}

cv::Point2f step_of(camera_motion motion)
{
    switch (motion) {
    case camera_motion::right:
        return {9, 0};
    case camera_motion::left:
        return {-9, 0};
    case camera_motion::up:
        return {0, -9};
    case camera_motion::down:
        return {0, 9};
    case camera_motion::any:
        break;
    }
    return {0, 0};
}

cv::Mat random_image(int rows, int cols, int type)
{
    cv::Mat image(rows, cols, type);
    cv::randu(image, 0, 256);
    return image;
}

bool are_same(const cv::Mat& one, const cv::Mat& other)
{
    return one.size() == other.size() && cv::norm(one, other, cv::NORM_INF) == 0.0;
}

}  // namespace

TEST_P(FrameTurn, PixelsOfAFrameGoWhereItsPointsGo)
{
    const cv::Mat upright = random_image(5, 7, CV_8UC3);
    const cv::Mat turned = frame_for_library(upright, GetParam());
    ASSERT_EQ(turned.type(), CV_8UC3);
    ASSERT_EQ(turned.size(), GetParam() == frame_turn::none ? cv::Size(7, 5) : cv::Size(5, 7));
    for (int y = 0; y < upright.rows; ++y) {
        for (int x = 0; x < upright.cols; ++x) {
            // Pixel centres, as points between the edges.
            const cv::Point2f centre(static_cast<float>(x) + 0.5f, static_cast<float>(y) + 0.5f);
            const cv::Point2f there = in_the_librarys_frame(centre, upright.size(), GetParam());
            EXPECT_EQ(turned.at<cv::Vec3b>(static_cast<int>(there.y), static_cast<int>(there.x)),
                      upright.at<cv::Vec3b>(y, x));
        }
    }
}

TEST_P(FrameTurn, SquareFrameIsNotWrittenTo)
{
    const cv::Mat image = random_image(4, 4, CV_8UC3);
    const cv::Mat before = image.clone();
    frame_for_library(image, GetParam());
    preview_for_viewer(image, GetParam());
    panorama_for_viewer(image, GetParam());
    EXPECT_TRUE(are_same(image, before));
}

TEST_P(FrameTurn, PreviewComesBackUpright)
{
    const cv::Mat upright = random_image(5, 7, CV_8UC3);
    const cv::Mat back = preview_for_viewer(frame_for_library(upright, GetParam()), GetParam());
    EXPECT_TRUE(are_same(back, upright));
    EXPECT_TRUE(preview_for_viewer(cv::Mat(), GetParam()).empty());
}

TEST_P(FrameTurn, PanoramaComesBackUprightThoughTheLibraryTurnsIt)
{
    const cv::Mat upright = random_image(5, 7, CV_8UC3);
    cv::Mat panorama;
    cv::rotate(frame_for_library(upright, GetParam()), panorama, cv::ROTATE_90_CLOCKWISE);
    EXPECT_TRUE(are_same(panorama_for_viewer(panorama, GetParam()), upright));
    EXPECT_TRUE(panorama_for_viewer(cv::Mat(), GetParam()).empty());
}

TEST_P(FrameTurn, DirectionIsWhatTheLibrarySeesInTheTurnedFrames)
{
    const cv::Size2f size(640, 480);
    const std::vector<cv::Point2f> upright = {{0, 0}, {640, 0}, {640, 480}, {0, 480}};
    for (const camera_motion motion : all_motions) {
        std::vector<cv::Point2f> before;
        std::vector<cv::Point2f> after;
        for (const cv::Point2f& corner : upright) {
            before.push_back(in_the_librarys_frame(corner, size, GetParam()));
            after.push_back(in_the_librarys_frame(corner + step_of(motion), size, GetParam()));
        }
        const auto seen = static_cast<tarn::direction_code>(get_direction(before, after));
        EXPECT_EQ(direction_hint(motion, GetParam()), seen) << motion_name(motion);
        EXPECT_EQ(motion_for_viewer(seen, GetParam()), motion) << motion_name(motion);
    }
    EXPECT_EQ(direction_hint(camera_motion::any, GetParam()), tarn::direction_undecided);
    EXPECT_EQ(motion_for_viewer(tarn::direction_undecided, GetParam()), camera_motion::any);
}

TEST_P(FrameTurn, CornersSidesAndVectorsComeBackInTheViewersOrder)
{
    // Each corner of the upright frame, and the middle of each side, marked with its place in the order.
    const cv::Size2f size(6, 4);
    const std::array<cv::Point2f, 4> corners = {cv::Point2f(0, 0), {6, 0}, {6, 4}, {0, 4}};
    const cv::Size2f turned = GetParam() == frame_turn::none ? size : cv::Size2f(4, 6);
    const std::array<cv::Point2f, 4> turned_corners = {
        cv::Point2f(0, 0), {turned.width, 0}, {turned.width, turned.height}, {0, turned.height}};
    std::array<float, 4> corner_values{};
    std::array<float, 4> side_values{};
    for (std::size_t there = 0; there < 4; ++there) {
        const cv::Point2f middle = (turned_corners.at(there) + turned_corners.at((there + 1) % 4)) / 2;
        for (std::size_t here = 0; here < 4; ++here) {
            const cv::Point2f corner = in_the_librarys_frame(corners.at(here), size, GetParam());
            const cv::Point2f side =
                in_the_librarys_frame((corners.at(here) + corners.at((here + 1) % 4)) / 2, size, GetParam());
            corner_values.at(there) =
                corner == turned_corners.at(there) ? static_cast<float>(here) : corner_values.at(there);
            side_values.at(there) = side == middle ? static_cast<float>(here) : side_values.at(there);
        }
    }
    const std::array<float, 4> in_order = {0, 1, 2, 3};
    EXPECT_EQ(corners_for_viewer(corner_values, GetParam()), in_order);
    EXPECT_EQ(corners_for_viewer(side_values, GetParam()), in_order);

    for (const cv::Point2f& point : {cv::Point2f(1, 3), cv::Point2f(5, 0.5f), cv::Point2f(-2, 7)}) {
        const cv::Point2f there = in_the_librarys_frame(point, size, GetParam());
        EXPECT_EQ(preview_point_for_viewer(there, turned, GetParam()), point);
    }
}

TEST_P(FrameTurn, SecondTryTurnsTheOtherWay)
{
    EXPECT_NE(other_turn(GetParam()), GetParam());
}

INSTANTIATE_TEST_SUITE_P(All, FrameTurn, testing::ValuesIn(all_turns), name_of_turn);

TEST(TurnChoice, NamesTheTurn)
{
    EXPECT_EQ(turn_for(turn_choice::counter_clockwise), frame_turn::counter_clockwise);
    EXPECT_EQ(turn_for(turn_choice::clockwise), frame_turn::clockwise);
    EXPECT_EQ(turn_for(turn_choice::none), frame_turn::none);
}
