// SPDX-License-Identifier: Apache-2.0
//
// Being told to stop. The first SIGINT (Ctrl-C) only asks for it: the sweep ends as if its last frame had come. The
// second one, SIGTERM, SIGHUP and the other signals by which users, terminals, timers and limits end a process end the
// program at once, after the temporary files and directories named here have been removed. So they are when a library
// calls exit() or abort().
//
// The signals are blocked in every thread and awaited by one of their own, which may therefore do ordinary
// work: no code runs in a signal handler. It then ends the program by the same signal, so that the caller
// (a shell, make) sees what happened.
#pragma once

#include <mutex>
#include <string>

namespace tarn::host {

/// What the user has asked for, the later ones outweighing those before.
enum class stop_kind {
    none,
    finish,       ///< to end the sweep with the next frame
    interrupted,  ///< the same, by a signal
    give_up,      ///< to end it without a result
};

/// What has been asked for so far. Any thread.
stop_kind stop_asked_for();

/// Asks for it. Any thread.
void ask_to_stop(stop_kind kind);

/// Starts awaiting the signals; those that the caller has set to be ignored (nohup) stay ignored. Must be
/// called while the program has one thread only. Also sees to it that a closed pipe or a full file shows as
/// an error where it is written instead of killing the program.
/// @throws host_error (short_of_means) when no thread can be started
void watch_for_interruption();

/// For a child by fork(), in which no thread awaits the signals: each does there again what it does by default.
void end_by_signals_again();

/// While one lives, an interruption waits. For the short moments in which a file comes into being or changes
/// its name, and the list of what to remove has to follow.
class interruption_hold {
public:
    interruption_hold();

    /// Adds a file or a directory (with all that is in it) to what an interruption removes.
    void remove_when_interrupted(const std::string& path);
    /// Takes it from the list: it has gone, or it has become a result.
    void keep_when_interrupted(const std::string& path);

private:
    std::unique_lock<std::mutex> lock_;
};

}  // namespace tarn::host
