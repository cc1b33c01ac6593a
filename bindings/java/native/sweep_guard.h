// SPDX-License-Identifier: Apache-2.0
//
// The library's entry points for a host with several threads.
//
// The library belongs to one thread at a time. A virtual machine gives no such promise: a user interface cancels
// a sweep while the camera's thread is inside a frame. The functions below may be called from any thread at any
// time. They let one thread at a time into the library and answer the others as the library would:
//
//   a frame         while another call is inside, or waits to begin or end a sweep: the code for "busy", 0, at
//                   once; -1 if the pipeline has failed
//   the last frame  is never answered "busy" by the library: it waits for the call inside, then has its turn
//   a new sweep     waits for the call inside; if that one waits for the workers, it is told to give up first
//   a look          never waits for the library: it sees what there was after the last call that has returned
//
// Nothing here knows about Java.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include <opencv2/core.hpp>

namespace tarn::binding {

/// Names a sweep for as long as the process lives. Never 0.
using sweep_id = std::int64_t;

/// Thrown when a call names a sweep that is not the current one.
struct sweep_is_over : std::logic_error {
    sweep_is_over();
};

/// What a sweep has to show after a call.
struct sweep_view {
    cv::Mat preview;             ///< CV_8UC3, B,G,R; empty before the first frame; its pixels never change
    std::string panorama;        ///< path of the finished panorama; "" until there is one
    int pending_key_frames = 0;  ///< handed to workers whose turn is not over
};

/// Starts a sweep in a directory with a trailing "/" that exists, or with "" one without files; ends the one
/// before.
/// @returns its name; 0 when the library could not enter the directory, and the old sweep is still the current one
sweep_id begin_sweep(const std::string& directory);

/// Ends a sweep and removes its working directory; does nothing if it is not the current one.
void end_sweep(sweep_id sweep);

/// Registers one frame and returns the library's code for it (tarn_stitch_jni.h).
/// @param rgba  CV_8UC4, R,G,B,A; may be a view of foreign memory: only read, and not kept
/// @throws sweep_is_over
int register_frame(sweep_id sweep, const cv::Mat& rgba, int direction, bool is_last);

/// @throws sweep_is_over
sweep_view look_at_sweep(sweep_id sweep);

}  // namespace tarn::binding
