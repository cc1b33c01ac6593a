// SPDX-License-Identifier: Apache-2.0
//
// The fixture of every test that touches the global task: it starts each test from one known state, in a
// private directory, with standard output captured, and leaves nothing behind.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "internal/shared_state.h"
#include "internal/worker_life.h"
#include "tarn_stitch_jni.h"

namespace tarn::test {

/// The environment variable TARN_TEST_SCALE, 1 when it is not set: a factor on the lengths of loops and sweeps
/// that need not be long, for builds that run slowly.
double test_scale();

/// `count` times test_scale(), rounded, and `least` at least.
int scaled_count(int count, int least);

/// Resets everything that tests can change in the library, before and after each test.
///
/// What it does before: makes a private directory root() and in it directory(), lets workers and the last frame wait
/// for patient_wait seconds, so that no machine is too busy, starts a task, and catches what is written to std::cout.
/// After: starts an empty task, so that workers still in flight leave,
/// lets go those that were held, waits until there is none, restores what a new task does not reset
/// (max_wait_seconds, test_image_path, the stage hook, OpenCV's number of threads) and removes root().
class stitcher_fixture : public ::testing::Test {
protected:
    static constexpr int patient_wait = 600;  ///< s
    static constexpr int usual_wait = 20;     ///< s, what the library begins with

    void SetUp() override;
    void TearDown() override;

    /// The working directory of the task, with its trailing "/". It exists and is empty.
    const std::string& directory() const
    {
        return directory_;
    }

    /// The private directory above it, with its trailing "/", for further files of a test.
    const std::string& root() const
    {
        return root_;
    }

    /// What has been written to std::cout since the last call, or since the start of the test.
    std::string take_output();

    /// Calls `observer` at every stage of every worker, on the thread that stage runs on. Replaces an earlier
    /// one; null removes it. Workers may still call it after the test's body has ended, so it must own what it
    /// uses (capture by value, or members of the fixture).
    void on_worker_stage(std::function<void(worker_stage stage, int big_frame_index)> observer);

    /// Workers launched from now on stop at their very start, until release_workers() or the end of the test,
    /// where they leave without having touched anything. For tests of the live path alone.
    void hold_workers();

    void release_workers();

    /// The indices of the workers launched since the last call, or since the start of the test, in order.
    std::vector<int> take_launches();

    /// Waits until no worker is in flight. False, and a failure of the test, when that takes minutes.
    bool wait_for_workers();

    /// Waits until so many turns are over in the current task. False, and a failure, when that takes minutes.
    bool wait_for_turns(int turns);

    /// Names of what lies in a directory, sorted; without "." and "..".
    static std::vector<std::string> entries_of(const std::string& path);

private:
    std::string root_;
    std::string directory_;
    int opencv_threads_ = 0;
};

}  // namespace tarn::test
