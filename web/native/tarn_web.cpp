// SPDX-License-Identifier: Apache-2.0
//
// What JavaScript calls beside the C interface: structures are described to it instead of being written down twice,
// frames of an upright camera are laid on their side and pictures are turned back, and what a screen wants of a
// picture is made of it here, where the pixels are.
//
// Upright: the library takes frames as a sensor delivers them, lying on their side, while a browser delivers them the
// right way up. With `upright` set, frames are turned counter-clockwise on their way in and previews clockwise on their
// way out. The panorama is upright then by itself.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "inner_rectangle.h"
#include "internal/worker_queue.h"
#include "tarn_c.h"

namespace {

constexpr int jpeg_quality = 95;

cv::Mat turned_frame;  // storage that is used again for frame after frame
tarn_image fed_frame;  // the frame fed last, which lies there or in the caller's storage

int channels_of(int format)
{
    switch (format) {
    case TARN_FORMAT_RGBA:
    case TARN_FORMAT_BGRA:
        return 4;
    case TARN_FORMAT_BGR:
        return 3;
    case TARN_FORMAT_GRAY:
        return 1;
    default:
        return 0;
    }
}

// The pixels of a picture or panorama as an image of OpenCV's, not copied.
cv::Mat image_of(const tarn_image& view)
{
    // The image is only read; OpenCV has no other way to say so.
    return {view.height, view.width, CV_8UC(channels_of(view.format)), const_cast<void*>(view.pixels), view.row_stride};
}

// A frame as the library takes it; its pixels are null if memory is short.
tarn_image lying_frame(const void* pixels, int width, int height, int row_stride, int format, bool upright)
{
    tarn_image frame;
    TARN_INIT(frame);
    frame.pixels = pixels;
    frame.width = width;
    frame.height = height;
    frame.row_stride = static_cast<size_t>(row_stride);
    frame.format = format;
    if (!upright) {
        return frame;
    }
    try {
        cv::rotate(image_of(frame), turned_frame, cv::ROTATE_90_COUNTERCLOCKWISE);
        frame.pixels = turned_frame.data;
        frame.width = turned_frame.cols;
        frame.height = turned_frame.rows;
        frame.row_stride = turned_frame.step;
    } catch (const std::exception&) {
        frame.pixels = nullptr;
    }
    return frame;
}

bool view_panorama(tarn_panorama* panorama, tarn_image& view)
{
    TARN_INIT(view);
    return tarn_panorama_view(panorama, &view) == TARN_OK;
}

}  // namespace

extern "C" {

/// Before anything else.
/// @param threads  of OpenCV's loops; 0 in the build without threads, whose workers wait to be run
void tarn_web_start(int threads)
{
    cv::setNumThreads(threads);
    tarn::queue_workers(threads == 0);
}

/// Sizes of the structures and places of their members, as JSON: {"tarn_answer": {"size": 400, "code": 4, …}, …}.
/// Static storage.
const char* tarn_web_layout()
{
    static const std::string text = [] {
        std::string json;
        const auto open = [&json](const char* structure, std::size_t size) {
            json += (json.empty() ? "{\"" : "},\"") + std::string(structure) + "\":{\"size\":" + std::to_string(size);
        };
        const auto member = [&json](const char* name, std::size_t offset) {
            json += ",\"" + std::string(name) + "\":" + std::to_string(offset);
        };
#define TARN_OPEN(structure) open(#structure, sizeof(structure))
#define TARN_MEMBER(structure, name) member(#name, offsetof(structure, name))
        TARN_OPEN(tarn_image);
        TARN_MEMBER(tarn_image, pixels);
        TARN_MEMBER(tarn_image, width);
        TARN_MEMBER(tarn_image, height);
        TARN_MEMBER(tarn_image, row_stride);
        TARN_MEMBER(tarn_image, format);
        TARN_OPEN(tarn_answer);
        TARN_MEMBER(tarn_answer, code);
        TARN_MEMBER(tarn_answer, why);
        TARN_MEMBER(tarn_answer, taken);
        TARN_MEMBER(tarn_answer, key_frame);
        TARN_MEMBER(tarn_answer, key_frames);
        TARN_MEMBER(tarn_answer, registered);
        TARN_MEMBER(tarn_answer, direction);
        TARN_MEMBER(tarn_answer, move_distance);
        TARN_MEMBER(tarn_answer, corners_found);
        TARN_MEMBER(tarn_answer, corners_tracked);
        TARN_MEMBER(tarn_answer, inliers);
        TARN_MEMBER(tarn_answer, overlap);
        TARN_MEMBER(tarn_answer, placed);
        TARN_MEMBER(tarn_answer, outline);
        TARN_MEMBER(tarn_answer, angles);
        TARN_MEMBER(tarn_answer, scales);
        TARN_MEMBER(tarn_answer, milliseconds);
        TARN_MEMBER(tarn_answer, detail);
        TARN_OPEN(tarn_status);
        TARN_MEMBER(tarn_status, key_frames);
        TARN_MEMBER(tarn_status, under_way);
        TARN_MEMBER(tarn_status, pipeline);
        TARN_MEMBER(tarn_status, first_failed_key_frame);
        TARN_MEMBER(tarn_status, why);
        TARN_OPEN(tarn_preview_info);
        TARN_MEMBER(tarn_preview_info, has_outline);
        TARN_MEMBER(tarn_preview_info, frozen);
        TARN_MEMBER(tarn_preview_info, outline);
        TARN_OPEN(tarn_panorama_info);
        TARN_MEMBER(tarn_panorama_info, extent);
        TARN_MEMBER(tarn_panorama_info, why);
        TARN_MEMBER(tarn_panorama_info, first_failed_key_frame);
        TARN_MEMBER(tarn_panorama_info, key_frames);
#undef TARN_MEMBER
#undef TARN_OPEN
        return json + "}}";
    }();
    return text.c_str();
}

/// tarn_sweep_begin with all defaults.
tarn_result tarn_web_begin(tarn_sweep** sweep)
{
    return tarn_sweep_begin(nullptr, sweep);
}

/// tarn_sweep_feed.
/// @param upright  the frame is the right way up, not lying on its side
tarn_result tarn_web_feed(tarn_sweep* sweep, const void* pixels, int width, int height, int row_stride, int format,
                          int upright, int hint, tarn_answer* answer)
{
    fed_frame = lying_frame(pixels, width, height, row_stride, format, upright != 0);
    if (fed_frame.pixels == nullptr) {
        return TARN_ERROR_NO_MEMORY;
    }
    TARN_INIT(*answer);
    return tarn_sweep_feed(sweep, &fed_frame, hint, answer);
}

/// tarn_sweep_preview, with a view of the pixels; the picture is null, and the view empty, before the first frame.
tarn_result tarn_web_preview(tarn_sweep* sweep, tarn_picture** picture, tarn_preview_info* info, tarn_image* view)
{
    TARN_INIT(*info);
    TARN_INIT(*view);
    const tarn_result result = tarn_sweep_preview(sweep, picture, info);
    if (result != TARN_OK || *picture == nullptr) {
        return result;
    }
    return tarn_picture_view(*picture, view);
}

/// Writes a picture as R,G,B,A without padding, of its width times its height times 4 bytes. Empty pixels are
/// transparent.
/// @param upright  turned clockwise: width and height change places
/// @returns 0 if memory is short
int tarn_web_rgba(const tarn_image* picture, int upright, void* rgba)
{
    try {
        const cv::Mat image = image_of(*picture);
        cv::Mat turned = image;
        if (upright != 0) {
            cv::rotate(image, turned, cv::ROTATE_90_CLOCKWISE);
        }
        cv::Mat result(turned.rows, turned.cols, CV_8UC4, rgba);
        cv::cvtColor(turned, result, cv::COLOR_BGR2RGBA);
        for (int y = 0; y < result.rows; ++y) {
            auto* pixel = result.ptr<std::uint32_t>(y);
            for (int x = 0; x < result.cols; ++x) {
                pixel[x] = (pixel[x] & 0xffffffU) != 0 ? pixel[x] : 0;
            }
        }
        return 1;
    } catch (const std::exception&) {
        return 0;
    }
}

/// tarn_sweep_finish.
/// @param wait       0: what there is by now is the result
/// @param with_last  the frame fed last becomes part of the panorama though it is no key frame; it must still lie where
///                   it lay
tarn_result tarn_web_finish(tarn_sweep* sweep, int wait, int with_last, tarn_panorama** panorama)
{
    tarn_finish_options options;
    TARN_INIT(options);
    if (wait == 0) {
        options.on_progress = [](void*, int, int) { return 0; };
    }
    if (with_last != 0) {
        options.last_frame = &fed_frame;
    }
    return tarn_sweep_finish(sweep, &options, panorama);
}

/// The rectangle inside the ragged border: x, y, width, height; all 0 if there is none or memory is short.
/// @param panorama  null: of the picture
void tarn_web_inner_rectangle(tarn_panorama* panorama, const tarn_image* picture, int* rectangle)
{
    cv::Rect found;
    try {
        tarn_image view;
        if (panorama != nullptr && view_panorama(panorama, view)) {
            found = inner_rectangle(image_of(view));
        } else if (picture != nullptr) {
            found = inner_rectangle(image_of(*picture));
        }
    } catch (const std::exception&) {
        found = {};
    }
    rectangle[0] = found.x;
    rectangle[1] = found.y;
    rectangle[2] = found.width;
    rectangle[3] = found.height;
}

/// A part of the panorama as a JPEG; all of it, the very bytes of tarn_panorama_jpeg, if the rectangle is null.
/// @param bytes  lies with the panorama, or in storage that the next call uses again
/// @param size   width and height of the whole panorama
tarn_result tarn_web_jpeg(tarn_panorama* panorama, const int* rectangle, const unsigned char** bytes,
                          std::size_t* count, int* size)
{
    static std::vector<unsigned char> part;
    tarn_image view;
    TARN_INIT(view);
    const tarn_result result = tarn_panorama_view(panorama, &view);
    if (result != TARN_OK) {
        return result;
    }
    size[0] = view.width;
    size[1] = view.height;
    if (rectangle == nullptr) {
        return tarn_panorama_jpeg(panorama, bytes, count);
    }
    try {
        const cv::Rect wanted(rectangle[0], rectangle[1], rectangle[2], rectangle[3]);
        cv::imencode(".jpg", image_of(view)(wanted), part, {cv::IMWRITE_JPEG_QUALITY, jpeg_quality});
    } catch (const std::exception&) {
        return TARN_ERROR_NO_MEMORY;
    }
    *bytes = part.data();
    *count = part.size();
    return TARN_OK;
}

/// Runs the worker that has waited longest, in the build without threads. @returns whether there was one
int tarn_web_run_worker()
{
    return tarn::run_queued_worker() ? 1 : 0;
}

/// Workers that wait to be run, in the build without threads.
int tarn_web_workers_queued()
{
    return tarn::queued_workers();
}

}  // extern "C"
