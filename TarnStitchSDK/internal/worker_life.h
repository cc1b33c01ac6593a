// SPDX-License-Identifier: Apache-2.0
//
// A worker's life (high_res_worker.h tells it as numbered states), and where a test may step into it.
#pragma once

#include <atomic>
#include <vector>

#include <opencv2/core.hpp>

#include "shared_state.h"

namespace tarn {

/// What a worker is given.
struct key_frame_task {
    task_generation generation;
    cv::Mat frame;  ///< its pixels are shared and only read
    std::vector<float> angles;
    std::vector<float> scales;
    int direction;
    int big_frame_index;
};

/// Lives a worker's life on the calling thread, until its turn is over or its task has been replaced. Nothing derived
/// from std::exception leaves it.
void live_as_worker(key_frame_task task);

/// The same on a detached thread, as a worker of the current task. Host's thread.
/// @throws std::system_error when no thread can be started; nothing is left behind then
void launch_worker(const cv::Mat& frame, const std::vector<float>& angles, const std::vector<float>& scales,
                   int direction, int big_frame_index);

/// Lets OpenCV construct now the static objects that it makes when they are first needed, where that would be on a
/// worker's thread: the means of its parallel loops, the table of file formats, the types of the matcher's parameters.
/// For worker_in_flight and call_inside. Takes about two milliseconds, once.
void construct_what_workers_use();

/// Points in a worker's life at which a test may step in.
enum class worker_stage {
    launching,         ///< on the host's thread, before the thread is created
    started,           ///< on the worker's thread, before anything else
    frame_prepared,    ///< scaled, turned and projected
    frame_described,   ///< keypoints and descriptors found
    file_written,      ///< the frame file is written and test_image_path set
    polling_for_base,  ///< each poll of the spherical switch
    polling_for_idle,  ///< each poll of the wait for status other than 2
    polling_for_turn,  ///< each poll of the wait for the ticket
    turn_taken,        ///< status 2 is set
    registered,        ///< the homography into the panorama is found
    composed,          ///< the frame's box is merged with the panorama, not yet handed over
};

/// Called with the stage and the worker's big_frame_index, on the thread named there, when it is not null. For
/// tests: it may block, and it may throw what the code at that stage may throw.
extern std::atomic<void (*)(worker_stage stage, int big_frame_index)> worker_stage_hook;

}  // namespace tarn
