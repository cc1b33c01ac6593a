// SPDX-License-Identifier: Apache-2.0
//
// Workers taken apart: single ones launched or called directly on known frames, and held at chosen stages of
// their life.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "stitcher_fixture.h"

namespace tarn::test {

/// Barriers in the life of workers. A worker is known by its index, whatever task it is of.
class worker_stepper {
public:
    worker_stepper();
    /// Lets everybody go.
    ~worker_stepper();
    worker_stepper(const worker_stepper&) = delete;
    worker_stepper& operator=(const worker_stepper&) = delete;

    /// What is to be called at each stage. May outlive this object.
    std::function<void(worker_stage stage, int index)> observer() const;

    /// The worker `index` stops whenever it reaches `stage`.
    void hold_at(worker_stage stage, int index);

    /// Waits until the worker has reached the stage so many times. False, and a failure of the test, when that
    /// takes minutes.
    bool wait_until_at(worker_stage stage, int index, int times = 1);

    /// Lets the worker that is held there go on, and does not hold it there again.
    void let_go(worker_stage stage, int index);

    void let_everybody_go();

    /// How often the worker has reached the stage.
    int times_at(worker_stage stage, int index) const;

    /// The stages that the worker has reached, in order, repetitions in a row left out.
    std::vector<worker_stage> stages_of(int index) const;

    /// Calls `action` whenever the worker `index` reaches `stage`, on that worker's thread, before holding it. It
    /// may throw.
    void at(worker_stage stage, int index, std::function<void()> action);

private:
    struct state;
    std::shared_ptr<state> state_;
};

/// The fixture for tests of workers.
class worker_fixture : public stitcher_fixture {
protected:
    void SetUp() override;
    void TearDown() override;

    worker_stepper stepper;
};

/// Key frame `index` (1, 2, 3, … 12) of a camera that slides to the right by a quarter of the frame's width per
/// key frame: 320 x 240, CV_8UC3.
cv::Mat key_frame(int index);

/// By how much the camera moves from key frame to key frame, in pixels of the frame.
constexpr int key_frame_step = 80;

constexpr int key_frame_width = 320;
constexpr int key_frame_height = 240;

/// Angles and scales of a frame that was only shifted.
const std::vector<float>& right_angles();
const std::vector<float>& full_size();

/// Angles by which a second frame with the direction 2 switches the sphere on: 93 degrees above, 87 below, which
/// deviate from a right angle by 3 degrees.
const std::vector<float>& sphere_angles();

/// Angles by which a frame is put on a cylinder: 87 degrees left, 93 right.
const std::vector<float>& cylinder_angles();

/// Calls stitch_big_image for the key frame `index` on this thread.
void add_key_frame(int index);

/// The same on a thread of its own.
void launch_key_frame(int index);

/// Calls stitch_big_image for the key frame 2 so that it switches the sphere on.
void add_sphere_switch();
void launch_sphere_switch();

/// All that a task shares with its workers, except the test_image_path: headers only.
struct shared_state {
    int status;
    int ticket;
    bool spherical;
    float work_scale;
    cv::Mat panorama;
    cv::Mat homo;
    std::vector<cv::KeyPoint> keypoints;
    cv::Mat descriptors;
    std::string directory;
};

/// A copy of the shared state. No worker may be in flight that could write it.
shared_state look_at_shared_state();

/// Fails, saying what differs, unless both are the same, images by their pixels' place in memory.
::testing::AssertionResult same_state(const shared_state& expected, const shared_state& actual);

/// The whole content of a file; empty, with a failure of the test, when it cannot be read.
std::vector<unsigned char> bytes_of(const std::string& path);

}  // namespace tarn::test
