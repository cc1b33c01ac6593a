// SPDX-License-Identifier: Apache-2.0
//
// The test program's own usleep.
#include "counted_sleep.h"

#include <dlfcn.h>
#include <unistd.h>
#include <utility>

namespace tarn::test {

namespace {

thread_local counted_sleep* counting = nullptr;

}  // namespace

counted_sleep::counted_sleep(std::function<void(int)> during) : during_(std::move(during))
{
    counting = this;
}

counted_sleep::~counted_sleep()
{
    counting = nullptr;
}

void counted_sleep::sleep(unsigned microseconds)
{
    sleeps_.push_back(microseconds);
    if (during_)
        during_(static_cast<int>(sleeps_.size()));
}

}  // namespace tarn::test

// Found before the C library's by every call in this program and in the libraries that it loads.
extern "C" int usleep(useconds_t microseconds)
{
    if (tarn::test::counting != nullptr) {
        tarn::test::counting->sleep(microseconds);
        return 0;
    }
    static const auto in_the_library = reinterpret_cast<int (*)(useconds_t)>(dlsym(RTLD_NEXT, "usleep"));
    return in_the_library(microseconds);
}
