// SPDX-License-Identifier: Apache-2.0
//
// Loops whose passes are done side by side.
#pragma once

#include <opencv2/core.hpp>

#if defined(__SANITIZE_THREAD__)
#define TARN_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TARN_THREAD_SANITIZER 1
#endif
#endif

#if defined(TARN_THREAD_SANITIZER)
#include <atomic>
#endif

namespace tarn {

#if defined(TARN_THREAD_SANITIZER)

/// The body of such a loop. Its threads meet through the two atomics, and not only through OpenCV's own means, which
/// ThreadSanitizer cannot see.
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

#else

/// The body of such a loop.
template <typename Work>
class parallel_body : public cv::ParallelLoopBody {
public:
    explicit parallel_body(const Work& work) : work_(work)
    {
    }

    void operator()(const cv::Range& range) const override
    {
        work_(range);
    }

    void meet() const
    {
    }

private:
    const Work& work_;
};

#endif

/// cv::parallel_for_ over a range, in `stripes` parts (-1: as many as OpenCV likes). Any thread.
/// @throws cv::Exception when a part throws
template <typename Work>
void for_side_by_side(const cv::Range& range, const Work& work, double stripes = -1.0)
{
    const parallel_body<Work> body(work);
    cv::parallel_for_(range, body, stripes);
    body.meet();
}

}  // namespace tarn
