// SPDX-License-Identifier: Apache-2.0
//
// The library waits for its workers in the destructor of a static object that the first launch constructs.
// Objects constructed later are destroyed earlier, while workers may still be using them. This program records
// what is constructed after the first launch, through all that a worker can come to, and fails if there is
// anything.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

#include "internal/shared_state.h"
#include "internal/worker_life.h"
#include "internal/worker_pool.h"
#include "tarn_stitch_jni.h"

namespace {

using destructor = void (*)(void*);

// Plain arrays: they need no construction, so they are ready before the first registration.
constexpr int capacity = 100000;
destructor registered[capacity];
std::atomic<int> count{0};

}  // namespace

// Stands in for the run-time library's registration of destructors; the name and the signature are those of the
// Itanium C++ ABI, section 3.3.6.3.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __cxa_atexit(void (*destroy)(void*), void* object, void* library)
{
    using registration = int (*)(void (*)(void*), void*, void*);
    static const auto hand_on = reinterpret_cast<registration>(dlsym(RTLD_NEXT, "__cxa_atexit"));
    const int position = count++;
    if (hand_on == nullptr || position >= capacity) {
        std::abort();
    }
    registered[position] = destroy;
    return hand_on(destroy, object, library);
}

namespace {

const std::vector<float> full_size = {1.0f, 1.0f, 1.0f, 1.0f};
const std::vector<float> right_angles = {90.0f, 90.0f, 90.0f, 90.0f};

/// A frame of a slide over coloured blocks, made without OpenCV's help, so that it is the workers who
/// first need what the library constructs late.
cv::Mat key_frame(int index)
{
    constexpr int step = 90;  // px
    constexpr int block = 7;  // px
    cv::Mat frame(240, 320, CV_8UC3);
    for (int y = 0; y < frame.rows; ++y) {
        for (int x = 0; x < frame.cols; ++x) {
            const int column = (x + (index - 1) * step) / block;
            const unsigned random = static_cast<unsigned>(column * 7919 + y / block * 104729) * 2654435761U;
            frame.at<cv::Vec3b>(y, x) = {static_cast<uchar>(random >> 24U), static_cast<uchar>(random >> 16U),
                                         static_cast<uchar>(random >> 8U | 1U)};
        }
    }
    return frame;
}

void wait_for_workers()
{
    while (tarn::workers_in_flight() > 0) {
        usleep(1000);
    }
}

void launch_one(const cv::Mat& frame, const std::vector<float>& angles, int direction, int index)
{
    tarn::launch_worker(frame, angles, full_size, direction, index);
    wait_for_workers();
}

void expect_status(int status, const char* what)
{
    if (big_stitch_status != status) {
        std::fprintf(stderr, "%s: status %d instead of %d\n", what, big_stitch_status, status);
        std::exit(1);
    }
}

}  // namespace

int main()
{
    std::string directory = (std::filesystem::temp_directory_path() / "tarnstitch_late_XXXXXX").string();
    if (mkdtemp(directory.data()) == nullptr) {
        std::perror(directory.c_str());
        return 2;
    }
    directory += "/";
    std::cout.setstate(std::ios::failbit);
    const cv::Mat first = key_frame(1);

    resetStitch(directory.c_str());
    tarn::launch_worker(first, right_angles, full_size, 3, 1);
    const int constructed_first = count;
    wait_for_workers();
    expect_status(tarn::pipeline_ready, "the base");
    launch_one(key_frame(2), right_angles, 3, 2);
    expect_status(tarn::pipeline_ready, "a frame");
    // The other projection, and a matcher that raises an error.
    launch_one(key_frame(3), {87.0f, 93.0f, 93.0f, 87.0f}, 3, 3);
    expect_status(tarn::pipeline_ready, "a frame on the cylinder");
    resetStitch(directory.c_str());
    launch_one(first, right_angles, 2, 1);
    launch_one(key_frame(2), {93.0f, 93.0f, 87.0f, 87.0f}, 2, 2);
    expect_status(tarn::pipeline_failed, "the switch to the sphere");
    // A frame without pixels, and a directory that is not there.
    resetStitch(directory.c_str());
    launch_one(cv::Mat(), right_angles, 3, 1);
    expect_status(tarn::pipeline_failed, "a frame without pixels");
    resetStitch(directory.c_str());
    std::filesystem::remove_all(directory);
    launch_one(first, right_angles, 3, 1);
    expect_status(tarn::pipeline_ready, "no directory");

    int late = 0;
    for (int i = constructed_first; i < count; ++i) {
        Dl_info place = {};
        dladdr(reinterpret_cast<void*>(registered[i]), &place);
        std::fprintf(stderr, "constructed after the first launch: an object of %s, destructor %s\n",
                     place.dli_fname != nullptr ? place.dli_fname : "?",
                     place.dli_sname != nullptr ? place.dli_sname : "without a name");
        ++late;
    }
    return late == 0 ? 0 : 1;
}
