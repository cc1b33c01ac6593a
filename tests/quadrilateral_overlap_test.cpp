// SPDX-License-Identifier: Apache-2.0
//
// Overlap of two quadrilaterals by their bounding boxes, and the geometry of lines through points.
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

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

corners_t box(float left, float top, float right, float bottom)
{
    return {{left, top}, {right, top}, {right, bottom}, {left, bottom}};
}

TEST(SingleBoxIou, IdenticalBoxesGiveOne)
{
    EXPECT_EQ(single_box_iou(box(0, 0, 10, 10), box(0, 0, 10, 10)), 1.0f);
    EXPECT_EQ(single_box_iou(box(-30, 5, 10, 17), box(-30, 5, 10, 17)), 1.0f);
}

TEST(SingleBoxIou, HalfShiftedBoxesGiveOneThird)
{
    EXPECT_EQ(single_box_iou(box(0, 0, 10, 10), box(5, 0, 15, 10)), 50.0f / 150.0f);
    EXPECT_EQ(single_box_iou(box(0, 0, 10, 10), box(0, -5, 10, 5)), 50.0f / 150.0f);
}

TEST(SingleBoxIou, BoxInsideAnotherGivesTheRatioOfTheAreas)
{
    EXPECT_EQ(single_box_iou(box(0, 0, 10, 10), box(2, 3, 7, 8)), 0.25f);
}

TEST(SingleBoxIou, BoxesApartBothWaysSeemToOverlap)
{
    // (10 - 20) * (10 - 20) = 100, 100 + 100 - 100 = 100.
    EXPECT_EQ(single_box_iou(box(0, 0, 10, 10), box(20, 20, 30, 30)), 1.0f);
}

TEST(SingleBoxIou, BoxesApartHorizontallyOnlyGiveANegativeRatio)
{
    // (10 - 20) * 10 = -100, 100 + 100 + 100 = 300.
    EXPECT_EQ(single_box_iou(box(0, 0, 10, 10), box(20, 0, 30, 10)), -100.0f / 300.0f);
}

TEST(SingleBoxIou, BoxesApartVerticallyOnlyGiveANegativeRatio)
{
    EXPECT_EQ(single_box_iou(box(0, 0, 10, 10), box(0, 20, 10, 30)), -100.0f / 300.0f);
}

TEST(SingleBoxIou, TouchingBoxesGiveZero)
{
    EXPECT_EQ(single_box_iou(box(0, 0, 10, 10), box(10, 0, 20, 10)), 0.0f);
}

TEST(SingleBoxIou, DegenerateBoxesGiveZero)
{
    EXPECT_EQ(single_box_iou(box(5, 0, 5, 10), box(5, 0, 5, 10)), 0.0f);
    EXPECT_EQ(single_box_iou(box(5, 5, 5, 5), box(5, 5, 5, 5)), 0.0f);
}

TEST(SingleBoxIou, UnionBelowZeroGivesZero)
{
    // Two points apart both ways: 0 + 0 - 100.
    EXPECT_EQ(single_box_iou(box(0, 0, 0, 0), box(10, 10, 10, 10)), 0.0f);
}

TEST(SingleBoxIou, CoordinatesAreTruncatedTowardZero)
{
    // 9.9 counts as 9 and -0.9 as 0.
    EXPECT_EQ(single_box_iou(box(-0.9f, -0.9f, 9.9f, 9.9f), box(0, 0, 9, 9)), 1.0f);
    EXPECT_EQ(single_box_iou(box(0, 0, 9, 9), box(0.9f, -0.5f, 9.5f, 9.0f)), 1.0f);
}

TEST(SingleBoxIou, BoxIsThatOfAllFourCornersInAnyOrder)
{
    const corners_t diamond = {{5, 0}, {10, 5}, {5, 10}, {0, 5}};
    EXPECT_EQ(single_box_iou(diamond, box(0, 0, 10, 10)), 1.0f);
    EXPECT_EQ(single_box_iou({{10, 10}, {0, 10}, {0, 0}, {10, 0}}, box(0, 0, 10, 10)), 1.0f);
}

TEST(SingleBoxIou, OnlyTheFirstFourCornersAreRead)
{
    corners_t five = box(0, 0, 10, 10);
    five.emplace_back(1000.0f, 1000.0f);
    EXPECT_EQ(single_box_iou(five, box(0, 0, 10, 10)), 1.0f);
}

TEST(SingleBoxIou, ArgumentsAreLeftAsTheyWere)
{
    const corners_t first = box(0, 0, 10, 10);
    const corners_t second = box(5, 0, 15, 10);
    single_box_iou(first, second);
    EXPECT_EQ(first, box(0, 0, 10, 10));
    EXPECT_EQ(second, box(5, 0, 15, 10));
}

TEST(SingleBoxIou, NanInTheFirstCornerEmptiesTheBox)
{
    // Both x limits become the smallest int, so that the area is 0. The intersection is -2^31 wide and 10 high;
    // beside it the area of the other box vanishes in the union's single precision.
    EXPECT_EQ(single_box_iou({{nan, 0}, {10, 0}, {10, 10}, {0, 10}}, box(0, 0, 10, 10)), -1.0f);
}

TEST(SingleBoxIou, NanInALaterCornerIsIgnored)
{
    EXPECT_EQ(single_box_iou({{0, 0}, {nan, nan}, {10, 10}, {0, 10}}, box(0, 0, 10, 10)), 1.0f);
}

TEST(SingleBoxIou, EqualsReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 100000; ++i) {
        const bool any = random.one_in(2);
        const corners_t first = any ? random.any_quadrilateral({40, 30}) : random.quadrilateral({40, 30});
        const corners_t second = any ? random.any_quadrilateral({40, 30}) : random.quadrilateral({40, 30});
        ASSERT_TRUE(same_bits(reference::single_box_iou(first, second), single_box_iou(first, second)))
            << text_of(first) << " and" << text_of(second);
    }
}

TEST(MinAxis, SmallestElement)
{
    EXPECT_EQ(min_axis({3.0f, -1.5f, 7.0f, 2.0f}), -1.5f);
    EXPECT_EQ(min_axis({4.0f}), 4.0f);
    EXPECT_EQ(min_axis({4.0f, 3.0f, 2.0f, 1.0f, 0.0f, -1.0f}), -1.0f);
    EXPECT_EQ(min_axis({0.0f, -infinity, infinity, 1.0f}), -infinity);
}

TEST(MaxAxis, LargestElement)
{
    EXPECT_EQ(max_axis({3.0f, -1.5f, 7.0f, 2.0f}), 7.0f);
    EXPECT_EQ(max_axis({-4.0f}), -4.0f);
    EXPECT_EQ(max_axis({-1.0f, 0.0f, 1.0f, 2.0f, 3.0f, 4.0f}), 4.0f);
    EXPECT_EQ(max_axis({0.0f, -infinity, infinity, 1.0f}), infinity);
}

TEST(MinAxis, NanInFrontStaysAndLaterOnesAreNeverTaken)
{
    EXPECT_TRUE(std::isnan(min_axis({nan, 1.0f, 2.0f, 3.0f})));
    EXPECT_EQ(min_axis({2.0f, nan, 1.0f, nan}), 1.0f);
}

TEST(MaxAxis, NanInFrontStaysAndLaterOnesAreNeverTaken)
{
    EXPECT_TRUE(std::isnan(max_axis({nan, 1.0f, 2.0f, 3.0f})));
    EXPECT_EQ(max_axis({1.0f, nan, 2.0f, nan}), 2.0f);
}

TEST(MinAxis, TiesKeepTheEarlierElement)
{
    EXPECT_TRUE(same_bits(0.0f, min_axis({0.0f, -0.0f, 0.0f, -0.0f})));
    EXPECT_TRUE(same_bits(-0.0f, min_axis({-0.0f, 0.0f, 0.0f, 0.0f})));
}

TEST(MaxAxis, TiesKeepTheEarlierElement)
{
    EXPECT_TRUE(same_bits(-0.0f, max_axis({-0.0f, 0.0f, 0.0f, 0.0f})));
    EXPECT_TRUE(same_bits(0.0f, max_axis({0.0f, -0.0f, 0.0f, -0.0f})));
}

TEST(MinAndMaxAxis, EqualReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 20000; ++i) {
        std::vector<float> list(static_cast<size_t>(random.integer(1, 9)));
        for (float& value : list) {
            value = random.any_float(100);
        }
        ASSERT_TRUE(same_bits(reference::min_axis(list), min_axis(list)));
        ASSERT_TRUE(same_bits(reference::max_axis(list), max_axis(list)));
    }
}

TEST(Cross, TwiceTheSignedAreaOfTheTriangle)
{
    EXPECT_EQ(cross({1, 0}, {0, 1}, {0, 0}), 1.0f);
    EXPECT_EQ(cross({0, 1}, {1, 0}, {0, 0}), -1.0f);
    EXPECT_EQ(cross({14, 3}, {4, 8}, {4, 3}), 50.0f);
}

TEST(Cross, PointsInOneLineGiveZero)
{
    EXPECT_EQ(cross({1, 1}, {5, 5}, {3, 3}), 0.0f);
    EXPECT_EQ(cross({2, 7}, {2, 7}, {9, 1}), 0.0f);
}

TEST(Cross, IsMadeInSinglePrecision)
{
    // 4097² = 16785409 is no float; the nearest is 16785408. In double precision the difference would be 1.
    EXPECT_EQ(cross({4097, 4096}, {4098, 4097}, {0, 0}), 4097.0f * 4097.0f - 4096.0f * 4098.0f);
    EXPECT_EQ(cross({4097, 4096}, {4098, 4097}, {0, 0}), 0.0f);
}

TEST(Cross, EqualsReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 50000; ++i) {
        const corners_t p = random.any_quadrilateral({300, 200});
        ASSERT_TRUE(same_bits(reference::cross(p[0], p[1], p[2]), cross(p[0], p[1], p[2]))) << text_of(p);
    }
}

TEST(IntersectionPoint, CrossingSegments)
{
    EXPECT_EQ(get_intersection_point({0, 0}, {10, 10}, {0, 10}, {10, 0}), cv::Point2f(5, 5));
    EXPECT_EQ(get_intersection_point({2, 0}, {2, 8}, {0, 4}, {16, 4}), cv::Point2f(2, 4));
}

TEST(IntersectionPoint, LinesMeetBeyondTheirSegments)
{
    EXPECT_EQ(get_intersection_point({0, 0}, {1, 1}, {10, 0}, {9, 1}), cv::Point2f(5, 5));
}

TEST(IntersectionPoint, ParallelLinesGiveInfiniteOrNanCoordinates)
{
    const cv::Point2f level = get_intersection_point({0, 0}, {10, 0}, {0, 5}, {10, 5});
    EXPECT_TRUE(std::isinf(level.x));
    EXPECT_TRUE(std::isnan(level.y));  // infinity times 0
}

TEST(IntersectionPoint, CoincidentLinesGiveNan)
{
    const cv::Point2f p = get_intersection_point({0, 0}, {10, 10}, {2, 2}, {5, 5});
    EXPECT_TRUE(std::isnan(p.x));
    EXPECT_TRUE(std::isnan(p.y));
}

TEST(IntersectionPoint, EqualsReferenceForAnyFloats)
{
    random_input random;
    for (int i = 0; i < 50000; ++i) {
        const corners_t p = random.one_in(2) ? random.any_quadrilateral({300, 200}) : random.quadrilateral({300, 200});
        const cv::Point2f expected = reference::get_intersection_point(p[0], p[1], p[2], p[3]);
        const cv::Point2f actual = get_intersection_point(p[0], p[1], p[2], p[3]);
        ASSERT_TRUE(same_bits(expected.x, actual.x)) << text_of(p);
        ASSERT_TRUE(same_bits(expected.y, actual.y)) << text_of(p);
    }
}

}  // namespace
