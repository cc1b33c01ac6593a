// SPDX-License-Identifier: Apache-2.0
//
// One sweep through the library: the input's frames handed over, every answer counted, and what there is at the end
// collected, whether the sweep succeeded or broke.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_feed.h"
#include "tarn_sweep.h"

namespace tarn::host {

/// A frame that was handed over, and what the library said. Directions, corners and images are in the library's
/// orientation.
struct frame_record {
    frame_stamp stamp;
    int place = 0;  ///< among the frames that the input has given, from 1; those not handed over count
    frame_answer answer;
    preview_view preview;             ///< as it is by now
    const cv::Mat* pixels = nullptr;  ///< what was handed over: B,G,R, as the library gets it; never written again
    const tarn::key_frame* key_frame = nullptr;  ///< what the frame was given to a worker as; none if it was not
    int piece = 0;                               ///< of the sweep, from 1; 0 where nobody tells pieces apart
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

    /// Called before the library is begun anew behind a failure of its pipeline.
    virtual void piece_begins()
    {
    }
};

/// Is given what a picture of the whole sweep can be made of later, in the thread that runs the sweep.
class frame_collector {
public:
    frame_collector() = default;
    virtual ~frame_collector() = default;
    frame_collector(const frame_collector&) = delete;
    frame_collector& operator=(const frame_collector&) = delete;

    /// A key frame, which the library works on: its pixels are not to be written.
    virtual void key_frame(const tarn::key_frame& frame, const frame_stamp& stamp) = 0;

    /// A frame that was taken, key frames included, which come to key_frame() before.
    virtual void frame_taken(const feed_frame& frame, const frame_answer& answer) = 0;
};

/// Where the live path has placed a key frame.
struct key_frame_place {
    cv::Size copy;  ///< of the frame, px
    cv::Matx33d
        plane_from_frame;  ///< from a pixel of its copy into the plane of the sweep's first frame, scaled likewise
};

/// To this width, px, the library shrinks a frame that it lays into the panorama; as its frames are turned.
constexpr int greatest_frame_width = 1000;

/// So many px, the library gives up a panorama that would have to be wider or higher.
constexpr int greatest_panorama_side = 10000;

struct sweep_settings {
    std::string kept_files;  ///< a directory to which the working files go in the end; "" to lose them
    direction_code direction_hint = direction_undecided;  ///< in the frames as the library gets them
    int workers = 1;                                      ///< key frames that may be on their way at once
    /// Overlap with the last key frame below which a frame becomes one (sweep_options::key_frame_overlap).
    float key_frame_overlap = usual_key_frame_overlap;
    std::vector<sweep_observer*> observers;
    frame_collector* collector = nullptr;            ///< or none
    std::function<void(const std::string&)> on_log;  ///< is given the library's lines; or none
};

enum class sweep_outcome {
    complete,         ///< the panorama holds the whole sweep
    pipeline_failed,  ///< the high-resolution pipeline failed: the panorama ends where it did
    input_failed,     ///< the input broke off: the panorama ends there
    given_up,         ///< the user did not want it any more
};

/// Frames by the codes that they were answered with.
class code_counts {
public:
    int& operator[](answer_code code)
    {
        return counts_.at(static_cast<std::size_t>(code - lowest_code));
    }

    int operator[](answer_code code) const
    {
        return counts_.at(static_cast<std::size_t>(code - lowest_code));
    }

private:
    std::array<int, highest_code - lowest_code + 1> counts_{};
};

struct sweep_result {
    sweep_outcome outcome = sweep_outcome::complete;
    std::string input_error;  ///< what was wrong with the input, if that was it

    int frames = 0;  ///< handed over
    int taken = 0;   ///< of these, those that the library registered or composed
    code_counts by_code;

    int last_frame = 0;  ///< number of the frame handed over last
    /// With pipeline_failed the frame at which that showed, and of which nothing has become; the input goes on behind
    /// it.
    std::optional<feed_frame> refused;

    int key_frames = 0;
    std::vector<key_frame_place> places;  ///< of those key frames that were placed, as the library's frames are turned
    std::vector<composed_key_frame> composed;  ///< the key frames in the panorama, as they lie there
    cv::Size frame;  ///< size of a frame as the library lays it into the panorama: shrunk to 1000 px and turned
    int broken_at_frame = 0;       ///< frame at which a failure of the pipeline showed; 0 if none did
    reason why = reason::none;     ///< why it failed, or the key frame could not be joined
    int failed_key_frame = 0;      ///< first key frame that could not be joined, from 1; 0 if all could
    int failed_frame = 0;          ///< the frame that this key frame was
    double failed_seconds = -1.0;  ///< its time; negative if it has none
    double fitted_seconds = -1.0;  ///< that of the last frame before it that fitted; negative if there is none
    /// That of the first frame handed over after the last one that fitted; the failed one's at the latest.
    double misfit_seconds = -1.0;

    std::vector<worker_turn> turns;  ///< what the workers took their time for, by key frames

    cv::Mat preview;   ///< CV_8UC3, as the library's frames are turned
    cv::Mat panorama;  ///< CV_8UC3, as the library turns it; whole if complete, else as far as it got; may be empty
    std::vector<unsigned char> panorama_file;  ///< the same as the library's JPEG
};

/// Runs a whole sweep in the calling thread; the library's working files have gone when it returns. Ends early when the
/// user asks for it: with the next frame as the last one, or giving up.
/// @throws host_error (output_failed) when there is no place for working files
sweep_result run_sweep(sweep_input& input, const sweep_settings& settings);

}  // namespace tarn::host
