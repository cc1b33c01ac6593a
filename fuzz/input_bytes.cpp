// SPDX-License-Identifier: Apache-2.0
#include "input_bytes.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace tarn::fuzz {

namespace {

constexpr int guard = 5;  // px on each side
constexpr int guard_byte = 0xA5;

}  // namespace

std::uint8_t input_bytes::byte()
{
    if (left_ == 0) {
        return 0;
    }
    --left_;
    return *data_++;
}

int input_bytes::integer(int least, int most)
{
    const auto range = static_cast<std::uint64_t>(std::int64_t{most} - least) + 1;
    std::uint64_t value = 0;
    for (std::uint64_t reach = 1; reach < range; reach <<= 8U) {
        value = value << 8U | byte();
    }
    return static_cast<int>(std::int64_t{least} + static_cast<std::int64_t>(value % range));
}

float input_bytes::any_float(int extent)
{
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    constexpr float infinity = std::numeric_limits<float>::infinity();
    static constexpr float special[] = {
        nan,   infinity, -infinity, 0.0f,     -0.0f,  2147483648.0f, -2147483648.0f, 2147483520.0f, -2147483904.0f,
        1e20f, -1e20f,   3.4e38f,   -3.4e38f, 1e-45f, 0.5f,          -0.5f};
    const std::uint8_t kind = byte();
    if (kind < 16) {
        return special[kind];
    }
    if (kind < 48) {
        std::uint32_t bits = 0;
        for (int i = 0; i < 4; ++i) {
            bits = bits << 8U | byte();
        }
        float value = 0.0f;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    if (kind < 80) {
        return static_cast<float>(extent);
    }
    // From one extent before the image to one behind it, in steps of an eighth of a pixel.
    return static_cast<float>(integer(-8 * extent, 16 * extent)) / 8.0f;
}

std::vector<cv::Point2f> input_bytes::any_quadrilateral(cv::Size size)
{
    std::vector<cv::Point2f> corners;
    for (int i = 0; i < 4; ++i) {
        const float x = any_float(size.width);
        corners.emplace_back(x, any_float(size.height));
    }
    return corners;
}

std::string input_bytes::text(std::size_t most)
{
    const std::size_t length = std::min(most, static_cast<std::size_t>(byte()));
    std::string result;
    for (std::size_t i = 0; i < length && !at_end(); ++i) {
        const auto character = static_cast<char>(byte());
        if (character != '\0') {
            result += character;
        }
    }
    return result;
}

cv::Mat input_bytes::image(cv::Size size, int type)
{
    cv::Mat result(size, type);
    const std::uint8_t kind = byte();
    const std::uint8_t one = byte();
    const std::uint8_t other = byte();
    std::uint32_t noise = 2463534242U + one * 65537U + other;
    for (int y = 0; y < result.rows; ++y) {
        std::uint8_t* row = result.ptr(y);
        const std::size_t length = static_cast<std::size_t>(result.cols) * result.elemSize();
        for (std::size_t i = 0; i < length; ++i) {
            switch (kind % 4) {
            case 0:
                row[i] = i % 3 == 0 ? one : other;
                break;
            case 1:
                row[i] = static_cast<std::uint8_t>(one + 3 * y + static_cast<int>(i) * other / 16);
                break;
            case 2:  // noise (xorshift), dark in one case of four, so that gray values about the limits occur
                noise ^= noise << 13U;
                noise ^= noise >> 17U;
                noise ^= noise << 5U;
                row[i] = static_cast<std::uint8_t>(kind < 64 ? noise % 4 : noise);
                break;
            default:
                row[i] = byte();
                break;
            }
        }
    }
    if ((kind & 16) != 0 && !result.empty()) {
        const int x = integer(0, result.cols - 1);
        const int y = integer(0, result.rows - 1);
        const int width = integer(1, result.cols - x);
        const int height = integer(1, result.rows - y);
        const cv::Mat black = result(cv::Rect(x, y, width, height));
        for (int row = 0; row < black.rows; ++row) {
            std::memset(black.data + black.step[0] * static_cast<std::size_t>(row), 0,
                        black.elemSize() * static_cast<std::size_t>(black.cols));
        }
    }
    return result;
}

guarded_view::guarded_view(const cv::Mat& content)
    : buffer_(content.rows + 2 * guard, content.cols + 2 * guard, content.type()),
      place_(guard, guard, content.cols, content.rows)
{
    std::memset(buffer_.data, guard_byte, buffer_.total() * buffer_.elemSize());
    view_ = buffer_(place_);
    if (!content.empty()) {
        content.copyTo(view_);  // of nothing, it would take the view's size away
    }
}

bool guarded_view::guards_are_untouched() const
{
    const std::size_t pixel = buffer_.elemSize();
    const auto is_guard = [](std::uint8_t value) { return value == guard_byte; };
    for (int y = 0; y < buffer_.rows; ++y) {
        const std::uint8_t* row = buffer_.ptr(y);
        const std::uint8_t* end = row + pixel * static_cast<std::size_t>(buffer_.cols);
        const bool meets_view = y >= place_.y && y < place_.y + place_.height;
        const std::uint8_t* left_end = meets_view ? row + pixel * static_cast<std::size_t>(place_.x) : end;
        const std::uint8_t* right = meets_view ? left_end + pixel * static_cast<std::size_t>(place_.width) : end;
        if (!std::all_of(row, left_end, is_guard) || !std::all_of(right, end, is_guard)) {
            return false;
        }
    }
    return true;
}

bool same_image(const cv::Mat& one, const cv::Mat& other)
{
    if (one.empty() || other.empty()) {
        return one.empty() == other.empty();
    }
    if (one.size() != other.size() || one.type() != other.type()) {
        return false;
    }
    for (int y = 0; y < one.rows; ++y) {
        if (std::memcmp(one.ptr(y), other.ptr(y), one.elemSize() * static_cast<std::size_t>(one.cols)) != 0) {
            return false;
        }
    }
    return true;
}

bool same_float(float one, float other)
{
    return (std::isnan(one) && std::isnan(other)) || std::memcmp(&one, &other, sizeof one) == 0;
}

}  // namespace tarn::fuzz
