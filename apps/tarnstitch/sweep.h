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

/// What became of one frame. Directions, corners and images are in the library's orientation; corners are told from
/// the top left one on, sides from the top one on, clockwise.
struct frame_record {
    frame_stamp stamp;
    int place = 0;  ///< among the frames that the input has given, from 1; those not handed over count
    bool last = false;
    int code = 0;
    bool taken = false;      ///< whether the library registered or composed it
    bool key_frame = false;  ///< whether it was given to a worker
    int key_frames = 0;      ///< so far
    double milliseconds =
        0;  ///< spent in the library's call; the last frame's includes its wait for the workers

    int direction = 0;           ///< of the frame taken last, 0 to 4
    bool registered = false;     ///< whether it was compared with the frame before, so that it has moved
    float move_distance = 0.0f;  ///< px of a frame scaled to a width of 300; only if registered
    std::array<float, 4>
        angles{};  ///< degrees, of the frame measured last: its corners in the key frame before
    std::array<float, 4> scales{};  ///< its sides, as parts of a frame's own
    std::array<float, 4> beyond{};  ///< px by which the frame taken last reaches beyond the preview's sides

    cv::Mat preview;                   ///< as it is by now, CV_8UC3
    std::vector<cv::Point2f> outline;  ///< the corners of the frame taken last, in the preview; or none
};

/// Is told of a sweep as it goes, in the thread that runs it.
class sweep_observer {
public:
    sweep_observer() = default;
    virtual ~sweep_observer() = default;
    sweep_observer(const sweep_observer&) = delete;
    sweep_observer& operator=(const sweep_observer&) = delete;

    virtual void frame_done(const frame_record& frame) = 0;

    /// Called again and again while the sweep waits for workers.
    /// @param key_frames  that are on their way
    virtual void waiting(int key_frames) = 0;
};

struct sweep_settings {
    std::string working_directory;  ///< wholly the library's, with a trailing "/"
    std::string kept_files;         ///< a directory to which the working files go in the end; "" to lose them
    int direction_hint = 0;         ///< 0 to 4, in the frames as the library gets them
    int workers = 1;                ///< key frames that may be on their way at once
    std::vector<sweep_observer*> observers;
};

enum class sweep_outcome {
    complete,         ///< the panorama holds the whole sweep
    pipeline_failed,  ///< the high-resolution pipeline failed: the panorama ends where it did
    input_failed,     ///< the input broke off: the panorama ends there
    given_up,         ///< the user did not want it any more
};

struct sweep_result {
    sweep_outcome outcome = sweep_outcome::complete;
    std::string input_error;  ///< what was wrong with the input, if that was it

    int frames = 0;  ///< handed over
    int taken = 0;   ///< of these, those that the library registered or composed
    std::array<int, highest_code - lowest_code + 1> by_code{};  ///< frames by code, lowest code first

    int last_frame = 0;  ///< number of the frame handed over last

    int key_frames = 0;
    int broken_at_frame = 0;       ///< frame at which a failure of the pipeline showed; 0 if none did
    int failed_key_frame = 0;      ///< first key frame that could not be joined, from 1; 0 if all could
    int failed_frame = 0;          ///< the frame that this key frame was
    double failed_seconds = -1.0;  ///< its time; negative if it has none
    double fitted_seconds = -1.0;  ///< that of the last frame before it that fitted; negative if there is none
    /// That of the first frame handed over after the last one that fitted; the failed one's at the latest.
    double misfit_seconds = -1.0;

    cv::Mat preview;  ///< CV_8UC3, as the library's frames are turned
    cv::Mat
        panorama;  ///< CV_8UC3, as the library turns it; whole if complete, else as far as it got; may be empty
    std::vector<unsigned char> panorama_file;  ///< the same as the library's JPEG
};

/// Runs a whole sweep in the calling thread and lets go of the working directory at the end, however it ends. Ends
/// early when the user asks for it: with the next frame as the last one, or giving up.
sweep_result run_sweep(sweep_input& input, const sweep_settings& settings);

}  // namespace tarn::host
