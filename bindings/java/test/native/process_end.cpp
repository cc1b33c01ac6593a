// SPDX-License-Identifier: Apache-2.0
//
// A process that ends while another thread is handing over frames. What that thread does then must not meet the
// library's variables after they are destroyed. Argument: "frames", or "last" for a thread that waits for panoramas.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include "support/rendered_sweep.h"
#include "sweep_guard.h"

namespace {

constexpr int busy = 0;
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
    using namespace tarn::binding;
    if (argc != 2) {
        return EXIT_FAILURE;
    }
    const bool last = argv[1] == std::string("last");
    std::string directory = (std::filesystem::temp_directory_path() / "tarnstitch_end_XXXXXX").string();
    if (mkdtemp(directory.data()) == nullptr) {
        return EXIT_FAILURE;
    }
    directory += "/";

    // Never destroyed, as what a virtual machine holds is not.
    static auto& frames = *new std::vector<cv::Mat>;
    const tarn::test::rendered_sweep sweep = tarn::test::slide({426, 320}, tarn::test::moving_right, 15.0, 8);
    for (int i = 0; i < sweep.length(); ++i) {
        frames.push_back(sweep.host_frame(i));
    }

    const sweep_id id = begin_sweep(directory);
    std::thread([id, last] {
        for (std::size_t i = 0;; ++i) {
            const int code = register_frame(id, frames[i % frames.size()], 0, last && i > 3);
            taken += code == busy ? 0 : 1;
        }
    }).detach();
    while (look_at_sweep(id).preview.empty()) {
        std::this_thread::yield();
    }
    std::error_code ignored;  // workers may be writing there
    std::filesystem::remove_all(directory, ignored);
    return EXIT_SUCCESS;
}
