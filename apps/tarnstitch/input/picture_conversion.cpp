// SPDX-License-Identifier: Apache-2.0
//
// Colours and turns.
#include "picture_conversion.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include <opencv2/core/hal/intrin.hpp>
#include <opencv2/imgproc.hpp>

#include "shared_access.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace tarn::host {

namespace {

/// Whether libswscale makes the colours of each pair of rows from these rows alone, and by one arithmetic whatever the
/// order of the channels: then bands are converted to the same bytes as the whole. Of other kinds it draws chroma from
/// rows around.
bool rows_are_apart(const AVFrame& picture)
{
    return (picture.format == AV_PIX_FMT_YUV420P || picture.format == AV_PIX_FMT_YUVJ420P) && picture.width % 2 == 0
           && picture.height % 2 == 0;
}

using pixel = cv::Vec4b;  // B,G,R,A

/// Writes pixels that lie in steps of `across` from `from` on as B,G,R.
void put_row(const pixel* from, std::ptrdiff_t across, unsigned char* to, int count)
{
    for (int x = 0; x < count; ++x, from += across, to += 3) {
        to[0] = (*from)[0];
        to[1] = (*from)[1];
        to[2] = (*from)[2];
    }
}

#if CV_SIMD128 && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr int lanes = 4;  // pixels in a vector

/// Four pixels as twelve bytes, with four of zeros behind them.
cv::v_uint8x16 without_alpha(const cv::v_uint32x4& pixels)
{
    const cv::v_uint64x2 pairs = cv::v_reinterpret_as_u64(pixels);
    const cv::v_uint64x2 sixes =
        (pairs & cv::v_setall_u64(0xffffff)) | (cv::v_shr<8>(pairs) & cv::v_setall_u64(0xffffff000000));
    // The upper six come down to the lower six, of which the upper two bytes are zeros.
    const cv::v_uint8x16 bytes = cv::v_reinterpret_as_u8(sixes);
    const cv::v_uint8x16 lower = cv::v_reinterpret_as_u8(cv::v_uint64x2(0xffffffffffff, 0));
    const cv::v_uint8x16 upper = cv::v_reinterpret_as_u8(cv::v_uint64x2(0xffff000000000000, 0xffffffff));
    return (bytes & lower) | (cv::v_rotate_right<2>(bytes) & upper);
}

/// Four rows of the result at a time, which are four columns of the band: `from` is the first pixel of the first one,
/// `down` (1 or -1) leads to the next column, `across` to the next pixel of a column.
/// @returns rows written
int put_columns(const pixel* from, std::ptrdiff_t down, std::ptrdiff_t across, cv::Mat place)
{
    const int whole = place.cols / lanes * lanes;
    int y = 0;
    for (; y + lanes <= place.rows; y += lanes) {
        const pixel* next = from + y * down + (down < 0 ? 1 - lanes : 0);
        std::array<unsigned char*, lanes> to{};
        for (int i = 0; i < lanes; ++i) {
            to[static_cast<std::size_t>(down < 0 ? lanes - 1 - i : i)] = place.ptr(y + i);
        }
        const auto load = [&next, across] {
            const cv::v_uint32x4 pixels = cv::v_reinterpret_as_u32(cv::v_load(next->val));
            next += across;
            return pixels;
        };
        for (int x = 0; x < whole; x += lanes) {
            const cv::v_uint32x4 a = load();
            const cv::v_uint32x4 b = load();
            const cv::v_uint32x4 c = load();
            const cv::v_uint32x4 d = load();
            std::array<cv::v_uint32x4, lanes> rows;
            cv::v_transpose4x4(a, b, c, d, rows[0], rows[1], rows[2], rows[3]);
            for (std::size_t i = 0; i < lanes; ++i) {
                const cv::v_uint8x16 bytes = without_alpha(rows[i]);
                // Zeros behind the twelve bytes are written over by those that follow.
                if (x + lanes < whole) {
                    cv::v_store(to[i] + std::ptrdiff_t{3} * x, bytes);
                } else {
                    std::array<unsigned char, 16> last;
                    cv::v_store(last.data(), bytes);
                    std::memcpy(to[i] + std::ptrdiff_t{3} * x, last.data(), std::size_t{3} * lanes);
                }
            }
        }
        for (int i = 0; i < lanes; ++i) {
            put_row(from + (y + i) * down + whole * across, across, place.ptr(y + i, whole), place.cols - whole);
        }
    }
    return y;
}
#else
int put_columns(const pixel* /*from*/, std::ptrdiff_t /*down*/, std::ptrdiff_t /*across*/, const cv::Mat& /*place*/)
{
    return 0;
}
#endif

/// Puts a band's pixels into its place as B,G,R, mirrored and turned.
void put_turned(const cv::Mat& band, picture_orientation how, cv::Mat place)
{
    if (how.quarter_turns == 0 && !how.mirrored) {
        cv::cvtColor(band, place, cv::COLOR_BGRA2BGR);
        return;
    }
    // Where the pixel of the first row and column comes from, and by how much that moves with row and column.
    const auto row = static_cast<std::ptrdiff_t>(band.step1() / 4);
    const std::ptrdiff_t column = how.mirrored ? -1 : 1;
    const std::ptrdiff_t left = how.mirrored ? band.cols - 1 : 0;
    const std::ptrdiff_t right = how.mirrored ? 0 : band.cols - 1;
    const std::ptrdiff_t bottom = row * (band.rows - 1);

    struct walk {
        std::ptrdiff_t begin, down, across;
    };

    const walk walks[] = {
        {left, row, column}, {bottom + left, column, -row}, {bottom + right, -row, -column}, {right, -column, row}};
    const walk& way = walks[how.quarter_turns];
    const pixel* const from = band.ptr<pixel>() + way.begin;
    const bool lies = how.quarter_turns % 2 == 1;
    for (int y = lies ? put_columns(from, way.down, way.across, place) : 0; y < place.rows; ++y) {
        put_row(from + y * way.down, way.across, place.ptr(y), place.cols);
    }
}

/// Where a band of a picture comes to lie in the whole turned one.
cv::Rect place_of(int top, int rows, const AVFrame& picture, int quarter_turns)
{
    const int from_bottom = picture.height - top - rows;
    switch (quarter_turns) {
    case 1:
        return {from_bottom, 0, rows, picture.width};
    case 2:
        return {0, from_bottom, picture.width, rows};
    case 3:
        return {top, 0, rows, picture.width};
    default:
        return {0, top, picture.width, rows};
    }
}

}  // namespace

bool picture_converter::prepare(colours_of_rows& colours, const AVFrame& picture, int rows, AVPixelFormat wanted)
{
    const std::array<int, 5> kind = {picture.width, rows, picture.format, picture.colorspace, picture.color_range};
    if (colours.scaler && kind == colours.kind) {
        return true;
    }
    colours.kind = kind;
    colours.scaler.reset(sws_getContext(picture.width, rows, static_cast<AVPixelFormat>(picture.format), picture.width,
                                        rows, wanted, SWS_BICUBIC, nullptr, nullptr, nullptr));
    SwsContext* const scaler = colours.scaler.get();
    if (scaler == nullptr) {
        return false;
    }
    int* coefficients = nullptr;
    int* table = nullptr;
    int range = 0;
    int result_range = 0;
    int brightness = 0;
    int contrast = 0;
    int saturation = 0;
    // Where the stream does not say, BT.601 and what the pixel format implies.
    if (sws_getColorspaceDetails(scaler, &coefficients, &range, &table, &result_range, &brightness, &contrast,
                                 &saturation)
        >= 0) {
        const AVColorSpace space = picture.colorspace;
        const int* const meant = sws_getCoefficients(space == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : space);
        if (picture.color_range != AVCOL_RANGE_UNSPECIFIED) {
            range = picture.color_range == AVCOL_RANGE_JPEG ? 1 : 0;
        }
        sws_setColorspaceDetails(scaler, meant, range, meant, result_range, brightness, contrast, saturation);
    }
    return true;
}

cv::Mat picture_converter::storage(cv::Size size)
{
    // Memory of this size is given back to the system and had again, page by page, where it is not kept.
    constexpr std::size_t most_kept = 8;  // more than a sweep holds at a time
    for (const cv::Mat& one : given_) {
        if (one.size() == size && load_acquire(one.u->refcount) == 1) {
            return one;
        }
    }
    cv::Mat fresh(size, CV_8UC3);
    if (given_.size() == most_kept || (!given_.empty() && given_.front().size() != size)) {
        given_.clear();
    }
    given_.push_back(fresh);
    return fresh;
}

bool picture_converter::make_colours(const AVFrame& picture, int top, cv::Mat& pixels, AVPixelFormat wanted)
{
    colours_of_rows& colours = colours_[top + pixels.rows == picture.height ? 1 : 0];
    if (!prepare(colours, picture, pixels.rows, wanted)) {
        return false;
    }
    const AVPixFmtDescriptor* const format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
    std::array<const unsigned char*, AV_NUM_DATA_POINTERS> from{};
    std::copy(std::begin(picture.data), std::end(picture.data), from.begin());
    for (std::size_t plane = 0; top > 0 && plane < from.size() && from[plane] != nullptr; ++plane) {
        const bool is_chroma = plane == 1 || plane == 2;
        from[plane] += std::ptrdiff_t{is_chroma ? top >> format->log2_chroma_h : top} * picture.linesize[plane];
    }
    unsigned char* const to[] = {pixels.data, nullptr, nullptr, nullptr};
    const int steps[] = {static_cast<int>(pixels.step), 0, 0, 0};
    return sws_scale(colours.scaler.get(), from.data(), picture.linesize, 0, pixels.rows, to, steps) == pixels.rows;
}

cv::Mat picture_converter::convert(const AVFrame& picture, picture_orientation shown, frame_turn turn)
{
    const int width = picture.width;
    const int height = picture.height;
    shown.quarter_turns = (shown.quarter_turns + quarters_of(turn)) % 4;
    const bool lies = shown.quarter_turns % 2 == 1;
    const bool by_bands = rows_are_apart(picture);
    // The conversion goes by groups of pixels, and leaves an incomplete one out where it has no room. With half a group
    // more, pixels of a column do not compete for the same lines of the cache.
    constexpr int group = 32;
    const int room = (width + group - 1) / group * group + group / 2;
    constexpr int rows_of_band = 64;
    band_.create(std::min(rows_of_band, height), room, CV_8UC4);
    if (!by_bands) {
        whole_.create(height, room, CV_8UC4);
        if (!make_colours(picture, 0, whole_, AV_PIX_FMT_RGBA)) {
            return {};
        }
    }
    cv::Mat result = storage(lies ? cv::Size(height, width) : cv::Size(width, height));
    for (int top = 0; top < height; top += rows_of_band) {
        const int rows = std::min(rows_of_band, height - top);
        cv::Mat band = band_.rowRange(0, rows);
        if (!by_bands) {
            cv::cvtColor(whole_.rowRange(top, top + rows), band, cv::COLOR_RGBA2BGRA);
        } else if (!make_colours(picture, top, band, AV_PIX_FMT_BGRA)) {
            return {};
        }
        put_turned(band.colRange(0, width), shown, result(place_of(top, rows, picture, shown.quarter_turns)));
    }
    return result;
}

}  // namespace tarn::host
