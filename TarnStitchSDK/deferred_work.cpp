// SPDX-License-Identifier: Apache-2.0
#include "internal/deferred_work.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <utility>

#include <opencv2/core.hpp>

#include "internal/parallel_loop.h"

namespace tarn {

deferred_work::deferred_work(std::function<void()> work) : work_(std::move(work))
{
}

void deferred_work::run_ahead() noexcept
{
    if (const auto work = std::exchange(work_, nullptr)) {
        try {
            work();
        } catch (...) {
            failure_ = std::current_exception();
        }
    }
}

void deferred_work::finish()
{
    run_ahead();
    if (failure_) {
        std::rethrow_exception(failure_);
    }
}

void run_side_by_side(const std::vector<deferred_work*>& pieces)
{
    const int threads = std::min(cv::getNumThreads(), static_cast<int>(pieces.size()));
    if (threads < 2) {
        return;
    }
    // One pass per thread; each takes piece after piece until there is none.
    std::atomic<std::size_t> pieces_begun{0};
    const auto take_pieces = [&pieces, &pieces_begun](const cv::Range&) {
        for (std::size_t i = pieces_begun++; i < pieces.size(); i = pieces_begun++) {
            pieces[i]->run_ahead();
        }
    };
    for_side_by_side(cv::Range(0, threads), take_pieces, threads);
}

}  // namespace tarn
