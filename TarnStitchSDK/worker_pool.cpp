// SPDX-License-Identifier: Apache-2.0
#include "internal/worker_pool.h"

#include <atomic>
#include <system_error>
#include <unistd.h>

#include "internal/shared_state.h"

namespace tarn {

namespace {

// Constant-initialised, so that it is there before any static object is constructed.
std::atomic<int> in_flight{0};
std::atomic<bool> process_ends{false};

// Destroyed at the end of the process before everything that was constructed when the first worker was launched,
// the shared variables among it. Static objects that are constructed after it are destroyed before it, with
// workers still at work, so there must be none that workers use.
struct end_of_process {
    explicit end_of_process(void (*construct_what_workers_use)())
    {
        construct_what_workers_use();
    }

    ~end_of_process()
    {
        process_ends = true;                   // nobody is launched any more,
        begin_task();                          // and who is in flight belongs to a replaced task from now on
        constexpr int longest_wait = 2000000;  // µs
        constexpr int poll = 1000;             // µs
        for (int waited = 0; in_flight.load() > 0 && waited < longest_wait; waited += poll) {
            usleep(poll);
        }
    }

    end_of_process(const end_of_process&) = delete;
    end_of_process& operator=(const end_of_process&) = delete;
};

}  // namespace

worker_in_flight::worker_in_flight(void (*construct_what_workers_use)()) : counted_(true)
{
    static const end_of_process stop_workers_first(construct_what_workers_use);
    ++in_flight;
    if (process_ends) {
        --in_flight;
        throw std::system_error(std::make_error_code(std::errc::operation_canceled));
    }
}

worker_in_flight::worker_in_flight(worker_in_flight&& other) noexcept : counted_(other.counted_)
{
    other.counted_ = false;
}

worker_in_flight::~worker_in_flight()
{
    if (counted_) {
        --in_flight;
    }
}

int workers_in_flight()
{
    return in_flight.load();
}

}  // namespace tarn
