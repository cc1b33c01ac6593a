// SPDX-License-Identifier: Apache-2.0
#include "finishing_sweeps.h"

#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

namespace tarn::test {

std::vector<finishing::key_frame> key_frames_of(const rendered_sweep& sweep, int step, double error)
{
    std::vector<finishing::key_frame> result;
    for (int i = 0; i < sweep.length(); i += step) {
        const auto index = static_cast<std::size_t>(i);
        const double off = error * (i / step % 2 == 0 ? 1.0 : -1.0);
        const cv::Matx33d place = translation(off, -off / 2) * sweep.plane_from_frame[0].inv()
                                  * sweep.plane_from_frame[index] * frame_from_working_copy(sweep.frame_size);
        const cv::Mat picture = sweep.frame(i);
        result.push_back({i, cv::Mat(place), [picture]() -> cv::Mat { return cv::Mat(picture); }});
    }
    return result;
}

panorama_room::panorama_room() : sphere(textured_plane({2400, 1200}, 7))
{
    // The two ends meet, and differ from each other no more than neighbours do.
    cv::Mat end = sphere.colRange(2200, 2400).clone();
    const cv::Mat begin = sphere.colRange(0, 200);
    cv::Mat mirrored;
    cv::flip(begin, mirrored, 1);
    for (int x = 0; x < end.cols; ++x) {
        const double part = static_cast<double>(x) / end.cols;
        cv::Mat column = end.col(x);
        cv::addWeighted(end.col(x), 1.0 - part, mirrored.col(x), part, 0.0, column);
    }
    sphere = sphere.clone();
    end.copyTo(sphere.colRange(2200, 2400));
}

cv::Matx33d panorama_room::rotation(double heading, double tilt)
{
    cv::Matx33d turned;
    cv::Matx33d tilted;
    cv::Rodrigues(cv::Vec3d(0, heading, 0), turned);
    cv::Rodrigues(cv::Vec3d(-tilt, 0, 0), tilted);
    return turned * tilted;
}

cv::Mat panorama_room::frame(const cv::Matx33d& world_from_camera) const
{
    cv::Mat map(frame_size, CV_32FC2);
    for (int y = 0; y < frame_size.height; ++y) {
        for (int x = 0; x < frame_size.width; ++x) {
            const cv::Vec3d ray = world_from_camera
                                  * cv::Vec3d((x - (frame_size.width - 1) / 2.0) / focal,
                                              (y - (frame_size.height - 1) / 2.0) / focal, 1.0);
            const double heading = std::atan2(ray[0], ray[2]);
            const double height = std::atan2(ray[1], std::hypot(ray[0], ray[2]));
            map.at<cv::Vec2f>(y, x) = {static_cast<float>((heading / (2 * CV_PI) + 0.5) * sphere.cols),
                                       static_cast<float>((height / CV_PI + 0.5) * sphere.rows)};
        }
    }
    cv::Mat result;
    cv::remap(sphere, result, map, cv::noArray(), cv::INTER_LINEAR, cv::BORDER_WRAP);
    return result;
}

std::vector<finishing::key_frame> panorama_room::sweep(int count, double degrees, double tilt) const
{
    std::vector<finishing::key_frame> result;
    for (int i = 0; i < count; ++i) {
        const cv::Mat picture = frame(rotation((i - (count - 1) / 2.0) * degrees * CV_PI / 180, tilt));
        result.push_back({i, cv::Mat(), [picture]() -> cv::Mat { return cv::Mat(picture); }});
    }
    return result;
}

double mean_error(const finishing::finishing_result& result, const rendered_sweep& sweep,
                  const std::vector<finishing::key_frame>& key_frames)
{
    std::vector<cv::Point2f> found;
    std::vector<cv::Point2f> truth;
    const cv::Size size = sweep.frame_size;
    for (std::size_t i = 0; i < key_frames.size(); ++i) {
        const auto number = static_cast<std::size_t>(key_frames[i].number);
        for (const cv::Point2d part : {cv::Point2d(0.1, 0.1), {0.9, 0.1}, {0.5, 0.5}, {0.1, 0.9}, {0.9, 0.9}}) {
            const cv::Point2d pixel(part.x * size.width, part.y * size.height);
            const cv::Vec3d place =
                sweep.plane_from_frame[0].inv() * sweep.plane_from_frame[number] * cv::Vec3d(pixel.x, pixel.y, 1.0);
            truth.emplace_back(cv::Point2d(place[0] / place[2], place[1] / place[2]));
            found.emplace_back(result.picture_from_frame(static_cast<int>(i), pixel, size));
        }
    }
    const cv::Mat best = cv::estimateAffinePartial2D(found, truth, cv::noArray(), cv::LMEDS);
    if (best.empty()) {
        ADD_FAILURE() << "no similarity";
        return 1e9;
    }
    std::vector<cv::Point2f> moved;
    cv::transform(found, moved, best);
    double sum = 0.0;
    for (std::size_t k = 0; k < moved.size(); ++k) {
        sum += cv::norm(moved[k] - truth[k]);
    }
    return sum / static_cast<double>(moved.size());
}

}  // namespace tarn::test
