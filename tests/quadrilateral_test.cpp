// SPDX-License-Identifier: Apache-2.0
//
// Whether a mapped frame is plausible: convexity, tilt of its edges, covered area; and angles at its corners.
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "internal/numeric.h"
#include "quadrilateral.h"
#include "reference/geometry.h"
#include "support/corners.h"
#include "support/random_input.h"

namespace {

using tarn::test::corners_t;
using tarn::test::random_input;
using tarn::test::same_bits;
using tarn::test::text_of;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float any_area = 0.0f;
constexpr float any_angle = 90.0f;

// Only its size is looked at.
cv::Mat frame_of(int width, int height)
{
    return cv::Mat(height, width, CV_8UC3);
}

corners_t corners_of(int width, int height)
{
    const auto w = static_cast<float>(width);
    const auto h = static_cast<float>(height);
    return {{0.0f, 0.0f}, {w, 0.0f}, {w, h}, {0.0f, h}};
}

float just_below(float value)
{
    return std::nextafter(value, -infinity);
}

float just_above(float value)
{
    return std::nextafter(value, infinity);
}

// Tilts

TEST(EdgeTilt, IdentityCornersAreNotTilted)
{
    const corners_t corners = corners_of(300, 200);
    EXPECT_TRUE(same_bits(0.0f, calc_hangle(corners)));
    EXPECT_TRUE(same_bits(0.0f, calc_vangle(corners)));
    EXPECT_TRUE(same_bits(0.0f, calc_angle(corners)));
}

TEST(EdgeTilt, EdgeWithEqualXAtBothEndsHasTilt90)
{
    // Edge 0-1 upright, edge 2-3 level.
    EXPECT_EQ(calc_hangle({{5.0f, 0.0f}, {5.0f, 10.0f}, {9.0f, 10.0f}, {0.0f, 10.0f}}), 90.0f);
    // Both upright, once downwards and once upwards.
    EXPECT_EQ(calc_hangle({{100.0f, 0.0f}, {100.0f, 100.0f}, {0.0f, 100.0f}, {0.0f, 0.0f}}), 90.0f);
}

TEST(EdgeTilt, TiltIsTheSameForRisingAndFallingEdges)
{
    EXPECT_EQ(calc_hangle({{0.0f, 0.0f}, {10.0f, 10.0f}, {10.0f, 20.0f}, {0.0f, 20.0f}}), 45.0f);
    EXPECT_EQ(calc_hangle({{0.0f, 10.0f}, {10.0f, 0.0f}, {10.0f, 20.0f}, {0.0f, 20.0f}}), 45.0f);
    EXPECT_EQ(calc_hangle({{10.0f, 10.0f}, {0.0f, 0.0f}, {10.0f, 20.0f}, {0.0f, 20.0f}}), 45.0f);
}

TEST(EdgeTilt, HorizontalEdgesAreJudgedByTheLessLevelOne)
{
    EXPECT_EQ(calc_hangle({{0.0f, 0.0f}, {10.0f, 0.0f}, {10.0f, 20.0f}, {0.0f, 10.0f}}), 45.0f);
    EXPECT_EQ(calc_hangle({{0.0f, 0.0f}, {10.0f, 10.0f}, {10.0f, 30.0f}, {0.0f, 30.0f}}), 45.0f);
}

TEST(EdgeTilt, VerticalEdgesAreJudgedByTheMoreUprightOne)
{
    EXPECT_EQ(calc_vangle({{0.0f, 0.0f}, {30.0f, 0.0f}, {20.0f, 10.0f}, {0.0f, 10.0f}}), 0.0f);
    EXPECT_EQ(calc_vangle({{0.0f, 0.0f}, {30.0f, 0.0f}, {30.0f, 10.0f}, {10.0f, 10.0f}}), 0.0f);
    EXPECT_EQ(calc_vangle({{0.0f, 0.0f}, {20.0f, 0.0f}, {30.0f, 10.0f}, {10.0f, 10.0f}}), 45.0f);
}

TEST(EdgeTilt, CoincidentCornersInTheFirstEdgeGiveNan)
{
    EXPECT_TRUE(std::isnan(calc_hangle({{3.0f, 3.0f}, {3.0f, 3.0f}, {10.0f, 10.0f}, {0.0f, 10.0f}})));
    EXPECT_TRUE(std::isnan(calc_vangle({{3.0f, 3.0f}, {9.0f, 3.0f}, {9.0f, 9.0f}, {3.0f, 3.0f}})));
}

TEST(EdgeTilt, NanInTheSecondEdgeIsIgnored)
{
    EXPECT_EQ(calc_hangle({{0.0f, 0.0f}, {10.0f, 10.0f}, {3.0f, 20.0f}, {3.0f, 20.0f}}), 45.0f);
    EXPECT_EQ(calc_vangle({{0.0f, 0.0f}, {9.0f, 9.0f}, {9.0f, 9.0f}, {10.0f, 10.0f}}), 45.0f);
}

TEST(EdgeTilt, CalcAngleIsCalcHangle)
{
    random_input random;
    for (int i = 0; i < 1000; ++i) {
        const corners_t corners = random.any_quadrilateral({300, 200});
        ASSERT_TRUE(same_bits(calc_hangle(corners), calc_angle(corners))) << text_of(corners);
    }
}

TEST(EdgeTilt, CalcAnglesDoesNothing)
{
    calc_angles();
}

TEST(EdgeTilt, EqualsReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 50000; ++i) {
        const corners_t corners =
            random.one_in(2) ? random.any_quadrilateral({300, 200}) : random.quadrilateral({300, 200});
        ASSERT_TRUE(same_bits(reference::calc_hangle(corners), calc_hangle(corners))) << text_of(corners);
        ASSERT_TRUE(same_bits(reference::calc_vangle(corners), calc_vangle(corners))) << text_of(corners);
        ASSERT_TRUE(same_bits(reference::calc_angle(corners), calc_angle(corners))) << text_of(corners);
    }
}

// Convexity

TEST(IsConvex, RectangleIsConvexEitherWayRound)
{
    EXPECT_TRUE(is_convex({{0.0f, 0.0f}, {10.0f, 0.0f}, {10.0f, 5.0f}, {0.0f, 5.0f}}));
    EXPECT_TRUE(is_convex({{0.0f, 0.0f}, {0.0f, 5.0f}, {10.0f, 5.0f}, {10.0f, 0.0f}}));
}

TEST(IsConvex, SelfIntersectingAndDentedQuadrilateralsAreNot)
{
    EXPECT_FALSE(is_convex({{0.0f, 0.0f}, {10.0f, 5.0f}, {10.0f, 0.0f}, {0.0f, 5.0f}}));
    EXPECT_FALSE(is_convex({{0.0f, 0.0f}, {10.0f, 0.0f}, {2.0f, 2.0f}, {0.0f, 10.0f}}));
}

TEST(IsConvex, EmptyListIsNotConvex)
{
    EXPECT_FALSE(is_convex({}));
}

TEST(IsConvex, CoordinatesStayFloats)
{
    // The last corner lies 0.1 pixels inside the line from the first to the third; in whole pixels, outside.
    EXPECT_FALSE(is_convex({{0.0f, 0.0f}, {10.0f, 0.0f}, {10.0f, 9.0f}, {5.9f, 5.2f}}));
    EXPECT_TRUE(is_convex({{0.0f, 0.0f}, {10.0f, 0.0f}, {10.0f, 9.0f}, {5.0f, 5.0f}}));
    EXPECT_TRUE(is_convex({{0.1f, 0.1f}, {0.2f, 0.1f}, {0.2f, 0.2f}, {0.1f, 0.2f}}));
}

TEST(IsConvex, AllCornersCountNotOnlyFour)
{
    EXPECT_TRUE(is_convex({{0.0f, 0.0f}, {10.0f, 0.0f}, {10.0f, 10.0f}, {5.0f, 12.0f}, {0.0f, 10.0f}}));
    EXPECT_FALSE(is_convex({{0.0f, 0.0f}, {10.0f, 0.0f}, {10.0f, 10.0f}, {0.0f, 10.0f}, {5.0f, 5.0f}}));
}

TEST(IsConvex, EqualsReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 50000; ++i) {
        const corners_t corners = random.any_quadrilateral({300, 200});
        ASSERT_EQ(is_convex(corners), reference::is_convex(corners)) << text_of(corners);
    }
}

// The full test

TEST(IsGoodHomo, IdentityPassesForEveryAreaThresholdUpToOne)
{
    for (const int width : tarn::test::small_sides()) {
        for (const int height : tarn::test::small_sides()) {
            const cv::Mat frame = frame_of(width, height);
            ASSERT_TRUE(is_good_homo(corners_of(width, height), frame, 1.0f, 0.0f)) << width << " x " << height;
            ASSERT_FALSE(is_good_homo(corners_of(width, height), frame, just_above(1.0f), 0.0f));
        }
    }
}

TEST(IsGoodHomo, AreaOfALargeFrameIsNarrowedToFloatLikeTheCount)
{
    // 4097² is odd and above 2^24: neither the frame's area nor the number of covered pixels is a float.
    EXPECT_TRUE(is_good_homo(corners_of(4097, 4097), cv::Mat(4097, 4097, CV_8UC1), 1.0f, 0.0f));
}

TEST(IsGoodHomo, UprightHorizontalEdgesFailEveryAngleThresholdBelow90)
{
    // A square turned by 90 degrees.
    const corners_t turned = {{100.0f, 0.0f}, {100.0f, 100.0f}, {0.0f, 100.0f}, {0.0f, 0.0f}};
    const cv::Mat frame = frame_of(100, 100);
    EXPECT_FALSE(is_good_homo(turned, frame, any_area, 10.0f));
    EXPECT_FALSE(is_good_homo(turned, frame, any_area, just_below(90.0f)));
    EXPECT_TRUE(is_good_homo(turned, frame, any_area, 90.0f));
}

TEST(IsGoodHomo, AngleOfExactlyTheThresholdPasses)
{
    const cv::Mat frame = frame_of(30, 30);
    const corners_t falling = {{0.0f, 0.0f}, {10.0f, 10.0f}, {10.0f, 30.0f}, {0.0f, 20.0f}};
    EXPECT_TRUE(is_good_homo(falling, frame, any_area, 45.0f));
    EXPECT_FALSE(is_good_homo(falling, frame, any_area, just_below(45.0f)));
    const corners_t leaning = {{0.0f, 0.0f}, {20.0f, 0.0f}, {30.0f, 10.0f}, {10.0f, 10.0f}};
    EXPECT_TRUE(is_good_homo(leaning, frame, any_area, 45.0f));
    EXPECT_FALSE(is_good_homo(leaning, frame, any_area, just_below(45.0f)));
}

TEST(IsGoodHomo, OneUprightSideEdgeIsEnough)
{
    const corners_t one_side_leans = {{0.0f, 0.0f}, {30.0f, 0.0f}, {20.0f, 10.0f}, {0.0f, 10.0f}};
    EXPECT_TRUE(is_good_homo(one_side_leans, frame_of(30, 10), any_area, 0.0f));
}

TEST(IsGoodHomo, OneLevelHorizontalEdgeIsNotEnough)
{
    const corners_t bottom_falls = {{0.0f, 0.0f}, {10.0f, 0.0f}, {10.0f, 20.0f}, {0.0f, 10.0f}};
    EXPECT_FALSE(is_good_homo(bottom_falls, frame_of(10, 20), any_area, 44.0f));
}

TEST(IsGoodHomo, CoverageOfExactlyTheThresholdPasses)
{
    // Columns 0 to 4 of ten.
    const corners_t left_half = {{0.0f, 0.0f}, {4.0f, 0.0f}, {4.0f, 10.0f}, {0.0f, 10.0f}};
    EXPECT_TRUE(is_good_homo(left_half, frame_of(10, 10), 0.5f, any_angle));
    EXPECT_FALSE(is_good_homo(left_half, frame_of(10, 10), just_above(0.5f), any_angle));
}

TEST(IsGoodHomo, CornersAreTruncatedTowardZeroNotRounded)
{
    // 4.9 counts as 4: five columns of ten.
    const corners_t left_half = {{0.0f, 0.0f}, {4.9f, 0.0f}, {4.9f, 9.9f}, {0.0f, 9.9f}};
    EXPECT_TRUE(is_good_homo(left_half, frame_of(10, 10), 0.5f, any_angle));
    EXPECT_FALSE(is_good_homo(left_half, frame_of(10, 10), just_above(0.5f), any_angle));
}

TEST(IsGoodHomo, MinusOneHalfBecomesZero)
{
    // The lower edge at -0.5, or at -0.9, lies in row 0, ten pixels of a hundred; at -1 it would miss the frame.
    for (const float bottom : {-0.5f, -0.9f}) {
        const corners_t above = {{0.0f, -9.0f}, {9.0f, -9.0f}, {9.0f, bottom}, {0.0f, bottom}};
        EXPECT_TRUE(is_good_homo(above, frame_of(10, 10), 0.1f, any_angle));
        EXPECT_FALSE(is_good_homo(above, frame_of(10, 10), just_above(0.1f), any_angle));
    }
    const corners_t above = {{0.0f, -9.0f}, {9.0f, -9.0f}, {9.0f, -1.0f}, {0.0f, -1.0f}};
    EXPECT_FALSE(is_good_homo(above, frame_of(10, 10), just_above(0.0f), any_angle));
}

TEST(IsGoodHomo, ConvexityIsThatOfTheTruncatedCorners)
{
    // Dented by 0.1 pixels, but not in whole pixels.
    const corners_t dented = {{0.0f, 0.0f}, {10.0f, 0.0f}, {10.0f, 9.0f}, {5.9f, 5.2f}};
    EXPECT_FALSE(is_convex(dented));
    EXPECT_TRUE(is_good_homo(dented, frame_of(10, 10), any_area, any_angle));
    // Convex, but three corners come to lie in one line.
    const corners_t flat = {{0.0f, 0.9f}, {5.0f, 0.1f}, {10.0f, 0.9f}, {5.0f, 9.0f}};
    EXPECT_TRUE(is_convex(flat));
    EXPECT_FALSE(is_good_homo(flat, frame_of(10, 10), any_area, any_angle));
}

TEST(IsGoodHomo, PartsOutsideTheFrameDoNotCount)
{
    // As large as the frame, but shifted to the right by half of it: columns 5 to 9 are covered.
    const corners_t shifted = {{5.0f, 0.0f}, {15.0f, 0.0f}, {15.0f, 10.0f}, {5.0f, 10.0f}};
    EXPECT_TRUE(is_good_homo(shifted, frame_of(10, 10), 0.5f, any_angle));
    EXPECT_FALSE(is_good_homo(shifted, frame_of(10, 10), just_above(0.5f), any_angle));
    const corners_t beside = {{10.0f, 0.0f}, {20.0f, 0.0f}, {20.0f, 10.0f}, {10.0f, 10.0f}};
    EXPECT_FALSE(is_good_homo(beside, frame_of(10, 10), just_above(0.0f), any_angle));
    EXPECT_TRUE(is_good_homo(beside, frame_of(10, 10), 0.0f, any_angle));
}

TEST(IsGoodHomo, FrameWithoutWidthOrHeightPassesTheAreaTest)
{
    const corners_t corners = corners_of(10, 10);
    EXPECT_TRUE(is_good_homo(corners, cv::Mat(), 2.0f, any_angle));
    EXPECT_TRUE(is_good_homo(corners, frame_of(10, 0), 2.0f, any_angle));
    EXPECT_TRUE(is_good_homo(corners, frame_of(0, 10), 2.0f, any_angle));
}

TEST(IsGoodHomo, NanThresholdsPass)
{
    EXPECT_TRUE(is_good_homo(corners_of(10, 10), frame_of(10, 10), nan, nan));
}

TEST(IsGoodHomo, NanTiltPasses)
{
    // A NaN corner counts as the smallest int both ways, up and to the left at 45 degrees. Its two edges pass
    // beside the frame, so that all of it is covered. The tilts at that corner are NaN, and come first.
    const corners_t corners = {{nan, nan}, {100.0f, 0.0f}, {100.0f, 100.0f}, {0.0f, 100.0f}};
    EXPECT_TRUE(std::isnan(calc_hangle(corners)));
    EXPECT_TRUE(std::isnan(calc_vangle(corners)));
    EXPECT_TRUE(is_good_homo(corners, frame_of(100, 100), 1.0f, 0.0f));
}

TEST(IsGoodHomo, CornersFarAboveTheFrameAreAnsweredAtOnce)
{
    // 2^31 rows up; walking down from there, row by row, would take seconds each time.
    const corners_t corners = {{0.0f, -2e9f}, {100.0f, -2e9f}, {100.0f, 100.0f}, {0.0f, 100.0f}};
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(is_good_homo(corners, frame_of(100, 100), 1.0f, any_angle));
    }
}

TEST(IsGoodHomo, EmptyListFails)
{
    EXPECT_FALSE(is_good_homo({}, frame_of(10, 10), any_area, any_angle));
}

TEST(IsGoodHomo, FewerThanFourCornersAreSafe)
{
    for (const corners_t& corners : {corners_t{{0.0f, 0.0f}}, corners_t{{0.0f, 0.0f}, {9.0f, 0.0f}},
                                     corners_t{{0.0f, 0.0f}, {9.0f, 0.0f}, {9.0f, 9.0f}}}) {
        is_good_homo(corners, frame_of(10, 10), any_area, any_angle);
    }
}

TEST(IsGoodHomo, EqualsReferenceForAnyFloats)
{
    random_input random;
    int passed = 0;
    for (int i = 0; i < 30000; ++i) {
        const cv::Size size(random.integer(0, 40), random.integer(0, 40));
        corners_t corners = random.one_in(3) ? random.any_quadrilateral(size) : random.quadrilateral(size);
        for (cv::Point2f& corner : corners) {
            // The reference walks every row from the topmost corner down.
            if (tarn::truncate_to_int(corner.y) < -100000) {
                corner.y = random.coordinate(size.height);
            }
        }
        const float area_thresh = random.real(0.0f, 1.0f);
        const float angle_thresh = random.real(0.0f, 91.0f);
        const cv::Mat frame = frame_of(size.width, size.height);
        const bool expected = reference::is_good_homo(corners, frame, area_thresh, angle_thresh);
        ASSERT_EQ(is_good_homo(corners, frame, area_thresh, angle_thresh), expected)
            << size << text_of(corners) << ", area " << area_thresh << ", angle " << angle_thresh;
        passed += expected ? 1 : 0;
    }
    EXPECT_GT(passed, 1000);
}

// Angles at corners

// The point one pixel away from (0, 0) at an angle from the +y axis towards +x.
cv::Point2f at_degrees_from_y(double degrees)
{
    const double radians = degrees * CV_PI / 180.0;
    return cv::Point2f(static_cast<float>(std::sin(radians)), static_cast<float>(std::cos(radians)));
}

float angle_between(cv::Point2f pt1, cv::Point2f pt2, cv::Point2f c = {})
{
    return angle_of_two_vector(pt1, pt2, c);
}

TEST(AngleOfTwoVector, EqualRaysGiveZero)
{
    EXPECT_EQ(angle_between({3.0f, 4.0f}, {3.0f, 4.0f}, {1.0f, 1.0f}), 0.0f);
    EXPECT_EQ(angle_between({3.0f, 3.0f}, {5.0f, 5.0f}, {1.0f, 1.0f}), 0.0f);
}

TEST(AngleOfTwoVector, CornersOfARectangleGive90)
{
    const corners_t p = corners_of(300, 200);
    EXPECT_EQ(angle_between(p[1], p[3], p[0]), 90.0f);
    EXPECT_EQ(angle_between(p[2], p[0], p[1]), 90.0f);
    EXPECT_EQ(angle_between(p[3], p[1], p[2]), 90.0f);
    EXPECT_EQ(angle_between(p[0], p[2], p[3]), 90.0f);
}

TEST(AngleOfTwoVector, SignIsPositiveFromPlusXTowardsPlusY)
{
    EXPECT_EQ(angle_between({1.0f, 0.0f}, {0.0f, 1.0f}), 90.0f);
    EXPECT_EQ(angle_between({0.0f, 1.0f}, {1.0f, 0.0f}), -90.0f);
    EXPECT_EQ(angle_between({1.0f, 1.0f}, {0.0f, 1.0f}), 45.0f);
}

TEST(AngleOfTwoVector, RaysAtPlusAndMinus179GiveMagnitude2)
{
    EXPECT_NEAR(angle_between(at_degrees_from_y(179.0), at_degrees_from_y(-179.0)), -2.0f, 1e-4f);
    EXPECT_NEAR(angle_between(at_degrees_from_y(-179.0), at_degrees_from_y(179.0)), 2.0f, 1e-4f);
}

TEST(AngleOfTwoVector, OppositeRaysAreFoldedInDoublePrecision)
{
    // The float nearest to π is greater than π: theta folds to 3.1415927410 - 6.2831853072 = -3.1415925662, whose
    // nearest float -3.1415925026 is -179.999991 degrees, and the float nearest to that is this one.
    EXPECT_TRUE(same_bits(-179.99998474121094f, angle_between({0.0f, -1.0f}, {0.0f, 1.0f})));
    // Downwards from -π, likewise.
    EXPECT_TRUE(same_bits(179.99998474121094f, angle_between({0.0f, 1.0f}, {0.0f, -1.0f})));
}

TEST(AngleOfTwoVector, ResultStaysWithin180)
{
    random_input random;
    for (int i = 0; i < 20000; ++i) {
        const corners_t p = random.quadrilateral({300, 200});
        const float angle = angle_between(p[0], p[1], p[2]);
        ASSERT_GE(angle, -180.0f) << text_of(p);
        ASSERT_LE(angle, 180.0f) << text_of(p);
    }
}

TEST(AngleOfTwoVector, NanGivesNan)
{
    EXPECT_TRUE(std::isnan(angle_between({nan, 0.0f}, {0.0f, 1.0f})));
    EXPECT_TRUE(std::isnan(angle_between({1.0f, 0.0f}, {0.0f, 1.0f}, {infinity, infinity}))
                == std::isnan(reference::angle_of_two_vector({1.0f, 0.0f}, {0.0f, 1.0f}, {infinity, infinity})));
}

TEST(AngleOfTwoVector, EqualsReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 50000; ++i) {
        corners_t p = random.one_in(2) ? random.any_quadrilateral({300, 200}) : random.quadrilateral({300, 200});
        ASSERT_TRUE(same_bits(reference::angle_of_two_vector(p[0], p[1], p[2]), angle_of_two_vector(p[0], p[1], p[2])))
            << text_of(p);
    }
}

}  // namespace
