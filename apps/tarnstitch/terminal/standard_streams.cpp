// SPDX-License-Identifier: Apache-2.0
//
// Standard streams: descriptors kept open, one-line messages above a status line, silence for libraries.
#include "standard_streams.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <mutex>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "host_error.h"
#include "terminal/printable_text.h"

namespace tarn::host {

namespace {

/// A duplicate of standard error, made at the start: messages reach the user while a decoder is silenced.
int message_descriptor = STDERR_FILENO;

/// Whether the caller has given a standard output.
bool has_output = true;

std::atomic<bool> quiet{false};

/// What is shown at the bottom of the terminal. Never destroyed: a signal may come while the process winds down.
struct status {
    std::mutex mutex;
    std::string line;
};

status& current_status()
{
    static auto* const one = new status;
    return *one;
}

constexpr const char* to_the_margin_and_clear = "\r\x1b[K";

/// Moves what the streams on a descriptor still hold to where it was meant to go.
void flush_streams(int descriptor)
{
    if (descriptor == STDOUT_FILENO) {
        std::cout.flush();
        std::fflush(stdout);
    } else {
        std::cerr.flush();
        std::fflush(stderr);
    }
}

/// Whether a file is what a descriptor leads to, and keeps what is written there: in /dev/null and its like nothing
/// can get mixed.
bool is_of_descriptor(const std::string& file, int descriptor)
{
    struct stat one = {};
    struct stat other = {};
    if (fstat(descriptor, &one) != 0 || stat(file.c_str(), &other) != 0) {
        return false;
    }
    const bool keeps_text = !S_ISCHR(one.st_mode) || isatty(descriptor) == 1;
    return keeps_text && one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Whether a message would be taken without a wait: not by a terminal that has been halted (Ctrl-S), for one.
bool messages_are_taken()
{
    pollfd place = {message_descriptor, POLLOUT, 0};
    return poll(&place, 1, 0) == 1 && (place.revents & POLLOUT) != 0;
}

/// Writes as much as can be written: there is nowhere to complain to.
void write_message(const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(message_descriptor, text.data() + done, text.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            return;
        }
    }
}

}  // namespace

void open_standard_descriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            has_output = has_output && descriptor != STDOUT_FILENO;
            // The lowest free number is taken, and those below are open by now.
            static_cast<void>(open("/dev/null", O_RDWR));
        }
    }
    const int duplicate = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (duplicate != -1) {
        message_descriptor = duplicate;
    }
}

bool has_standard_output()
{
    return has_output;
}

bool is_standard_output(const std::string& file)
{
    return is_of_descriptor(file, STDOUT_FILENO);
}

void say(const std::string& text)
{
    const std::string line = "tarnstitch: " + printable(text) + '\n';
    const std::lock_guard<std::mutex> lock(current_status().mutex);
    const std::string& shown = current_status().line;
    write_message(shown.empty() ? line : to_the_margin_and_clear + line + shown);
}

void note(const std::string& text)
{
    if (!quiet) {
        say(text);
    }
}

void be_quiet()
{
    quiet = true;
}

bool messages_go_to_a_terminal()
{
    return isatty(message_descriptor) == 1;
}

int terminal_width()
{
    constexpr int usual = 80;
    struct winsize size = {};
    return ioctl(message_descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

void show_status_line(const std::string& text)
{
    if (quiet) {
        return;
    }
    const std::lock_guard<std::mutex> lock(current_status().mutex);
    if (current_status().line != text) {
        current_status().line = text;
        write_message(to_the_margin_and_clear + text);
    }
}

void leave_status_line()
{
    const std::unique_lock<std::mutex> lock(current_status().mutex, std::try_to_lock);
    if (lock.owns_lock() && !current_status().line.empty() && messages_are_taken()) {
        write_message("\n");
    }
}

silenced_descriptor::silenced_descriptor(int descriptor)
    : descriptor_(descriptor), saved_(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
{
    flush_streams(descriptor_);
    const int target = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (target != -1) {
        dup2(target, descriptor_);
        close(target);
    }
}

void silenced_descriptor::send_to(const std::string& file)
{
    flush_streams(descriptor_);
    // For a moment what it was: the file may be named by the descriptor, as /dev/stdout is.
    const int silence = fcntl(descriptor_, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (saved_ != -1) {
        dup2(saved_, descriptor_);
    }
    // Where the file is open already there is one place in it for all, and what it held before stays. Appending: should
    // somebody else write to the file, too, neither destroys the other's lines.
    int already_open = -1;
    for (const int descriptor : {message_descriptor, saved_}) {
        if (descriptor != -1 && is_of_descriptor(file, descriptor)) {
            already_open = descriptor;
        }
    }
    const int target = already_open != -1
                           ? fcntl(already_open, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)
                           : open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666);
    const int error = errno;
    dup2(target != -1 ? target : silence, descriptor_);
    close(silence);
    if (target == -1) {
        throw host_error(exit_code::output_failed,
                         "cannot write " + file + ": " + std::generic_category().message(error));
    }
    close(target);
}

silenced_descriptor::~silenced_descriptor()
{
    flush_streams(descriptor_);
    if (saved_ != -1) {
        dup2(saved_, descriptor_);
        close(saved_);
    }
}

}  // namespace tarn::host
