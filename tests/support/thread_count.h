// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

namespace tarn::test {

/// While it lives, OpenCV's parallel loops, and with them the kernels, use so many threads.
class thread_count {
public:
    explicit thread_count(int threads) : before_(cv::getNumThreads())
    {
        cv::setNumThreads(threads);
    }

    ~thread_count()
    {
        cv::setNumThreads(before_);
    }

    thread_count(const thread_count&) = delete;
    thread_count& operator=(const thread_count&) = delete;

private:
    int before_;
};

}  // namespace tarn::test
