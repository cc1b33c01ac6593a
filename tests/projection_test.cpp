// SPDX-License-Identifier: Apache-2.0
//
// Bending images onto a cylinder or a sphere.
#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "internal/numeric.h"
#include "projection.h"
#include "reference/pixels.h"
#include "support/random_input.h"
#include "support/thread_count.h"

namespace {

using tarn::test::guarded_image;
using tarn::test::random_input;
using tarn::test::same_pixels;

cv::Mat cylindrical(cv::Mat image, float angle)
{
    cv::Mat output;
    cylindrical_projection(image, output, angle);
    return output;
}

cv::Mat spherical(cv::Mat image, float angle)
{
    cv::Mat output;
    SphericalProjection(image, output, angle);
    return output;
}

// The buffer of which an image is a view.
cv::Mat whole_buffer(cv::Mat view)
{
    cv::Size size;
    cv::Point offset;
    view.locateROI(size, offset);
    view.adjustROI(size.height, size.height, size.width, size.width);
    return view;
}

cv::Point offset_in_buffer(const cv::Mat& view)
{
    cv::Size size;
    cv::Point offset;
    view.locateROI(size, offset);
    return offset;
}

// An image in which every pixel says where it is. No pixel is black.
cv::Mat coordinates_image(int width, int height)
{
    cv::Mat image(height, width, CV_8UC3);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.at<cv::Vec3b>(y, x) = cv::Vec3b(static_cast<uchar>(x), static_cast<uchar>(y), 255);
        }
    }
    return image;
}

const cv::Vec3b black(0, 0, 0);

TEST(CylindricalProjection, Angle0KeepsTheCentreColumnsRows)
{
    // 100 columns: f = 200 and cx = 50. Column 50 goes to 200 atan(0.25) = 48.996, rounded 49.
    const cv::Mat output = cylindrical(coordinates_image(100, 80), 0.0f);
    for (int y = 0; y < 80; ++y) {
        ASSERT_EQ(output.at<cv::Vec3b>(y, 49), cv::Vec3b(50, static_cast<uchar>(y), 255));
    }
}

TEST(CylindricalProjection, TinyImageKeepsItsPixelsAtAngle0ExceptTheLastColumn)
{
    // 8 columns: every column moves by less than half a pixel, 16 (atan((j - 4) / 16) + atan(0.25)) being
    // 0, 0.95, 1.93, 2.92, 3.92, 4.92, 5.91, 6.89; and so do the rows.
    const cv::Mat image = coordinates_image(8, 8);
    const cv::Mat output = cylindrical(image, 0.0f);
    EXPECT_TRUE(same_pixels(image(cv::Rect(0, 0, 7, 8)), output));
}

TEST(CylindricalProjection, LastColumnReachedIsCutOff)
{
    // 100 columns: the last lands on 200 (atan(49 / 200) + atan(0.25)) = 97.05, rounded 97, the width.
    const cv::Mat output = cylindrical(coordinates_image(100, 80), 0.0f);
    EXPECT_EQ(output.size(), cv::Size(97, 80));
    EXPECT_EQ(output.at<cv::Vec3b>(40, 96)[0], 98);
    const cv::Mat buffer = whole_buffer(output);
    EXPECT_EQ(buffer.at<cv::Vec3b>(40, 97)[0], 99);
    EXPECT_EQ(buffer.at<cv::Vec3b>(40, 98), black);
}

TEST(CylindricalProjection, HeightIsTheSourcesOwn)
{
    EXPECT_EQ(cylindrical(coordinates_image(40, 70), 20.0f).rows, 70);
}

TEST(CylindricalProjection, OutputIsAViewOfABufferAsLargeAsTheSource)
{
    const cv::Mat output = cylindrical(coordinates_image(100, 80), 5.0f);
    EXPECT_TRUE(output.isSubmatrix());
    EXPECT_EQ(whole_buffer(output).size(), cv::Size(100, 80));
    EXPECT_EQ(offset_in_buffer(output), cv::Point(0, 0));
}

TEST(CylindricalProjection, OfTwoColumnsThatMeetTheLaterOneWins)
{
    // Columns 10 and 11 land on 9.517 and 10.479, both rounded 10; 89 and 90 on 87.512 and 88.475, both 88.
    const cv::Mat output = cylindrical(coordinates_image(100, 80), 0.0f);
    EXPECT_EQ(output.at<cv::Vec3b>(40, 9)[0], 9);
    EXPECT_EQ(output.at<cv::Vec3b>(40, 10)[0], 11);
    EXPECT_EQ(output.at<cv::Vec3b>(40, 11)[0], 12);
    EXPECT_EQ(output.at<cv::Vec3b>(40, 88)[0], 90);
}

TEST(CylindricalProjection, OfTwoRowsThatMeetTheLaterOneWins)
{
    // In column 0 rows shrink towards the middle by 200 / sqrt(50² + 200²) = 0.97014: rows 66 and 67 of a
    // hundred land on 65.52 and 66.49, both rounded 66.
    const cv::Mat output = cylindrical(coordinates_image(100, 100), 0.0f);
    EXPECT_EQ(output.at<cv::Vec3b>(65, 0)[1], 65);
    EXPECT_EQ(output.at<cv::Vec3b>(66, 0)[1], 67);
    EXPECT_EQ(output.at<cv::Vec3b>(67, 0)[1], 68);
}

TEST(CylindricalProjection, TargetsThatNoPixelReachesStayBlack)
{
    // Row 0 of column 0 lands on 50 - 50 * 0.97014 = 1.49, rounded 1.
    const cv::Mat output = cylindrical(coordinates_image(100, 100), 0.0f);
    EXPECT_EQ(output.at<cv::Vec3b>(0, 0), black);
    EXPECT_EQ(output.at<cv::Vec3b>(1, 0), cv::Vec3b(0, 0, 255));
    EXPECT_EQ(output.at<cv::Vec3b>(0, 49), cv::Vec3b(50, 0, 255));
}

TEST(CylindricalProjection, GreaterAnglesBendMore)
{
    // At 60 degrees f is halved: the last of 100 columns lands on 100 (atan(0.49) + atan(0.5)) = 91.9.
    EXPECT_EQ(cylindrical(coordinates_image(100, 80), 60.0f).cols, 92);
    EXPECT_EQ(cylindrical(coordinates_image(100, 80), -60.0f).cols, 92);
}

TEST(CylindricalProjection, SourceWithoutRowsGivesARegionOfWidth0)
{
    EXPECT_EQ(cylindrical(cv::Mat(0, 10, CV_8UC3), 5.0f).cols, 0);
    EXPECT_EQ(cylindrical(cv::Mat(), 5.0f).cols, 0);
}

TEST(CylindricalProjection, SourceWithoutColumnsGivesARegionOfWidth0)
{
    const cv::Mat output = cylindrical(cv::Mat(10, 0, CV_8UC3), 5.0f);
    EXPECT_EQ(output.cols, 0);
}

TEST(CylindricalProjection, OneColumnIsCutOffWholly)
{
    // It lands on 2 atan(-0.25) + 2 atan(0.25) = 0: the width is 0.
    EXPECT_EQ(cylindrical(coordinates_image(1, 10), 0.0f).cols, 0);
}

TEST(CylindricalProjection, SourceAndOutputMayBeTheSameObject)
{
    random_input random;
    cv::Mat image = random.image(cv::Size(50, 40));
    const cv::Mat expected = cylindrical(image.clone(), 12.0f);
    cylindrical_projection(image, image, 12.0f);
    EXPECT_TRUE(same_pixels(expected, image));
}

TEST(CylindricalProjection, OldPixelsOfTheOutputAreNotWritten)
{
    random_input random;
    cv::Mat image = random.image(cv::Size(50, 40));
    cv::Mat output(40, 50, CV_8UC3, cv::Scalar::all(7));
    const cv::Mat shared = output;
    cylindrical_projection(image, output, 12.0f);
    EXPECT_TRUE(same_pixels(cv::Mat(40, 50, CV_8UC3, cv::Scalar::all(7)), shared));
}

TEST(CylindricalProjection, OtherTypesAreRefused)
{
    EXPECT_THROW(cylindrical(cv::Mat(9, 9, CV_8UC1, cv::Scalar(1)), 5.0f), cv::Exception);
    EXPECT_THROW(cylindrical(cv::Mat(9, 9, CV_8UC4, cv::Scalar(1)), 5.0f), cv::Exception);
    EXPECT_THROW(cylindrical(cv::Mat(9, 9, CV_16UC3, cv::Scalar(1)), 5.0f), cv::Exception);
}

TEST(SphericalProjection, TargetCentreSamplesTheSourceCentreExactly)
{
    random_input random;
    for (int width = 5; width <= 60; ++width) {
        const int height = random.integer(5, 60);
        const float angle = random.real(0.0f, 20.0f);
        const cv::Mat image = random.image(cv::Size(width, height));
        const cv::Mat buffer = whole_buffer(spherical(image, angle));
        ASSERT_EQ(buffer.at<cv::Vec3b>(buffer.rows / 2, buffer.cols / 2), image.at<cv::Vec3b>(height / 2, width / 2))
            << width << " x " << height << " at " << angle;
    }
}

TEST(SphericalProjection, LastWrittenColumnAndRowFallOutsideTheOutput)
{
    // 9 x 9 pixels: r = 18, the target has (int)(36 atan(4 / 18)) = 7 columns and rows, all of them written.
    const cv::Mat output = spherical(coordinates_image(9, 9), 0.0f);
    EXPECT_EQ(output.size(), cv::Size(6, 6));
    const cv::Mat buffer = whole_buffer(output);
    EXPECT_EQ(buffer.size(), cv::Size(7, 7));
    EXPECT_NE(buffer.at<cv::Vec3b>(3, 6), black);
    EXPECT_NE(buffer.at<cv::Vec3b>(6, 3), black);
}

TEST(SphericalProjection, LastSourceRowAndColumnAreNeverATopLeftCorner)
{
    // 8 x 8 pixels: r = 16, 7 target columns. The last, 3 right of the centre, would be sampled at column
    // 4 + sin(3 / 16) * 256 / sqrt(256 - 9) = 7.036, in the source's last: it is skipped.
    const cv::Mat output = spherical(coordinates_image(8, 8), 0.0f);
    const cv::Mat buffer = whole_buffer(output);
    EXPECT_EQ(buffer.size(), cv::Size(7, 7));
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(buffer.at<cv::Vec3b>(i, 6), black);
        EXPECT_EQ(buffer.at<cv::Vec3b>(6, i), black);
    }
    EXPECT_NE(buffer.at<cv::Vec3b>(3, 5), black);
    EXPECT_EQ(output.size(), cv::Size(5, 5));
}

TEST(SphericalProjection, LastSourceRowAndColumnAreReadAsNeighbours)
{
    // Nothing but the last row and column is white: it shines through with its share, never wholly.
    for (int side = 9; side <= 40; ++side) {
        cv::Mat image(side, side, CV_8UC3, cv::Scalar::all(0));
        image.col(side - 1).setTo(cv::Scalar::all(255));
        image.row(side - 1).setTo(cv::Scalar::all(255));
        const cv::Mat buffer = whole_buffer(spherical(image, 0.0f));
        double greatest = 0;
        cv::minMaxLoc(buffer.reshape(1), nullptr, &greatest);
        ASSERT_LT(greatest, 255) << side;
    }
    cv::Mat image(9, 9, CV_8UC3, cv::Scalar::all(0));
    image.col(8).setTo(cv::Scalar::all(255));
    // Target column 6: 4 + sin(3 / 18) * 324 / sqrt(324 - 9) = 7.0285, a share of 0.0285.
    EXPECT_EQ(whole_buffer(spherical(image, 0.0f)).at<cv::Vec3b>(3, 6), cv::Vec3b::all(7));
}

TEST(SphericalProjection, WeightedSumIsTruncatedNotRounded)
{
    // One right of the centre of 9 x 9 pixels: column 4 + sin(1 / 18) * 324 / sqrt(323) = 5.00103, so that the
    // value is 100 - 0.00103 * 50 = 99.948.
    cv::Mat image(9, 9, CV_8UC3, cv::Scalar::all(0));
    image.at<cv::Vec3b>(4, 5) = cv::Vec3b::all(100);
    image.at<cv::Vec3b>(4, 6) = cv::Vec3b::all(50);
    const cv::Mat output = spherical(image, 0.0f);
    EXPECT_EQ(offset_in_buffer(output), cv::Point(0, 0));
    EXPECT_EQ(output.at<cv::Vec3b>(3, 4), cv::Vec3b::all(99));
}

TEST(SphericalProjection, ChannelsDoNotMix)
{
    for (int channel = 0; channel < 3; ++channel) {
        cv::Scalar colour = cv::Scalar::all(0);
        colour[channel] = 200;
        const cv::Mat output = spherical(cv::Mat(30, 30, CV_8UC3, colour), 10.0f);
        std::vector<cv::Mat> planes;
        cv::split(output, planes);
        for (int other = 0; other < 3; ++other) {
            const int count = cv::countNonZero(planes[static_cast<size_t>(other)]);
            EXPECT_EQ(count > 0, other == channel);
        }
    }
}

TEST(SphericalProjection, PlainImageStaysPlainWithinOneGrayLevel)
{
    // The weights are narrowed one by one, so that their sum may fall short of 1 by a little.
    const cv::Mat output = spherical(cv::Mat(50, 70, CV_8UC3, cv::Scalar::all(200)), 15.0f);
    double least = 0;
    double greatest = 0;
    cv::minMaxLoc(whole_buffer(output).reshape(1)(cv::Rect(60, 15, 60, 15)), &least, &greatest);
    EXPECT_GE(least, 199);
    EXPECT_LE(greatest, 200);
}

TEST(SphericalProjection, CornersThatTheSourceDoesNotReachAreBlackWhateverMemoryHeld)
{
    // 100 x 160 pixels: the rows near the middle reach to the source's sides, the corners lie outside.
    const cv::Mat white(160, 100, CV_8UC3, cv::Scalar::all(255));
    const cv::Size size = whole_buffer(spherical(white, 0.0f)).size();
    for (int i = 0; i < 20; ++i) {
        // What is freed here is likely to be the next buffer.
        cv::Mat(size, CV_8UC3, cv::Scalar::all(77)).release();
        const cv::Mat buffer = whole_buffer(spherical(white, 0.0f));
        for (const int y : {0, size.height - 1}) {
            for (const int x : {0, size.width - 1}) {
                ASSERT_EQ(buffer.at<cv::Vec3b>(y, x), black) << "(" << x << ", " << y << ")";
            }
        }
        ASSERT_NE(buffer.at<cv::Vec3b>(size.height / 2, 1), black);
    }
}

TEST(SphericalProjection, OutputIsAViewOfTheTargetBuffer)
{
    const cv::Mat output = spherical(coordinates_image(100, 80), 5.0f);
    EXPECT_TRUE(output.isSubmatrix());
}

TEST(SphericalProjection, NoPixelWrittenRaisesTheLibrarysException)
{
    // 2 x 2 pixels: the one target pixel samples (1, 1), the last row and column. One column or row: no target.
    EXPECT_THROW(spherical(coordinates_image(2, 2), 0.0f), cv::Exception);
    EXPECT_THROW(spherical(coordinates_image(1, 5), 0.0f), cv::Exception);
    EXPECT_THROW(spherical(coordinates_image(5, 1), 0.0f), cv::Exception);
}

TEST(SphericalProjection, OnePixelWrittenGivesAnEmptyRegion)
{
    EXPECT_TRUE(spherical(coordinates_image(3, 3), 0.0f).empty());
}

TEST(SphericalProjection, SourceWithoutPixelsHasNoTargetEither)
{
    EXPECT_TRUE(spherical(cv::Mat(), 5.0f).empty());
    // No row, but ten columns wide: a region of negative width.
    EXPECT_THROW(spherical(cv::Mat(0, 10, CV_8UC3), 5.0f), cv::Exception);
    EXPECT_THROW(reference::SphericalProjection(cv::Mat(0, 10, CV_8UC3), 5.0f), cv::Exception);
}

TEST(SphericalProjection, SourceAndOutputMayBeTheSameObject)
{
    random_input random;
    cv::Mat image = random.image(cv::Size(50, 40));
    const cv::Mat expected = spherical(image.clone(), 12.0f);
    SphericalProjection(image, image, 12.0f);
    EXPECT_TRUE(same_pixels(expected, image));
}

TEST(SphericalProjection, OutputIsUntouchedWhenItThrows)
{
    cv::Mat image = coordinates_image(1, 5);
    cv::Mat output(3, 3, CV_8UC3, cv::Scalar::all(7));
    EXPECT_THROW(SphericalProjection(image, output, 0.0f), cv::Exception);
    EXPECT_TRUE(same_pixels(cv::Mat(3, 3, CV_8UC3, cv::Scalar::all(7)), output));
}

TEST(SphericalProjection, OtherTypesAreRefused)
{
    EXPECT_THROW(spherical(cv::Mat(9, 9, CV_8UC1, cv::Scalar(1)), 5.0f), cv::Exception);
    EXPECT_THROW(spherical(cv::Mat(9, 9, CV_8UC4, cv::Scalar(1)), 5.0f), cv::Exception);
    EXPECT_THROW(spherical(cv::Mat(9, 9, CV_16UC3, cv::Scalar(1)), 5.0f), cv::Exception);
}

// What a projection gives, or nothing when it raises OpenCV's exception.
template <typename projection>
std::optional<cv::Mat> result_of(projection project)
{
    try {
        return project();
    } catch (const cv::Exception&) {
        return std::nullopt;
    }
}

using shipped_projection = void (*)(cv::Mat&, cv::Mat&, float);
using reference_projection = cv::Mat (*)(const cv::Mat&, float);

// With one thread and with two.
void compare_with_reference(random_input& random, cv::Size size, float angle, shipped_projection shipped,
                            reference_projection plain)
{
    const cv::Mat image = random.image(size);
    const std::optional<cv::Mat> expected = result_of([&] { return plain(image, angle); });
    for (const int threads : {1, 2}) {
        SCOPED_TRACE(::testing::Message() << size << " at " << angle << ", threads: " << threads);
        const tarn::test::thread_count used(threads);
        guarded_image guarded(image, random);
        const std::optional<cv::Mat> actual = result_of([&] {
            cv::Mat output;
            shipped(guarded.view(), output, angle);
            return output;
        });
        ASSERT_EQ(actual.has_value(), expected.has_value());
        if (expected) {
            ASSERT_TRUE(same_pixels(*expected, *actual));
            if (!expected->empty()) {
                ASSERT_TRUE(same_pixels(whole_buffer(*expected), whole_buffer(*actual)));
                ASSERT_EQ(offset_in_buffer(*expected), offset_in_buffer(*actual));
            }
        }
        ASSERT_TRUE(same_pixels(image, guarded.view()));
        ASSERT_TRUE(guarded.guards_are_untouched());
    }
}

void compare_all_small_sizes(shipped_projection shipped, reference_projection plain)
{
    random_input random;
    for (const int width : tarn::test::small_sides()) {
        for (const int height : tarn::test::small_sides()) {
            for (const float angle : {0.0f, random.real(0.0f, 20.0f), 20.0f, random.real(20.0f, 89.0f)}) {
                ASSERT_NO_FATAL_FAILURE(compare_with_reference(random, {width, height}, angle, shipped, plain));
            }
        }
    }
}

void compare_larger_sizes(shipped_projection shipped, reference_projection plain)
{
    random_input random;
    for (int i = 0; i < 15; ++i) {
        const cv::Size size(random.integer(100, 500), random.integer(100, 500));
        const float angle = random.real(0.0f, 20.0f);
        ASSERT_NO_FATAL_FAILURE(compare_with_reference(random, size, angle, shipped, plain));
    }
}

// Angles for which the result is not defined, and those around.
std::vector<float> degenerate_angles(random_input& random)
{
    std::vector<float> angles = {87.0f,  89.0f,  89.9f,  89.99f, 90.0f,
                                 90.1f,  120.0f, 179.0f, 180.0f, 270.0f,
                                 450.0f, -89.9f, -90.0f, 1e30f,  std::numeric_limits<float>::max()};
    angles.push_back(std::numeric_limits<float>::quiet_NaN());
    angles.push_back(std::numeric_limits<float>::infinity());
    for (int i = 0; i < 30; ++i) {
        angles.push_back(random.real(70.0f, 290.0f));
    }
    return angles;
}

void compare_at_degenerate_angles(shipped_projection shipped, reference_projection plain)
{
    random_input random;
    for (const float angle : degenerate_angles(random)) {
        for (const cv::Size& size :
             {cv::Size(1, 1), cv::Size(17, 9), cv::Size(40, 30), cv::Size(5, 60), cv::Size(33, 64), cv::Size(64, 33)}) {
            ASSERT_NO_FATAL_FAILURE(compare_with_reference(random, size, angle, shipped, plain));
        }
    }
}

// The reference, with targets left of and above the image passed over: there are some at degenerate angles.
cv::Mat clipped_cylinder(const cv::Mat& image, float angle)
{
    const auto w = static_cast<float>(image.cols);
    const auto f = static_cast<float>(std::cos(tarn::radians_from_degrees(angle)) * static_cast<double>(w + w));
    const float cx = 0.5f * w;
    const float cy = 0.5f * static_cast<float>(image.rows);
    cv::Mat buffer = cv::Mat::zeros(image.size(), CV_8UC3);
    int width = 0;
    for (int i = 0; i < image.rows; ++i) {
        for (int j = 0; j < image.cols; ++j) {
            const float x = static_cast<float>(j) - cx;
            const float y = static_cast<float>(i) - cy;
            const float x1 = f * std::atan(x / f) + f * std::atan(cx / f);
            const float y1 = cy + f * y / std::sqrt(x * x + f * f);
            const cv::Point place(tarn::truncate_to_int(x1 + 0.5), tarn::truncate_to_int(y1 + 0.5));
            width = std::max(width, place.x);
            if (cv::Rect(cv::Point(), image.size()).contains(place)) {
                buffer.at<cv::Vec3b>(place) = image.at<cv::Vec3b>(i, j);
            }
        }
    }
    return buffer(cv::Rect(0, 0, width, image.rows));
}

TEST(CylindricalProjection, EqualsReferenceOnViewsOfAllSmallSizes)
{
    compare_all_small_sizes(cylindrical_projection, reference::cylindrical_projection);
}

TEST(CylindricalProjection, EqualsReferenceOnLargerImages)
{
    compare_larger_sizes(cylindrical_projection, reference::cylindrical_projection);
}

TEST(CylindricalProjection, EqualsClippedReferenceAtDegenerateAngles)
{
    compare_at_degenerate_angles(cylindrical_projection, clipped_cylinder);
}

TEST(CylindricalProjection, EqualsReferenceWhereRowsBendSteeply)
{
    // Hundreds of target rows in one source row, many of them skipped from one column to the next.
    random_input random;
    for (int i = 0; i < 20; ++i) {
        const cv::Size size(random.integer(2, 60), random.integer(100, 400));
        compare_with_reference(random, size, random.real(60.0f, 89.9f), cylindrical_projection,
                               reference::cylindrical_projection);
    }
}

TEST(CylindricalProjection, EqualsReferenceOnWideAndHighImages)
{
    random_input random;
    compare_with_reference(random, {6001, 40}, 7.0f, cylindrical_projection, reference::cylindrical_projection);
    compare_with_reference(random, {40, 6001}, 7.0f, cylindrical_projection, reference::cylindrical_projection);
}

TEST(SphericalProjection, EqualsReferenceOnViewsOfAllSmallSizes)
{
    compare_all_small_sizes(SphericalProjection, reference::SphericalProjection);
}

TEST(SphericalProjection, SourceIsNotReadBeyondItsEnd)
{
    // Buffers that end with the last pixel: a sanitizer sees what is read behind it.
    random_input random;
    for (int i = 0; i < 200; ++i) {
        const cv::Size size(random.integer(2, 70), random.integer(2, 30));
        std::vector<uchar> bytes(static_cast<size_t>(size.area()) * 3, 9);
        const cv::Mat image(size, CV_8UC3, bytes.data());
        const float angle = random.real(0.0f, 30.0f);
        const std::optional<cv::Mat> expected = result_of([&] { return reference::SphericalProjection(image, angle); });
        const std::optional<cv::Mat> actual = result_of([&] { return spherical(image, angle); });
        ASSERT_EQ(actual.has_value(), expected.has_value()) << size << " at " << angle;
        if (expected) {
            ASSERT_TRUE(same_pixels(*expected, *actual)) << size << " at " << angle;
        }
    }
}

TEST(SphericalProjection, EqualsReferenceOnLargerImages)
{
    compare_larger_sizes(SphericalProjection, reference::SphericalProjection);
}

TEST(SphericalProjection, SquaresOfDistancesAreMadeInSinglePrecision)
{
    // More than 4096 columns from the centre on, squares are no longer floats.
    random_input random;
    compare_with_reference(random, {9001, 150}, 0.0f, SphericalProjection, reference::SphericalProjection);
}

TEST(SphericalProjection, EqualsReferenceAtDegenerateAngles)
{
    compare_at_degenerate_angles(SphericalProjection, reference::SphericalProjection);
}

}  // namespace
