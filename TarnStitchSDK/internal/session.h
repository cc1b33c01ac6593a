// SPDX-License-Identifier: Apache-2.0
//
// A sweep at work: what tarn::sweep does once its caller is alone with the task (session_gate.h), and what everybody
// may see of it meanwhile.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include "shared_state.h"
#include "tarn_sweep.h"
#include "wait_clock.h"

namespace tarn {

/// Tells when workers have stopped moving. A worker waits at most twice for max_wait_seconds before it gives up, so
/// when no turn has ended for three times as long none is going to: one was never started, or waits for a base panorama
/// that failed.
class stall_watch {
public:
    explicit stall_watch(int under_way);

    /// Takes note of how many are under way now.
    void look(int under_way);

    /// After a callback, whose time counts whole.
    void look_after_callback();

    bool has_stalled() const;

    int under_way() const
    {
        return under_way_;
    }

    /// Since it was made, the time in which the process did not run included.
    double milliseconds() const;

private:
    int under_way_;
    std::int64_t made_;
    running_time since_last_move_;
};

/// Sleeps between two looks at the workers.
void sleep_between_looks();

class session {
public:
    /// @param directory  with a "/" at its end
    session(sweep_options options, std::string directory);

    // Any thread.

    const std::string& directory() const
    {
        return directory_;
    }

    /// Whether the task in place is the session's.
    bool has_its_task() const
    {
        return generation_ == current_generation();
    }

    /// Asks the call inside to end the session when it leaves, for a callback of that call.
    void ask_for_the_end()
    {
        end_is_asked_for_ = true;
    }

    bool end_is_asked_for() const
    {
        return end_is_asked_for_;
    }

    /// The answer for a frame that never came to the live path.
    frame_answer not_handed_over(answer_code code, reason why) const;

    /// The library's variables must exist (look_at_library).
    sweep_status status() const;

    preview_view preview() const;

    /// What its workers have taken their time for.
    std::vector<worker_turn> worker_turns() const;

    // Inside only.

    /// Puts the session's task in place of the one that there is.
    /// @throws sweep_error
    void start();

    /// Tells the session that its task has ended, though it is still in place with its files, since no other one could
    /// take its place in time.
    void note_abandoned();

    /// Ends its task, if that is still in place, and removes its files. In a process that was forked off it does
    /// nothing: the files are the parent's.
    void end() noexcept;

    frame_answer feed(const frame_view& frame, direction_code hint);
    panorama finish(const finish_options& options);

private:
    enum class wait_end {
        reached,
        declined,   ///< by a callback
        cancelled,  ///< the sweep is to end, or the process
        stalled,
    };

    using progress = std::function<bool(int done, int key_frames)>;

    int under_way() const;
    wait_end wait_for_workers(int most, bool also_until_failure, const progress& on_progress);
    wait_end hold_back(int workers);
    frame_answer register_frame(const frame_view& frame, direction_code hint, bool is_last);
    wait_end hand_over(const frame_view& frame, direction_code hint, bool is_last, const progress& on_progress,
                       frame_answer& answer);
    frame_answer not_handed_over(wait_end why) const;
    wait_end hand_over_last(const finish_options& options);
    panorama collect(wait_end waited);
    reason why_not_whole(wait_end waited, const panorama& result, bool works) const;
    void show(const frame_answer& answer);

    const sweep_options options_;
    const std::string directory_;
    const pid_t process_ = getpid();
    std::atomic<task_generation> generation_{0};
    std::atomic<task_generation> abandoned_at_{0};  ///< the generation since which nothing can come of it; 0 if it can
    std::atomic<bool> end_is_asked_for_{false};

    // Inside only.
    std::optional<frame_answer> last_frame_;  ///< the answer for the last frame, unless another one came after it
    int written_turns_ = 0;                   ///< turns that were over when the panorama's file was written

    // What there is after the last call: written inside, with the mutex held.
    mutable std::mutex view_;
    frame_answer newest_;
    cv::Mat preview_;
    bool frozen_ = false;
    bool has_outline_ = false;
    int key_frames_ = 0;
    int never_started_ = 0;        ///< key frames for which there was no worker
    int first_never_started_ = 0;  ///< the first one's number, and the reason
    reason why_never_started_ = reason::none;
};

}  // namespace tarn
