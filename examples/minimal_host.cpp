// SPDX-License-Identifier: Apache-2.0
//
// A complete host: stitches the video named by its first argument into the JPEG named by its second.
#include <iostream>
#include <stdexcept>

#include <opencv2/videoio.hpp>

#include "TarnStitchSDK/tarn_sweep.h"

int main(int argc, char* argv[])
{
    try {
        cv::VideoCapture video(argc == 3 ? argv[1] : "");
        if (!video.isOpened())
            throw std::invalid_argument(argc == 3 ? "the video cannot be opened"
                                                  : "usage: minimal_host VIDEO PANORAMA.jpg");
        tarn::sweep_options options;
        options.most_under_way = 2;  // a camera is slow enough; a file has to wait for the workers
        tarn::sweep sweep = tarn::sweep::begin(options);
        cv::Mat frame, lying;
        while (video.read(frame)) {
            cv::rotate(frame, lying, cv::ROTATE_90_COUNTERCLOCKWISE);  // the panorama is rotated back
            const tarn::frame_answer answer = sweep.feed(tarn::view_of(lying));
            if (answer.code != tarn::code_normal)
                std::cerr << tarn::name_of(answer.code) << ": " << tarn::advice_for(answer.code) << '\n';
        }
        const tarn::frame_view last_frame = tarn::view_of(lying);
        sweep.finish({&last_frame}).save(argv[2]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
