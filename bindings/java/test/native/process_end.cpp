// SPDX-License-Identifier: Apache-2.0
//
// A process that ends while another thread is handing over frames. What that thread does then must not meet the
// library's variables after they are destroyed. Argument: "frames", or "last" for a thread that waits for panoramas.
#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "support/rendered_sweep.h"
#include "tarn_sweep.h"

namespace {

std::atomic<int> taken{0};  // frames that went into the library

// Older than every other variable of the program, so its end comes after that of all others.
struct after_everything_else {
    ~after_everything_else()
    {
        constexpr unsigned long enough = 100000;  // µs; a thread that is not kept out takes tens of frames
        const int before = taken;
        usleep(enough);
        if (taken != before) {
            constexpr int library_used_after_its_end = 3;
            _exit(library_used_after_its_end);
        }
    }
};

__attribute__((init_priority(101))) const after_everything_else look_at_what_still_runs;

}  // namespace

int main(int argc, char* argv[])
{
    if (argc != 2) {
        return EXIT_FAILURE;
    }
    const bool last = argv[1] == std::string("last");
    // Never destroyed, as what a virtual machine holds is not.
    static auto& frames = *new std::vector<cv::Mat>;
    const tarn::test::rendered_sweep source = tarn::test::slide({426, 320}, tarn::test::moving_right, 15.0, 8);
    for (int i = 0; i < source.length(); ++i) {
        frames.push_back(source.host_frame(i));
    }

    static auto& sweep = *new tarn::sweep(tarn::sweep::begin());
    std::thread([last] {
        for (std::size_t i = 0;; ++i) {
            const tarn::frame_view frame = tarn::view_of(frames[i % frames.size()]);
            if (last && i > 3) {
                tarn::finish_options options;
                options.last_frame = &frame;
                taken += sweep.finish(options).last_frame.taken ? 1 : 0;
            } else {
                taken += sweep.feed(frame).taken ? 1 : 0;
            }
        }
    }).detach();
    while (sweep.preview().pixels.empty()) {
        std::this_thread::yield();
    }
    return EXIT_SUCCESS;
}
