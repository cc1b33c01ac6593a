// SPDX-License-Identifier: Apache-2.0
//
// The bytes of one fuzzing run, read as the numbers, texts and images that a target needs. Reading past the end
// gives zeros, so that every input is a complete one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace tarn::fuzz {

class input_bytes {
public:
    /// The bytes stay the caller's.
    input_bytes(const std::uint8_t* data, std::size_t size) : data_(data), left_(size)
    {
    }

    /// Whether all bytes have been read.
    bool at_end() const
    {
        return left_ == 0;
    }

    std::uint8_t byte();

    bool flag()
    {
        return (byte() & 1) != 0;
    }

    /// least to most, both included; four bytes, fewer for short ranges.
    int integer(int least, int most);

    /// Any float: bits as they come, a coordinate about an image of the given extent, or one of the values at
    /// which conversions go wrong.
    float any_float(int extent);

    /// Four corners about an image of the given size, from any_float().
    std::vector<cv::Point2f> any_quadrilateral(cv::Size size);

    /// At most `most` characters other than NUL.
    std::string text(std::size_t most);

    /// An image of any content: single colour, shading, noise or the bytes themselves, with a black rectangle in
    /// it or not.
    cv::Mat image(cv::Size size, int type);

private:
    const std::uint8_t* data_;
    std::size_t left_;
};

/// An image that is a view of a larger one, whose other bytes are checked afterwards.
class guarded_view {
public:
    explicit guarded_view(const cv::Mat& content);

    /// The image: not continuous unless it has but one row.
    cv::Mat& view()
    {
        return view_;
    }

    /// Whether the bytes around the view are what they were.
    bool guards_are_untouched() const;

private:
    cv::Mat buffer_;
    cv::Mat view_;
    cv::Rect place_;
};

/// Runs one of the checks, as the next byte says.
inline void run_one_of(std::initializer_list<void (*)(input_bytes&)> checks, input_bytes& input)
{
    checks.begin()[input.byte() % checks.size()](input);
}

/// Whether both images have the same size, type and bytes.
bool same_image(const cv::Mat& one, const cv::Mat& other);

/// Whether both floats have the same bits or both are NaN.
bool same_float(float one, float other);

}  // namespace tarn::fuzz
