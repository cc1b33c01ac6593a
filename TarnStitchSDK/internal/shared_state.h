// SPDX-License-Identifier: Apache-2.0
//
// The state that the host's threads and the workers share (module_globals.h), and every lock of the library.
//
// Plain variables that are polled - big_stitch_status, big_frame_num, big_work_scale, SP and max_wait_seconds - are
// read with load_acquire and written with store_release (shared_access.h), so that a thread that sees a value sees all
// that was written before it. Everything else is guarded by a lock. In their order: a thread that holds one may take
// those below it, and none above it.
//
//   lock         where                guards                                               held
//   replacement  session_gate.cpp     who begins or ends a sweep: one thread at a time     as long as that takes
//   gate         session_gate.cpp     who is inside a sweep: one call at a time. No mutex  as long as the call
//                                     but a turn, which is waited for
//   directory    lock_directory       the files of the working directory: one is written,  for a file; while a task
//                                     or the directory is emptied                          is replaced
//   members      lock_members         the members of tarn_stitcher, but for those below    while a frame is registered
//                                                                                          or handed over; while a
//                                                                                          task is replaced
//   hand-over    lock_handover        images, keypoints and strings of module_globals.h    for header copies, and for
//                                     (of the images just the headers), last_stitch_image  one frame's box that is
//                                     and big_stitch_image_path; every change of the       written into a panorama
//                                     status and the ticket; first_failed_frame            that nobody else holds
//   Nothing is locked while one of these is held:
//   doorkeeper   session_gate.cpp     the gate's own variables                             for moments
//   view         session.h            what a sweep shows of the last call that returned    for header copies
//   spare        spare_frames.cpp     the images that are kept to be used again            while one is made
//   turns        lock_turns           when workers came to which point of their work       for moments
//   pyramids     live_tracking.h      of one frame's flow: who makes what it derives       while they are made
//   queue        worker_queue.cpp     workers that wait for a thread of the host's         for moments
//   encoding     c_boundary.h         a panorama's JPEG, which is made when it is asked for   while it is made
//   handles      handle_table.h       what handles of the C interface stand for            for moments
//
// Each task has a generation. Constructing a TarnStitcher raises it, and a worker carries the one that it was
// launched in. A worker of an older generation finds out at its next poll, between two stages of its work, or
// when it wants to hand anything over, and leaves without having touched the new task.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <vector>

#include <opencv2/core.hpp>

#include "high_res_worker.h"
#include "vocabulary.h"

namespace tarn {

using task_generation = std::uint64_t;

/// Thrown inside a worker to unwind it when its task has been replaced or the process ends. Deliberately no
/// std::exception: a replaced task has not failed.
struct task_replaced {};

/// The generation of the current task.
task_generation current_generation();

/// Throws task_replaced unless `generation` is the current one. For polls and between stages.
void check_current(task_generation generation);

using recursive_lock = std::unique_lock<std::recursive_mutex>;

/// While it lives, no other thread writes a file into the working directory or empties it. Workers take it for one file
/// at a time; whoever starts a task takes it from the removal of the old directory until the new one is empty, so that
/// a worker of the replaced task cannot leave a file behind. May be nested on one thread.
recursive_lock lock_directory();

/// The same, or a lock that is not held (false) when it cannot be had by then: whoever has it may be writing to a disk
/// that does not answer.
recursive_lock lock_directory_until(std::chrono::steady_clock::time_point deadline);

/// Keeps the members of tarn_stitcher to one thread. A host whose calls never overlap never waits for it; one whose
/// calls do overlap, against the rules, is answered in turn or as the interface says, and loses nothing. May be nested
/// on one thread.
recursive_lock lock_members();

/// The same, or a lock that is not held (false) when another thread is at the members.
recursive_lock try_to_lock_members();

/// The same, or not held (false) when it cannot be had by then.
recursive_lock lock_members_until(std::chrono::steady_clock::time_point deadline);

/// For the host's threads, whose calls always belong to the current task.
std::unique_lock<std::mutex> lock_handover();

/// The same for a worker, when `generation` is current; throws task_replaced otherwise. While the lock lives the task
/// cannot be replaced.
std::unique_lock<std::mutex> lock_handover(task_generation generation);

/// For a process that was just forked off: leaves all locks behind, with whoever held them, and takes new ones.
void make_locks_anew();

/// For turn_account.cpp alone. Any thread, with or without the others.
std::unique_lock<std::mutex> lock_turns();

/// Raises the generation, so that all workers in flight are of a replaced task, and returns the hand-over lock, for
/// the constructor to reset what they shared.
std::unique_lock<std::mutex> begin_task();

/// Ends the task in place though no other one can take its place: its workers leave, and every frame is answered -1.
void abandon_task();

// What follows is called with the hand-over lock held.

/// Raises the ticket by one.
void raise_ticket();

/// Ends a turn, or a wait for one, as a failure: sets status 4, and notes the frame and the reason if it is the first
/// failure of the task. The ticket is the caller's to raise.
void mark_failed(int big_frame_index, reason why);

/// The frame noted by the first mark_failed of the task, 0 if none.
int first_failed_frame();

/// The reason noted with it, none if there is none.
reason first_failure();

/// Notes where the frame of a turn that has ended well lies in the panorama. Without memory nothing is noted. The hand-over
/// lock must be held.
/// @param moved_by  where the frame has moved what was in the panorama before, px: the others lie there now
void note_composed(const composed_key_frame& composed, cv::Point moved_by) noexcept;

/// All that has been noted in the task, in the order of the turns.
std::vector<composed_key_frame> composed_key_frames();

}  // namespace tarn
