// SPDX-License-Identifier: Apache-2.0
//
// Random input for comparisons: numbers, images, coordinates of every kind, and images that lie inside larger
// ones whose remaining bytes are checked afterwards.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

namespace tarn::test {

/// The environment variable TARN_TEST_SEED, or, when it is not set, a number drawn once per process.
std::uint64_t test_seed();

/// Sides at which loops over pixels tend to go wrong: the smallest, odd ones, the widths of vector registers and
/// their neighbours.
const std::vector<int>& small_sides();

/// A source of random input. While it lives, a failing assertion of its thread prints how to replay it.
class random_input {
public:
    explicit random_input(std::uint64_t seed = test_seed());

    /// least to most, both included.
    int integer(int least, int most);

    /// Uniform, least to most.
    float real(float least, float most);

    /// True once in `n` times, on average.
    bool one_in(int n);

    /// A coordinate of an image of the given extent: inside, on its border, outside by up to its extent; whole,
    /// half or any fraction.
    float coordinate(int extent);

    /// Any float: a coordinate as above, or far away, beyond the range of int, infinite, NaN, tiny, -0.
    float any_float(int extent);

    /// Four corners with coordinates as from coordinate(); often those of the whole image, moved a little.
    std::vector<cv::Point2f> quadrilateral(cv::Size size);

    /// Four corners, each coordinate as from any_float() or coordinate().
    std::vector<cv::Point2f> any_quadrilateral(cv::Size size);

    /// CV_8UC3: noise, smooth shading, very dark noise or a single colour; with black rectangles in half of all
    /// cases.
    cv::Mat image(cv::Size size);

    /// Any bytes, of any type.
    cv::Mat noise(cv::Size size, int type);

private:
    std::mt19937_64 engine_;
    ::testing::ScopedTrace how_to_replay_;
};

/// An image that is a view of a larger one, with random bytes above, below and on both sides of it.
class guarded_image {
public:
    guarded_image(const cv::Mat& content, random_input& random);

    /// The image: not continuous unless it has but one row.
    cv::Mat& view()
    {
        return view_;
    }

    /// Fails when a byte around the view is no longer what it was.
    ::testing::AssertionResult guards_are_untouched() const;

private:
    cv::Mat buffer_;
    cv::Mat untouched_;
    cv::Rect place_;
    cv::Mat view_;
};

/// Fails, saying where, unless both images have the same size, type and bytes.
::testing::AssertionResult same_pixels(const cv::Mat& expected, const cv::Mat& actual);

/// Fails unless both floats have the same bits or both are NaN.
::testing::AssertionResult same_bits(float expected, float actual);

}  // namespace tarn::test
