// SPDX-License-Identifier: Apache-2.0
//
// The thread that awaits the signals, and the list of what it removes.
#include "interruption.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <system_error>
#include <thread>
#include <vector>

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

[[noreturn]] void await_and_end(sigset_t signals)
{
    int signal_number = 0;
    while (sigwait(&signals, &signal_number) != 0
           || (signal_number == SIGINT && stop_asked_for() < stop_kind::interrupted)) {
        if (signal_number == SIGINT) {
            ask_to_stop(stop_kind::interrupted);
            note("stopping: the panorama is being finished; Ctrl-C again ends at once");
        }
    }
    leave_status_line();
    // Locked for good: whoever creates or renames a file from now on waits for the end.
    removals().mutex.lock();
    for (const std::string& path : removals().paths) {
        remove_tree(path);
    }
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
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        if (sigaction(signal_number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            sigaddset(&signals, signal_number);
        }
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread(await_and_end, signals).detach();
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
