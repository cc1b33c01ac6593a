// SPDX-License-Identifier: Apache-2.0
//
// A complete host: stitches the video named by its first argument into the JPEG named by its second.
#include <iostream>

#include <opencv2/videoio.hpp>

#include "TarnStitchSDK/tarn_sweep.h"

int main(int argc, char* argv[])
{
    try {
        cv::VideoCapture video(argc == 3 ? argv[1] : "");
        tarn::sweep_options options;
        options.most_under_way = 2;  // a camera is slow enough; a file has to wait for the workers
        tarn::sweep sweep = tarn::sweep::begin(options);
        cv::Mat frame, turned;
        while (video.read(frame)) {
            cv::rotate(frame, turned, cv::ROTATE_90_COUNTERCLOCKWISE);  // the panorama is turned back
            const tarn::frame_answer answer = sweep.feed(tarn::view_of(turned));
            if (answer.code != tarn::code_normal)
                std::cerr << tarn::name_of(answer.code) << ": " << tarn::advice_for(answer.code) << '\n';
        }
        const tarn::frame_view last_frame = tarn::view_of(turned);
        sweep.finish({&last_frame}).save(argv[2]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "usage: minimal_host VIDEO PANORAMA.jpg\n" << error.what() << '\n';
        return 1;
    }
}
