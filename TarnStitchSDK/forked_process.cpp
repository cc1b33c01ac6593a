// SPDX-License-Identifier: Apache-2.0
#include "internal/forked_process.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <pthread.h>
#include <utility>

#include "internal/shared_state.h"

namespace tarn {

namespace {

std::atomic<bool> is_forked{false};

// What the thread that forks holds meanwhile, so that the child's copy of what they guard is whole. Guarded by the
// hand-over lock themselves.
struct held_by_the_fork {
    recursive_lock members;
    std::unique_lock<std::mutex> handover;
};

held_by_the_fork& held()
{
    static auto& one = *new held_by_the_fork;
    return one;
}

void before_the_fork()
{
    // A frame takes milliseconds, and the members are whole before and after it. Whoever else has them for longer waits
    // for a disk.
    constexpr auto longest_frame = std::chrono::seconds(10);
    recursive_lock members = lock_members_until(std::chrono::steady_clock::now() + longest_frame);
    std::unique_lock<std::mutex> handover = lock_handover();
    held().members = std::move(members);
    held().handover = std::move(handover);
}

void in_the_parent()
{
    const recursive_lock members = std::move(held().members);
    const std::unique_lock<std::mutex> handover = std::move(held().handover);
}

void in_the_child()
{
    is_forked = true;
    held().members.release();
    held().handover.release();
    make_locks_anew();
    abandon_task();
}

}  // namespace

void be_ready_for_forks()
{
    static const int arranged = pthread_atfork(before_the_fork, in_the_parent, in_the_child);
    static_cast<void>(arranged);  // fails without memory only, as the fork will
}

bool is_forked_process()
{
    return is_forked;
}

}  // namespace tarn
