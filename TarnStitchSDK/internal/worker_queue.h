// SPDX-License-Identifier: Apache-2.0
//
// Workers on hosts without threads. Everywhere else a worker has a detached thread of its own; here it waits in a queue
// until its host has a moment for it, between two frames, or until something waits for it.
//
// Workers run whole and in their order, so that each finds its turn come. One that does not - a frame before it has
// failed - waits for what can never be: it gives up at once, as after its time-out.
#pragma once

#include <functional>

namespace tarn {

/// From now on workers that are launched wait in the queue, or get threads again. Host's thread, between sweeps.
void queue_workers(bool queued);

/// Whether they do.
bool workers_are_queued();

/// Puts a worker at the end of the queue. @throws std::bad_alloc; the worker is gone then
void queue_worker(std::function<void()> worker);

/// Runs the worker that has waited longest, on the calling thread. @returns false if none waits, or the calling thread
/// is inside one
bool run_queued_worker();

/// Workers that wait.
int queued_workers();

/// Whether the calling thread is inside a worker from the queue: nothing that it waits for will come.
bool is_queued_worker();

/// What a wait for workers does between two looks: runs one from the queue, or sleeps.
void wait_a_moment(unsigned microseconds);

}  // namespace tarn
