// SPDX-License-Identifier: Apache-2.0
#include "whole_task.h"

#include <algorithm>
#include <cstdlib>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace tarn::bench {

bool wrote_the_panorama(const sweep& sweep, const panorama& made)
{
    constexpr double greatest_loss = 10.0;  // of a byte, on average, by JPEG
    const cv::Mat written = cv::imread(sweep.directory() + "big_stitch.jpg");
    return made.extent == panorama_extent::whole && !written.empty() && written.size() == made.image.size()
           && cv::norm(written, made.image, cv::NORM_L1) < greatest_loss * 3.0 * static_cast<double>(written.total());
}

bool shows_the_plane(const cv::Mat& panorama, const tarn::test::rendered_sweep& sweep,
                     const std::vector<int>& key_frames)
{
    const cv::Size prepared = tarn::test::prepared_size(sweep.frame_size);
    const cv::Matx33d frame_from_prepared = tarn::test::frame_from_prepared(sweep.frame_size);
    const cv::Matx33d first = sweep.plane_from_frame.front() * frame_from_prepared;
    std::vector<cv::Matx33d> places;
    std::vector<cv::Point2f> corners;
    for (const int number : key_frames) {
        places.push_back(first.inv() * sweep.plane_from_frame[static_cast<size_t>(number)] * frame_from_prepared);
        for (const cv::Point2d& corner : tarn::test::mapped_corners(places.back(), prepared)) {
            corners.emplace_back(corner);
        }
    }
    const cv::Size size = cv::boundingRect(corners).size();
    // What the registration may be off by, and the pixel that each growth of the canvas may lose.
    const double off = 0.01 * prepared.width + static_cast<double>(key_frames.size());
    if (std::abs(panorama.cols - size.width) > off || std::abs(panorama.rows - size.height) > off) {
        return false;
    }
    // It differs from the plane, seen from there, by less than a view of the plane that is off by so much.
    const cv::Matx33d plane_from_panorama = first * tarn::test::canvas_shift(places, prepared).inv();
    const auto difference_at = [&](double x, double y) {
        cv::Mat scene;
        cv::warpPerspective(sweep.plane, scene, plane_from_panorama * tarn::test::translation(x, y), panorama.size(),
                            cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
        return cv::norm(scene, panorama, cv::NORM_L1);
    };
    return difference_at(0, 0) < std::min(difference_at(off, 0), difference_at(0, off));
}

bool same_pixels(const cv::Mat& a, const cv::Mat& b)
{
    return !a.empty() && a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

}  // namespace tarn::bench
