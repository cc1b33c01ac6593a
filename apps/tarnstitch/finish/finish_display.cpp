// SPDX-License-Identifier: Apache-2.0
//
// Lines on stages.
#include "finish_display.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "standard_streams.h"

namespace tarn::host {

std::string finish_line(const std::string& stage, int which, int stages, double part)
{
    constexpr double percent = 100.0;
    return "finishing: " + stage + " (" + std::to_string(which) + " of " + std::to_string(stages) + "), "
           + std::to_string(static_cast<int>(std::floor(percent * std::clamp(part, 0.0, 1.0)))) + " %";
}

finish_display::finish_display(std::function<clock::time_point()> now)
    : now_(std::move(now)), on_terminal_(messages_go_to_a_terminal()), shown_(now_())
{
}

finish_display::~finish_display()
{
    if (on_terminal_) {
        show_status_line("");
    }
}

void finish_display::show(const std::string& stage, int which, int stages, double part)
{
    constexpr std::chrono::milliseconds between_bars(100);
    constexpr std::chrono::seconds longest_between_lines(30);
    const clock::time_point now = now_();
    if (now - shown_ < (on_terminal_ ? clock::duration(between_bars) : between_lines_)) {
        return;
    }
    shown_ = now;
    between_lines_ = std::min<clock::duration>(2 * between_lines_, longest_between_lines);
    const std::string line = finish_line(stage, which, stages, part);
    if (on_terminal_) {
        show_status_line(line.substr(0, static_cast<std::size_t>(std::max(1, terminal_width() - 1))));
    } else {
        note(line);
    }
}

}  // namespace tarn::host
