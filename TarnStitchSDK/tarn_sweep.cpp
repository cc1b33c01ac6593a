// SPDX-License-Identifier: Apache-2.0
//
// The sweep as its host sees it: arguments are checked, the gate is passed, the session does the work.
#include "tarn_sweep.h"

#include <exception>
#include <utility>

#include <opencv2/imgcodecs.hpp>

#include "internal/forked_process.h"
#include "internal/frame_account.h"
#include "internal/frame_intake.h"
#include "internal/library_copy.h"
#include "internal/picture_file.h"
#include "internal/session.h"
#include "internal/session_directory.h"
#include "internal/session_gate.h"
#include "tarn_stitcher.h"

namespace tarn {

struct sweep::state : session {
    using session::session;
};

namespace {

[[noreturn]] void refuse_as_over()
{
    throw sweep_error(sweep_problem::over, "this sweep is over: it was ended, or another one was begun after it");
}

[[noreturn]] void refuse_as_process_ends()
{
    throw sweep_error(sweep_problem::process_ends, "the process ends");
}

// What waits for the call inside would wait for ever in a callback of that call.
void check_that_no_call_is_waiting(const char* method)
{
    if (gate_pass::this_thread_is_inside()) {
        throw sweep_error(sweep_problem::bad_argument,
                          std::string(method) + " was called by a callback of a call that it would wait for");
    }
}

void end_current_session()
{
    if (const std::shared_ptr<session> old = current_session()) {
        set_current_session(nullptr);
        old->end();
    }
}

void enter(gate_replacement& turn)
{
    if (!turn.enter()) {
        refuse_as_process_ends();
    }
}

}  // namespace

sweep_error::sweep_error(sweep_problem problem, const std::string& text) : std::runtime_error(text), problem_(problem)
{
}

sweep::sweep(std::shared_ptr<state> held) : state_(std::move(held))
{
}

sweep sweep::begin(sweep_options options)
{
    if (options.most_under_way < 0) {
        throw sweep_error(sweep_problem::bad_argument,
                          "most_under_way is " + std::to_string(options.most_under_way) + "; it must be at least 0");
    }
    if (!(options.key_frame_overlap > 0.0f && options.key_frame_overlap < 1.0f)) {  // NaN is refused, too
        throw sweep_error(sweep_problem::bad_argument, "key_frame_overlap is "
                                                           + std::to_string(options.key_frame_overlap)
                                                           + "; it must be more than 0 and less than 1");
    }
    if (is_forked_process()) {
        throw sweep_error(sweep_problem::process_ends,
                          "no sweep can be begun: this process was forked off from one that had begun to sweep");
    }
    if (!has_the_task()) {
        throw sweep_error(sweep_problem::process_ends,
                          "no sweep can be begun: another copy of the library in this process has its variables");
    }
    if (!be_ready_for_the_end_of_the_process()) {
        refuse_as_process_ends();
    }
    check_that_no_call_is_waiting("begin");
    gate_replacement turn;
    if (const std::shared_ptr<session> old = current_session(); old && touches_directory(options, old->directory())) {
        enter(turn);
        end_current_session();
    }
    session_directory directory(options);
    enter(turn);
    auto fresh = std::make_shared<state>(std::move(options), directory.path());
    const std::shared_ptr<session> old = current_session();
    try {
        fresh->start();  // and with it the old one, with its files, ends
    } catch (const sweep_error&) {
        if (old && !old->has_its_task()) {
            old->note_abandoned();
        }
        throw;
    }
    directory.keep();
    set_current_session(fresh);
    return sweep(std::move(fresh));
}

sweep::~sweep()
{
    cancel();
}

sweep::sweep(sweep&& other) noexcept = default;

sweep& sweep::operator=(sweep&& other) noexcept
{
    if (this != &other) {
        cancel();
        state_ = std::move(other.state_);
    }
    return *this;
}

frame_answer sweep::feed(const frame_view& frame, direction_code hint)
{
    check_frame(frame);
    check_hint(hint);
    const std::shared_ptr<state> held = state_;
    const gate_pass pass = gate_pass::try_to_enter(held.get());
    switch (pass.answer()) {
    case gate_pass::admission::inside:
        return held->feed(frame, hint);
    case gate_pass::admission::busy: {
        const look_at_library look;
        const bool has_failed = look.is_open() && held->status().pipeline == pipeline_failed;
        return has_failed ? held->not_handed_over(code_pipeline_failed, reason::pipeline_failed)
                          : held->not_handed_over(code_lost, reason::busy);
    }
    case gate_pass::admission::process_ends:
        if (held) {
            return held->not_handed_over(code_lost, reason::process_ends);
        }
        break;
    case gate_pass::admission::over:
        break;
    }
    refuse_as_over();
}

panorama sweep::finish(const finish_options& options)
{
    if (options.last_frame != nullptr) {
        check_frame(*options.last_frame);
    }
    check_hint(options.hint);
    check_that_no_call_is_waiting("finish");
    const std::shared_ptr<state> held = state_;
    const gate_pass pass = gate_pass::wait_to_enter(held.get());
    switch (pass.answer()) {
    case gate_pass::admission::inside:
        return held->finish(options);
    case gate_pass::admission::process_ends: {
        panorama none;
        none.why = reason::process_ends;
        return none;
    }
    case gate_pass::admission::busy:
    case gate_pass::admission::over:
        break;
    }
    refuse_as_over();
}

void sweep::cancel() noexcept
{
    const std::shared_ptr<state> held = state_;
    if (!held || !is_current()) {
        return;
    }
    if (gate_pass::this_thread_is_inside()) {
        held->ask_for_the_end();
        return;
    }
    gate_replacement turn;
    if (held == current_session() && turn.enter() && held == current_session()) {
        end_current_session();
    }
}

bool sweep::is_current() const noexcept
{
    return state_ && current_session() == state_;
}

sweep_status sweep::status() const
{
    const std::shared_ptr<state> held = state_;
    const look_at_library look;
    if (!look.is_open()) {
        refuse_as_process_ends();
    }
    if (!held || current_session() != held) {
        refuse_as_over();
    }
    const sweep_status result = held->status();
    if (!held->has_its_task()) {  // then it may be another task's
        refuse_as_over();
    }
    return result;
}

std::vector<worker_turn> sweep::worker_turns() const
{
    const std::shared_ptr<state> held = state_;
    status();  // throws where the sweep is over
    return held->worker_turns();
}

bool sweep::wait_for_room(int most, std::chrono::milliseconds time_out,
                          const std::function<bool(int under_way)>& while_waiting)
{
    if (most < 0) {
        throw sweep_error(sweep_problem::bad_argument, "most is " + std::to_string(most) + "; it must be at least 0");
    }
    stall_watch watch(status().under_way);
    while (watch.under_way() > most) {
        const bool has_to_leave = shall_give_up() && gate_pass::this_thread_is_inside();
        if (watch.milliseconds() >= static_cast<double>(time_out.count()) || watch.has_stalled() || has_to_leave) {
            return false;
        }
        if (while_waiting && !while_waiting(watch.under_way())) {
            return false;
        }
        watch.look_after_callback();
        sleep_between_looks();
        watch.look(status().under_way);
    }
    return true;
}

preview_view sweep::preview() const
{
    const std::shared_ptr<state> held = state_;
    if (!held || current_session() != held) {
        refuse_as_over();
    }
    return held->preview();
}

std::string sweep::directory() const
{
    const std::shared_ptr<state> held = state_;
    if (!held || current_session() != held) {
        refuse_as_over();
    }
    return held->directory();
}

// ------------------------------------------------------------------------------------------------- the panorama

std::vector<unsigned char> panorama::jpeg() const
{
    if (image.empty()) {
        throw sweep_error(sweep_problem::no_panorama, "there is no panorama");
    }
    std::vector<unsigned char> bytes;
    try {
        cv::imencode(".jpg", image, bytes);
    } catch (const std::exception& error) {
        throw sweep_error(reason_of(error) == reason::no_memory ? sweep_problem::no_memory
                                                                : sweep_problem::bad_argument,
                          std::string("the panorama cannot be encoded: ") + error.what());
    }
    return bytes;
}

void panorama::save(const std::string& path) const
{
    save_bytes(path, jpeg());
}

void save_bytes(const std::string& path, const std::vector<unsigned char>& bytes)
{
    if (!write_file(path, bytes)) {
        throw sweep_error(sweep_problem::disk, "the panorama cannot be written to " + path);
    }
}

}  // namespace tarn
