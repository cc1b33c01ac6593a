// SPDX-License-Identifier: Apache-2.0
#include "sweep_guard.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <unistd.h>

#include "tarn_stitch_jni.h"

namespace tarn::binding {

namespace {

constexpr int code_pipeline_failed = -1;
constexpr int code_busy = 0;
constexpr sweep_id no_sweep = 0;

// Three locks, always taken in this order, each held only as long as its comment says.
struct guard {
    std::mutex one_replacement;  ///< while a sweep is begun or ended
    std::mutex inside_call;      ///< around each call of the library that may change the task
    std::mutex view;             ///< for copies of headers and strings only: what follows, and the pipeline

    sweep_id current = no_sweep;
    sweep_id newest = no_sweep;
    cv::Mat preview;
    std::string panorama;
    int key_frames = 0;  ///< handed to workers

    // Mutexes are not fair: without these, a thread that hands over one frame after the other would keep those out
    // who wait.
    std::atomic<bool> being_replaced{false};  ///< somebody waits for the library to begin or end a sweep
    std::atomic<bool> process_ends{false};
};

// Never destroyed: threads of the virtual machine may still be here when the process ends.
guard& the_guard()
{
    static auto& one = *new guard;
    return one;
}

// While it lives, every wait for a worker gives up at its next poll.
class impatience {
public:
    impatience() : usual_wait_(load_acquire(max_wait_seconds))
    {
        store_release(max_wait_seconds, 0);
    }

    ~impatience()
    {
        store_release(max_wait_seconds, usual_wait_);
    }

    impatience(const impatience&) = delete;
    impatience& operator=(const impatience&) = delete;

private:
    int usual_wait_;
};

// The library for somebody who is about to end the sweep: what a last frame inside is waiting for, nobody needs
// any more.
std::unique_lock<std::mutex> library_for_replacement()
{
    guard& g = the_guard();
    std::unique_lock<std::mutex> lock(g.inside_call, std::try_to_lock);
    if (!lock.owns_lock()) {
        const impatience no_worker_is_waited_for;
        g.being_replaced = true;
        lock.lock();
        g.being_replaced = false;
    }
    return lock;
}

// Keeps the threads of the virtual machine, which run on while the process ends, from meeting the library's
// variables after they are destroyed. Whoever is inside gets two seconds to come out.
struct end_of_process {
    ~end_of_process()
    {
        static bool closed = false;
        if (closed) {
            return;
        }
        closed = true;
        constexpr int longest_wait = 2000000;  // µs
        constexpr int poll = 1000;             // µs
        guard& g = the_guard();
        g.process_ends = true;
        store_release(max_wait_seconds, 0);
        for (int waited = 0; !g.inside_call.try_lock() && waited < longest_wait; waited += poll) {
            usleep(poll);
        }
        g.view.lock();  // as the other one, for good
    }
};

// What was made last is destroyed first. The guard must go before the library's variables, which are there from
// the start, and before what the library makes with its first worker: that waits for the workers, and would wait
// for its own two seconds while new ones are launched.
void be_there_before_the_end(bool workers_have_begun)
{
    static const end_of_process before_the_variables;
    if (workers_have_begun) {
        static const end_of_process before_the_workers;
    }
}

// The view, locked, for as long as it takes to look at the current sweep.
std::unique_lock<std::mutex> view_of_current(sweep_id sweep)
{
    std::unique_lock<std::mutex> lock(the_guard().view);
    if (sweep == no_sweep || sweep != the_guard().current) {
        throw sweep_is_over();
    }
    return lock;
}

void check_current(sweep_id sweep)
{
    view_of_current(sweep).unlock();
}

// Makes the state of the task visible to the other threads. The library's lock must be held.
void show(sweep_id sweep)
{
    guard& g = the_guard();
    cv::Mat preview = getCurrentPanoramsShowMat();
    std::string panorama = getCurrentPanoramaShow();
    const std::lock_guard<std::mutex> lock(g.view);
    g.current = sweep;
    cv::swap(g.preview, preview);
    g.panorama.swap(panorama);
    g.key_frames = tarn_stitcher.big_frame_index;
}

}  // namespace

sweep_is_over::sweep_is_over()
    : std::logic_error("this sweep is over: it was closed, or another one was started after it")
{
}

sweep_id begin_sweep(const std::string& directory)
{
    be_there_before_the_end(false);
    guard& g = the_guard();
    const std::lock_guard<std::mutex> one_at_a_time(g.one_replacement);
    const auto lock = library_for_replacement();
    resetStitch(directory.c_str());
    // The library reports nothing. Without a directory that it can open the old task is still in place.
    if (tarn_stitcher.local_path != directory || !(directory.empty() || isFloderexit(directory.c_str()))) {
        return no_sweep;
    }
    show(++g.newest);
    return g.newest;
}

void end_sweep(sweep_id sweep)
{
    const std::lock_guard<std::mutex> one_at_a_time(the_guard().one_replacement);
    try {
        check_current(sweep);
    } catch (const sweep_is_over&) {
        return;
    }
    const auto lock = library_for_replacement();
    resetStitch("");
    show(no_sweep);
}

int register_frame(sweep_id sweep, const cv::Mat& rgba, int direction, bool is_last)
{
    check_current(sweep);
    guard& g = the_guard();
    std::unique_lock<std::mutex> lock(g.inside_call, std::defer_lock);
    if (is_last && !g.process_ends) {
        if (g.being_replaced) {
            const std::lock_guard<std::mutex> after_the_replacement(g.one_replacement);
        }
        lock.lock();
    } else if (g.process_ends || g.being_replaced || !lock.try_lock()) {
        const std::lock_guard<std::mutex> looking(g.view);
        return look_at_pipeline().status == pipeline_failed ? code_pipeline_failed : code_busy;
    }
    check_current(sweep);  // another one may have been begun before the lock was had
    const int code = videoStitch(rgba, direction, is_last ? 1 : 0)[0];
    be_there_before_the_end(tarn_stitcher.big_frame_index > 0);
    show(sweep);
    return code;
}

sweep_view look_at_sweep(sweep_id sweep)
{
    const auto lock = view_of_current(sweep);
    const int turns_over = look_at_pipeline().turns_over;
    const guard& g = the_guard();
    return {g.preview, g.panorama, std::max(0, g.key_frames - turns_over)};
}

}  // namespace tarn::binding
