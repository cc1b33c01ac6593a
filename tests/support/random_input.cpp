// SPDX-License-Identifier: Apache-2.0
#include "random_input.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <limits>
#include <string>

namespace tarn::test {

std::uint64_t test_seed()
{
    static const std::uint64_t seed = [] {
        if (const char* text = std::getenv("TARN_TEST_SEED")) {
            return static_cast<std::uint64_t>(std::strtoull(text, nullptr, 10));
        }
        return static_cast<std::uint64_t>(std::random_device{}());
    }();
    return seed;
}

const std::vector<int>& small_sides()
{
    static const std::vector<int> sides = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65};
    return sides;
}

random_input::random_input(std::uint64_t seed)
    : engine_(seed), how_to_replay_(__FILE__, __LINE__, "replay with TARN_TEST_SEED=" + std::to_string(seed))
{
}

// The standard library's distributions differ between platforms; these do not. Several numbers for one object are
// drawn inside braces: the arguments of a call in parentheses are drawn in an order of the compiler's choice.
int random_input::integer(int least, int most)
{
    const auto count = static_cast<std::uint64_t>(std::int64_t{most} - least) + 1;
    return static_cast<int>(least + static_cast<std::int64_t>(engine_() % count));
}

float random_input::real(float least, float most)
{
    constexpr double steps = 9007199254740992.0;  // 2^53
    const double share = static_cast<double>(engine_() >> 11) / steps;
    return static_cast<float>(least + (static_cast<double>(most) - least) * share);
}

bool random_input::one_in(int n)
{
    return integer(1, n) == 1;
}

float random_input::coordinate(int extent)
{
    const auto reach = static_cast<float>(extent);
    switch (integer(0, 5)) {
    case 0:
        return static_cast<float>(integer(0, extent));
    case 1:
        return static_cast<float>(integer(-extent, 2 * extent)) + 0.5f;
    case 2:
        return real(-1.0f, 1.0f);
    case 3:
        return reach + real(-1.0f, 1.0f);
    case 4:
        return real(-reach, 2.0f * reach);
    default:
        return real(0.0f, reach);
    }
}

float random_input::any_float(int extent)
{
    switch (integer(0, 11)) {
    case 0:
        return std::numeric_limits<float>::quiet_NaN();
    case 1:
        return std::numeric_limits<float>::infinity();
    case 2:
        return -std::numeric_limits<float>::infinity();
    case 3:
        return one_in(2) ? std::numeric_limits<float>::max() : std::numeric_limits<float>::lowest();
    case 4:
        return one_in(2) ? std::numeric_limits<float>::denorm_min() : -0.0f;
    case 5:
        return one_in(2) ? 2147483648.0f : -2147483648.0f;
    case 6:
        return one_in(2) ? 2147483520.0f : -2147483904.0f;
    case 7:
        return real(-4e9f, 4e9f);
    case 8:
        return real(-1e6f, 1e6f);
    default:
        return coordinate(extent);
    }
}

std::vector<cv::Point2f> random_input::quadrilateral(cv::Size size)
{
    const auto w = static_cast<float>(size.width);
    const auto h = static_cast<float>(size.height);
    std::vector<cv::Point2f> corners = {{0.0f, 0.0f}, {w, 0.0f}, {w, h}, {0.0f, h}};
    const bool is_any = one_in(3);
    const bool is_whole = one_in(3);
    for (cv::Point2f& corner : corners) {
        if (is_any) {
            corner = {coordinate(size.width), coordinate(size.height)};
        } else {
            corner += cv::Point2f{real(-0.2f, 0.2f) * w, real(-0.2f, 0.2f) * h};
        }
        if (is_whole) {
            corner = {std::floor(corner.x), std::floor(corner.y)};
        }
    }
    return corners;
}

std::vector<cv::Point2f> random_input::any_quadrilateral(cv::Size size)
{
    std::vector<cv::Point2f> corners = quadrilateral(size);
    const int rarity = integer(1, 6);
    for (cv::Point2f& corner : corners) {
        if (one_in(rarity)) {
            corner.x = any_float(size.width);
        }
        if (one_in(rarity)) {
            corner.y = any_float(size.height);
        }
    }
    return corners;
}

cv::Mat random_input::noise(cv::Size size, int type)
{
    cv::Mat result(size, type);
    for (int y = 0; y < result.rows; ++y) {
        uchar* row = result.ptr(y);
        for (size_t i = 0; i < static_cast<size_t>(result.cols) * result.elemSize(); ++i) {
            row[i] = static_cast<uchar>(engine_());
        }
    }
    return result;
}

cv::Mat random_input::image(cv::Size size)
{
    cv::Mat result = noise(size, CV_8UC3);
    const int style = integer(0, 3);
    const cv::Vec3b colour{static_cast<uchar>(integer(0, 255)), static_cast<uchar>(integer(0, 255)),
                           static_cast<uchar>(integer(0, 255))};
    const int step_x = integer(0, 9);
    const int step_y = integer(0, 9);
    for (int y = 0; y < result.rows; ++y) {
        for (int x = 0; x < result.cols; ++x) {
            auto& pixel = result.at<cv::Vec3b>(y, x);
            for (int c = 0; c < 3; ++c) {
                if (style == 1) {  // smooth
                    pixel[c] = static_cast<uchar>(colour[c] + step_x * x + step_y * y);
                } else if (style == 2) {  // around the gray values that count as empty
                    pixel[c] = static_cast<uchar>(pixel[c] % 4);
                } else if (style == 3) {
                    pixel[c] = colour[c];
                }
            }
        }
    }
    if (!result.empty() && one_in(2)) {
        for (int count = integer(1, 3); count > 0; --count) {
            const int x = integer(0, size.width - 1);
            const int y = integer(0, size.height - 1);
            const cv::Rect black{x, y, integer(1, size.width - x), integer(1, size.height - y)};
            result(black).setTo(cv::Scalar::all(0));
        }
    }
    return result;
}

guarded_image::guarded_image(const cv::Mat& content, random_input& random)
    : place_{random.integer(1, 19), random.integer(1, 3), content.cols, content.rows}
{
    buffer_ =
        random.noise({place_.x + place_.width + random.integer(1, 19), place_.y + place_.height + random.integer(1, 3)},
                     content.type());
    untouched_ = buffer_.clone();
    view_ = buffer_(place_);
    content.copyTo(view_);
}

::testing::AssertionResult guarded_image::guards_are_untouched() const
{
    cv::Mat expected = untouched_.clone();
    if (place_.area() > 0) {
        buffer_(place_).copyTo(expected(place_));
    }
    const ::testing::AssertionResult result = same_pixels(expected, buffer_);
    if (!result) {
        return ::testing::AssertionFailure() << "a byte outside of the image was changed; the image begins at ("
                                             << place_.x << ", " << place_.y << "): " << result.message();
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult same_pixels(const cv::Mat& expected, const cv::Mat& actual)
{
    if (expected.size() != actual.size() || expected.type() != actual.type()) {
        return ::testing::AssertionFailure() << "size " << actual.size() << " and type " << actual.type()
                                             << " instead of " << expected.size() << " and " << expected.type();
    }
    const size_t pixel_size = expected.elemSize();
    for (int y = 0; y < expected.rows; ++y) {
        const uchar* expected_row = expected.ptr(y);
        const uchar* actual_row = actual.ptr(y);
        const size_t row_size = pixel_size * static_cast<size_t>(expected.cols);
        if (row_size == 0 || std::memcmp(expected_row, actual_row, row_size) == 0) {
            continue;
        }
        size_t i = 0;
        while (expected_row[i] == actual_row[i]) {
            ++i;
        }
        return ::testing::AssertionFailure()
               << "row " << y << ", column " << i / pixel_size << ", byte " << i % pixel_size << " of "
               << expected.size() << ": " << int{actual_row[i]} << " instead of " << int{expected_row[i]};
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult same_bits(float expected, float actual)
{
    if ((std::isnan(expected) && std::isnan(actual)) || std::memcmp(&expected, &actual, sizeof(float)) == 0) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << std::setprecision(9) << actual << " instead of " << expected;
}

}  // namespace tarn::test
