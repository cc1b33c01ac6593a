// SPDX-License-Identifier: Apache-2.0
//
// Who is at work in the library - workers in flight, host's threads with a call - and the end of the process while
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

/// A call of a host's thread that uses the task, inside while it lives. The first one ever that may arranges for the end
/// of the process as the first worker does. That end waits for calls as it does for workers, but for one of the thread
/// that ends the process: no waiting would bring it out.
class call_inside {
public:
    /// @param construct_what_workers_use  as for worker_in_flight; frames use the same. Null for a call that is not to
    ///                                    take the time to arrange for the end
    explicit call_inside(void (*construct_what_workers_use)());
    ~call_inside();
    call_inside(const call_inside&) = delete;
    call_inside& operator=(const call_inside&) = delete;

    /// False once the process is ending, when what a call uses may be gone; in one that was forked off; and where
    /// another copy of the library has the task.
    bool is_admitted() const
    {
        return admitted_;
    }

    /// As is_admitted, but true also in a process that was forked off: for calls that only look.
    bool may_look() const
    {
        return may_look_;
    }

private:
    bool may_look_;
    bool admitted_;
};

/// Number of calls that were admitted, or may look, and are still inside.
int admitted_calls();

}  // namespace tarn
