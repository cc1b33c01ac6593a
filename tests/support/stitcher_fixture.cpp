// SPDX-License-Identifier: Apache-2.0
//
// The fixture that resets all global state of the library around each test.
#include "stitcher_fixture.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <unistd.h>
#include <utility>

#include <opencv2/core.hpp>

#include "internal/worker_pool.h"

namespace tarn::test {

namespace {

namespace fs = std::filesystem;

using stage_observer = std::function<void(worker_stage, int)>;

/// A wait that takes longer means a worker that will never come. Slow builds on a busy machine stay far below.
constexpr auto patience = std::chrono::minutes(4);

/// What the stage hook, a plain function called from any thread, works on.
struct stage_state {
    std::mutex mutex;
    std::condition_variable released;
    bool holding = false;
    std::vector<int> launches;
    std::shared_ptr<stage_observer> observer;
};

stage_state& stages()
{
    static stage_state* const state = new stage_state;  // outlives any worker
    return *state;
}

void stage_reached(worker_stage stage, int big_frame_index)
{
    stage_state& state = stages();
    std::shared_ptr<stage_observer> observer;
    {
        std::unique_lock<std::mutex> lock(state.mutex);
        if (stage == worker_stage::launching)
            state.launches.push_back(big_frame_index);
        if (stage == worker_stage::started)
            state.released.wait(lock, [&state] { return !state.holding; });
        observer = state.observer;
    }
    if (observer)
        (*observer)(stage, big_frame_index);
}

/// The stream buffer that replaces that of std::cout. Test failures are not caught: they are not written there.
std::stringbuf& caught_output()
{
    static std::stringbuf buffer;
    return buffer;
}

std::streambuf* console = nullptr;

template <typename Condition>
bool wait_until(Condition condition)
{
    const auto start = std::chrono::steady_clock::now();
    while (!condition()) {
        if (std::chrono::steady_clock::now() - start > patience)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Removes a tree, directories that nobody may read included.
void remove_tree(const fs::path& path)
{
    std::error_code error;
    if (fs::is_directory(fs::symlink_status(path, error))) {
        fs::permissions(path, fs::perms::owner_all, error);
        for (const auto& entry : fs::directory_iterator(path, error))
            remove_tree(entry.path());
    }
    fs::remove(path, error);
}

}  // namespace

double test_scale()
{
    const char* const text = std::getenv("TARN_TEST_SCALE");
    const double scale = text != nullptr ? std::strtod(text, nullptr) : 1.0;
    return scale > 0.0 ? scale : 1.0;
}

int scaled_count(int count, int least)
{
    return std::max(least, static_cast<int>(std::lround(count * test_scale())));
}

void stitcher_fixture::SetUp()
{
    std::string pattern = (fs::temp_directory_path() / "tarnstitch_test_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr) << pattern;
    root_ = pattern + "/";
    directory_ = root_ + "sweep/";
    ASSERT_TRUE(fs::create_directory(directory_));

    opencv_threads_ = cv::getNumThreads();
    {
        stage_state& state = stages();
        const std::lock_guard<std::mutex> lock(state.mutex);
        state.holding = false;
        state.launches.clear();
        state.observer.reset();
    }
    worker_stage_hook = &stage_reached;

    caught_output().str("");
    console = std::cout.rdbuf(&caught_output());

    max_wait_seconds = patient_wait;
    resetStitch(directory_.c_str());
}

void stitcher_fixture::TearDown()
{
    // The task goes first, so that a worker that was held finds itself replaced when it is let go.
    tarn_stitcher.stitcher_status = 0;  // no wait for a frame that a test pretends is still being registered
    resetStitch("");
    on_worker_stage(nullptr);
    release_workers();
    wait_for_workers();
    worker_stage_hook = nullptr;

    max_wait_seconds = usual_wait;
    test_image_path.clear();
    if (cv::getNumThreads() != opencv_threads_)
        cv::setNumThreads(opencv_threads_);

    if (console != nullptr)
        std::cout.rdbuf(console);
    console = nullptr;
    if (!root_.empty())
        remove_tree(root_);
}

std::string stitcher_fixture::take_output()
{
    std::string text = caught_output().str();
    caught_output().str("");
    return text;
}

void stitcher_fixture::on_worker_stage(std::function<void(worker_stage, int)> observer)
{
    stage_state& state = stages();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.observer = observer ? std::make_shared<stage_observer>(std::move(observer)) : nullptr;
}

void stitcher_fixture::hold_workers()
{
    stage_state& state = stages();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.holding = true;
}

void stitcher_fixture::release_workers()
{
    stage_state& state = stages();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.holding = false;
    state.released.notify_all();
}

std::vector<int> stitcher_fixture::take_launches()
{
    stage_state& state = stages();
    const std::lock_guard<std::mutex> lock(state.mutex);
    return std::exchange(state.launches, {});
}

bool stitcher_fixture::wait_for_workers()
{
    const bool done = wait_until([] { return workers_in_flight() == 0; });
    EXPECT_TRUE(done) << workers_in_flight() << " workers have not finished";
    return done;
}

bool stitcher_fixture::wait_for_turns(int turns)
{
    const bool done = wait_until([turns] { return look_at_pipeline().turns_over >= turns; });
    EXPECT_TRUE(done) << look_at_pipeline().turns_over << " of " << turns << " turns are over";
    return done;
}

std::vector<std::string> stitcher_fixture::entries_of(const std::string& path)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace tarn::test
