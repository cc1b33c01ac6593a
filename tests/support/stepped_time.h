// SPDX-License-Identifier: Apache-2.0
//
// Time that passes only when it is slept through.
#pragma once

#include <cstdint>
#include <functional>

#include "counted_sleep.h"

namespace tarn::test {

/// How long the library sleeps between two looks at what it waits for, in microseconds.
constexpr unsigned poll_interval = 10000;

/// The number of the first poll after which more than the 20 s that it waits have passed.
constexpr int polls_of_a_full_time_out = 2001;

/// While one lives, the clock of the library's waits stands still on the thread that made it, but for its sleeps:
/// each returns at once and moves the clock on by its length. So waits of any length are stepped through poll by
/// poll, in no time. (The test program defines cv::getTickCount itself, in front of OpenCV's.)
class stepped_time {
public:
    /// `during` is called in each sleep with its number, 1 for the first, when the clock has been moved on.
    explicit stepped_time(std::function<void(int poll)> during = nullptr);
    ~stepped_time();
    stepped_time(const stepped_time&) = delete;
    stepped_time& operator=(const stepped_time&) = delete;

    void pass(double seconds);

    /// Number of sleeps so far.
    int polls() const;

    /// Whether all sleeps so far were so long.
    bool all_polls_took(unsigned microseconds) const;

    std::int64_t ticks() const
    {
        return ticks_;
    }

private:
    std::int64_t ticks_;
    counted_sleep sleep_;
};

}  // namespace tarn::test
