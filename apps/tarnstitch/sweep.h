// SPDX-License-Identifier: Apache-2.0
//
// One sweep through the library: every frame handed over at a pace that the workers can follow, every answer
// counted, and what there is at the end collected, whether the sweep succeeded or broke.
#pragma once

#include <array>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_feed.h"

namespace tarn::host {

/// The library's codes for a frame, -1 to 6.
constexpr int lowest_code = -1;
constexpr int highest_code = 6;

struct sweep_settings {
    std::string working_directory;  ///< wholly the library's, with a trailing "/"
    int direction_hint = 0;         ///< 0 to 4, in the frames as the library gets them
    int workers = 1;                ///< key frames that may be on their way at once
};

enum class sweep_outcome {
    complete,         ///< the panorama holds the whole sweep
    pipeline_failed,  ///< the high-resolution pipeline failed: the panorama ends where it did
    input_failed,     ///< the input broke off: the panorama ends there
};

struct sweep_result {
    sweep_outcome outcome = sweep_outcome::complete;
    std::string input_error;  ///< what was wrong with the input, if that was it

    int frames = 0;  ///< handed over
    int taken = 0;   ///< of these, those that the library registered or composed
    std::array<int, highest_code - lowest_code + 1> by_code{};  ///< frames by code, lowest code first

    int key_frames = 0;
    int broken_at_frame = 0;   ///< frame at which a failure of the pipeline showed; 0 if none did
    int failed_key_frame = 0;  ///< first key frame that could not be joined, from 1; 0 if all could
    int failed_frame = 0;      ///< the frame that this key frame was

    cv::Mat preview;                           ///< CV_8UC3, as the library's frames are turned
    std::vector<unsigned char> panorama_file;  ///< JPEG; whole if complete, else as far as it got; may be empty
    cv::Size panorama_size;
};

/// Runs a whole sweep in the calling thread and lets go of the working directory at the end, however it ends.
sweep_result run_sweep(frame_feed& feed, const sweep_settings& settings);

}  // namespace tarn::host
