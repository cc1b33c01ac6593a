// SPDX-License-Identifier: Apache-2.0
#include "internal/wait_clock.h"

#include <opencv2/core.hpp>

#include "internal/worker_queue.h"
#include "module_globals.h"
#include "shared_access.h"

namespace tarn {

wait_clock::wait_clock() : start_(cv::getTickCount())
{
}

bool wait_clock::has_run_out() const
{
    if (is_queued_worker()) {
        return true;  // what it waits for cannot come before it ends
    }
    const double elapsed = static_cast<double>(cv::getTickCount() - start_) / cv::getTickFrequency();
    return elapsed > static_cast<double>(load_acquire(max_wait_seconds));
}

}  // namespace tarn
