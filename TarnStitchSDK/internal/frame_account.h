// SPDX-License-Identifier: Apache-2.0
//
// What the live path tells of a frame beside the two ints of its answer.
#pragma once

#include <exception>

#include <opencv2/core.hpp>

#include "frame_answer.h"

class TarnStitcher;

namespace tarn {

/// Of the frame that this thread handed to ofcheck_stitch last; complete when that call has returned, and as far as it
/// got when it threw. The time spent is not in it.
struct frame_account {
    frame_answer answer;
    cv::Matx33d plane_from_frame = cv::Matx33d::eye();  ///< see key_frame; of a frame that is placed
    cv::Size working_size;
};

/// The calling thread's own. ofcheck_stitch begins by making it anew, as does videoStitch. It may be used as long as
/// the process lives, in the destructors of static objects too.
frame_account& account_of_this_thread();

/// What an exception stands for: no_memory, no_thread, or otherwise unusable_frame.
reason reason_of(const std::exception& error);

/// Notes what the task's members say when a call ends, whatever has become of the frame: key frames, direction, shape
/// and outline of the frame taken last. The members' lock must be held.
void note_members(frame_answer& answer, const TarnStitcher& task) noexcept;

/// Completes the account of a frame that ended in an exception.
void note_failure(frame_account& account, const std::exception& error) noexcept;

}  // namespace tarn
