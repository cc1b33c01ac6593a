// SPDX-License-Identifier: Apache-2.0
//
// Sleeps that are counted instead of slept.
#pragma once

#include <functional>
#include <vector>

namespace tarn::test {

/// While one lives, usleep returns at once on the thread that made it, and is recorded; other threads sleep as
/// ever. (The test program defines usleep itself, in front of the C library's.)
class counted_sleep {
public:
    /// `during` is called in each sleep with its number, 1 for the first.
    explicit counted_sleep(std::function<void(int number)> during = nullptr);
    ~counted_sleep();
    counted_sleep(const counted_sleep&) = delete;
    counted_sleep& operator=(const counted_sleep&) = delete;

    /// Lengths of the sleeps so far, in microseconds.
    const std::vector<unsigned>& sleeps() const
    {
        return sleeps_;
    }

    /// A sleep on this thread.
    void sleep(unsigned microseconds);

private:
    std::function<void(int)> during_;
    std::vector<unsigned> sleeps_;
};

}  // namespace tarn::test
