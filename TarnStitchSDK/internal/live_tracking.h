// SPDX-License-Identifier: Apache-2.0
//
// Where the corners of the reference frame are found in a frame.
#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "deferred_work.h"

namespace tarn {

/// Where points are found in the next image, one place and one mark (0: lost) for each.
struct point_flow {
    std::vector<cv::Point2f> places;  ///< px
    std::vector<uchar> found;
};

/// Pyramidal optical flow (Lucas-Kanade, windows of 21 x 21, four levels): what cv::calcOpticalFlowPyrLK gives, in
/// pieces that may be done side by side. What is derived from an image is kept, to be used again when the same
/// image comes as the reference; so one flow at a time.
class frame_flow {
public:
    /// @param reference  CV_8UC1
    /// @param gray       the next image, of the same size
    /// @param points     in the reference, px; copied
    frame_flow(const cv::Mat& reference, const cv::Mat& gray, const std::vector<cv::Point2f>& points);
    frame_flow(const frame_flow&) = delete;
    frame_flow& operator=(const frame_flow&) = delete;
    ~frame_flow() = default;

    /// The work, as far as it can be done ahead: none for images or points that OpenCV may refuse. What it
    /// throws is thrown by result().
    std::vector<deferred_work>& pieces()
    {
        return pieces_;
    }

    /// Finishes the work. To be called once at most.
    /// @throws cv::Exception for images of other types, images of two sizes, or no points
    point_flow result();

private:
    using pyramid = std::vector<cv::Mat>;

    void add_piece(cv::Range range);
    std::pair<const pyramid&, const pyramid&> both_pyramids();

    cv::Mat reference_;
    cv::Mat gray_;
    std::vector<cv::Point2f> points_;
    point_flow flow_;
    std::vector<deferred_work> pieces_;
    std::mutex pyramid_mutex_;
    const pyramid* from_ = nullptr;  // of the reference; null until a piece needs it
    const pyramid* to_ = nullptr;
};

}  // namespace tarn
