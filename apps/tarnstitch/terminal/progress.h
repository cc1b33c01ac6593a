// SPDX-License-Identifier: Apache-2.0
//
// How far a sweep has come: a bar at the bottom of a terminal, now and then a line where there is none.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "sweep.h"

namespace tarn::host {

struct progress_state {
    int frames = 0;    ///< handed over
    int expected = 0;  ///< in all, about; 0 when it is not known
    int key_frames = 0;
    int waiting_for = 0;   ///< key frames that the sweep waits for; 0 while it goes on
    double seconds = 0.0;  ///< since the first frame was asked for
    std::string advice;    ///< the last one, in words; "" for none yet
};

/// "[=====>    ]  50 %  frame 120 of 240  61 frames/s  0:02 left  5 key frames  slower", without the bar, and then
/// without what stands last, where it would be wider than `width` columns.
std::string progress_bar(const progress_state& state, int width);

/// The same as a line of words.
std::string progress_line(const progress_state& state);

/// Watches a sweep and shows how far it is.
class progress_display : public sweep_observer {
public:
    using clock = std::chrono::steady_clock;

    /// @param expected  frames in all, about; 0 when that is not known
    /// @param now       the time, for tests
    explicit progress_display(int expected, std::function<clock::time_point()> now = clock::now);
    /// Takes the bar away.
    ~progress_display() override;

    void frame_done(const frame_record& frame) override;
    void waiting(int key_frames) override;

private:
    void show(bool even_if_recent);

    progress_state state_;
    std::function<clock::time_point()> now_;
    bool on_terminal_;
    clock::time_point begun_;
    clock::time_point shown_;
    clock::duration between_lines_ = std::chrono::seconds(2);
};

}  // namespace tarn::host
