// SPDX-License-Identifier: Apache-2.0
//
// Loops whose passes are done side by side. This header is the library's own; a host needs nothing from it.
#pragma once

#include <atomic>

#include <opencv2/core.hpp>

namespace tarn {

/// The body of such a loop. Its threads meet through the two atomics, and not only through the loop, whose own
/// means ThreadSanitizer cannot see.
template <typename Work>
class parallel_body : public cv::ParallelLoopBody {
public:
    explicit parallel_body(const Work& work)
    {
        work_.store(&work, std::memory_order_release);
    }

    void operator()(const cv::Range& range) const override
    {
        const count_when_done counted{passes_done_};
        (*work_.load(std::memory_order_acquire))(range);
    }

    void meet() const
    {
        passes_done_.load(std::memory_order_acquire);
    }

private:
    struct count_when_done {
        std::atomic<int>& count;

        ~count_when_done()
        {
            count.fetch_add(1, std::memory_order_release);
        }
    };

    std::atomic<const Work*> work_{nullptr};
    mutable std::atomic<int> passes_done_{0};
};

/// cv::parallel_for_ over a range, in `stripes` parts (-1: as many as the image library likes). Any thread.
/// @throws cv::Exception when a part throws
template <typename Work>
void for_side_by_side(const cv::Range& range, const Work& work, double stripes = -1.0)
{
    const parallel_body<Work> body(work);
    cv::parallel_for_(range, body, stripes);
    body.meet();
}

}  // namespace tarn
