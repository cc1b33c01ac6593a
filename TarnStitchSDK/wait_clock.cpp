// SPDX-License-Identifier: Apache-2.0
#include "internal/wait_clock.h"

#include <algorithm>

#include <opencv2/core.hpp>

#include "internal/worker_queue.h"
#include "module_globals.h"
#include "shared_access.h"

namespace tarn {

running_time::running_time() : last_look_(cv::getTickCount())
{
}

void running_time::look()
{
    constexpr double longest = 0.1;  // s
    const std::int64_t now = cv::getTickCount();
    ticks_ += std::min(now - last_look_, static_cast<std::int64_t>(longest * cv::getTickFrequency()));
    last_look_ = now;
}

void running_time::look_after_work()
{
    const std::int64_t now = cv::getTickCount();
    ticks_ += now - last_look_;
    last_look_ = now;
}

double running_time::seconds() const
{
    return static_cast<double>(ticks_) / cv::getTickFrequency();
}

bool wait_clock::has_run_out()
{
    if (is_queued_worker()) {
        return true;  // what it waits for cannot come before it ends
    }
    waited_.look();
    return waited_.seconds() > static_cast<double>(load_acquire(max_wait_seconds));
}

}  // namespace tarn
