// SPDX-License-Identifier: Apache-2.0
//
// What the host in C is fed with in its tests: the frames of a video, or the first ones, as a stream of PPMs.
// usage: c_interface_media VIDEO [COUNT] >FRAMES
#include <iostream>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

int main(int argc, char* argv[])
{
    cv::VideoCapture video(argc > 1 ? argv[1] : "");
    if (!video.isOpened()) {
        std::cerr << "usage: c_interface_media VIDEO [COUNT]\n";
        return 2;
    }
    int left = argc > 2 ? std::stoi(argv[2]) : -1;
    cv::Mat frame;
    while (left-- != 0 && video.read(frame)) {
        // Laid on its side, as a sensor delivers it.
        cv::rotate(frame, frame, cv::ROTATE_90_COUNTERCLOCKWISE);
        cv::cvtColor(frame, frame, cv::COLOR_BGR2RGB);
        std::cout << "P6\n" << frame.cols << ' ' << frame.rows << "\n255\n";
        std::cout.write(frame.ptr<char>(), static_cast<std::streamsize>(frame.total() * frame.elemSize()));
    }
    return std::cout.flush() ? 0 : 1;
}
