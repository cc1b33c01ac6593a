// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the C interface compare with and feed: the frames of a video as a stream of PPMs, and the panorama
// that the session makes of the same frames.
// usage: c_interface_media frames VIDEO >FRAMES
//        c_interface_media stitch VIDEO PANORAMA.jpg
#include <iostream>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "tarn_sweep.h"

namespace {

/// Laid on its side, as a sensor delivers it.
bool read_frame(cv::VideoCapture& video, cv::Mat& frame)
{
    cv::Mat upright;
    if (!video.read(upright)) {
        return false;
    }
    cv::rotate(upright, frame, cv::ROTATE_90_COUNTERCLOCKWISE);
    return true;
}

void write_frames(cv::VideoCapture& video)
{
    cv::Mat frame;
    while (read_frame(video, frame)) {
        cv::cvtColor(frame, frame, cv::COLOR_BGR2RGB);
        std::cout << "P6\n" << frame.cols << ' ' << frame.rows << "\n255\n";
        std::cout.write(frame.ptr<char>(), static_cast<std::streamsize>(frame.total() * frame.elemSize()));
    }
}

void stitch(cv::VideoCapture& video, const std::string& path)
{
    tarn::sweep_options options;
    options.most_under_way = 2;
    tarn::sweep sweep = tarn::sweep::begin(options);
    cv::Mat frame;
    while (read_frame(video, frame)) {
        sweep.feed(tarn::view_of(frame));
    }
    sweep.finish().save(path);
}

}  // namespace

int main(int argc, char* argv[])
{
    const std::string mode = argc > 1 ? argv[1] : "";
    cv::VideoCapture video(argc > 2 ? argv[2] : "");
    if (!video.isOpened() || (mode == "stitch" && argc != 4)) {
        std::cerr << "usage: c_interface_media frames VIDEO | stitch VIDEO PANORAMA.jpg\n";
        return 2;
    }
    if (mode == "stitch") {
        stitch(video, argv[3]);
    } else {
        write_frames(video);
    }
    return std::cout.flush() ? 0 : 1;
}
