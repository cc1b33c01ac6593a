// SPDX-License-Identifier: Apache-2.0
//
// Colours and turns.
#include "picture_conversion.h"

#include <algorithm>
#include <cstddef>

namespace tarn::host {

namespace {

/// A picture mirrored and turned, in one pass. Blocks are small enough for both images' rows to stay in the cache.
cv::Mat turned(const cv::Mat& image, picture_orientation how)
{
    const bool lies = how.quarter_turns % 2 == 1;
    cv::Mat result(lies ? image.cols : image.rows, lies ? image.rows : image.cols, image.type());
    // Where the pixel of the first row and column comes from, and by how much that moves with row and column.
    const auto row = static_cast<std::ptrdiff_t>(image.step1() / 4);
    const std::ptrdiff_t column = how.mirrored ? -1 : 1;
    const std::ptrdiff_t left = how.mirrored ? image.cols - 1 : 0;
    const std::ptrdiff_t right = how.mirrored ? 0 : image.cols - 1;
    const std::ptrdiff_t bottom = row * (image.rows - 1);

    struct walk {
        std::ptrdiff_t begin, down, across;
    };

    const walk walks[] = {
        {left, row, column}, {bottom + left, column, -row}, {bottom + right, -row, -column}, {right, -column, row}};
    const walk& way = walks[how.quarter_turns];
    using pixel = cv::Vec4b;
    const pixel* const from = image.ptr<pixel>() + way.begin;
    constexpr int block = 32;
    for (int top = 0; top < result.rows; top += block) {
        for (int start = 0; start < result.cols; start += block) {
            const int end = std::min(start + block, result.cols);
            for (int y = top; y < std::min(top + block, result.rows); ++y) {
                pixel* to = result.ptr<pixel>(y) + start;
                const pixel* next = from + y * way.down + start * way.across;
                for (int x = start; x < end; ++x, next += way.across) {
                    *to++ = *next;
                }
            }
        }
    }
    return result;
}

}  // namespace

bool picture_converter::prepare(const AVFrame& picture)
{
    const SwsContext* const before = scaler_.get();
    scaler_.reset(sws_getCachedContext(scaler_.release(), picture.width, picture.height,
                                       static_cast<AVPixelFormat>(picture.format), picture.width, picture.height,
                                       AV_PIX_FMT_RGBA, SWS_BICUBIC, nullptr, nullptr, nullptr));
    if (!scaler_) {
        return false;
    }
    if (scaler_.get() == before && colours_ == picture.colorspace && range_ == picture.color_range) {
        return true;
    }
    colours_ = picture.colorspace;
    range_ = picture.color_range;
    int* coefficients = nullptr;
    int* table = nullptr;
    int range = 0;
    int result_range = 0;
    int brightness = 0;
    int contrast = 0;
    int saturation = 0;
    // Where the stream does not say, BT.601 and what the pixel format implies.
    if (sws_getColorspaceDetails(scaler_.get(), &coefficients, &range, &table, &result_range, &brightness, &contrast,
                                 &saturation)
        >= 0) {
        const int* const meant = sws_getCoefficients(colours_ == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : colours_);
        range = range_ == AVCOL_RANGE_UNSPECIFIED ? range : (range_ == AVCOL_RANGE_JPEG ? 1 : 0);
        sws_setColorspaceDetails(scaler_.get(), meant, range, meant, result_range, brightness, contrast, saturation);
    }
    return true;
}

cv::Mat picture_converter::convert(const AVFrame& picture, picture_orientation shown, frame_turn turn)
{
    if (!prepare(picture)) {
        return {};
    }
    // The conversion goes by groups of pixels, and leaves an incomplete one out where it has no room.
    constexpr int group = 32;
    cv::Mat whole(picture.height, (picture.width + group - 1) / group * group, CV_8UC4);
    const cv::Mat image = whole.colRange(0, picture.width);
    unsigned char* const planes[] = {whole.data, nullptr, nullptr, nullptr};
    const int steps[] = {static_cast<int>(whole.step), 0, 0, 0};
    if (sws_scale(scaler_.get(), picture.data, picture.linesize, 0, picture.height, planes, steps) != picture.height) {
        return {};
    }
    shown.quarter_turns = (shown.quarter_turns + quarters_of(turn)) % 4;
    return shown.quarter_turns == 0 && !shown.mirrored ? image : turned(image, shown);
}

}  // namespace tarn::host
