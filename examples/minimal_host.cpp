// SPDX-License-Identifier: Apache-2.0
//
// A complete host: stitches the video named by its first argument into the JPEG named by its second.
#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>

#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "TarnStitchSDK/tarn_stitch_jni.h"

namespace fs = std::filesystem;

int main(int argc, char* argv[])
{
    cv::VideoCapture video(argc == 3 ? argv[1] : "");
    cv::Mat frame, next, rgba;
    if (!video.read(next)) {
        std::cerr << "usage: minimal_host VIDEO PANORAMA.jpg\n";
        return 2;
    }
    // A directory of the library's own: it deletes what lies there. The "/" at the end matters.
    const std::string directory = std::string(argv[2]) + ".work/";
    fs::create_directory(directory);
    resetStitch(directory.c_str());
    do {
        frame = next.clone();
        const bool is_last = !video.read(next);
        cv::rotate(frame, frame, cv::ROTATE_90_COUNTERCLOCKWISE);  // the panorama is turned back
        cv::cvtColor(frame, rgba, cv::COLOR_BGR2RGBA);
        const int code = videoStitch(rgba, 0, is_last ? 1 : 0)[0];
        if (code != 1)
            std::cerr << "code " << code << '\n';
        // A camera is slow enough; a file has to wait for the workers.
        while (tarn_stitcher.big_frame_index - tarn::look_at_pipeline().turns_over > 2
               && tarn::look_at_pipeline().status != tarn::pipeline_failed)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    } while (!next.empty());
    const std::string panorama = getCurrentPanoramaShow();  // "" if there is none
    if (!panorama.empty())
        fs::copy_file(panorama, argv[2], fs::copy_options::overwrite_existing);
    resetStitch("");  // removes the directory
    return panorama.empty() ? 1 : 0;
}
