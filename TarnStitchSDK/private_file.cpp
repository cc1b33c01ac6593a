// SPDX-License-Identifier: Apache-2.0
#include "private_file.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
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

// A name in the directory of `path` for mkostemp to complete, no longer than the shortest name that is written here:
// where that one fits into the limits of the system, this one does.
std::string temporary_name(const std::string& path)
{
    return path.substr(0, path.rfind('/') + 1) + ".tarn-XXXXXX";
}

}  // namespace

bool write_private_jpeg(const std::string& path, const cv::Mat& image)
{
    CV_Assert(!image.empty());
    std::vector<unsigned char> bytes;
    try {
        cv::imencode(".jpg", image, bytes);
        return write_private_file(path, bytes);
    } catch (const std::exception&) {
        return false;  // more pixels than the format takes, or too little memory: like any file that is not written
    }
}

bool write_private_file(const std::string& path, const std::vector<unsigned char>& bytes)
{
    std::string temporary = temporary_name(path);
    const int descriptor = mkostemp(temporary.data(), O_CLOEXEC);  // a new file of mode 0600
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
