// SPDX-License-Identifier: Apache-2.0
//
// Lets a test step in where OpenCV allocates the memory of an image: to make it fail there, or to do
// something at that very moment.
#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include <opencv2/core.hpp>

namespace tarn::test {

/// While one lives, images get their memory through it. Images may outlive it. One at a time.
class watched_allocations : public cv::MatAllocator {
public:
    /// Calls `action` before the allocation with this number, counted from 1; on the thread that allocates, and
    /// once at most. What it throws is what the allocation throws.
    watched_allocations(int number, std::function<void()> action) : remaining_(number), action_(std::move(action))
    {
        cv::Mat::setDefaultAllocator(this);
    }

    ~watched_allocations() override
    {
        cv::Mat::setDefaultAllocator(cv::Mat::getStdAllocator());
    }

    watched_allocations(const watched_allocations&) = delete;
    watched_allocations& operator=(const watched_allocations&) = delete;

    /// Allocations until the action's turn; 0 or less when that has come.
    int remaining() const
    {
        return remaining_;
    }

    bool came_so_far() const
    {
        return remaining_ <= 0;
    }

    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, size_t* step, cv::AccessFlag flags,
                           cv::UMatUsageFlags usage) const override
    {
        if (--remaining_ == 0) {
            action_();
        }
        return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
    }

    bool allocate(cv::UMatData* data, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override
    {
        return cv::Mat::getStdAllocator()->allocate(data, flags, usage);
    }

    void deallocate(cv::UMatData* data) const override
    {
        cv::Mat::getStdAllocator()->deallocate(data);
    }

private:
    mutable std::atomic<int> remaining_;
    std::function<void()> action_;
};

/// An action that fails as OpenCV does for want of memory.
inline void run_out_of_memory()
{
    CV_Error(cv::Error::StsNoMem, "memory is short");
}

}  // namespace tarn::test
