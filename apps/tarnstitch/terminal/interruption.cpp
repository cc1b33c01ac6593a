// SPDX-License-Identifier: Apache-2.0
//
// The thread that awaits the signals, and the list of what it removes.
#include "interruption.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <vector>

#include "host_error.h"
#include "standard_streams.h"

namespace tarn::host {

namespace {

std::atomic<stop_kind> asked_for{stop_kind::none};

struct removal_list {
    std::mutex mutex;
    std::vector<std::string> paths;
};

/// Never destroyed: a signal may still come while the process winds down.
removal_list& removals()
{
    static auto* const list = new removal_list;
    return *list;
}

/// Removes a tree into which the library's workers may still be writing: each round may meet a new file, until
/// the directory itself is gone and nothing can be created in it.
void remove_tree(const std::string& path)
{
    constexpr int rounds = 100;
    for (int round = 0; round < rounds; ++round) {
        std::error_code error;
        std::filesystem::remove_all(path, error);
        if (!error) {
            return;
        }
    }
}

/// Removes all that is on the list, which is locked for good: whoever creates or renames a file from now on waits for
/// the end.
void remove_all_for_good()
{
    removals().mutex.lock();
    for (const std::string& path : removals().paths) {
        remove_tree(path);
    }
}

/// What a library does by exit() in the midst of the work, as those of window systems do when the display goes away.
/// Where the program itself has come to its end, nothing is on the list.
void remove_at_exit()
{
    leave_status_line();
    remove_all_for_good();
}

/// The thread that awaits the signals.
pthread_t awaiting_thread;

/// Runs in a thread that calls abort(), as a library for windows does without its display. It may hold any lock, so the
/// work is left to the thread that awaits signals, and should that not get on, the process ends all the same.
void leave_abortion_to_the_awaiting_thread(int)
{
    pthread_kill(awaiting_thread, SIGABRT);
    constexpr int most_seconds = 5;
    timespec left = {most_seconds, 0};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

/// Says so in a thread of its own: where messages go may take none for now (Ctrl-S on the terminal, a pipe that nobody
/// reads), and whoever awaits signals must not wait for that.
void say_that_it_stops()
{
    try {
        std::thread([] { note("stopping: the panorama is being finished; Ctrl-C again ends at once"); }).detach();
    } catch (const std::system_error&) {
        return;  // no thread to be had: it stops without a word
    }
}

/// Those by which others end a process, or an earlier limit on it does. Not those of errors inside it, which no other
/// thread could await.
std::vector<int> ending_signals()
{
    std::vector<int> signals = {SIGINT,  SIGTERM, SIGHUP,  SIGQUIT, SIGALRM, SIGVTALRM,
                                SIGPROF, SIGUSR1, SIGUSR2, SIGXCPU, SIGIO};
#ifdef SIGPWR
    signals.push_back(SIGPWR);
#endif
#ifdef SIGSTKFLT
    signals.push_back(SIGSTKFLT);
#endif
#ifdef SIGRTMIN
    for (int real_time = SIGRTMIN; real_time <= SIGRTMAX; ++real_time) {
        signals.push_back(real_time);
    }
#endif
    return signals;
}

[[noreturn]] void await_and_end(sigset_t signals)
{
    int signal_number = 0;
    while (sigwait(&signals, &signal_number) != 0
           || (signal_number == SIGINT && stop_asked_for() < stop_kind::interrupted)) {
        if (signal_number == SIGINT) {
            ask_to_stop(stop_kind::interrupted);
            say_that_it_stops();
        }
    }
    leave_status_line();
    remove_all_for_good();
    std::signal(signal_number, SIG_DFL);
    sigset_t the_one;
    sigemptyset(&the_one);
    sigaddset(&the_one, signal_number);
    pthread_sigmask(SIG_UNBLOCK, &the_one, nullptr);
    std::raise(signal_number);
    std::abort();  // not reached: the default action of these signals ends the process
}

}  // namespace

stop_kind stop_asked_for()
{
    return asked_for.load();
}

void ask_to_stop(stop_kind kind)
{
    stop_kind before = asked_for.load();
    while (before < kind && !asked_for.compare_exchange_weak(before, kind)) {
    }
}

void watch_for_interruption()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);

    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal_number : ending_signals()) {
        struct sigaction action = {};
        if (sigaction(signal_number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            sigaddset(&signals, signal_number);
        }
    }
    // Blocked as well, though abort() gets through to its own thread, which hands it on.
    sigaddset(&signals, SIGABRT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        std::thread waiting(await_and_end, signals);
        awaiting_thread = waiting.native_handle();
        waiting.detach();
    } catch (const std::system_error&) {
        throw host_error(exit_code::short_of_means,
                         "too few threads: the system gives none beside the first; raise the limit on processes "
                         "(ulimit -u, or the container's)");
    }
    std::signal(SIGABRT, leave_abortion_to_the_awaiting_thread);
    std::atexit(remove_at_exit);
}

void end_by_signals_again()
{
    std::signal(SIGABRT, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

interruption_hold::interruption_hold() : lock_(removals().mutex)
{
}

void interruption_hold::remove_when_interrupted(const std::string& path)
{
    removals().paths.push_back(path);
}

void interruption_hold::keep_when_interrupted(const std::string& path)
{
    auto& paths = removals().paths;
    paths.erase(std::remove(paths.begin(), paths.end(), path), paths.end());
}

}  // namespace tarn::host
