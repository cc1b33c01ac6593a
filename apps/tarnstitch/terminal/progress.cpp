// SPDX-License-Identifier: Apache-2.0
//
// Bars and lines.
#include "progress.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

#include "standard_streams.h"

namespace tarn::host {

namespace {

/// Seconds as "0:07", "12:30" or "1:02:03".
std::string as_clock(double seconds)
{
    constexpr double most = 359999.0;  // just below 100 hours
    constexpr int sixty = 60;
    const int whole = static_cast<int>(std::lround(std::clamp(seconds, 0.0, most)));
    std::array<char, 32> text{};
    if (whole >= sixty * sixty) {
        std::snprintf(text.data(), text.size(), "%d:%02d:%02d", whole / (sixty * sixty), whole / sixty % sixty,
                      whole % sixty);
    } else {
        std::snprintf(text.data(), text.size(), "%d:%02d", whole / sixty, whole % sixty);
    }
    return text.data();
}

/// More frames than the input announced are no more than all of them.
double share_done(const progress_state& state)
{
    return std::min(1.0, static_cast<double>(state.frames) / state.expected);
}

std::string percentage(const progress_state& state)
{
    constexpr double percent = 100.0;
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%3.0f %%", std::floor(percent * share_done(state)));
    return text.data();
}

/// What is told, the most important first.
std::vector<std::string> parts_of(const progress_state& state)
{
    std::vector<std::string> parts;
    std::string frames = "frame " + std::to_string(state.frames);
    if (state.expected > 0) {
        frames += " of " + std::to_string(std::max(state.expected, state.frames));
    }
    parts.push_back(frames);
    const double rate = state.seconds > 0.0 ? state.frames / state.seconds : 0.0;
    constexpr double enough_to_tell = 0.5;  // s
    if (rate > 0.0 && state.seconds > enough_to_tell) {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), rate < 10.0 ? "%.1f frames/s" : "%.0f frames/s", rate);
        parts.emplace_back(text.data());
        if (state.expected > state.frames) {
            parts.push_back(as_clock((state.expected - state.frames) / rate) + " left");
        }
    }
    parts.push_back(std::to_string(state.key_frames) + (state.key_frames == 1 ? " key frame" : " key frames"));
    if (state.waiting_for > 0) {
        parts.push_back("waiting for " + std::to_string(state.waiting_for));
    } else if (!state.advice.empty()) {
        parts.push_back(state.advice);
    }
    return parts;
}

}  // namespace

std::string progress_bar(const progress_state& state, int width)
{
    std::string text;
    for (const std::string& part : parts_of(state)) {
        std::string longer = text;
        longer.append(text.empty() ? "" : "  ").append(part);
        if (static_cast<int>(longer.size()) > width) {
            break;
        }
        text = std::move(longer);
    }
    if (state.expected <= 0) {
        return text;
    }
    const std::string percent = percentage(state);
    constexpr int brackets_and_gaps = 5;
    constexpr int narrowest = 5;
    constexpr int widest = 30;
    const int room = width - static_cast<int>(text.size() + percent.size()) - brackets_and_gaps;
    if (room < narrowest) {
        return text;
    }
    const int length = std::min(room, widest);
    const int full = static_cast<int>(share_done(state) * length);
    std::string bar(static_cast<std::size_t>(full), '=');
    bar += full < length ? ">" : "";
    bar.resize(static_cast<std::size_t>(length), ' ');
    return "[" + bar + "] " + percent + "  " + text;
}

std::string progress_line(const progress_state& state)
{
    std::string line;
    for (const std::string& part : parts_of(state)) {
        line += (line.empty() ? "" : ", ") + part;
    }
    return line;
}

progress_display::progress_display(int expected, std::function<clock::time_point()> now)
    : now_(std::move(now)), on_terminal_(messages_go_to_a_terminal()), begun_(now_()), shown_(begun_)
{
    state_.expected = expected;
}

progress_display::~progress_display()
{
    if (on_terminal_) {
        show_status_line("");
    }
}

void progress_display::frame_done(const frame_record& frame)
{
    state_.frames = frame.place;
    state_.key_frames = frame.answer.key_frames;
    state_.waiting_for = 0;
    const std::string advice = advice_for(frame.answer.code);
    const bool news = !advice.empty() && advice != state_.advice;
    state_.advice = advice.empty() ? state_.advice : advice;
    show(news || state_.frames == 1);
}

void progress_display::waiting(int key_frames)
{
    state_.waiting_for = key_frames;
    show(false);
}

void progress_display::show(bool even_if_recent)
{
    constexpr std::chrono::milliseconds between_bars(100);
    constexpr std::chrono::seconds longest_between_lines(30);
    const clock::time_point now = now_();
    if (now - shown_ < (on_terminal_ ? clock::duration(between_bars) : between_lines_)
        && !(on_terminal_ && even_if_recent)) {
        return;
    }
    shown_ = now;
    // The longer it takes, the less there is to say.
    between_lines_ = std::min<clock::duration>(2 * between_lines_, longest_between_lines);
    state_.seconds = std::chrono::duration<double>(now - begun_).count();
    if (on_terminal_) {
        // The last column stays free: writing there would start a new line on some terminals.
        show_status_line(progress_bar(state_, terminal_width() - 1));
    } else {
        note(progress_line(state_));
    }
}

}  // namespace tarn::host
