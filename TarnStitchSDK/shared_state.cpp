// SPDX-License-Identifier: Apache-2.0
#include "internal/shared_state.h"

#include <atomic>
#include <exception>
#include <thread>

#include "module_globals.h"
#include "shared_access.h"

namespace tarn {

namespace {

// Constant-initialised or made at first use, so that the first task, which is constructed before main, finds it; and
// never destroyed, since a worker may outlive the bounded wait at the process's end.
std::atomic<task_generation> generation_now{0};
int first_failed = 0;
reason first_reason = reason::none;

std::vector<composed_key_frame>& composed_ones()
{
    static auto& all = *new std::vector<composed_key_frame>;
    return all;
}

struct all_locks {
    std::recursive_mutex directory;
    std::recursive_mutex members;
    std::mutex handover;
    std::mutex turns;
};

// A pointer, so that a process that was forked off can leave behind those that nobody will open.
std::atomic<all_locks*>& place_of_locks()
{
    static std::atomic<all_locks*> all{new all_locks};
    return all;
}

all_locks& locks()
{
    return *place_of_locks();
}

// Polled: a wait with a time-out is one that not every tool that watches threads knows.
recursive_lock lock_until(std::recursive_mutex& mutex, std::chrono::steady_clock::time_point deadline)
{
    constexpr auto poll = std::chrono::milliseconds(5);
    recursive_lock lock(mutex, std::try_to_lock);
    while (!lock && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(poll);
        lock.try_lock();
    }
    return lock;
}

}  // namespace

void make_locks_anew()
{
    place_of_locks() = new all_locks;
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

recursive_lock lock_directory()
{
    return recursive_lock(locks().directory);
}

recursive_lock lock_directory_until(std::chrono::steady_clock::time_point deadline)
{
    return lock_until(locks().directory, deadline);
}

recursive_lock lock_members()
{
    return recursive_lock(locks().members);
}

recursive_lock try_to_lock_members()
{
    return {locks().members, std::try_to_lock};
}

recursive_lock lock_members_until(std::chrono::steady_clock::time_point deadline)
{
    return lock_until(locks().members, deadline);
}

std::unique_lock<std::mutex> lock_handover()
{
    return std::unique_lock<std::mutex>(locks().handover);
}

std::unique_lock<std::mutex> lock_turns()
{
    return std::unique_lock<std::mutex>(locks().turns);
}

std::unique_lock<std::mutex> lock_handover(task_generation generation)
{
    std::unique_lock<std::mutex> lock = lock_handover();
    check_current(generation);
    return lock;
}

std::unique_lock<std::mutex> begin_task()
{
    std::unique_lock<std::mutex> lock = lock_handover();
    ++generation_now;
    first_failed = 0;
    first_reason = reason::none;
    composed_ones().clear();
    return lock;
}

void abandon_task()
{
    const auto lock = begin_task();
    store_release(big_stitch_status, pipeline_failed);
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

void note_composed(const composed_key_frame& composed, cv::Point moved_by) noexcept
{
    const cv::Matx33d moved(1.0, 0.0, moved_by.x, 0.0, 1.0, moved_by.y, 0.0, 0.0, 1.0);
    for (composed_key_frame& earlier : composed_ones()) {
        earlier.panorama_from_frame = moved * earlier.panorama_from_frame;
    }
    try {
        composed_ones().push_back(composed);
    } catch (const std::exception&) {
        return;  // the panorama is whole without it
    }
}

std::vector<composed_key_frame> composed_key_frames()
{
    return composed_ones();
}

}  // namespace tarn
