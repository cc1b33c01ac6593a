// SPDX-License-Identifier: Apache-2.0
//
// A wall clock that is set forwards and backwards while the library waits: its waits go by a clock that only runs.
#include <atomic>
#include <ctime>
#include <string>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>
#include <opencv2/core/utility.hpp>

#include "fault_fixture.h"

namespace {

std::atomic<bool> clock_jumps{false};
std::atomic<unsigned> wall_clock_reads{0};

/// Days by which the wall clock is wrong at its next reading.
long next_jump()
{
    const unsigned number = ++wall_clock_reads;
    return clock_jumps ? (number % 2 == 0 ? -400L : 400L) * 86400L : 0L;
}

}  // namespace

// Found before the C library's by every call in this program and in the libraries that it loads.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const long result = syscall(SYS_clock_gettime, clock, time);
    if (result == 0 && clock == CLOCK_REALTIME) {
        time->tv_sec += next_jump();
    }
    return static_cast<int>(result);
}

extern "C" int gettimeofday(timeval* time, void* /*zone*/) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    time->tv_sec = now.tv_sec;
    time->tv_usec = now.tv_nsec / 1000;
    return 0;
}

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using tarn::worker_stage;

class JumpingClock : public fault_fixture {
protected:
    void TearDown() override
    {
        clock_jumps = false;
        fault_fixture::TearDown();
    }
};

TEST_F(JumpingClock, WallClockOfThisProgramReallyJumps)
{
    clock_jumps = true;
    timespec one{};
    timespec other{};
    clock_gettime(CLOCK_REALTIME, &one);
    clock_gettime(CLOCK_REALTIME, &other);
    EXPECT_GT(std::abs(one.tv_sec - other.tv_sec), 86400);
}

TEST_F(JumpingClock, WaitsOfASweepNeitherEndEarlyNorLate)
{
    const std::vector<unsigned char> undisturbed = whole_sweep(directory());
    ASSERT_FALSE(undisturbed.empty());
    clock_jumps = true;
    // Worker 3 arrives while worker 2 holds its turn, which goes on until it has polled some times.
    stepper.hold_at(worker_stage::file_written, 3);
    stepper.at(worker_stage::turn_taken, 2, [this] {
        stepper.let_go(worker_stage::file_written, 3);
        stepper.wait_until_at(worker_stage::polling_for_idle, 3, 5);
    });
    EXPECT_TRUE(whole_sweep(directory()) == undisturbed);
    EXPECT_EQ(tarn::look_at_pipeline().status, 3) << "no wait timed out";
}

TEST_F(JumpingClock, TicksOnlyRun)
{
    clock_jumps = true;
    std::int64_t before = cv::getTickCount();
    for (int i = 0; i < 1000; ++i) {
        const std::int64_t now = cv::getTickCount();
        ASSERT_GE(now, before);
        ASSERT_LT(static_cast<double>(now - before) / cv::getTickFrequency(), 3600.0);
        before = now;
    }
}

}  // namespace
