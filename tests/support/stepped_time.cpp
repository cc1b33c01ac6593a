// SPDX-License-Identifier: Apache-2.0
//
// The test program's own clock.
#include "stepped_time.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <dlfcn.h>
#include <utility>

#include <opencv2/core/utility.hpp>

namespace tarn::test {

namespace {

constexpr double microsecond = 1e-6;  // s
thread_local const stepped_time* stepping = nullptr;

}  // namespace

stepped_time::stepped_time(std::function<void(int)> during)
    : ticks_(cv::getTickCount()), sleep_([this, during = std::move(during)](int poll) {
          pass(sleep_.sleeps().back() * microsecond);
          if (during) {
              during(poll);
          }
      })
{
    stepping = this;
}

stepped_time::~stepped_time()
{
    stepping = nullptr;
}

void stepped_time::pass(double seconds)
{
    ticks_ += std::llround(seconds * cv::getTickFrequency());
}

int stepped_time::polls() const
{
    return static_cast<int>(sleep_.sleeps().size());
}

bool stepped_time::all_polls_took(unsigned microseconds) const
{
    return std::all_of(sleep_.sleeps().begin(), sleep_.sleeps().end(),
                       [microseconds](unsigned length) { return length == microseconds; });
}

}  // namespace tarn::test

// Found before OpenCV's by every call in this program and in the libraries that it loads.
std::int64_t cv::getTickCount()
{
    if (tarn::test::stepping != nullptr) {
        return tarn::test::stepping->ticks();
    }
    static const auto in_the_library = reinterpret_cast<std::int64_t (*)()>(dlsym(RTLD_NEXT, "_ZN2cv12getTickCountEv"));
    return in_the_library();
}
