// SPDX-License-Identifier: Apache-2.0
//
// Workers in flight: their number, and the end of the process while there are some. What they do is none of its
// business.
#pragma once

namespace tarn {

/// Counts a worker as in flight from its launch until its thread has let go of everything.
///
/// The first one ever also arranges for the end of the process: before anything that workers use is destroyed,
/// they are told to stop, and those in flight are waited for, for two seconds at most. What a worker uses beyond
/// that time must be its own, or never destroyed.
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

}  // namespace tarn
