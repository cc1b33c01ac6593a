// SPDX-License-Identifier: Apache-2.0
//
// The waits for workers: how long they last, how often they look.
#pragma once

#include <cstdint>

namespace tarn {

constexpr int poll_interval = 10000;  ///< µs, of the workers' protocol

/// Measures the time in which the process ran. An app in the background is stopped, and a device sleeps: meanwhile
/// nobody could have done what is waited for. So what passes between two looks counts for a tenth of a second at most,
/// ten polls of the protocol; whoever polls looks far more often.
class running_time {
public:
    /// Begins at 0.
    running_time();

    /// Takes the time since the look before in.
    void look();

    /// The same, whatever the time: what came between was work of the process's own.
    void look_after_work();

    /// Between the first look and the last one.
    double seconds() const;

private:
    std::int64_t last_look_;
    std::int64_t ticks_ = 0;
};

/// Measures one wait of the protocol against max_wait_seconds.
class wait_clock {
public:
    /// To be asked at each poll. When it has run out, what is waited for should be looked at once more: the clock may
    /// have gone on since.
    bool has_run_out();

private:
    running_time waited_;
};

}  // namespace tarn
