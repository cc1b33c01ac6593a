// SPDX-License-Identifier: Apache-2.0
#include "internal/live_tracking.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace tarn {

namespace {

constexpr int max_level = 3;
constexpr int max_count = 30;
constexpr double epsilon = 0.01;
constexpr double min_eigenvalue = 0.0001;
constexpr int window_side = 21;  // px

cv::Size window()
{
    return {window_side, window_side};
}

cv::TermCriteria criteria()
{
    return {cv::TermCriteria::COUNT + cv::TermCriteria::EPS, max_count, epsilon};
}

// An image at several scales, each followed by its derivatives, all with a border around them.
using pyramid = std::vector<cv::Mat>;

bool is_made_of(const pyramid& levels, const cv::Mat& gray)
{
    if (levels.empty() || levels[0].size() != gray.size()) {
        return false;
    }
    const auto width = static_cast<size_t>(gray.cols);
    for (int y = 0; y < gray.rows; ++y) {
        if (std::memcmp(levels[0].ptr(y), gray.ptr(y), width) != 0) {
            return false;
        }
    }
    return true;
}

// Reuses the storage of the levels. They are empty after an exception: the library leaves half-made ones, which
// would be taken for those of their first level's image.
void build(pyramid& levels, const cv::Mat& gray)
{
    pyramid made = std::exchange(levels, {});
    cv::buildOpticalFlowPyramid(gray, made, window(), max_level, true, cv::BORDER_REFLECT_101, cv::BORDER_CONSTANT,
                                false);
    levels = std::move(made);
}

// The pyramids of the last two images. Most often one of them is of the reference: it was the frame before.
// Looked up by the pixels themselves, so that nobody needs to tell which frames were accepted or replaced.
class pyramid_pair {
public:
    // The pyramids of the reference and of the image after it.
    std::pair<const pyramid&, const pyramid&> of(const cv::Mat& reference, const cv::Mat& gray)
    {
        if (is_made_of(kept_[1], reference)) {
            std::swap(kept_[0], kept_[1]);
        } else if (!is_made_of(kept_[0], reference)) {
            build(kept_[0], reference);
        }
        build(kept_[1], gray);
        return {kept_[0], kept_[1]};
    }

private:
    std::array<pyramid, 2> kept_;
};

// Never destroyed: frames may come as long as the process lives.
pyramid_pair& pyramids()
{
    static auto& pair = *new pyramid_pair;
    return pair;
}

// A view may be given its border from the image around it, which a pyramid looked up by pixels does not know.
bool is_plain_gray(const cv::Mat& image)
{
    return image.dims == 2 && image.type() == CV_8UC1 && !image.empty() && !image.isSubmatrix();
}

// The library loses a point whose window has left the image altogether only where it measures errors as well.
bool has_left(const cv::Point2f& place, const cv::Size& image)
{
    constexpr float half = static_cast<float>(window_side - 1) * 0.5f;
    constexpr auto side = static_cast<float>(window_side);
    // As floats: a place may be beyond all ints, or no number at all, which is lost on every processor.
    const float left = std::floor(place.x - half);
    const float top = std::floor(place.y - half);
    return !(left >= -side && left < static_cast<float>(image.width) && top >= -side
             && top < static_cast<float>(image.height));
}

}  // namespace

frame_flow::frame_flow(const cv::Mat& reference, const cv::Mat& gray, const std::vector<cv::Point2f>& points)
    : reference_(reference), gray_(gray), points_(points)
{
    if (points.empty() || !is_plain_gray(reference) || !is_plain_gray(gray) || reference.size() != gray.size()) {
        return;  // the library's own business, and only when it is asked for
    }
    const int count = static_cast<int>(points_.size());
    flow_.places.resize(points_.size());
    flow_.found.resize(points_.size());
    constexpr int points_per_piece = 20;
    for (int begin = 0; begin < count; begin += points_per_piece) {
        add_piece(cv::Range(begin, std::min(begin + points_per_piece, count)));
    }
}

// Made by the first piece that comes here, while others wait, so that other work is not held up; one thread makes
// so small ones in less time than two.
std::pair<const frame_flow::pyramid&, const frame_flow::pyramid&> frame_flow::both_pyramids()
{
    const std::lock_guard<std::mutex> lock(pyramid_mutex_);
    if (from_ == nullptr) {
        const auto [from, to] = pyramids().of(reference_, gray_);
        from_ = &from;
        to_ = &to;
    }
    return {*from_, *to_};
}

// Points are tracked one by one, so it does not matter which of them share a call.
void frame_flow::add_piece(cv::Range range)
{
    pieces_.emplace_back([this, range] {
        const auto [from, to] = both_pyramids();
        const auto begin = static_cast<size_t>(range.start);
        const cv::Mat points(range.size(), 1, CV_32FC2, &points_[begin]);
        cv::Mat places(range.size(), 1, CV_32FC2, &flow_.places[begin]);
        cv::Mat found(range.size(), 1, CV_8UC1, &flow_.found[begin]);
        cv::calcOpticalFlowPyrLK(from, to, points, places, found, cv::noArray(), window(), max_level, criteria(), 0,
                                 min_eigenvalue);
        const cv::Size image = to[0].size();
        for (size_t i = begin; i < static_cast<size_t>(range.end); ++i) {
            if (has_left(flow_.places[i], image)) {
                flow_.found[i] = 0;
            }
        }
    });
}

point_flow frame_flow::result()
{
    if (pieces_.empty()) {
        std::vector<float> errors;
        cv::calcOpticalFlowPyrLK(reference_, gray_, points_, flow_.places, flow_.found, errors, window(), max_level,
                                 criteria(), 0, min_eigenvalue);
    }
    for (deferred_work& piece : pieces_) {
        piece.finish();
    }
    return std::move(flow_);
}

}  // namespace tarn
