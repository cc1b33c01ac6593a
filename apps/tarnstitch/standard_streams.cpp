// SPDX-License-Identifier: Apache-2.0
//
// Standard streams: descriptors kept open, one-line messages, silence for libraries.
#include "standard_streams.h"

#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

namespace tarn::host {

namespace {

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

}  // namespace

void open_standard_descriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            // The lowest free number is taken, and those below are open by now.
            static_cast<void>(open("/dev/null", O_RDWR));
        }
    }
}

void say(const std::string& text)
{
    std::string line = "tarnstitch: " + text;
    for (char& character : line) {
        const auto code = static_cast<unsigned char>(character);
        if (code < 0x20 || code == 0x7f) {
            character = '?';
        }
    }
    line += '\n';
    std::cerr << line << std::flush;
}

silenced_descriptor::silenced_descriptor(int descriptor)
    : descriptor_(descriptor), saved_(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
{
    flush_streams(descriptor_);
    const int null_device = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null_device != -1) {
        dup2(null_device, descriptor_);
        close(null_device);
    }
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
