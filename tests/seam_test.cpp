// SPDX-License-Identifier: Apache-2.0
//
// Retouching the preview along a frame's edges.
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "internal/numeric.h"
#include "reference/geometry.h"
#include "reference/pixels.h"
#include "seam.h"
#include "support/corners.h"
#include "support/random_input.h"

namespace {

using tarn::test::corners_t;
using tarn::test::guarded_image;
using tarn::test::random_input;
using tarn::test::same_pixels;
using tarn::test::text_of;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

const cv::Vec3b source_colour(200, 150, 100);
const cv::Vec3b destination_colour(1, 2, 3);
const cv::Vec3b black(0, 0, 0);

cv::Mat filled(int width, int height, const cv::Vec3b& colour)
{
    return cv::Mat(height, width, CV_8UC3, cv::Scalar(colour));
}

corners_t box(float left, float top, float right, float bottom)
{
    return {{left, top}, {right, top}, {right, bottom}, {left, bottom}};
}

// The destination after the seam of a plain source over a plain destination.
cv::Mat seamed(int width, int height, corners_t corners)
{
    cv::Mat source = filled(width, height, source_colour);
    cv::Mat destination = filled(width, height, destination_colour);
    optimizeSeam(source, destination, corners);
    return destination;
}

TEST(OptimizeSeam, BoxWithoutWidthOrHeightChangesNothing)
{
    const cv::Mat untouched = filled(60, 60, destination_colour);
    EXPECT_TRUE(same_pixels(untouched, seamed(60, 60, box(20, 10, 20, 50))));
    EXPECT_TRUE(same_pixels(untouched, seamed(60, 60, box(10, 20, 50, 20))));
    EXPECT_TRUE(same_pixels(untouched, seamed(60, 60, box(20.1f, 10, 20.9f, 50))));
}

TEST(OptimizeSeam, BandOfAnAxisAlignedFrameIsTenPixelsWideInside)
{
    const cv::Mat result = seamed(130, 80, box(0, 0, 100, 50));
    for (int y = 0; y < result.rows; ++y) {
        for (int x = 0; x < result.cols; ++x) {
            const bool is_in_box = y < 50 && x < 100;
            const bool is_on_band = y <= 9 || y >= 41 || x <= 9 || x >= 91;
            ASSERT_EQ(result.at<cv::Vec3b>(y, x), is_in_box && is_on_band ? source_colour : destination_colour)
                << "(" << x << ", " << y << ")";
        }
    }
}

TEST(OptimizeSeam, LastRowAndColumnOfTheBoxAreExcluded)
{
    const cv::Mat result = seamed(30, 30, box(5, 5, 15, 12));
    EXPECT_EQ(result.at<cv::Vec3b>(11, 14), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(12, 14), destination_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(11, 15), destination_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(5, 5), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(4, 5), destination_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(5, 4), destination_colour);
}

TEST(OptimizeSeam, BoxIsTruncatedTowardZero)
{
    // 5.9 counts as 5 and 12.9 as 12; -0.9 as 0, so that nothing outside is touched.
    const cv::Mat result = seamed(30, 30, box(5.9f, -0.9f, 14.9f, 12.9f));
    EXPECT_EQ(result.at<cv::Vec3b>(0, 5), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(11, 13), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(12, 13), destination_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(11, 14), destination_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(5, 4), destination_colour);
}

TEST(OptimizeSeam, WholeLinesCountNotOnlyTheEdges)
{
    // The first edge ends at (50, 10); its line goes on through (85, 17), which is 19.8 pixels away from the
    // second edge's line and farther from the others.
    const cv::Mat result = seamed(120, 70, {{0, 0}, {50, 10}, {100, 60}, {0, 60}});
    EXPECT_EQ(result.at<cv::Vec3b>(17, 85), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(27, 85), source_colour);       // 9.8 pixels below the line
    EXPECT_EQ(result.at<cv::Vec3b>(28, 85), destination_colour);  // 10.8 below it, 12.0 from the second one
    EXPECT_EQ(result.at<cv::Vec3b>(7, 85), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(6, 85), destination_colour);
}

TEST(OptimizeSeam, EachOfTheFourLinesHasItsBand)
{
    // A square on its corner; the middle of each edge, and its own middle.
    const cv::Mat result = seamed(120, 120, {{60, 0}, {120, 60}, {60, 120}, {0, 60}});
    EXPECT_EQ(result.at<cv::Vec3b>(30, 90), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(90, 90), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(90, 30), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(30, 30), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(60, 60), destination_colour);
    // Beyond the edges, but within the box, the band has its other half.
    EXPECT_EQ(result.at<cv::Vec3b>(24, 96), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(20, 100), destination_colour);
}

TEST(OptimizeSeam, EmptySourcePixelsNeverOverwriteAnything)
{
    cv::Mat source = filled(100, 60, source_colour);
    source(cv::Rect(0, 0, 50, 60)).setTo(cv::Scalar::all(0));
    cv::Mat destination = filled(100, 60, destination_colour);
    corners_t corners = box(0, 0, 100, 60);
    optimizeSeam(source, destination, corners);
    EXPECT_TRUE(same_pixels(filled(50, 60, destination_colour), destination(cv::Rect(0, 0, 50, 60))));
    EXPECT_EQ(destination.at<cv::Vec3b>(0, 50), source_colour);
}

TEST(OptimizeSeam, EmptyDestinationPixelsAreFilledFarFromTheBandToo)
{
    cv::Mat source = filled(100, 60, source_colour);
    source.at<cv::Vec3b>(30, 51) = black;
    cv::Mat destination = filled(100, 60, destination_colour);
    destination(cv::Rect(50, 30, 2, 1)).setTo(cv::Scalar::all(0));
    corners_t corners = box(0, 0, 100, 60);
    optimizeSeam(source, destination, corners);
    EXPECT_EQ(destination.at<cv::Vec3b>(30, 50), source_colour);
    EXPECT_EQ(destination.at<cv::Vec3b>(30, 51), black);
    EXPECT_EQ(destination.at<cv::Vec3b>(30, 52), destination_colour);
}

TEST(OptimizeSeam, EmptyDestinationOutsideTheBoxStaysEmpty)
{
    cv::Mat source = filled(50, 50, source_colour);
    cv::Mat destination = filled(50, 50, black);
    corners_t corners = box(10, 10, 40, 40);
    optimizeSeam(source, destination, corners);
    EXPECT_EQ(destination.at<cv::Vec3b>(25, 25), source_colour);
    EXPECT_EQ(destination.at<cv::Vec3b>(25, 40), black);
    EXPECT_EQ(destination.at<cv::Vec3b>(9, 25), black);
}

TEST(OptimizeSeam, PixelWithOneByteOtherThanZeroIsNotEmpty)
{
    for (int channel = 0; channel < 3; ++channel) {
        cv::Vec3b nearly_black(0, 0, 0);
        nearly_black[channel] = 1;
        cv::Mat source = filled(60, 60, source_colour);
        source.at<cv::Vec3b>(2, 2) = nearly_black;
        cv::Mat destination = filled(60, 60, destination_colour);
        destination.at<cv::Vec3b>(30, 30) = nearly_black;
        corners_t corners = box(0, 0, 60, 60);
        optimizeSeam(source, destination, corners);
        EXPECT_EQ(destination.at<cv::Vec3b>(2, 2), nearly_black);    // taken: it is on the band
        EXPECT_EQ(destination.at<cv::Vec3b>(30, 30), nearly_black);  // kept: it is not
    }
}

TEST(OptimizeSeam, NanCornerHasNoBandAlongItsLines)
{
    // Corner 2 lies nowhere: the lines 1-2 and 2-3 hit nothing, and the box is that of the other three.
    const cv::Mat result = seamed(120, 120, {{0, 0}, {100, 0}, {nan, nan}, {0, 100}});
    EXPECT_EQ(result.at<cv::Vec3b>(50, 5), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(5, 50), source_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(50, 95), destination_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(95, 50), destination_colour);
}

TEST(OptimizeSeam, NanFirstCornerEmptiesTheBox)
{
    EXPECT_TRUE(
        same_pixels(filled(60, 60, destination_colour), seamed(60, 60, {{nan, nan}, {50, 0}, {50, 50}, {0, 50}})));
}

TEST(OptimizeSeam, SourceAndCornersAreOnlyRead)
{
    random_input random;
    cv::Mat source = random.image(cv::Size(40, 30));
    const cv::Mat source_before = source.clone();
    cv::Mat destination = random.image(cv::Size(40, 30));
    corners_t corners = box(3.5f, 2.5f, 38.5f, 27.5f);
    optimizeSeam(source, destination, corners);
    EXPECT_TRUE(same_pixels(source_before, source));
    EXPECT_EQ(corners, box(3.5f, 2.5f, 38.5f, 27.5f));
}

// Moves the corners so that their box lies inside an image, as far as they are numbers.
void move_inside(corners_t& corners, cv::Size size)
{
    for (cv::Point2f& corner : corners) {
        if (corner.x == corner.x) {
            corner.x = std::min(std::max(corner.x, 0.0f), static_cast<float>(size.width));
        }
        if (corner.y == corner.y) {
            corner.y = std::min(std::max(corner.y, 0.0f), static_cast<float>(size.height));
        }
    }
}

// Whether the reference, which clips nothing, stays inside the image.
bool is_box_inside(const corners_t& p, cv::Size size)
{
    const int left = tarn::truncate_to_int(reference::min_axis({p[0].x, p[1].x, p[2].x, p[3].x}));
    const int right = tarn::truncate_to_int(reference::max_axis({p[0].x, p[1].x, p[2].x, p[3].x}));
    const int top = tarn::truncate_to_int(reference::min_axis({p[0].y, p[1].y, p[2].y, p[3].y}));
    const int bottom = tarn::truncate_to_int(reference::max_axis({p[0].y, p[1].y, p[2].y, p[3].y}));
    return (left >= right || top >= bottom) || (left >= 0 && top >= 0 && right <= size.width && bottom <= size.height);
}

TEST(OptimizeSeam, EqualsReferenceOnViewsOfAllSmallSizes)
{
    random_input random;
    int compared = 0;
    for (const int width : tarn::test::small_sides()) {
        for (const int height : tarn::test::small_sides()) {
            for (int repetition = 0; repetition < 12; ++repetition) {
                const cv::Size size(width, height);
                corners_t corners = random.one_in(4) ? random.any_quadrilateral(size) : random.quadrilateral(size);
                move_inside(corners, size);
                if (!is_box_inside(corners, size)) {
                    continue;
                }
                const cv::Mat source = random.image(size);
                const cv::Mat destination = random.image(size);
                cv::Mat expected = destination.clone();
                reference::optimizeSeam(source, expected, corners);

                guarded_image shipped_source(source, random);
                guarded_image shipped(destination, random);
                optimizeSeam(shipped_source.view(), shipped.view(), corners);
                ASSERT_TRUE(same_pixels(expected, shipped.view())) << text_of(corners);
                ASSERT_TRUE(same_pixels(source, shipped_source.view())) << text_of(corners);
                ASSERT_TRUE(shipped.guards_are_untouched()) << text_of(corners);
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 2000);
}

TEST(OptimizeSeam, EqualsReferenceOnImagesOfPreviewSize)
{
    random_input random;
    for (int i = 0; i < 20; ++i) {
        const cv::Size size(random.integer(150, 400), random.integer(150, 400));
        corners_t corners = random.quadrilateral(size);
        move_inside(corners, size);
        cv::Mat source = random.image(size);
        cv::Mat destination = random.image(size);
        cv::Mat expected = destination.clone();
        reference::optimizeSeam(source, expected, corners);
        optimizeSeam(source, destination, corners);
        ASSERT_TRUE(same_pixels(expected, destination)) << text_of(corners);
    }
}

// Whether a pixel is on a band, by the definition alone.
bool is_on_band(const corners_t& p, int x, int y)
{
    for (size_t i = 0; i < 4; ++i) {
        const cv::Point2f& a = p[i];
        const cv::Point2f& b = p[(i + 1) % 4];
        const LinePara line = reference::getLinePara(a.x, a.y, b.x, b.y);
        const float k2 = std::sqrt(line.k * line.k + 1.0f);
        if (reference::point_2_line(line.k, line.b, k2, static_cast<float>(x), static_cast<float>(y)) < 10.0f) {
            return true;
        }
    }
    return false;
}

TEST(OptimizeSeam, BandsAreTheDefinitionsForAnyCorners)
{
    // Corners anywhere: lines level and nearly so, upright, so steep or far that the arithmetic overflows or
    // loses every digit. What lies outside of the images is clipped.
    random_input random;
    int on_band = 0;
    for (int i = 0; i < 6000; ++i) {
        const cv::Size size(random.integer(1, 70), random.integer(1, 20));
        corners_t corners = random.any_quadrilateral(size);
        if (random.one_in(3)) {
            corners[1].y = corners[0].y + random.real(-1e-4f, 1e-4f);
        }
        if (random.one_in(3)) {
            corners[2].x = corners[1].x + random.real(-1e-4f, 1e-4f);
        }
        const auto& p = corners;
        const int left = tarn::truncate_to_int(reference::min_axis({p[0].x, p[1].x, p[2].x, p[3].x}));
        const int right = tarn::truncate_to_int(reference::max_axis({p[0].x, p[1].x, p[2].x, p[3].x}));
        const int top = tarn::truncate_to_int(reference::min_axis({p[0].y, p[1].y, p[2].y, p[3].y}));
        const int bottom = tarn::truncate_to_int(reference::max_axis({p[0].y, p[1].y, p[2].y, p[3].y}));
        const cv::Mat result = seamed(size.width, size.height, corners);
        for (int y = 0; y < size.height; ++y) {
            for (int x = 0; x < size.width; ++x) {
                const bool is_taken = x >= left && x < right && y >= top && y < bottom && is_on_band(corners, x, y);
                on_band += is_taken ? 1 : 0;
                ASSERT_EQ(result.at<cv::Vec3b>(y, x), is_taken ? source_colour : destination_colour)
                    << "(" << x << ", " << y << ")" << text_of(corners);
            }
        }
    }
    EXPECT_GT(on_band, 10000);
}

TEST(OptimizeSeam, BoxReachingOutsideTheImagesIsPassedOverThere)
{
    const cv::Mat result = seamed(40, 30, box(-20, -10, 60, 50));
    // Inside, it is as if the images went on: all is farther than 10 pixels from the edges' lines.
    EXPECT_EQ(result.at<cv::Vec3b>(15, 20), destination_colour);
    EXPECT_EQ(result.at<cv::Vec3b>(0, 20), destination_colour);
    const cv::Mat nearer = seamed(40, 30, box(-5, -5, 45, 35));
    EXPECT_EQ(nearer.at<cv::Vec3b>(4, 20), source_colour);
    EXPECT_EQ(nearer.at<cv::Vec3b>(5, 20), destination_colour);
    EXPECT_EQ(nearer.at<cv::Vec3b>(29, 20), source_colour);
}

TEST(OptimizeSeam, AnyCornersAreSafe)
{
    random_input random;
    for (int i = 0; i < 3000; ++i) {
        const cv::Size size(random.integer(1, 40), random.integer(1, 40));
        guarded_image source(random.image(size), random);
        guarded_image destination(random.image(size), random);
        corners_t corners = random.any_quadrilateral(size);
        optimizeSeam(source.view(), destination.view(), corners);
        ASSERT_TRUE(destination.guards_are_untouched()) << text_of(corners);
        ASSERT_TRUE(source.guards_are_untouched()) << text_of(corners);
    }
    corners_t everything = box(-infinity, -infinity, infinity, infinity);
    cv::Mat source = filled(9, 9, source_colour);
    cv::Mat destination = filled(9, 9, destination_colour);
    optimizeSeam(source, destination, everything);
}

TEST(OptimizeSeam, ImagesOfDifferentSizesAreSafe)
{
    random_input random;
    for (int i = 0; i < 500; ++i) {
        guarded_image source(random.image({random.integer(1, 40), random.integer(1, 40)}), random);
        guarded_image destination(random.image({random.integer(1, 40), random.integer(1, 40)}), random);
        corners_t corners = random.quadrilateral({40, 40});
        optimizeSeam(source.view(), destination.view(), corners);
        ASSERT_TRUE(destination.guards_are_untouched()) << text_of(corners);
    }
}

TEST(OptimizeSeam, EmptyImagesAndOtherTypesAreLeftAlone)
{
    corners_t corners = box(0, 0, 20, 20);
    cv::Mat nothing;
    cv::Mat image = filled(20, 20, source_colour);
    optimizeSeam(nothing, image, corners);
    optimizeSeam(image, nothing, corners);
    EXPECT_TRUE(same_pixels(filled(20, 20, source_colour), image));
    EXPECT_TRUE(nothing.empty());
    cv::Mat gray(20, 20, CV_8UC1, cv::Scalar(7));
    optimizeSeam(image, gray, corners);
    optimizeSeam(gray, image, corners);
    EXPECT_TRUE(same_pixels(cv::Mat(20, 20, CV_8UC1, cv::Scalar(7)), gray));
    EXPECT_TRUE(same_pixels(filled(20, 20, source_colour), image));
}

}  // namespace
