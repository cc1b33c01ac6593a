// SPDX-License-Identifier: Apache-2.0
//
// Takes them all for a moment, and gives them back.
#include "resources.h"

#include <cerrno>
#include <condition_variable>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include <opencv2/core.hpp>

#include "host_error.h"

namespace tarn::host {

namespace {

/// Threads that all live until the object ends.
class waiting_threads {
public:
    waiting_threads() = default;

    ~waiting_threads()
    {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            over_ = true;
        }
        end_.notify_all();
        for (std::thread& one : threads_) {
            one.join();
        }
    }

    waiting_threads(const waiting_threads&) = delete;
    waiting_threads& operator=(const waiting_threads&) = delete;

    /// @throws std::system_error
    void start_one()
    {
        threads_.emplace_back([this] {
            std::unique_lock<std::mutex> lock(mutex_);
            end_.wait(lock, [this] { return over_; });
        });
    }

private:
    std::mutex mutex_;
    std::condition_variable end_;
    bool over_ = false;
    std::vector<std::thread> threads_;
};

void check_threads(int needed)
{
    waiting_threads all;
    for (int started = 0; started < needed; ++started) {
        try {
            all.start_one();
        } catch (const std::system_error&) {
            throw host_error(exit_code::short_of_means,
                             "too few threads: a run takes " + std::to_string(needed) + " more, and the system gives "
                                 + std::to_string(started)
                                 + "; raise the limit on processes (ulimit -u, or the container's)");
        }
    }
}

void check_descriptors(int needed)
{
    std::vector<int> taken;
    int error = 0;
    while (error == 0 && static_cast<int>(taken.size()) < needed) {
        const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        descriptor >= 0 ? taken.push_back(descriptor) : static_cast<void>(error = errno);
    }
    for (const int descriptor : taken) {
        close(descriptor);
    }
    // Where there is no /dev/null at all, nothing is known.
    if (error == EMFILE || error == ENFILE) {
        throw host_error(exit_code::short_of_means, "too few files may be open at once: a run takes "
                                                        + std::to_string(needed) + " more, and the system gives "
                                                        + std::to_string(taken.size())
                                                        + "; raise the limit (ulimit -n)");
    }
}

}  // namespace

void check_resources(int threads, int workers)
{
    // The input, an output beside its temporary file, a working file of each of two workers, OpenCV's and the decoder's
    // own.
    constexpr int descriptors = 8;
    check_descriptors(descriptors);
    // The decoder's threads, OpenCV's beside the caller's, the workers, and one that reads ahead.
    check_threads(threads + (cv::getNumThreads() - 1) + workers + 1);
}

}  // namespace tarn::host
