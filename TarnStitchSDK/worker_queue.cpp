// SPDX-License-Identifier: Apache-2.0
#include "internal/worker_queue.h"

#include <atomic>
#include <deque>
#include <mutex>
#include <unistd.h>
#include <utility>

namespace tarn {

namespace {

std::atomic<bool> queued{false};
thread_local bool inside = false;

// Never destroyed, as nothing is that workers use.
std::mutex& queue_mutex()
{
    static auto& mutex = *new std::mutex;
    return mutex;
}

std::deque<std::function<void()>>& queue()
{
    static auto& workers = *new std::deque<std::function<void()>>;
    return workers;
}

}  // namespace

void queue_workers(bool queued_from_now)
{
    queued = queued_from_now;
}

bool workers_are_queued()
{
    return queued.load();
}

void queue_worker(std::function<void()> worker)
{
    const std::lock_guard<std::mutex> lock(queue_mutex());
    queue().push_back(std::move(worker));
}

bool run_queued_worker()
{
    if (inside) {
        return false;
    }
    std::function<void()> worker;
    {
        const std::lock_guard<std::mutex> lock(queue_mutex());
        if (queue().empty()) {
            return false;
        }
        worker = std::move(queue().front());
        queue().pop_front();
    }

    // Whatever leaves a worker, the next one is not inside it.
    struct leaving {
        ~leaving()
        {
            inside = false;
        }
    } const at_the_end{};

    inside = true;
    worker();
    return true;
}

int queued_workers()
{
    const std::lock_guard<std::mutex> lock(queue_mutex());
    return static_cast<int>(queue().size());
}

bool is_queued_worker()
{
    return inside;
}

void wait_a_moment(unsigned microseconds)
{
    if (!run_queued_worker()) {
        usleep(microseconds);
    }
}

}  // namespace tarn
