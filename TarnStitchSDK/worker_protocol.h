// SPDX-License-Identifier: Apache-2.0
//
// How the host's thread and the workers share a task: launching, handing over, replacing a task, ending the
// process. This header is the library's own; a host needs nothing from it.
//
// The shared variables are those of tarn_stitcher.h. There are three means of meeting on them, and no other:
//
//   polls      big_stitch_status, big_frame_num, big_work_scale, SP and max_wait_seconds are read with
//              load_acquire and written with store_release, so that a thread that sees a value sees all that
//              was written before it.
//   hand-over  images, keypoints and strings are copied or replaced while the hand-over mutex is held (of the
//              images just the headers), and so is every change of the status and the ticket. It is never held
//              across a poll or a file, nor across image work but for one: a turn that ends writes its frame's
//              box into a panorama that only it and the task hold, which takes a few milliseconds.
//   directory  files of the working directory are written and deleted under tarn::working_directory_lock.
//
// Each task has a generation. Constructing a TarnStitcher raises it, and a worker carries the one that it was
// launched in. A worker of an older generation finds out at its next poll, between two stages of its work, or
// when it wants to hand anything over, and leaves without having touched the new task.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "vocabulary.h"

class TarnStitcher;

namespace tarn {

using task_generation = std::uint64_t;

/// Thrown inside a worker to unwind it when its task has been replaced or the process ends. Deliberately no
/// std::exception: a replaced task has not failed.
struct task_replaced {};

/// The generation of the current task.
task_generation current_generation();

/// Throws task_replaced unless `generation` is the current one. For polls and between stages.
void check_current(task_generation generation);

/// The hand-over mutex, locked, when `generation` is current; throws task_replaced otherwise. While the lock
/// lives the task cannot be replaced.
std::unique_lock<std::mutex> lock_task(task_generation generation);

/// The hand-over mutex, locked, for the host's thread, whose calls always belong to the current task.
std::unique_lock<std::mutex> lock_current_task();

/// Keeps the members of tarn_stitcher to one thread: held while a frame is registered or handed over, and while the
/// task is replaced. A host whose calls never overlap never waits for it; one whose calls do overlap, against the
/// rules, is answered in turn or as the interface says, and loses nothing. May be nested on one thread. Taken after
/// the working directory's lock and before the hand-over mutex, which also guards what the getters read.
std::unique_lock<std::recursive_mutex> lock_members();

/// The same, or a lock that is not held (false) when another thread is at the members.
std::unique_lock<std::recursive_mutex> try_to_lock_members();

/// Raises the generation, so that all workers in flight are of a replaced task, and returns the hand-over
/// mutex locked, for the constructor to reset what they shared.
std::unique_lock<std::mutex> begin_task();

/// Counts a worker as in flight from its launch until its thread has let go of everything.
///
/// The first one ever also arranges for the end of the process: before anything that workers use is destroyed,
/// they are told to stop, and those in flight are waited for, for two seconds at most. What a worker uses beyond
/// that time must be its own, or never destroyed.
class worker_in_flight {
public:
    /// @throws std::system_error when the process is ending
    worker_in_flight();
    ~worker_in_flight();
    worker_in_flight(worker_in_flight&& other) noexcept;
    worker_in_flight(const worker_in_flight&) = delete;
    worker_in_flight& operator=(const worker_in_flight&) = delete;
    worker_in_flight& operator=(worker_in_flight&&) = delete;

private:
    bool counted_;
};

/// Raises the ticket by one. The hand-over mutex must be held.
void raise_ticket();

/// Ends a turn, or a wait for one, as a failure: sets status 4, and notes the frame and the reason if it is the first
/// failure of the task. The hand-over mutex must be held. The ticket is the caller's to raise.
void mark_failed(int big_frame_index, reason why);

/// The frame noted by the first mark_failed of the task, 0 if none. The hand-over mutex must be held.
int first_failed_frame();

/// The reason noted with it, none if there is none. The hand-over mutex must be held.
reason first_failure();

/// TarnStitcher::get_big_image for a frame handed over in the given generation. Ends at the next poll, having written
/// nothing, when another thread replaces the task meanwhile.
bool finish_panorama(TarnStitcher& task, int last_big_frame_index, task_generation generation);

/// Number of workers, of any generation, that were launched and have not yet finished.
int workers_in_flight();

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

/// Calls worker_stage_hook if it is set.
void at_stage(worker_stage stage, int big_frame_index);

}  // namespace tarn
