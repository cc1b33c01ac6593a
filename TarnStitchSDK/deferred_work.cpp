// SPDX-License-Identifier: Apache-2.0
#include "deferred_work.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <utility>

#include <opencv2/core.hpp>

namespace tarn {

namespace {

using piece_list = std::vector<deferred_work*>;

// How the threads of one loop meet: through these, and not only through the loop, whose own means
// ThreadSanitizer cannot see.
std::atomic<const piece_list*> current_pieces{nullptr};
std::atomic<std::size_t> pieces_begun{0};
std::atomic<int> threads_done{0};

// One element per thread; each takes piece after piece until there is none.
struct take_pieces : cv::ParallelLoopBody {
    void operator()(const cv::Range&) const override
    {
        const piece_list& pieces = *current_pieces.load(std::memory_order_acquire);
        for (std::size_t i = pieces_begun++; i < pieces.size(); i = pieces_begun++) {
            pieces[i]->run_ahead();
        }
        threads_done.fetch_add(1, std::memory_order_release);
    }
};

}  // namespace

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
    pieces_begun = 0;
    current_pieces.store(&pieces, std::memory_order_release);
    cv::parallel_for_(cv::Range(0, threads), take_pieces(), threads);
    threads_done.load(std::memory_order_acquire);
}

}  // namespace tarn
