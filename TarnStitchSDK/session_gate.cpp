// SPDX-License-Identifier: Apache-2.0
#include "internal/session_gate.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

#include "internal/session.h"
#include "internal/worker_life.h"
#include "internal/worker_pool.h"

namespace tarn {

namespace {

struct gate {
    std::mutex one_replacement;  ///< while a sweep is begun or ended; before the other one

    std::mutex mutex;  ///< for moments only: all that follows
    std::condition_variable changed;
    bool occupied = false;
    std::thread::id inside;        ///< while occupied
    int replacements_waiting = 0;  ///< 0 or 1
    int looks = 0;
    std::shared_ptr<session> current;

    std::atomic<bool> give_up{false};
    std::atomic<bool> process_ends{false};
};

std::atomic<gate*>& place_of_gate()
{
    static std::atomic<gate*> one{new gate};
    return one;
}

gate& the_gate()
{
    return *place_of_gate();
}

// In a process that was forked off nobody is inside, and there is no session; that of the parent is over here.
void make_gate_anew()
{
    place_of_gate() = new gate;
}

bool is_over(const gate& g, const session* asking)
{
    return asking == nullptr || g.current.get() != asking || !asking->has_its_task();
}

void occupy(gate& g)
{
    g.occupied = true;
    g.inside = std::this_thread::get_id();
}

void vacate()
{
    gate& g = the_gate();
    const std::lock_guard<std::mutex> lock(g.mutex);
    g.occupied = false;
    g.inside = {};
    g.changed.notify_all();
}

// Closes the gate for good, before what was constructed before this object is destroyed.
class closed_in_the_end {
public:
    ~closed_in_the_end()
    {
        gate& g = the_gate();
        {
            const std::lock_guard<std::mutex> lock(g.mutex);
            g.process_ends = true;
            g.give_up = true;
            g.changed.notify_all();
        }
        constexpr int longest_wait = 2000000;  // µs
        constexpr int poll = 1000;             // µs
        for (int waited = 0; others_are_in() && waited < longest_wait; waited += poll) {
            usleep(poll);
        }
        if (others_are_in()) {
            return;
        }
        std::shared_ptr<session> last;
        {
            const std::lock_guard<std::mutex> lock(g.mutex);
            last.swap(g.current);
        }
        if (last) {
            last->end();
        }
    }

private:
    // This thread itself may be inside, in a callback that ends the process.
    static bool others_are_in()
    {
        gate& g = the_gate();
        const std::lock_guard<std::mutex> lock(g.mutex);
        return (g.occupied && g.inside != std::this_thread::get_id()) || g.looks > 0;
    }
};

}  // namespace

bool gate_pass::this_thread_is_inside()
{
    gate& g = the_gate();
    const std::lock_guard<std::mutex> lock(g.mutex);
    return g.occupied && g.inside == std::this_thread::get_id();
}

gate_pass gate_pass::try_to_enter(const session* current)
{
    gate& g = the_gate();
    const std::lock_guard<std::mutex> lock(g.mutex);
    if (g.process_ends) {
        return gate_pass(admission::process_ends);
    }
    if (is_over(g, current)) {
        return gate_pass(admission::over);
    }
    if (g.occupied || g.replacements_waiting > 0) {
        return gate_pass(admission::busy);
    }
    occupy(g);
    return gate_pass(admission::inside);
}

gate_pass gate_pass::wait_to_enter(const session* current)
{
    gate& g = the_gate();
    std::unique_lock<std::mutex> lock(g.mutex);
    g.changed.wait(
        lock, [&] { return g.process_ends || is_over(g, current) || (!g.occupied && g.replacements_waiting == 0); });
    if (g.process_ends) {
        return gate_pass(admission::process_ends);
    }
    if (is_over(g, current)) {
        return gate_pass(admission::over);
    }
    occupy(g);
    return gate_pass(admission::inside);
}

gate_pass::~gate_pass()
{
    if (answer_ != admission::inside) {
        return;
    }
    const std::shared_ptr<session> current = current_session();
    if (current && current->end_is_asked_for()) {
        set_current_session(nullptr);
        current->end();
    }
    vacate();
}

gate_pass::gate_pass(gate_pass&& other) noexcept : answer_(std::exchange(other.answer_, admission::busy))
{
}

gate_replacement::gate_replacement()
{
    the_gate().one_replacement.lock();
}

gate_replacement::~gate_replacement()
{
    if (inside_) {
        vacate();
    }
    the_gate().one_replacement.unlock();
}

bool gate_replacement::enter()
{
    if (inside_) {
        return true;
    }
    gate& g = the_gate();
    std::unique_lock<std::mutex> lock(g.mutex);
    ++g.replacements_waiting;
    g.give_up = true;
    g.changed.wait(lock, [&g] { return g.process_ends || !g.occupied; });
    --g.replacements_waiting;
    if (g.process_ends) {
        return false;
    }
    g.give_up = false;
    occupy(g);
    inside_ = true;
    return true;
}

bool shall_give_up()
{
    return the_gate().give_up;
}

bool process_is_ending()
{
    return the_gate().process_ends;
}

std::shared_ptr<session> current_session()
{
    gate& g = the_gate();
    const std::lock_guard<std::mutex> lock(g.mutex);
    return g.current && g.current->has_its_task() ? g.current : nullptr;
}

void set_current_session(std::shared_ptr<session> next)
{
    gate& g = the_gate();
    const std::lock_guard<std::mutex> lock(g.mutex);
    g.current.swap(next);
}

look_at_library::look_at_library()
{
    gate& g = the_gate();
    const std::lock_guard<std::mutex> lock(g.mutex);
    open_ = !g.process_ends;
    g.looks += open_ ? 1 : 0;
}

look_at_library::~look_at_library()
{
    gate& g = the_gate();
    const std::lock_guard<std::mutex> lock(g.mutex);
    g.looks -= open_ ? 1 : 0;
}

bool be_ready_for_the_end_of_the_process()
{
    if (process_is_ending()) {
        return false;
    }
    try {
        // The library's own arrangement comes with its first worker. It waits for the workers, and must do so when
        // nobody launches new ones any more: what is constructed after it is destroyed before it.
        const worker_in_flight the_first_one(construct_what_workers_use);
    } catch (const std::system_error&) {
        return false;
    }
    static const int ready_for_forks = pthread_atfork(nullptr, nullptr, make_gate_anew);
    static_cast<void>(ready_for_forks);
    static const closed_in_the_end before_the_workers_are_waited_for;
    return true;
}

}  // namespace tarn
