// SPDX-License-Identifier: Apache-2.0
//
// The number of pixels that a polygon covers, against cv::fillPoly itself.
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "internal/exact_routines.h"
#include "support/random_input.h"

namespace {

using polygon_t = std::vector<cv::Point>;
using tarn::polygon_coverage;
using tarn::test::random_input;

constexpr int smallest = std::numeric_limits<int>::min();
constexpr int largest = std::numeric_limits<int>::max();

// What the answer is defined by. Takes 2 ns or so for each row between the topmost corner and the image.
int filled_pixels(cv::Size size, const polygon_t& polygon)
{
    cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
    cv::fillPoly(mask, std::vector<polygon_t>{polygon}, cv::Scalar(1), 8, 0, cv::Point(0, 0));
    return cv::countNonZero(mask);
}

std::string text_of(cv::Size size, const polygon_t& polygon)
{
    std::ostringstream text;
    text << size << ":";
    for (const cv::Point& corner : polygon) {
        text << " (" << corner.x << ", " << corner.y << ")";
    }
    return text.str();
}

// A polygon about an image: corners inside, on the border, somewhat outside, or up to `far` away upwards and
// sideways.
polygon_t random_polygon(random_input& random, cv::Size size, int far)
{
    polygon_t polygon(static_cast<size_t>(random.one_in(3) ? random.integer(1, 8) : 4));
    const auto coordinate = [&random, far](int extent) {
        switch (random.integer(0, 5)) {
        case 0:
            return random.integer(-far, far);
        case 1:
            return random.integer(-far, 0);
        case 2:
            return random.integer(-3, 0);
        case 3:
            return extent + random.integer(-2, 2);
        case 4:
            return random.integer(-extent, 2 * extent);
        default:
            return random.integer(0, extent);
        }
    };
    for (cv::Point& corner : polygon) {
        corner = {coordinate(size.width), coordinate(size.height)};
    }
    return polygon;
}

void compare_random_polygons(int count, int greatest_side, int far)
{
    random_input random;
    int beyond_the_image = 0;
    for (int i = 0; i < count; ++i) {
        const cv::Size size(random.integer(1, greatest_side), random.integer(1, greatest_side));
        const polygon_t polygon = random_polygon(random, size, far);
        ASSERT_EQ(polygon_coverage(size, polygon), filled_pixels(size, polygon)) << text_of(size, polygon);
        for (const cv::Point& corner : polygon) {
            beyond_the_image += corner.y < -far / 2 ? 1 : 0;
        }
    }
    EXPECT_GT(beyond_the_image, count / 4);  // the polygons are what they are meant to be
}

TEST(PolygonCoverage, WholeImageIsCoveredByItsOwnCorners)
{
    for (const int width : tarn::test::small_sides()) {
        for (const int height : tarn::test::small_sides()) {
            const polygon_t corners = {{0, 0}, {width, 0}, {width, height}, {0, height}};
            ASSERT_EQ(polygon_coverage({width, height}, corners), width * height);
        }
    }
}

TEST(PolygonCoverage, OutlineBelongsToThePolygon)
{
    EXPECT_EQ(polygon_coverage({10, 10}, {{2, 3}, {6, 3}, {6, 8}, {2, 8}}), 5 * 6);
    EXPECT_EQ(polygon_coverage({10, 10}, {{4, 4}}), 1);
    EXPECT_EQ(polygon_coverage({10, 10}, {{1, 4}, {7, 4}}), 7);
}

TEST(PolygonCoverage, NoCornersOrNoPixelsGiveZero)
{
    EXPECT_EQ(polygon_coverage({10, 10}, {}), 0);
    const polygon_t corners = {{0, 0}, {9, 0}, {9, 9}, {0, 9}};
    EXPECT_EQ(polygon_coverage({0, 0}, corners), 0);
    EXPECT_EQ(polygon_coverage({0, 10}, corners), 0);
    EXPECT_EQ(polygon_coverage({10, 0}, corners), 0);
    EXPECT_EQ(polygon_coverage({0, 10}, {{smallest, smallest}, {9, 0}, {9, 9}}), 0);
}

TEST(PolygonCoverage, EqualsFillPolyForRandomPolygonsNearby)
{
    compare_random_polygons(20000, 40, 300);
}

TEST(PolygonCoverage, EqualsFillPolyForRandomPolygonsJustBeyondTheLimitOfWalking)
{
    compare_random_polygons(3000, 200, 200000);
}

TEST(PolygonCoverage, EqualsFillPolyForRandomPolygonsMillionsOfPixelsAway)
{
    compare_random_polygons(250, 300, 5000000);
}

TEST(PolygonCoverage, EqualsFillPolyOnBothSidesOfTheLimitOfWalking)
{
    random_input random;
    for (int top = -65540; top <= -65532; ++top) {
        for (int i = 0; i < 100; ++i) {
            const cv::Size size(random.integer(1, 100), random.integer(1, 100));
            polygon_t polygon = random_polygon(random, size, 1000);
            polygon[0].y = top;
            ASSERT_EQ(polygon_coverage(size, polygon), filled_pixels(size, polygon)) << text_of(size, polygon);
        }
    }
}

TEST(PolygonCoverage, EqualsFillPolyAHundredMillionRowsUp)
{
    const cv::Size size(300, 200);
    const polygon_t reaching_down = {{-7000000, -100000000}, {280, 20}, {250, 190}, {20, 180}};
    EXPECT_EQ(polygon_coverage(size, reaching_down), filled_pixels(size, reaching_down));
    const polygon_t crossing_itself = {{150, -90000000}, {10, 500}, {290, 0}, {0, 30}, {200, 900}};
    EXPECT_EQ(polygon_coverage(size, crossing_itself), filled_pixels(size, crossing_itself));
}

TEST(PolygonCoverage, UprightStripFromTheSmallestToTheLargestRowIsFilledAtOnce)
{
    EXPECT_EQ(polygon_coverage({300, 200}, {{0, smallest}, {299, smallest}, {299, largest}, {0, largest}}), 300 * 200);
    EXPECT_EQ(polygon_coverage({300, 200}, {{10, smallest}, {19, smallest}, {19, largest}, {10, largest}}), 10 * 200);
    EXPECT_EQ(polygon_coverage({300, 200}, {{10, smallest}, {19, smallest}, {19, 99}, {10, 99}}), 10 * 100);
}

TEST(PolygonCoverage, NanCornerAtTheSmallestIntsIsFilledAtOnce)
{
    // Its two edges run down at 45 degrees, beside the image.
    EXPECT_EQ(polygon_coverage({100, 100}, {{smallest, smallest}, {100, 0}, {100, 100}, {0, 100}}), 100 * 100);
}

TEST(PolygonCoverage, WhollyAboveOrBelowTheImageGivesZero)
{
    EXPECT_EQ(polygon_coverage({100, 100}, {{0, smallest}, {99, smallest}, {50, -1}}), 0);
    EXPECT_EQ(polygon_coverage({100, 100}, {{0, 100}, {99, 100}, {50, largest}}), 0);
    EXPECT_EQ(polygon_coverage({100, 100}, {{smallest, smallest}, {smallest, smallest}}), 0);
}

TEST(PolygonCoverage, UnfilledPolygonsOfFillPolyStayUnfilled)
{
    // cv::fillPoly holds these, whose edges all come from the smallest int, for polygons beside the image, and
    // draws their outline only. It answers at once.
    const std::vector<polygon_t> polygons = {{{smallest, smallest}, {200, 200}, {20, 200}},
                                             {{smallest, smallest}, {200, 200}, {-20, 200}},
                                             {{-5, smallest}, {200, 200}, {-5, 200}},
                                             {{-100, smallest}, {280, largest}, {-100, largest}},
                                             {{-50, smallest}, {-40, smallest}, {250, 10}, {200, 10}}};
    for (const polygon_t& polygon : polygons) {
        const int outline_only = filled_pixels({300, 300}, polygon);
        EXPECT_EQ(polygon_coverage({300, 300}, polygon), outline_only) << text_of({300, 300}, polygon);
        EXPECT_LT(outline_only, 500);
    }
}

}  // namespace
