// SPDX-License-Identifier: Apache-2.0
//
// The cross-fade along the outline where a warped frame meets the panorama.
#include <limits>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "reference/pixels.h"
#include "seam.h"
#include "support/random_input.h"
#include "support/stitcher_fixture.h"
#include "support/thread_count.h"

namespace {

using contour_t = std::vector<cv::Point>;
using tarn::test::guarded_image;
using tarn::test::random_input;
using tarn::test::same_pixels;

// The images of the tests by hand are gray: the frame 201, the panorama 100 or 150. The difference to the
// frame is thus 101 or 51 per pixel, and 100 is the side that the fade takes.
constexpr int frame_gray = 201;
constexpr int far_gray = 100;
constexpr int near_gray = 150;
constexpr int side = 120;

cv::Mat gray_image(int value, int width = side, int height = side)
{
    return cv::Mat(height, width, CV_8UC3, cv::Scalar::all(value));
}

int gray_at(const cv::Mat& image, int y, int x)
{
    const auto& pixel = image.at<cv::Vec3b>(y, x);
    EXPECT_TRUE(pixel[0] == pixel[1] && pixel[1] == pixel[2]);
    return pixel[0];
}

// What the fade makes of a pixel of the panorama at distance i. No value is whole, except at the ends.
int faded(int source, int target, int i)
{
    return static_cast<int>(source + (target - source) * (i / 50.0));
}

contour_t horizontal_outline(int y, int from_x, int to_x)
{
    contour_t contour;
    for (int x = from_x; x <= to_x; ++x) {
        contour.emplace_back(x, y);
    }
    return contour;
}

contour_t vertical_outline(int x, int from_y, int to_y)
{
    contour_t contour;
    for (int y = from_y; y <= to_y; ++y) {
        contour.emplace_back(x, y);
    }
    return contour;
}

// The target after fading a plain frame into it.
cv::Mat filled(const contour_t& contour, const cv::Mat& target)
{
    cv::Mat source = gray_image(frame_gray, target.cols, target.rows);
    cv::Mat result = target.clone();
    fill_contours({contour}, source, result);
    return result;
}

TEST(FillContours, FadeRunsDownwardsOver49PixelsFromAHorizontalOutline)
{
    cv::Mat target = gray_image(near_gray);
    target.rowRange(61, side).setTo(cv::Scalar::all(far_gray));
    const cv::Mat result = filled(horizontal_outline(60, 20, 90), target);
    for (int x = 0; x < side; ++x) {
        const bool is_on_outline = x >= 20 && x <= 90;
        for (int y = 0; y < side; ++y) {
            int expected = y <= 60 ? near_gray : far_gray;
            if (is_on_outline && y == 60) {
                expected = frame_gray;
            } else if (is_on_outline && y > 60 && y - 60 <= 49) {
                expected = faded(frame_gray, far_gray, y - 60);
            }
            ASSERT_EQ(gray_at(result, y, x), expected) << "(" << x << ", " << y << ")";
        }
    }
}

TEST(FillContours, FadeRunsUpwardsWhereTheDifferenceAboveIsGreater)
{
    cv::Mat target = gray_image(near_gray);
    target.rowRange(0, 60).setTo(cv::Scalar::all(far_gray));
    const cv::Mat result = filled(horizontal_outline(60, 20, 90), target);
    EXPECT_EQ(gray_at(result, 59, 50), faded(frame_gray, far_gray, 1));
    EXPECT_EQ(gray_at(result, 11, 50), faded(frame_gray, far_gray, 49));
    EXPECT_EQ(gray_at(result, 10, 50), far_gray);
    EXPECT_EQ(gray_at(result, 61, 50), near_gray);
}

TEST(FillContours, FadeRunsToTheRightOrLeftFromAVerticalOutline)
{
    cv::Mat target = gray_image(near_gray);
    target.colRange(61, side).setTo(cv::Scalar::all(far_gray));
    const cv::Mat to_the_right = filled(vertical_outline(60, 20, 90), target);
    EXPECT_EQ(gray_at(to_the_right, 50, 61), faded(frame_gray, far_gray, 1));
    EXPECT_EQ(gray_at(to_the_right, 50, 109), faded(frame_gray, far_gray, 49));
    EXPECT_EQ(gray_at(to_the_right, 50, 110), far_gray);
    EXPECT_EQ(gray_at(to_the_right, 50, 59), near_gray);

    target = gray_image(near_gray);
    target.colRange(0, 60).setTo(cv::Scalar::all(far_gray));
    const cv::Mat to_the_left = filled(vertical_outline(60, 20, 90), target);
    EXPECT_EQ(gray_at(to_the_left, 50, 59), faded(frame_gray, far_gray, 1));
    EXPECT_EQ(gray_at(to_the_left, 50, 11), faded(frame_gray, far_gray, 49));
    EXPECT_EQ(gray_at(to_the_left, 50, 10), far_gray);
    EXPECT_EQ(gray_at(to_the_left, 50, 61), near_gray);
}

TEST(FillContours, WeightFavoursTheSourceAtOnePixelAndTheTargetAt49)
{
    cv::Mat target = gray_image(near_gray);
    target.rowRange(61, side).setTo(cv::Scalar::all(far_gray));
    const cv::Mat result = filled(horizontal_outline(60, 20, 90), target);
    EXPECT_EQ(gray_at(result, 61, 50), 198);   // 0.98 * 201 + 0.02 * 100 = 198.98
    EXPECT_EQ(gray_at(result, 109, 50), 102);  // 0.02 * 201 + 0.98 * 100 = 102.02
}

TEST(FillContours, HorizontalOutlineFadesVerticallyHoweverGreatTheDifferencesBeside)
{
    // To the left and right of the outline's points the panorama is black; they are not looked at.
    cv::Mat target = gray_image(near_gray);
    target.rowRange(61, side).setTo(cv::Scalar::all(far_gray));
    target.row(60).setTo(cv::Scalar::all(0));
    const cv::Mat result = filled(horizontal_outline(60, 20, 90), target);
    EXPECT_EQ(gray_at(result, 65, 50), faded(frame_gray, far_gray, 5));
    EXPECT_EQ(gray_at(result, 60, 91), 0);
    EXPECT_EQ(gray_at(result, 60, 19), 0);
}

TEST(FillContours, OutlinePointsOnTheOuterBorderAreNeverTouched)
{
    contour_t border;
    for (int i = 0; i < side; ++i) {
        border.insert(border.end(), {{i, 0}, {i, side - 1}, {0, i}, {side - 1, i}});
    }
    const cv::Mat target = gray_image(far_gray);
    EXPECT_TRUE(same_pixels(target, filled(border, target)));
}

TEST(FillContours, OutlinePointsNextToTheBorderAreTouched)
{
    const cv::Mat target = gray_image(far_gray);
    const cv::Mat result = filled({{1, 1}, {side - 2, side - 2}}, target);
    EXPECT_EQ(gray_at(result, 1, 1), frame_gray);
    EXPECT_EQ(gray_at(result, side - 2, side - 2), frame_gray);
}

TEST(FillContours, PixelsWithSourceGray0Or1AreNeverBlendedAndThoseWith2Are)
{
    cv::Mat source = gray_image(frame_gray);
    source(cv::Rect(10, 70, 90, 1)).setTo(cv::Scalar::all(0));
    source(cv::Rect(10, 71, 90, 1)).setTo(cv::Scalar::all(1));
    source(cv::Rect(10, 72, 90, 1)).setTo(cv::Scalar::all(2));
    cv::Mat result = gray_image(near_gray);
    result.rowRange(61, side).setTo(cv::Scalar::all(far_gray));
    fill_contours({horizontal_outline(60, 20, 90)}, source, result);
    EXPECT_EQ(gray_at(result, 69, 50), faded(frame_gray, far_gray, 9));
    EXPECT_EQ(gray_at(result, 70, 50), far_gray);
    EXPECT_EQ(gray_at(result, 71, 50), far_gray);
    EXPECT_EQ(gray_at(result, 72, 50), faded(2, far_gray, 12));
    EXPECT_EQ(gray_at(result, 73, 50), faded(frame_gray, far_gray, 13));  // the fade goes on behind them
}

TEST(FillContours, SourceThatIsBlackEverywhereChangesNothing)
{
    for (const int gray : {0, 1}) {
        cv::Mat source = gray_image(gray);
        cv::Mat target = gray_image(far_gray);
        fill_contours({horizontal_outline(60, 20, 90)}, source, target);
        EXPECT_TRUE(same_pixels(gray_image(far_gray), target)) << "source " << gray;
    }
}

TEST(FillContours, SourceOfGray2IsContent)
{
    cv::Mat source = gray_image(2);
    cv::Mat target = gray_image(far_gray);
    fill_contours({{{60, 60}}}, source, target);
    EXPECT_EQ(gray_at(target, 60, 60), 2);
}

TEST(FillContours, OutlinePointsOutsideTheSourcesLargestContourAreNotTouched)
{
    cv::Mat source = gray_image(0);
    source(cv::Rect(5, 40, 60, 40)).setTo(cv::Scalar::all(frame_gray));
    source(cv::Rect(80, 50, 30, 20)).setTo(cv::Scalar::all(frame_gray));
    cv::Mat result = gray_image(near_gray);
    result.rowRange(61, side).setTo(cv::Scalar::all(far_gray));
    fill_contours({horizontal_outline(60, 1, side - 2)}, source, result);
    EXPECT_EQ(gray_at(result, 60, 5), frame_gray);
    EXPECT_EQ(gray_at(result, 60, 64), frame_gray);
    EXPECT_EQ(gray_at(result, 60, 4), near_gray);
    EXPECT_EQ(gray_at(result, 60, 65), near_gray);
    EXPECT_EQ(gray_at(result, 60, 90), near_gray);  // in the smaller part
    EXPECT_EQ(gray_at(result, 61, 90), far_gray);
}

TEST(FillContours, LargestContourIsThatWithMostPointsNotWithMostArea)
{
    cv::Mat source = gray_image(0);
    source(cv::Rect(10, 20, 100, 1)).setTo(cv::Scalar::all(frame_gray));  // 198 points, there and back
    source(cv::Rect(40, 60, 30, 30)).setTo(cv::Scalar::all(frame_gray));  // 116 points
    cv::Mat result = gray_image(far_gray);
    fill_contours({{{50, 20}, {50, 70}}}, source, result);
    EXPECT_EQ(gray_at(result, 20, 50), frame_gray);
    EXPECT_EQ(gray_at(result, 70, 50), far_gray);
}

TEST(FillContours, FirstOfContoursWithEquallyManyPointsWins)
{
    cv::Mat source = gray_image(0);
    source(cv::Rect(10, 10, 30, 30)).setTo(cv::Scalar::all(frame_gray));
    source(cv::Rect(70, 70, 30, 30)).setTo(cv::Scalar::all(frame_gray));
    cv::Mat gray;
    cv::cvtColor(source, gray, cv::COLOR_BGR2GRAY);
    std::vector<contour_t> contours;
    cv::findContours(gray, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    ASSERT_EQ(contours.size(), 2U);
    ASSERT_EQ(contours[0].size(), contours[1].size());
    const cv::Rect first = cv::boundingRect(contours[0]);
    const cv::Rect second = cv::boundingRect(contours[1]);
    const cv::Point in_first(first.x + 15, first.y + 15);
    const cv::Point in_second(second.x + 15, second.y + 15);

    cv::Mat result = gray_image(far_gray);
    fill_contours({{in_first, in_second}}, source, result);
    EXPECT_EQ(gray_at(result, in_first.y, in_first.x), frame_gray);
    EXPECT_EQ(gray_at(result, in_second.y, in_second.x), far_gray);
}

TEST(FillContours, HolesInsideTheLargestContourBelongToIt)
{
    cv::Mat source = gray_image(frame_gray);
    source(cv::Rect(40, 40, 40, 40)).setTo(cv::Scalar::all(0));
    cv::Mat result = gray_image(far_gray);
    fill_contours({{{60, 60}}}, source, result);
    EXPECT_EQ(gray_at(result, 60, 60), 0);  // copied, black as it is
}

TEST(FillContours, EqualSumsBeforeAnyDecisionFadeNothing)
{
    const cv::Mat target = gray_image(far_gray);
    cv::Mat expected = target.clone();
    expected(cv::Rect(20, 60, 71, 1)).setTo(cv::Scalar::all(frame_gray));
    EXPECT_TRUE(same_pixels(expected, filled(horizontal_outline(60, 20, 90), target)));

    expected = target.clone();
    expected(cv::Rect(60, 20, 1, 71)).setTo(cv::Scalar::all(frame_gray));
    EXPECT_TRUE(same_pixels(expected, filled(vertical_outline(60, 20, 90), target)));
}

TEST(FillContours, EqualSumsKeepTheDirectionOfThePointBefore)
{
    cv::Mat target = gray_image(near_gray);
    target(cv::Rect(22, 61, 1, 59)).setTo(cv::Scalar::all(far_gray));  // column 22: greater below
    target(cv::Rect(25, 0, 1, 60)).setTo(cv::Scalar::all(far_gray));   // column 25: greater above
    const cv::Mat result = filled(horizontal_outline(60, 20, 27), target);
    const int one_step = faded(frame_gray, near_gray, 1);
    EXPECT_EQ(gray_at(result, 61, 21), near_gray);  // nothing decided yet
    EXPECT_EQ(gray_at(result, 59, 21), near_gray);
    EXPECT_EQ(gray_at(result, 61, 22), faded(frame_gray, far_gray, 1));
    EXPECT_EQ(gray_at(result, 61, 23), one_step);  // kept: downwards
    EXPECT_EQ(gray_at(result, 61, 24), one_step);
    EXPECT_EQ(gray_at(result, 59, 24), near_gray);
    EXPECT_EQ(gray_at(result, 59, 25), faded(frame_gray, far_gray, 1));
    EXPECT_EQ(gray_at(result, 59, 26), one_step);  // kept: upwards
    EXPECT_EQ(gray_at(result, 59, 27), one_step);
    EXPECT_EQ(gray_at(result, 61, 27), near_gray);
}

TEST(FillContours, DirectionIsKeptEvenAcrossAChangeOfOrientation)
{
    // Downwards along the horizontal part, then a vertical part without any difference to either side.
    cv::Mat target = gray_image(frame_gray);
    target(cv::Rect(20, 61, 11, 20)).setTo(cv::Scalar::all(far_gray));
    target(cv::Rect(100, 95, 1, 20)).setTo(cv::Scalar::all(far_gray));
    contour_t contour = horizontal_outline(60, 20, 30);
    const contour_t upright = vertical_outline(100, 80, 90);
    contour.insert(contour.end(), upright.begin(), upright.end());
    const cv::Mat result = filled(contour, target);
    // The fades run down the column 100 itself. The last one reaches row 95 with a weight of 5 in 50; those
    // before it, of 6 to 15 in 50, have been there already, and have done the same to what they found.
    EXPECT_LT(gray_at(result, 95, 100), frame_gray);
    EXPECT_GT(gray_at(result, 95, 100), far_gray);
    EXPECT_EQ(gray_at(result, 85, 101), frame_gray);
}

// A panorama that is far gray to the right of and above the diagonal y = x - shift, near gray elsewhere.
cv::Mat diagonal_target(int shift)
{
    cv::Mat target = gray_image(near_gray);
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            if (x - shift > y) {
                target.at<cv::Vec3b>(y, x) = cv::Vec3b::all(far_gray);
            }
        }
    }
    return target;
}

TEST(FillContours, DiagonalOutlineCountsAsVerticalAtTheStart)
{
    const cv::Mat result = filled({{20, 20}, {21, 21}, {22, 22}}, diagonal_target(0));
    EXPECT_EQ(gray_at(result, 20, 40), faded(frame_gray, far_gray, 20));  // to the right
    EXPECT_EQ(gray_at(result, 10, 20), far_gray);                         // not upwards
}

TEST(FillContours, DiagonalOutlineKeepsTheOrientationOfThePointBefore)
{
    contour_t contour = {{10, 20}, {11, 20}, {12, 20}};  // level
    for (int i = 1; i <= 10; ++i) {
        contour.emplace_back(12 + i, 20 + i);
    }
    // The diagonal passes through (12, 20); below it, too, the panorama is far gray from row 45 on.
    const cv::Mat result = filled(contour, diagonal_target(-8));
    EXPECT_EQ(gray_at(result, 24, 18), faded(frame_gray, far_gray, 2));  // upwards from (18, 26)
    EXPECT_EQ(gray_at(result, 26, 60), far_gray);                        // not to the right
}

TEST(FillContours, SkippedPointsDecideNothing)
{
    // The points on the border run level, but are skipped. At (50, 20), as at the two after it, both sums are
    // equal: had the skipped ones counted, the outline would be level there.
    const contour_t contour = {{28, 0}, {29, 0}, {30, 0}, {30, 0}, {50, 20}, {51, 21}, {52, 22}};
    const cv::Mat result = filled(contour, diagonal_target(30));
    EXPECT_EQ(gray_at(result, 20, 70), faded(frame_gray, far_gray, 20));
    EXPECT_EQ(gray_at(result, 10, 50), far_gray);
}

TEST(FillContours, OrientationLooksTwoPointsAheadAndBack)
{
    // The frame is one row, from (60, 60) to the right; of the outline only that point lies in it. The nearest
    // points alone would make it level there, dx = 1 + 1 against dy = 0. With the next ones it is upright, 4
    // against 6, and the fade runs to the right.
    const contour_t contour = {{59, 57}, {59, 60}, {60, 60}, {59, 60}, {59, 63}};
    cv::Mat source = gray_image(0);
    source(cv::Rect(60, 60, 60, 1)).setTo(cv::Scalar::all(frame_gray));
    cv::Mat result = gray_image(0);
    result.colRange(61, side).setTo(cv::Scalar::all(far_gray));
    fill_contours({contour}, source, result);
    EXPECT_EQ(gray_at(result, 60, 60), frame_gray);
    EXPECT_EQ(gray_at(result, 60, 80), faded(frame_gray, far_gray, 20));
}

TEST(FillContours, SumsTakeTwoPixelsOnEachSide)
{
    // The nearest row differs by 51 above and 101 below, the second by 201 above and 51 below.
    cv::Mat target = gray_image(near_gray);
    target.row(61).setTo(cv::Scalar::all(far_gray));
    target.row(58).setTo(cv::Scalar::all(0));
    const cv::Mat result = filled(horizontal_outline(60, 20, 90), target);
    EXPECT_EQ(gray_at(result, 59, 50), faded(frame_gray, near_gray, 1));
    EXPECT_EQ(gray_at(result, 61, 50), far_gray);
}

TEST(FillContours, SumsStopAtTheImagesEdge)
{
    // One row below the outline, 101; two above, 51 each.
    cv::Mat target = gray_image(near_gray);
    target.row(side - 1).setTo(cv::Scalar::all(far_gray));
    const cv::Mat result = filled(horizontal_outline(side - 2, 20, 90), target);
    EXPECT_EQ(gray_at(result, side - 3, 50), faded(frame_gray, near_gray, 1));
    EXPECT_EQ(gray_at(result, side - 1, 50), far_gray);
}

TEST(FillContours, FadeIsCutOffAtTheImagesEdge)
{
    cv::Mat target = gray_image(near_gray, 30, 20);
    target.rowRange(11, 20).setTo(cv::Scalar::all(far_gray));
    const cv::Mat result = filled(horizontal_outline(10, 5, 25), target);
    EXPECT_EQ(gray_at(result, 19, 15), faded(frame_gray, far_gray, 9));
}

TEST(FillContours, DifferencesAreThoseBeforeTheFirstFade)
{
    // The gray images are made once: what an earlier point has changed does not count for a later one. The
    // first pass fades rows 61 and on towards the frame; the second decides as if it had not.
    cv::Mat target = gray_image(near_gray);
    target.rowRange(61, side).setTo(cv::Scalar::all(far_gray));
    contour_t twice = horizontal_outline(60, 20, 90);
    twice.insert(twice.end(), twice.begin(), twice.end());
    const cv::Mat result = filled(twice, target);
    EXPECT_EQ(gray_at(result, 59, 50), near_gray);
    EXPECT_EQ(gray_at(result, 80, 50), faded(frame_gray, faded(frame_gray, far_gray, 20), 20));
}

TEST(FillContours, BlendIsTruncatedInEachChannel)
{
    cv::Mat source(side, side, CV_8UC3, cv::Scalar(201, 101, 51));
    cv::Mat target(side, side, CV_8UC3, cv::Scalar(100, 200, 53));
    target.rowRange(0, 60).setTo(cv::Scalar(199, 100, 50));
    fill_contours({horizontal_outline(60, 20, 90)}, source, target);
    // 201 - 101 * 0.2 = 180.8, 101 + 99 * 0.2 = 120.8, 51 + 2 * 0.2 = 51.4
    EXPECT_EQ(target.at<cv::Vec3b>(70, 50), cv::Vec3b(180, 120, 51));
}

TEST(FillContours, OnlyTheFirstContourIsUsed)
{
    cv::Mat source = gray_image(frame_gray);
    cv::Mat result = gray_image(far_gray);
    fill_contours({{{30, 30}}, {{60, 60}}}, source, result);
    EXPECT_EQ(gray_at(result, 30, 30), frame_gray);
    EXPECT_EQ(gray_at(result, 60, 60), far_gray);
}

TEST(FillContours, NoContourOrOneWithoutPointsChangesNothing)
{
    cv::Mat source = gray_image(frame_gray);
    cv::Mat target = gray_image(far_gray);
    fill_contours({}, source, target);
    fill_contours({{}}, source, target);
    fill_contours({{}, {{60, 60}}}, source, target);
    EXPECT_TRUE(same_pixels(gray_image(far_gray), target));
}

TEST(FillContours, PointsOutsideTheImagesArePassedOver)
{
    constexpr int smallest = std::numeric_limits<int>::min();
    constexpr int largest = std::numeric_limits<int>::max();
    random_input random;
    const contour_t outside = {{-1, 5},
                               {5, -1},
                               {20, 5},
                               {5, 30},
                               {1000, 1000},
                               {smallest, 5},
                               {5, smallest},
                               {largest, largest},
                               {smallest, 0},
                               {largest, smallest},
                               {smallest, smallest}};
    guarded_image source(gray_image(frame_gray, 20, 30), random);
    guarded_image target(gray_image(far_gray, 20, 30), random);
    fill_contours({outside}, source.view(), target.view());
    EXPECT_TRUE(same_pixels(gray_image(far_gray, 20, 30), target.view()));
    EXPECT_TRUE(target.guards_are_untouched());

    // As neighbours of points inside they only turn the outline's orientation.
    contour_t mixed;
    for (const cv::Point& point : outside) {
        mixed.push_back(point);
        mixed.emplace_back(10, 10);
    }
    fill_contours({mixed}, source.view(), target.view());
    EXPECT_EQ(gray_at(target.view(), 10, 10), frame_gray);
    EXPECT_TRUE(target.guards_are_untouched());
}

TEST(FillContours, WrongImagesAreRefused)
{
    const std::vector<contour_t> contours = {{{5, 5}}};
    cv::Mat image = gray_image(frame_gray);
    cv::Mat nothing;
    cv::Mat smaller = gray_image(far_gray, side - 1, side);
    cv::Mat gray(side, side, CV_8UC1, cv::Scalar(100));
    EXPECT_THROW(fill_contours(contours, nothing, image), cv::Exception);
    EXPECT_THROW(fill_contours(contours, image, nothing), cv::Exception);
    EXPECT_THROW(fill_contours(contours, nothing, nothing), cv::Exception);
    EXPECT_THROW(fill_contours(contours, image, smaller), cv::Exception);
    EXPECT_THROW(fill_contours(contours, image, gray), cv::Exception);
    EXPECT_THROW(fill_contours(contours, gray, image), cv::Exception);
}

// An outline inside an image: of a random shape, or points anywhere, in any order.
contour_t random_outline(random_input& random, cv::Size size)
{
    if (random.one_in(4)) {
        contour_t points(static_cast<size_t>(random.integer(0, 40)));
        for (cv::Point& point : points) {
            point = {random.integer(0, size.width - 1), random.integer(0, size.height - 1)};
        }
        return points;
    }
    cv::Mat shape = cv::Mat::zeros(size, CV_8UC1);
    contour_t corners(static_cast<size_t>(random.integer(3, 6)));
    for (cv::Point& corner : corners) {
        corner = {random.integer(0, size.width - 1), random.integer(0, size.height - 1)};
    }
    cv::fillPoly(shape, std::vector<contour_t>{corners}, cv::Scalar(255));
    std::vector<contour_t> contours;
    cv::findContours(shape, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    return contours.at(0);
}

// Blackens what lies outside of a random shape, as around a warped frame; sometimes with specks.
void blacken_around_shape(random_input& random, cv::Mat& image)
{
    contour_t corners(static_cast<size_t>(random.integer(3, 7)));
    for (cv::Point& corner : corners) {
        corner = {random.integer(-5, image.cols + 4), random.integer(-5, image.rows + 4)};
    }
    cv::Mat outside(image.size(), CV_8UC1, cv::Scalar(1));
    cv::fillPoly(outside, std::vector<contour_t>{corners}, cv::Scalar(0));
    for (int specks = random.one_in(4) ? random.integer(1, 30) : 0; specks > 0; --specks) {
        outside.at<uchar>(random.integer(0, image.rows - 1), random.integer(0, image.cols - 1)) ^= 1;
    }
    image.setTo(cv::Scalar::all(0), outside);
}

void compare_with_reference(random_input& random, cv::Size size)
{
    cv::Mat source = random.image(size);
    const cv::Mat target = random.image(size);
    if (random.one_in(2)) {
        blacken_around_shape(random, source);
    }
    std::vector<contour_t> contours(static_cast<size_t>(random.integer(0, 9) == 0 ? 0 : random.integer(1, 2)));
    for (contour_t& contour : contours) {
        contour = random_outline(random, size);
    }
    cv::Mat expected = target.clone();
    reference::fill_contours(contours, source, expected);

    for (const int threads : {1, 2}) {
        const tarn::test::thread_count used(threads);
        guarded_image shipped_source(source, random);
        guarded_image shipped(target, random);
        fill_contours(contours, shipped_source.view(), shipped.view());
        ASSERT_TRUE(same_pixels(expected, shipped.view())) << "threads: " << threads;
        ASSERT_TRUE(same_pixels(source, shipped_source.view()));
        ASSERT_TRUE(shipped.guards_are_untouched());
        ASSERT_TRUE(shipped_source.guards_are_untouched());
    }
}

TEST(FillContours, EqualsReferenceOnViewsOfAllSmallSizes)
{
    random_input random;
    for (const int width : tarn::test::small_sides()) {
        for (const int height : tarn::test::small_sides()) {
            for (int repetition = 0; repetition < tarn::test::scaled_count(6, 2); ++repetition) {
                ASSERT_NO_FATAL_FAILURE(compare_with_reference(random, {width, height})) << width << " x " << height;
            }
        }
    }
}

TEST(FillContours, EqualsReferenceOnImagesLongerThanTheFade)
{
    random_input random;
    for (int i = 0; i < tarn::test::scaled_count(150, 30); ++i) {
        const cv::Size size(random.integer(50, 160), random.integer(50, 160));
        ASSERT_NO_FATAL_FAILURE(compare_with_reference(random, size)) << size;
    }
}

}  // namespace
