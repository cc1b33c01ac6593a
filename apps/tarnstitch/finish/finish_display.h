// SPDX-License-Identifier: Apache-2.0
//
// How far the finished picture is: a line at the bottom of a terminal, now and then a line where there is none.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace tarn::host {

class finish_display {
public:
    using clock = std::chrono::steady_clock;

    /// @param now  the time, for tests
    explicit finish_display(std::function<clock::time_point()> now = clock::now);
    /// Takes the line away.
    ~finish_display();
    finish_display(const finish_display&) = delete;
    finish_display& operator=(const finish_display&) = delete;

    /// @param stage  what is going on
    /// @param which  stage that is, from 1
    /// @param part   how much of it is done, 0 to 1
    void show(const std::string& stage, int which, int stages, double part);

private:
    std::function<clock::time_point()> now_;
    bool on_terminal_;
    clock::time_point shown_;
    clock::duration between_lines_ = std::chrono::seconds(2);
};

/// "finishing: blending (6 of 6), 40 %"
std::string finish_line(const std::string& stage, int which, int stages, double part);

}  // namespace tarn::host
