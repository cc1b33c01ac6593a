// SPDX-License-Identifier: Apache-2.0
#include "internal/frame_intake.h"

#include <limits>
#include <string>

#include <opencv2/imgproc.hpp>

#include "internal/spare_frames.h"

namespace tarn {

namespace {

constexpr int greatest_side = 16384;  // px

[[noreturn]] void refuse(const std::string& text)
{
    throw sweep_error(sweep_problem::bad_argument, text);
}

// Bytes of a pixel; 0 for a format that there is not.
int channels_of(pixel_format format)
{
    switch (format) {
    case pixel_format::rgba:
    case pixel_format::bgra:
        return 4;
    case pixel_format::bgr:
        return 3;
    case pixel_format::gray:
        return 1;
    }
    return 0;
}

void check_side(const char* name, int side)
{
    if (side < 1 || side > greatest_side) {
        refuse(std::string("the frame's ") + name + " is " + std::to_string(side) + "; it must be 1 to "
               + std::to_string(greatest_side));
    }
}

}  // namespace

void check_frame(const frame_view& frame)
{
    if (frame.pixels == nullptr) {
        refuse("the frame's pixels are null");
    }
    check_side("width", frame.width);
    check_side("height", frame.height);
    const int channels = channels_of(frame.format);
    if (channels == 0) {
        refuse("the frame's format is " + std::to_string(static_cast<int>(frame.format)) + ", which there is not");
    }
    const std::size_t row = static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(channels);
    if (frame.row_stride != 0 && frame.row_stride < row) {
        refuse("the frame's row_stride is " + std::to_string(frame.row_stride) + "; a row has " + std::to_string(row)
               + " bytes");
    }
    constexpr auto most_bytes = static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
    if (frame.row_stride > most_bytes / static_cast<std::size_t>(frame.height)) {
        refuse("the frame's row_stride is " + std::to_string(frame.row_stride) + "; so much memory there is not");
    }
}

void check_hint(direction_code hint)
{
    if (!is_direction(hint)) {
        refuse("the hint is " + std::to_string(static_cast<int>(hint)) + "; it must be "
               + std::to_string(direction_undecided) + " to " + std::to_string(last_direction_code));
    }
}

cv::Mat bgr_from(const frame_view& frame)
{
    const int type = CV_8UC(channels_of(frame.format));
    // OpenCV has no view of constant pixels; these are only read.
    const cv::Mat host(frame.height, frame.width, type, const_cast<void*>(frame.pixels),
                       frame.row_stride == 0 ? static_cast<std::size_t>(cv::Mat::AUTO_STEP) : frame.row_stride);
    cv::Mat bgr = take_spare_frame(host.size(), CV_8UC3);
    switch (frame.format) {
    case pixel_format::rgba:
        cv::cvtColor(host, bgr, cv::COLOR_RGBA2BGR);
        break;
    case pixel_format::bgra:
        cv::cvtColor(host, bgr, cv::COLOR_BGRA2BGR);
        break;
    case pixel_format::bgr:
        host.copyTo(bgr);
        break;
    case pixel_format::gray:
        cv::cvtColor(host, bgr, cv::COLOR_GRAY2BGR);
        break;
    }
    return bgr;
}

frame_view view_of(const cv::Mat& image)
{
    frame_view frame;
    switch (image.dims <= 2 ? image.type() : -1) {
    case CV_8UC4:
        frame.format = pixel_format::rgba;
        break;
    case CV_8UC3:
        frame.format = pixel_format::bgr;
        break;
    case CV_8UC1:
        frame.format = pixel_format::gray;
        break;
    default:
        refuse("an image of " + std::to_string(image.dims) + " dimensions and the type "
               + cv::typeToString(image.type()) + " is no frame; it must have 8 bits and 1, 3 or 4 channels");
    }
    frame.pixels = image.data;
    frame.width = image.cols;
    frame.height = image.rows;
    frame.row_stride = image.empty() ? 0 : image.step[0];
    check_frame(frame);
    return frame;
}

std::size_t size_in_bytes(const frame_view& frame)
{
    check_frame(frame);
    const std::size_t row = static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(channels_of(frame.format));
    const std::size_t stride = frame.row_stride == 0 ? row : frame.row_stride;
    return static_cast<std::size_t>(frame.height - 1) * stride + row;
}

}  // namespace tarn
