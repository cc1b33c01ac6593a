// SPDX-License-Identifier: Apache-2.0
#include "worker_protocol.h"

#include <unistd.h>

#include "high_res_worker.h"
#include "tarn_stitcher.h"

namespace tarn {

namespace {

// The workers' own state. Constant-initialised or made at first use, so that the first task, which is constructed
// before main, finds it; and never destroyed, since a worker may outlive the bounded wait at the process's end.
std::atomic<task_generation> generation_now{0};
std::atomic<int> in_flight{0};
int first_failed = 0;

std::mutex& handover_mutex()
{
    static auto& mutex = *new std::mutex;
    return mutex;
}

// Destroyed at the end of the process before everything that was constructed when the first worker was launched,
// the shared variables among it.
struct end_of_process {
    ~end_of_process()
    {
        begin_task();                          // whoever is still in flight now belongs to a replaced task
        constexpr int longest_wait = 2000000;  // µs
        constexpr int poll = 1000;             // µs
        for (int waited = 0; in_flight.load() > 0 && waited < longest_wait; waited += poll) {
            usleep(poll);
        }
    }
};

}  // namespace

std::atomic<void (*)(worker_stage, int)> worker_stage_hook{nullptr};

void at_stage(worker_stage stage, int big_frame_index)
{
    if (const auto hook = worker_stage_hook.load()) {
        hook(stage, big_frame_index);
    }
}

task_generation current_generation()
{
    return generation_now.load();
}

void check_current(task_generation generation)
{
    if (generation != generation_now.load()) {
        throw task_replaced{};
    }
}

std::unique_lock<std::mutex> lock_task(task_generation generation)
{
    std::unique_lock<std::mutex> lock(handover_mutex());
    check_current(generation);
    return lock;
}

std::unique_lock<std::mutex> lock_current_task()
{
    return std::unique_lock<std::mutex>(handover_mutex());
}

std::unique_lock<std::mutex> begin_task()
{
    std::unique_lock<std::mutex> lock(handover_mutex());
    ++generation_now;
    first_failed = 0;
    return lock;
}

void raise_ticket()
{
    store_release(big_frame_num, big_frame_num + 1);
}

void mark_failed(int big_frame_index)
{
    if (first_failed == 0) {
        first_failed = big_frame_index;
    }
    store_release(big_stitch_status, pipeline_failed);
}

int first_failed_frame()
{
    return first_failed;
}

worker_in_flight::worker_in_flight() : counted_(true)
{
    static const end_of_process stop_workers_first;
    ++in_flight;
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
