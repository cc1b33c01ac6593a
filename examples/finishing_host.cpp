// SPDX-License-Identifier: Apache-2.0
//
// The finished picture of a video: the sweep hands out its key frames, which the finishing library joins.
#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "finishing/tarn_finishing.h"
#include "TarnStitchSDK/tarn_sweep.h"

// Points of the upright picture in that which lies on its side, each in its copy of at most 300 pixels' width.
cv::Matx33d lying_from_upright(cv::Size upright, cv::Size lying)
{
    const double from = std::min(1.0, 300.0 / upright.width);
    const double to = std::min(1.0, 300.0 / lying.width);
    return {0, to / from, 0, -to / from, 0, to * (upright.width - 1), 0, 0, 1};
}

bool finish(const std::string& path, const std::string& picture)
{
    std::vector<tarn::finishing::key_frame> key_frames;
    tarn::sweep_options options;
    options.most_under_way = 2;  // a file has to wait for the workers
    options.on_key_frame = [&](const tarn::key_frame& key) {
        cv::Mat upright;
        cv::rotate(key.image, upright, cv::ROTATE_90_CLOCKWISE);
        cv::Mat placement;  // none for a frame that the live path has not placed
        if (key.placed) {
            placement = cv::Mat(key.plane_from_frame * lying_from_upright(upright.size(), key.image.size()));
        }
        key_frames.push_back({key.number, placement, [upright] { return upright; }});
    };
    cv::VideoCapture video(path);
    if (!video.isOpened()) {
        std::cerr << path << " cannot be read\n";
        return false;
    }
    tarn::sweep sweep = tarn::sweep::begin(options);
    cv::Mat frame, lying;
    while (video.read(frame)) {
        cv::rotate(frame, lying, cv::ROTATE_90_COUNTERCLOCKWISE);
        sweep.feed(tarn::view_of(lying));
    }
    const tarn::frame_view last_frame = tarn::view_of(lying);
    sweep.finish({&last_frame});  // its key frame, too
    const auto result = tarn::finishing::finish(key_frames, {});
    if (result.outcome != tarn::finishing::status::ok) {
        std::cerr << result.explanation << '\n';
        return false;
    }
    return cv::imwrite(picture, result.picture);
}

int main(int argc, char* argv[])
{
    if (argc != 3) {
        std::cerr << "usage: finishing_host VIDEO PICTURE.jpg\n";
        return 2;
    }
    try {
        return finish(argv[1], argv[2]) ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
