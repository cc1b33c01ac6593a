// SPDX-License-Identifier: Apache-2.0
#include "tarn_stitch_jni.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "internal/directory_identity.h"
#include "internal/live_call.h"
#include "internal/shared_state.h"
#include "internal/spare_frames.h"
#include "internal/worker_pool.h"

// The variables that its constructor resets are inline variables of a header included above, so they are constructed
// before it whatever the order in which the objects are linked. Inline here, and nowhere else, for the guard that this
// gives it: another copy of the library that shares the name does not construct it again.
inline TarnStitcher tarn_stitcher("");

namespace {

constexpr int one_sleep = 100000;     // µs
constexpr int longest_sum = 1000000;  // µs; exceeded by the eleventh sleep

// A thread that hands over frame after frame leaves the members for moments only, which one look would hardly ever meet.
tarn::recursive_lock look_for_members()
{
    using clock = std::chrono::steady_clock;
    constexpr auto longest_look = std::chrono::milliseconds(4);
    const clock::time_point begun = clock::now();
    tarn::recursive_lock members = tarn::try_to_lock_members();
    while (!members && clock::now() - begun < longest_look) {
        std::this_thread::yield();
        members = tarn::try_to_lock_members();
    }
    return members;
}

// Waits while a frame is inside the task, for at most 11 sleeps less what has been waited for already; then the caller
// goes on regardless. The lock is not held (false) when another thread is still at the members.
tarn::recursive_lock wait_while_busy(int total_sleep)
{
    while (true) {
        auto members = look_for_members();
        bool busy = !members;
        if (members) {  // the status is looked at under the lock: another reset replaces the members as a whole
            const int status = tarn::load_acquire(tarn_stitcher.stitcher_status);
            busy = status == tarn::live_registering || status == tarn::live_busy;
        }
        if (!busy || total_sleep > longest_sum) {
            return members;
        }
        if (members) {
            members.unlock();
        }
        usleep(one_sleep);
        total_sleep += one_sleep;
    }
}

constexpr mode_t owner_may_write = 0200;  // exactly this mode

// Removes the old directory and makes it anew. Where the process would be locked out of the new one, as an ordinary
// user is, it gets the mode that the old one had.
void replace_directory(const std::string& path)
{
    struct stat before {};

    const std::unique_ptr<char, decltype(&std::free)> place(realpath(path.c_str(), nullptr), &std::free);
    const bool is_known = place && stat(place.get(), &before) == 0;
    tarn_stitcher.remove_local_path();
    if (is_known && mkdir(place.get(), owner_may_write) == 0
        && faccessat(AT_FDCWD, place.get(), R_OK | W_OK | X_OK, AT_EACCESS) != 0) {
        constexpr mode_t permissions = 07777;
        chmod(place.get(), before.st_mode & permissions);
    }
}

// Removes the directory of the task that is replaced. Paths are compared byte for byte, by design, so that another
// spelling of the same directory makes it anew. One that lies around the new task's stays, emptied, with all that are on
// the way to that one.
void leave_directory(const std::string& _local_path)
{
    const std::string& old_path = tarn_stitcher.local_path;
    const std::vector<tarn::directory_identity> way = tarn::directories_towards(_local_path);
    switch (tarn::how_directories_lie(old_path, _local_path, way)) {
    case tarn::directories_lie::apart:
        tarn_stitcher.remove_local_path();
        break;
    case tarn::directories_lie::as_one:
        replace_directory(old_path);
        break;
    case tarn::directories_lie::new_inside_old:
        tarn::empty_directory_but(old_path.c_str(), way);
        break;
    }
}

// Replaces the task. The old one stays in place when the new directory cannot be had.
void start_task(const std::string& _local_path)
{
    if (_local_path != tarn_stitcher.local_path) {
        leave_directory(_local_path);
    }
    if (_local_path.empty() || isFloderexit(_local_path.c_str()) || mkdir(_local_path.c_str(), owner_may_write) == 0) {
        TarnStitcher fresh(_local_path);
        const auto nobody_looks = tarn::lock_handover();
        tarn_stitcher = std::move(fresh);
    }
}

}  // namespace

int resetStitch(const char* input_path)
{
    using std::chrono::microseconds;
    using clock = std::chrono::steady_clock;
    try {
        // Before the first frame there is nothing that the end of the process or a fork would have to wait for.
        const tarn::call_inside call(nullptr);
        if (!call.is_admitted()) {
            return 1;
        }
        const std::string _local_path = input_path == nullptr ? "" : input_path;
        const clock::time_point begun = clock::now();
        // Held throughout, so that no worker of the old task puts a file into a directory just emptied.
        auto no_file_is_written = tarn::lock_directory_until(begun);
        std::int64_t waited = 0;  // µs; a lock that is free takes none away from the sleeps
        if (!no_file_is_written) {
            no_file_is_written = tarn::lock_directory_until(begun + microseconds(longest_sum + one_sleep));
            waited = std::chrono::duration_cast<microseconds>(clock::now() - begun).count();
        }
        if (no_file_is_written) {
            if (const auto members = wait_while_busy(static_cast<int>(waited))) {
                start_task(_local_path);
                return 1;
            }
        }
        tarn::abandon_task();
    } catch (const std::exception&) {
        // Memory is short: nothing is reported, and the old task stays in place.
    }
    return 1;
}

int* videoStitch(cv::Mat mat, int direction, int is_last_one)
{
    static int buf[2] = {0, 0};  // keeps the result of the frame before when this one raises an error
    const auto spent = tarn::call_live_path([&] {
        // Floats that are huge or no numbers at all would lead the worker's feature detector out of its images.
        CV_Assert(mat.depth() != CV_32F);
        // Never the host's own pixels, nor any that are still in use: the worker and the task keep this image.
        cv::Mat input_frame;
        if (mat.type() == CV_8UC4 && mat.dims == 2 && !mat.empty()) {
            input_frame = tarn::take_spare_frame(mat.size(), CV_8UC3);
        }
        cv::cvtColor(mat, input_frame, cv::COLOR_RGBA2BGR);
        const int* stitch_result = tarn_stitcher.ofcheck_stitch(input_frame, direction, is_last_one);
        tarn::store_release(buf[0], stitch_result[0]);
        tarn::store_release(buf[1], stitch_result[1]);
    });
    if (!spent) {
        tarn::store_release(buf[0], tarn::code_pipeline_failed);
        tarn::store_release(buf[1], 0);
    }
    return buf;
}

const char* getCurrentPanoramaShow()
{
    const tarn::call_inside call(nullptr);
    if (!call.may_look()) {
        return "";
    }
    const auto lock = tarn::lock_handover();
    return tarn_stitcher.big_stitch_image_path.c_str();
}

const char* getTestCurrentPanoramaShow()
{
    // A copy of the calling thread's own: a worker may replace the string at any moment, and with it the characters.
    static thread_local std::string shown_path;
    try {
        const tarn::call_inside call(nullptr);
        if (!call.may_look()) {
            return "";
        }
        const auto lock = tarn::lock_handover();
        shown_path = test_image_path;
    } catch (const std::exception&) {
        shown_path.clear();
    }
    return shown_path.c_str();
}

cv::Mat getCurrentPanoramsShowMat()
{
    const tarn::call_inside call(nullptr);
    if (!call.may_look()) {
        return {};
    }
    const auto lock = tarn::lock_handover();
    return tarn_stitcher.last_stitch_image;
}

int* nativeCarrier_getCurrentPanoramaShow()
{
    try {
        return matToBitmapArray(getCurrentPanoramsShowMat());
    } catch (const std::exception&) {
        return nullptr;
    }
}
