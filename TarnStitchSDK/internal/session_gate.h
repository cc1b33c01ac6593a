// SPDX-License-Identifier: Apache-2.0
//
// Who may be inside the library, for hosts with several threads: one call at a time, a sweep that is to begin or to end
// first, nobody when the process ends.
//
// Mutexes are not fair, and a thread that hands over one frame after the other would keep those out who wait. So the
// gate has a mutex for its own few variables only, held for moments, and says itself whose turn it is.
//
// Everything here is made at first use and never destroyed: threads may still be inside when the process ends.
#pragma once

#include <memory>

#include "shared_state.h"

namespace tarn {

class session;

/// The gate as a call of the sweep's sees it. While an object holds it, it is inside: alone with the task.
class gate_pass {
public:
    enum class admission {
        inside,  ///< holds the gate
        busy,    ///< another call is inside, or somebody waits to begin or to end a sweep
        over,    ///< the session is not the current one
        process_ends,
    };

    /// Whether the calling thread is inside, in a callback of its own call.
    static bool this_thread_is_inside();

    /// Enters if that can be done at once.
    static gate_pass try_to_enter(const session* current);

    /// Waits for the call inside, and for those who want to begin or end a sweep. Never answered busy.
    static gate_pass wait_to_enter(const session* current);

    /// Leaves; ends the session before if that was asked for meanwhile (session::ask_for_the_end).
    ~gate_pass();
    gate_pass(gate_pass&& other) noexcept;
    gate_pass(const gate_pass&) = delete;
    gate_pass& operator=(const gate_pass&) = delete;
    gate_pass& operator=(gate_pass&&) = delete;

    admission answer() const
    {
        return answer_;
    }

private:
    explicit gate_pass(admission answer) : answer_(answer)
    {
    }

    admission answer_;
};

/// The gate for whoever begins or ends a sweep: one at a time.
class gate_replacement {
public:
    /// Waits for others of its kind. The calling thread must not be inside.
    gate_replacement();
    ~gate_replacement();
    gate_replacement(const gate_replacement&) = delete;
    gate_replacement& operator=(const gate_replacement&) = delete;

    /// Waits for the call inside, which is told to give up what it waits for. Does nothing the second time.
    /// @returns false when the process ends: nobody enters any more
    bool enter();

private:
    bool inside_ = false;
};

/// Whether the call inside shall give up what it waits for: somebody wants to end its sweep, or the process ends. Any
/// thread.
bool shall_give_up();

bool process_is_ending();

/// The session whose task is in place; null when there is none, or when a host has put another task in its place. Any
/// thread.
std::shared_ptr<session> current_session();

/// Makes a session the current one, or none. Inside only.
void set_current_session(std::shared_ptr<session> next);

/// While one lives and `is_open()`, the variables that the library shares with its host still exist. For looks that
/// take moments: whoever ends the process waits for them. Any thread, inside or not.
class look_at_library {
public:
    look_at_library();
    ~look_at_library();
    look_at_library(const look_at_library&) = delete;
    look_at_library& operator=(const look_at_library&) = delete;

    bool is_open() const
    {
        return open_;
    }

private:
    bool open_;
};

/// Arranges for the end of the process: nobody enters any more, who is inside gets two seconds to come out, and the
/// current sweep's files are removed, all before anything that the library uses is destroyed.
/// @returns false when the process is ending already
bool be_ready_for_the_end_of_the_process();

}  // namespace tarn
