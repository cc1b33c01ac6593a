// SPDX-License-Identifier: Apache-2.0
#include "internal/worker_pool.h"

#include <atomic>
#include <pthread.h>
#include <system_error>
#include <unistd.h>

#include "internal/forked_process.h"
#include "internal/library_copy.h"
#include "internal/shared_state.h"

namespace tarn {

namespace {

// Constant-initialised, so that it is there before any static object is constructed.
std::atomic<int> in_flight{0};
std::atomic<int> calls_inside{0};
std::atomic<bool> process_ends{false};      // or was forked off: nobody is admitted any more
std::atomic<bool> variables_may_go{false};  // the process ends: nobody may even look
thread_local int calls_of_this_thread = 0;

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
        if (is_forked_process()) {
            bound_the_end_of_a_forked_process();
            return;
        }
        variables_may_go = true;
        process_ends = true;                   // nobody is launched any more,
        begin_task();                          // and who is in flight belongs to a replaced task from now on
        constexpr int longest_wait = 2000000;  // µs
        constexpr int poll = 1000;             // µs
        for (int waited = 0; others_are_at_work() && waited < longest_wait; waited += poll) {
            usleep(poll);
        }
    }

    end_of_process(const end_of_process&) = delete;
    end_of_process& operator=(const end_of_process&) = delete;

private:
    static bool others_are_at_work()
    {
        return in_flight.load() > 0 || calls_inside.load() > calls_of_this_thread;
    }
};

// Destroyed at the end of the process after what was constructed for workers.
struct end_of_the_bound {
    end_of_the_bound() = default;

    ~end_of_the_bound()
    {
        if (is_forked_process()) {
            the_library_has_ended();
        }
    }

    end_of_the_bound(const end_of_the_bound&) = delete;
    end_of_the_bound& operator=(const end_of_the_bound&) = delete;
};

// In a process that was forked off: its end is that of one without a library.
void admit_nobody()
{
    process_ends = true;
    in_flight = 0;
    calls_inside = calls_of_this_thread;
}

void arrange_for_the_end(void (*construct_what_workers_use)())
{
    // First, so that a process which is forked off meanwhile does not wait for what its parent's thread was constructing.
    static const int arranged = pthread_atfork(nullptr, nullptr, admit_nobody);
    static_cast<void>(arranged);
    be_ready_for_forks();
    static const end_of_the_bound comes_last;
    static const end_of_process stop_workers_first(construct_what_workers_use);
}

}  // namespace

worker_in_flight::worker_in_flight(void (*construct_what_workers_use)()) : counted_(true)
{
    arrange_for_the_end(construct_what_workers_use);
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

call_inside::call_inside(void (*construct_what_workers_use)()) : may_look_(false), admitted_(false)
{
    if (variables_may_go || !has_the_task()) {
        return;
    }
    if (construct_what_workers_use != nullptr && !process_ends) {
        arrange_for_the_end(construct_what_workers_use);
    }
    // Counted first: whoever ends the process says so first and counts then.
    ++calls_inside;
    may_look_ = !variables_may_go;
    admitted_ = may_look_ && !process_ends;
    if (may_look_) {
        ++calls_of_this_thread;
    } else {
        --calls_inside;
    }
}

call_inside::~call_inside()
{
    if (may_look_) {
        --calls_of_this_thread;
        --calls_inside;
    }
}

int admitted_calls()
{
    return calls_inside.load();
}

}  // namespace tarn
