// SPDX-License-Identifier: Apache-2.0
#include "working_frames.h"

#include <algorithm>
#include <cmath>
#include <new>

#include <opencv2/imgproc.hpp>

#include "refused_memory.h"

namespace tarn::finishing {

namespace {

constexpr double pixels_for_placing = 0.6e6;  // as many as OpenCV's own stitcher takes
constexpr double pixels_for_seams = 0.06e6;   // enough to go around people
constexpr int live_width = 300;               // px, of the live path's working copy

cv::Mat shrunk(const cv::Mat& image, double most_pixels)
{
    const double scale = std::sqrt(most_pixels / static_cast<double>(image.total()));
    if (scale >= 1.0) {
        return image.clone();
    }
    cv::Mat result;
    const cv::Size size(std::max(1, cvRound(image.cols * scale)), std::max(1, cvRound(image.rows * scale)));
    cv::resize(image, result, size, 0, 0, cv::INTER_AREA);
    return result;
}

bool is_usable(const cv::Mat& placement)
{
    return placement.rows == 3 && placement.cols == 3 && placement.type() == CV_64F && cv::checkRange(placement)
           && std::abs(cv::determinant(placement)) > 1e-12;
}

/// The placement, from centred coordinates instead of pixels of the live path's working copy.
cv::Matx33d centred_placement(const cv::Mat& placement, cv::Size full_size)
{
    const double scale = std::min(1.0, static_cast<double>(live_width) / full_size.width);
    // Both count from the centre of the first pixel, and a pixel of the copy covers 1 / scale of the full one.
    const double shift = (scale - 1.0) / 2.0;
    const cv::Matx33d copy_from_full(scale, 0, shift, 0, scale, shift, 0, 0, 1);
    return cv::Matx33d(placement) * copy_from_full * pixel_from_centred(full_size);
}

/// Brings the copies for placing to one size, where key frames differ: descriptions of features bear a change of size,
/// but not well.
void make_equally_large(std::vector<working_frame>& frames)
{
    const auto longer_side = [](const cv::Mat& image) { return std::max(image.cols, image.rows); };
    int least = longer_side(frames[0].gray);
    for (const working_frame& frame : frames) {
        least = std::min(least, longer_side(frame.gray));
    }
    constexpr int least_worth_it = 160;  // px
    least = std::max(least, least_worth_it);
    for (working_frame& frame : frames) {
        const double scale = static_cast<double>(least) / longer_side(frame.gray);
        if (scale < 0.99) {
            cv::resize(frame.gray, frame.gray, cv::Size(), scale, scale, cv::INTER_AREA);
        }
    }
}

void find_corners(working_frame& frame)
{
    constexpr int most = 300;
    constexpr double quality = 0.005;
    const double spacing = std::sqrt(static_cast<double>(frame.gray.total()) / most) * 0.6;
    cv::goodFeaturesToTrack(frame.gray, frame.corners, most, quality, spacing);
}

}  // namespace

cv::Mat picture_of(const key_frame& frame)
{
    cv::Mat image;
    try {
        if (frame.image) {
            image = frame.image();
        }
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const cv::Exception& error) {
        if (is_about_memory(error)) {
            throw;
        }
        image.release();
    } catch (const std::exception&) {
        image.release();
    }
    if (image.empty() || image.depth() != CV_8U || image.dims != 2) {
        throw unreadable_frame{frame.number};
    }
    cv::Mat colours;
    switch (image.channels()) {
    case 3:
        return image;
    case 1:
        cv::cvtColor(image, colours, cv::COLOR_GRAY2BGR);
        return colours;
    case 4:
        cv::cvtColor(image, colours, cv::COLOR_RGBA2BGR);
        return colours;
    default:
        throw unreadable_frame{frame.number};
    }
}

std::vector<working_frame> read_working_frames(const std::vector<key_frame>& key_frames, const progress_meter& progress)
{
    std::vector<working_frame> result(key_frames.size());
    for (std::size_t i = 0; i < key_frames.size(); ++i) {
        progress.at(stage::reading, 0.8 * static_cast<double>(i) / static_cast<double>(key_frames.size()));
        const cv::Mat picture = picture_of(key_frames[i]);
        working_frame& frame = result[i];
        frame.full_size = picture.size();
        const cv::Mat reduced = shrunk(picture, pixels_for_placing);
        cv::cvtColor(reduced, frame.gray, cv::COLOR_BGR2GRAY);
        frame.small = shrunk(reduced, pixels_for_seams);
        frame.has_placement = is_usable(key_frames[i].placement);
        if (frame.has_placement) {
            frame.placement = centred_placement(key_frames[i].placement, frame.full_size);
        }
    }
    make_equally_large(result);
    progress.for_each(stage::reading, 0.8, 1.0, result.size(), [&](std::size_t i) { find_corners(result[i]); });
    return result;
}

}  // namespace tarn::finishing
