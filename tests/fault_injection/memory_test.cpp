// SPDX-License-Identifier: Apache-2.0
//
// Memory that runs out, at any point of a sweep: in processes of their own, whose address space is limited to little
// more than they use. Each call is answered, nothing crashes or hangs, and with room again the next sweep is as good
// as any.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "fault_fixture.h"
#include "support/sanitizers.h"

namespace {

using namespace tarn::test;  // NOLINT(google-build-using-namespace): the tests' own helpers
using tarn::worker_stage;

/// Bytes of address space in use.
rlim_t address_space()
{
    unsigned long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

/// While one lives, the process may use no more than `room` bytes more.
class little_room {
public:
    explicit little_room(rlim_t room)
    {
        getrlimit(RLIMIT_AS, &kept_);
        const rlimit limit = {address_space() + room, kept_.rlim_max};
        setrlimit(RLIMIT_AS, &limit);
    }

    ~little_room()
    {
        setrlimit(RLIMIT_AS, &kept_);
    }

    little_room(const little_room&) = delete;
    little_room& operator=(const little_room&) = delete;

private:
    rlimit kept_{};
};

class LittleMemory : public fault_fixture {
protected:
    void SetUp() override
    {
        fault_fixture::SetUp();
#ifdef TARN_SANITIZED
        GTEST_SKIP() << "sanitizers need the address space for themselves";
#endif
        if (access("/proc/self/statm", R_OK) != 0) {
            GTEST_SKIP() << "needs /proc";
        }
    }

    static constexpr rlim_t megabyte = rlim_t{1} << 20U;
};

TEST_F(LittleMemory, SweepIsAnsweredWithWhateverRoomThereIs)
{
    TARN_EXPECT_IN_OWN_PROCESS([this] {
        std::cout.rdbuf(nullptr);  // the fixture's stream takes memory of its own
        const std::vector<unsigned char> undisturbed = whole_sweep(directory());
        require(!undisturbed.empty(), "a sweep with room");
        for (const rlim_t room : {0UL, 1UL, 2UL, 3UL, 4UL, 6UL, 8UL, 12UL, 16UL, 24UL, 32UL, 48UL, 64UL, 96UL, 128UL}) {
            resetStitch(directory().c_str());
            {
                max_wait_seconds = 1;  // for workers that were never started
                const little_room limited(room * megabyte);
                for (std::size_t i = 0; i < frames().size(); ++i) {
                    const int code = feed(i);
                    require(code >= -1 && code <= 6, "a code");
                    getCurrentPanoramsShowMat();
                    delete[] nativeCarrier_getCurrentPanoramaShow();
                }
                require(wait_for_workers(), "workers end");
            }
            max_wait_seconds = patient_wait;
            require(whole_sweep(directory()) == undisturbed, "with room again, a sweep like any other");
        }
    });
}

TEST_F(LittleMemory, WorkerWithoutRoomFailsItsTurnAndThePreviewStays)
{
    TARN_EXPECT_IN_OWN_PROCESS([this] {
        std::cout.rdbuf(nullptr);
        const std::vector<unsigned char> undisturbed = whole_sweep(directory());
        for (const worker_stage stage :
             {worker_stage::started, worker_stage::frame_prepared, worker_stage::frame_described,
              worker_stage::turn_taken, worker_stage::registered, worker_stage::composed}) {
            resetStitch(directory().c_str());
            std::unique_ptr<little_room> limited;
            stepper.at(stage, 2, [&limited] { limited = std::make_unique<little_room>(0); });
            std::size_t i = 0;
            for (; tarn_stitcher.big_frame_index < 2; ++i) {
                require(feed(i) > 0, "a frame with room");
            }
            require(wait_for_workers(), "workers end");
            stepper.at(stage, 2, nullptr);
            limited.reset();
            const int status = tarn::look_at_pipeline().status;
            require(status == 3 || status == 4, "the turn is over, well or not");
            require(!getCurrentPanoramsShowMat().empty(), "the preview stays");
            require((feed(i) == -1) == (status == 4), "the live path is told");
            require(wait_for_workers(), "workers end");
            require(whole_sweep(directory()) == undisturbed, "with room again, a sweep like any other");
        }
    });
}

}  // namespace
