// SPDX-License-Identifier: Apache-2.0
//
// Direction and distance of a frame's motion, and straight lines.
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "motion.h"
#include "reference/geometry.h"
#include "support/corners.h"
#include "support/random_input.h"

namespace {

using tarn::test::corners_t;
using tarn::test::random_input;
using tarn::test::same_bits;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

// Direction of four corners of a frame that are shifted by so much each.
int direction_of(const std::vector<cv::Point2f>& shifts)
{
    corners_t frame = {{0.0f, 0.0f}, {300.0f, 0.0f}, {300.0f, 200.0f}, {0.0f, 200.0f}};
    corners_t mapped = frame;
    for (size_t i = 0; i < 4; ++i) {
        mapped[i] += shifts[i];
    }
    return get_direction(frame, mapped);
}

int direction_of(float x, float y)
{
    return direction_of(std::vector<cv::Point2f>(4, cv::Point2f(x, y)));
}

TEST(GetDirection, ShiftTheFourWays)
{
    EXPECT_EQ(direction_of(0, 5), 1);
    EXPECT_EQ(direction_of(0, -5), 2);
    EXPECT_EQ(direction_of(5, 0), 3);
    EXPECT_EQ(direction_of(-5, 0), 4);
}

TEST(GetDirection, Plus5Plus1IsCode3)
{
    EXPECT_EQ(direction_of(5, 1), 3);
}

TEST(GetDirection, Plus3Minus2IsUndecidedThoughXIsGreater)
{
    EXPECT_EQ(direction_of(3, -2), 0);
}

TEST(GetDirection, NoShiftIsUndecided)
{
    EXPECT_EQ(direction_of(0, 0), 0);
}

TEST(GetDirection, Minus1Minus10IsCode2)
{
    EXPECT_EQ(direction_of(-1, -10), 2);
}

TEST(GetDirection, DifferenceOfExactly2Decides)
{
    EXPECT_EQ(direction_of(3, 1), 3);
    EXPECT_EQ(direction_of(-1, -3), 2);
    EXPECT_EQ(direction_of(2, 0), 3);
    EXPECT_EQ(direction_of(0, 2), 1);
    EXPECT_EQ(direction_of(1.9375f, 0), 0);
}

TEST(GetDirection, DiagonalMotionIsUndecidedHoweverFast)
{
    EXPECT_EQ(direction_of(100, 100), 0);
    EXPECT_EQ(direction_of(-100, 101), 0);
}

TEST(GetDirection, MeanOfTheFourCornersCounts)
{
    EXPECT_EQ(direction_of({{40, 0}, {0, 0}, {0, 0}, {0, 0}}), 3);
    EXPECT_EQ(direction_of({{40, 0}, {-40, 0}, {0, 9}, {0, 0}}), 1);
}

TEST(GetDirection, SumIsMadeFromLeftToRightInSinglePrecision)
{
    // 1e8 + 3 is 1e8 again in single precision, so that 6 remains: a mean of 1.5, undecided. Exactly it would be
    // 9, a mean of 2.25.
    corners_t frame(4, cv::Point2f(0, 0));
    corners_t mapped = {{1e8f, 0}, {3, 0}, {-1e8f, 0}, {6, 0}};
    EXPECT_EQ(get_direction(frame, mapped), 0);
    corners_t reordered = {{1e8f, 0}, {-1e8f, 0}, {3, 0}, {6, 0}};
    EXPECT_EQ(get_direction(frame, reordered), 3);
}

TEST(GetDirection, NanMeanFallsToTheVerticalBranch)
{
    EXPECT_EQ(direction_of(nan, nan), 2);
    EXPECT_EQ(direction_of(5, nan), 2);
    EXPECT_EQ(direction_of(nan, -5), 2);
    EXPECT_EQ(direction_of(nan, 5), 1);
}

TEST(GetDirection, InfiniteMeans)
{
    EXPECT_EQ(direction_of(infinity, 0), 3);
    EXPECT_EQ(direction_of(-infinity, 0), 4);
    EXPECT_EQ(direction_of(infinity, infinity), 1);
    EXPECT_EQ(direction_of(infinity, -infinity), 2);
}

TEST(GetDirection, OnlyTheFirstFourCornersAreRead)
{
    corners_t frame(5, cv::Point2f(0, 0));
    corners_t mapped(4, cv::Point2f(5, 0));
    mapped.emplace_back(-1000.0f, 0.0f);
    EXPECT_EQ(get_direction(frame, mapped), 3);
}

TEST(GetDirection, EqualsReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 100000; ++i) {
        corners_t frame = random.one_in(8) ? random.any_quadrilateral({30, 20}) : random.quadrilateral({30, 20});
        corners_t mapped = random.one_in(8) ? random.any_quadrilateral({30, 20}) : random.quadrilateral({30, 20});
        ASSERT_EQ(get_direction(frame, mapped), reference::get_direction(frame, mapped));
    }
}

float distance_of(const cv::Point2f& from, const cv::Point2f& to)
{
    corners_t frame_center = {from};
    corners_t transpose_center = {to};
    return get_move_distance(frame_center, transpose_center);
}

TEST(GetMoveDistance, IdenticalCentresGiveZero)
{
    EXPECT_EQ(distance_of({150, 100}, {150, 100}), 0.0f);
}

TEST(GetMoveDistance, EuclideanEitherWay)
{
    EXPECT_EQ(distance_of({10, 20}, {13, 24}), 5.0f);
    EXPECT_EQ(distance_of({13, 24}, {10, 20}), 5.0f);
    EXPECT_EQ(distance_of({0, 0}, {-7, 0}), 7.0f);
}

TEST(GetMoveDistance, SquaresAndRootAreMadeInDoublePrecision)
{
    // 9e60 is beyond the range of a float.
    EXPECT_EQ(distance_of({3e30f, 4e30f}, {0, 0}), 5e30f);
    EXPECT_GT(distance_of({3e-30f, 4e-30f}, {0, 0}), 4.9e-30f);
}

TEST(GetMoveDistance, OnlyTheFirstPointOfEachListIsRead)
{
    corners_t frame_center = {{0, 0}, {nan, nan}};
    corners_t transpose_center = {{3, 4}, {nan, nan}};
    EXPECT_EQ(get_move_distance(frame_center, transpose_center), 5.0f);
}

TEST(GetMoveDistance, EqualsReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 50000; ++i) {
        corners_t frame_center = random.any_quadrilateral({300, 200});
        corners_t transpose_center = random.quadrilateral({300, 200});
        ASSERT_TRUE(same_bits(reference::get_move_distance(frame_center, transpose_center),
                              get_move_distance(frame_center, transpose_center)));
    }
}

LinePara line_through(float x1, float y1, float x2, float y2)
{
    LinePara line{};
    getLinePara(x1, y1, x2, y2, line);
    return line;
}

TEST(LinePara, LineThroughTwoPoints)
{
    const LinePara line = line_through(2, 5, 4, 9);
    EXPECT_EQ(line.k, 2.0f);
    EXPECT_EQ(line.b, 1.0f);
    const LinePara level = line_through(-3, 7, 8, 7);
    EXPECT_EQ(level.k, 0.0f);
    EXPECT_EQ(level.b, 7.0f);
}

TEST(LinePara, UprightLineGetsSlope10000AndTheMatchingIntercept)
{
    const LinePara line = line_through(7, 0, 7, 9);
    EXPECT_EQ(line.k, 10000.0f);
    EXPECT_EQ(line.b, -70000.0f);
    const LinePara upwards = line_through(7, 9, 7, 0);
    EXPECT_EQ(upwards.k, 10000.0f);
    EXPECT_EQ(upwards.b, -69991.0f);
}

TEST(LinePara, CoincidentPointsCountAsUpright)
{
    const LinePara line = line_through(1, 2, 1, 2);
    EXPECT_EQ(line.k, 10000.0f);
    EXPECT_EQ(line.b, -9998.0f);
}

TEST(LinePara, NearlyUprightLineKeepsItsOwnSlope)
{
    EXPECT_EQ(line_through(0, 0, std::numeric_limits<float>::min(), 1).k, 1.0f / std::numeric_limits<float>::min());
}

TEST(LinePara, EqualsReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 50000; ++i) {
        const corners_t p = random.one_in(2) ? random.any_quadrilateral({300, 200}) : random.quadrilateral({300, 200});
        const LinePara expected = reference::getLinePara(p[0].x, p[0].y, p[1].x, p[1].y);
        const LinePara actual = line_through(p[0].x, p[0].y, p[1].x, p[1].y);
        ASSERT_TRUE(same_bits(expected.k, actual.k));
        ASSERT_TRUE(same_bits(expected.b, actual.b));
    }
}

TEST(Point2Line, DistanceFromTheUprightLineThrough7)
{
    // |10000 * 8 - 70000 - 3| / sqrt(10000² + 1)
    const float k2 = std::sqrt(10000.0f * 10000.0f + 1.0f);
    EXPECT_NEAR(point_2_line(10000.0f, -70000.0f, k2, 8, 3), 0.9997f, 1e-6f);
}

TEST(Point2Line, PointsOnEitherSideAndOnTheLine)
{
    // y = 0.75 x, for which the root is 1.25.
    EXPECT_EQ(point_2_line(0.75f, 0, 1.25f, 4, 3), 0.0f);
    EXPECT_EQ(point_2_line(0.75f, 0, 1.25f, 0, 5), 4.0f);
    EXPECT_EQ(point_2_line(0.75f, 0, 1.25f, 0, -5), 4.0f);
}

TEST(Point2Line, NormaliserIsTheCallers)
{
    EXPECT_EQ(point_2_line(0, 0, 2.0f, 0, 5), 2.5f);
}

TEST(Point2Line, EqualsReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 50000; ++i) {
        const float k = random.any_float(10);
        const float b = random.any_float(300);
        const float k2 = random.one_in(9) ? random.any_float(9) : std::sqrt(k * k + 1.0f);
        const float x = random.any_float(300);
        const float y = random.any_float(300);
        ASSERT_TRUE(same_bits(reference::point_2_line(k, b, k2, x, y), point_2_line(k, b, k2, x, y)));
    }
}

}  // namespace
