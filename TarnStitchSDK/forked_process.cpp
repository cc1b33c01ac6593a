// SPDX-License-Identifier: Apache-2.0
#include "internal/forked_process.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <pthread.h>
#include <unistd.h>
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
    std::unique_lock<std::mutex> turns;
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
    held().turns = lock_turns();
}

void in_the_parent()
{
    const recursive_lock members = std::move(held().members);
    const std::unique_lock<std::mutex> handover = std::move(held().handover);
    const std::unique_lock<std::mutex> turns = std::move(held().turns);
}

// The status with which the child exits.
volatile std::sig_atomic_t exit_status = 0;

// What the host does about SIGALRM.
struct sigaction host_s_action = {};

#ifdef __GLIBC__
void note_exit_status(int status, void* /*unused*/)
{
    exit_status = status;
}
#endif

void in_the_child()
{
    is_forked = true;
#ifdef __GLIBC__
    on_exit(note_exit_status, nullptr);
#endif
    held().members.release();
    held().handover.release();
    held().turns.release();
    make_locks_anew();
    abandon_task();
}

}  // namespace

void be_ready_for_forks()
{
    static const int arranged = pthread_atfork(before_the_fork, in_the_parent, in_the_child);
    static_cast<void>(arranged);  // fails without memory only, as the fork will
}

void bound_the_end_of_a_forked_process()
{
    constexpr unsigned longest_end = 2;  // s
    struct sigaction end_now = {};
    end_now.sa_handler = [](int /*unused*/) { _exit(exit_status); };
    sigaction(SIGALRM, &end_now, &host_s_action);
    sigset_t alarms;
    sigemptyset(&alarms);
    sigaddset(&alarms, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
    alarm(longest_end);
}

void the_library_has_ended()
{
    alarm(0);
    sigaction(SIGALRM, &host_s_action, nullptr);
}

bool is_forked_process()
{
    return is_forked;
}

}  // namespace tarn
