// SPDX-License-Identifier: Apache-2.0
#include "internal/picture_file.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <opencv2/imgcodecs.hpp>

namespace tarn {

namespace {

// While one lives, a file that would grow beyond the process's limit (RLIMIT_FSIZE) is an error of the call on this
// thread, and not the signal that ends the process by default.
class file_size_is_no_signal {
public:
    file_size_is_no_signal()
    {
        sigemptyset(&signal_);
        sigaddset(&signal_, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    }

    ~file_size_is_no_signal()
    {
        if (sigismember(&before_, SIGXFSZ) == 0) {
            sigset_t pending;
            sigpending(&pending);
            if (sigismember(&pending, SIGXFSZ) == 1) {
                int taken = 0;
                sigwait(&signal_, &taken);
            }
            pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        }
    }

    file_size_is_no_signal(const file_size_is_no_signal&) = delete;
    file_size_is_no_signal& operator=(const file_size_is_no_signal&) = delete;

private:
    sigset_t signal_{};
    sigset_t before_{};
};

bool write_all(int descriptor, const std::vector<unsigned char>& bytes)
{
    const file_size_is_no_signal quiet;
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = write(descriptor, bytes.data() + done, bytes.size() - done);
        if (written > 0) {
            done += static_cast<size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

// A new file beside `path`, open for writing, whose name is put into `name`. The name is no longer than the shortest
// one that is written here: where that one fits into the limits of the system, this one does. Its mode is what the
// umask leaves of 0666, which mkostemp does not give.
int open_new_file_beside(const std::string& path, std::string& name)
{
    constexpr char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    constexpr mode_t all_may_read_and_write = 0666;
    constexpr int attempts = 100;
    static std::atomic<std::uint64_t> count{0};
    const std::string directory = path.substr(0, path.rfind('/') + 1);
    int descriptor = -1;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        // Nobody else's guess need be hard: a name that is taken, by a link too, is refused and another one tried.
        cv::RNG random(static_cast<std::uint64_t>(cv::getTickCount()) * 2654435761U
                       + (static_cast<std::uint64_t>(getpid()) << 32U) + ++count);
        name = directory + ".tarn-XXXXXX";
        for (auto letter = name.end() - 6; letter != name.end(); ++letter) {
            *letter = letters[random(sizeof letters - 1)];
        }
        descriptor = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, all_may_read_and_write);
        if (descriptor >= 0 || errno != EEXIST) {
            break;
        }
    }
    return descriptor;
}

}  // namespace

bool write_jpeg(const std::string& path, const cv::Mat& image)
{
    CV_Assert(!image.empty());
    std::vector<unsigned char> bytes;
    try {
        cv::imencode(".jpg", image, bytes);
        return write_file(path, bytes);
    } catch (const std::exception&) {
        return false;  // more pixels than the format takes, or too little memory: like any file that is not written
    }
}

bool write_file(const std::string& path, const std::vector<unsigned char>& bytes)
{
    std::string temporary;
    const int descriptor = open_new_file_beside(path, temporary);
    if (descriptor < 0) {
        return false;
    }
    const bool written = write_all(descriptor, bytes);
    // Some file systems find out only now that they are full.
    if (close(descriptor) != 0 || !written || std::rename(temporary.c_str(), path.c_str()) != 0) {
        unlink(temporary.c_str());
        return false;
    }
    return true;
}

}  // namespace tarn
