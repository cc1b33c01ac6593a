// SPDX-License-Identifier: Apache-2.0
//
// Telling how far the work is, and ending it when nobody wants it any more. This header is the library's own.
#pragma once

#include <cstddef>
#include <functional>

#include <opencv2/core.hpp>

#include "tarn_finishing.h"

namespace tarn::finishing {

/// Thrown where the host wants no more; caught in finish.
struct cancelled_by_host {};

class progress_meter {
public:
    explicit progress_meter(const std::function<bool(stage, double)>& told) : told_(told)
    {
    }

    /// @throws cancelled_by_host
    void at(stage now, double part) const
    {
        if (told_ && !told_(now, part)) {
            throw cancelled_by_host();
        }
    }

    /// Runs `work(i)` for i from 0 to count - 1, some at a time on OpenCV's threads, and tells between them.
    template <typename Work>
    void for_each(stage now, double from, double to, std::size_t count, const Work& work) const
    {
        constexpr std::size_t at_a_time = 4;
        for (std::size_t begin = 0; begin < count; begin += at_a_time) {
            at(now, from + (to - from) * static_cast<double>(begin) / static_cast<double>(count));
            const std::size_t end = begin + at_a_time < count ? begin + at_a_time : count;
            cv::parallel_for_(
                cv::Range(static_cast<int>(begin), static_cast<int>(end)),
                [&](const cv::Range& range) {
                    for (int i = range.start; i < range.end; ++i) {
                        work(static_cast<std::size_t>(i));
                    }
                },
                static_cast<double>(end - begin));
        }
    }

private:
    const std::function<bool(stage, double)>& told_;
};

}  // namespace tarn::finishing
