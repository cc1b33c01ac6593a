// SPDX-License-Identifier: Apache-2.0
//
// Who is at work in the library - workers in flight, host's threads with a frame - and the end of the process while
// somebody is. What they do is none of its business.
#pragma once

namespace tarn {

/// Counts a worker as in flight from its launch until its thread has let go of everything.
///
/// The first one ever also arranges for the end of the process: before anything that workers use is destroyed,
/// they are told to stop, and those in flight are waited for, for two seconds at most. What a worker uses beyond
/// that time must be its own, or never destroyed. And for forks: in a process that is forked off nobody is at work, and
/// nobody is admitted any more.
class worker_in_flight {
public:
    /// @param construct_what_workers_use  shall construct the static objects that workers would construct at first
    ///                                    need, so that they are destroyed after the workers have been waited for.
    ///                                    Called by the first one ever
    /// @throws std::system_error when the process is ending
    explicit worker_in_flight(void (*construct_what_workers_use)());
    ~worker_in_flight();
    worker_in_flight(worker_in_flight&& other) noexcept;
    worker_in_flight(const worker_in_flight&) = delete;
    worker_in_flight& operator=(const worker_in_flight&) = delete;
    worker_in_flight& operator=(worker_in_flight&&) = delete;

private:
    bool counted_;
};

/// Number of workers, of any generation, that were launched and have not yet finished.
int workers_in_flight();

/// A frame of a host's thread, inside while it lives. The first one ever arranges for the end of the process as the
/// first worker does. That end waits for frames as it does for workers, but for one of the thread that ends the
/// process: no waiting would bring it out.
class frame_inside {
public:
    /// @param construct_what_workers_use  as for worker_in_flight; frames use the same
    explicit frame_inside(void (*construct_what_workers_use)());
    ~frame_inside();
    frame_inside(const frame_inside&) = delete;
    frame_inside& operator=(const frame_inside&) = delete;

    /// False once the process is ending: what a frame uses may be gone.
    bool is_admitted() const
    {
        return admitted_;
    }

private:
    bool admitted_;
};

}  // namespace tarn
