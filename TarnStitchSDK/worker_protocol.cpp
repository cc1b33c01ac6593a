// SPDX-License-Identifier: Apache-2.0
#include "worker_protocol.h"

#include <system_error>
#include <unistd.h>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "descriptor_matching.h"
#include "high_res_worker.h"
#include "tarn_stitcher.h"

namespace tarn {

namespace {

// The workers' own state. Constant-initialised or made at first use, so that the first task, which is constructed
// before main, finds it; and never destroyed, since a worker may outlive the bounded wait at the process's end.
std::atomic<task_generation> generation_now{0};
std::atomic<int> in_flight{0};
std::atomic<bool> process_ends{false};
int first_failed = 0;
reason first_reason = reason::none;

std::mutex& handover_mutex()
{
    static auto& mutex = *new std::mutex;
    return mutex;
}

std::recursive_mutex& members_mutex()
{
    static auto& mutex = *new std::recursive_mutex;
    return mutex;
}

// The body of a parallel loop that does nothing. No lambda: its wrapper would be read on the image library's
// threads, whose meeting with this one ThreadSanitizer cannot see.
struct empty_loop : cv::ParallelLoopBody {
    void operator()(const cv::Range&) const override
    {
    }
};

// Lets the image library construct now the static objects that it makes when they are first needed, where that
// would be on a worker's thread: the means of its parallel loops, the table of file formats, the types of the
// matcher's parameters. Takes about two milliseconds, once.
void construct_what_workers_use()
{
    cv::parallel_for_(cv::Range(0, 2), empty_loop());
    cv::haveImageWriter(".jpg");
    const cv::Mat two_descriptors = cv::Mat::zeros(2, 1, CV_32F);
    std::vector<cv::DMatch> none;
    single_match(two_descriptors, two_descriptors, none, 0.0f);
}

// Destroyed at the end of the process before everything that was constructed when the first worker was launched,
// the shared variables among it. Static objects that are constructed after it are destroyed before it, with
// workers still at work, so there must be none that workers use.
struct end_of_process {
    end_of_process()
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

std::unique_lock<std::recursive_mutex> lock_members()
{
    return std::unique_lock<std::recursive_mutex>(members_mutex());
}

std::unique_lock<std::recursive_mutex> try_to_lock_members()
{
    return {members_mutex(), std::try_to_lock};
}

std::unique_lock<std::mutex> begin_task()
{
    std::unique_lock<std::mutex> lock(handover_mutex());
    ++generation_now;
    first_failed = 0;
    first_reason = reason::none;
    return lock;
}

void raise_ticket()
{
    store_release(big_frame_num, big_frame_num + 1);
}

void mark_failed(int big_frame_index, reason why)
{
    if (first_failed == 0) {
        first_failed = big_frame_index;
        first_reason = why;
    }
    store_release(big_stitch_status, pipeline_failed);
}

int first_failed_frame()
{
    return first_failed;
}

reason first_failure()
{
    return first_reason;
}

worker_in_flight::worker_in_flight() : counted_(true)
{
    static const end_of_process stop_workers_first;
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
