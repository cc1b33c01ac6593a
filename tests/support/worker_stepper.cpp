// SPDX-License-Identifier: Apache-2.0
//
// Barriers for workers, and what tests of single workers share.
#include "worker_stepper.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "high_res_worker.h"
#include "rendered_sweep.h"

namespace tarn::test {

namespace {

using place = std::pair<worker_stage, int>;

/// A wait that takes longer means a worker that will never come.
constexpr auto patience = std::chrono::minutes(4);

/// What the key frames show: coloured boxes close together, so that small frames have many features.
cv::Mat make_wall()
{
    cv::RNG random(20240229);
    cv::Mat wall(256, 1280, CV_8UC3, cv::Scalar(128, 120, 110));
    constexpr int boxes = 700;
    for (int i = 0; i < boxes; ++i) {
        const cv::Rect box(random.uniform(-5, wall.cols), random.uniform(-5, wall.rows), random.uniform(6, 22),
                           random.uniform(6, 22));
        const cv::Scalar colour(random.uniform(30, 250), random.uniform(30, 250), random.uniform(30, 250));
        cv::rectangle(wall, box, colour, cv::FILLED);
    }
    cv::GaussianBlur(wall, wall, cv::Size(3, 3), 0.7);
    return wall;
}

}  // namespace

struct worker_stepper::state {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<place> held;
    std::map<place, int> visits;
    std::map<place, std::function<void()>> actions;
    std::map<int, std::vector<worker_stage>> paths;
    bool open = false;

    bool holds(const place& here) const
    {
        return !open && std::find(held.begin(), held.end(), here) != held.end();
    }

    void reached(worker_stage stage, int index)
    {
        const place here(stage, index);
        std::function<void()> action;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            ++visits[here];
            std::vector<worker_stage>& path = paths[index];
            if (path.empty() || path.back() != stage) {
                path.push_back(stage);
            }
            const auto found = actions.find(here);
            if (found != actions.end()) {
                action = found->second;
            }
            changed.notify_all();
        }
        if (action) {
            action();
        }
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return !holds(here); });
    }
};

worker_stepper::worker_stepper() : state_(std::make_shared<state>())
{
}

worker_stepper::~worker_stepper()
{
    let_everybody_go();
}

std::function<void(worker_stage, int)> worker_stepper::observer() const
{
    return [state = state_](worker_stage stage, int index) { state->reached(stage, index); };
}

void worker_stepper::hold_at(worker_stage stage, int index)
{
    const std::lock_guard<std::mutex> lock(state_->mutex);
    state_->held.emplace_back(stage, index);
}

bool worker_stepper::wait_until_at(worker_stage stage, int index, int times)
{
    std::unique_lock<std::mutex> lock(state_->mutex);
    const bool arrived =
        state_->changed.wait_for(lock, patience, [&] { return state_->visits[place(stage, index)] >= times; });
    EXPECT_TRUE(arrived) << "worker " << index << " has not reached stage " << static_cast<int>(stage);
    return arrived;
}

void worker_stepper::let_go(worker_stage stage, int index)
{
    const std::lock_guard<std::mutex> lock(state_->mutex);
    std::vector<place>& held = state_->held;
    held.erase(std::remove(held.begin(), held.end(), place(stage, index)), held.end());
    state_->changed.notify_all();
}

void worker_stepper::let_everybody_go()
{
    const std::lock_guard<std::mutex> lock(state_->mutex);
    state_->open = true;
    state_->changed.notify_all();
}

int worker_stepper::times_at(worker_stage stage, int index) const
{
    const std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->visits[place(stage, index)];
}

std::vector<worker_stage> worker_stepper::stages_of(int index) const
{
    const std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->paths[index];
}

void worker_stepper::at(worker_stage stage, int index, std::function<void()> action)
{
    const std::lock_guard<std::mutex> lock(state_->mutex);
    state_->actions[place(stage, index)] = std::move(action);
}

void worker_fixture::SetUp()
{
    stitcher_fixture::SetUp();
    on_worker_stage(stepper.observer());
}

void worker_fixture::TearDown()
{
    // The task goes before those who were held.
    tarn_stitcher.stitcher_status = 0;
    resetStitch("");
    stepper.let_everybody_go();
    stitcher_fixture::TearDown();
}

cv::Mat key_frame(int index)
{
    static const auto& wall = *new cv::Mat(make_wall());
    return wall(cv::Rect((index - 1) * key_frame_step, 0, key_frame_width, key_frame_height)).clone();
}

const std::vector<float>& right_angles()
{
    static const auto& angles = *new std::vector<float>(4, 90.0f);
    return angles;
}

const std::vector<float>& full_size()
{
    static const auto& scales = *new std::vector<float>(4, 1.0f);
    return scales;
}

const std::vector<float>& sphere_angles()
{
    static const auto& angles = *new std::vector<float>{93.0f, 93.0f, 87.0f, 87.0f};
    return angles;
}

const std::vector<float>& cylinder_angles()
{
    static const auto& angles = *new std::vector<float>{87.0f, 93.0f, 93.0f, 87.0f};
    return angles;
}

void add_key_frame(int index)
{
    stitch_big_image(key_frame(index), right_angles(), full_size(), moving_right, index);
}

void launch_key_frame(int index)
{
    launch_worker(key_frame(index), right_angles(), full_size(), moving_right, index);
}

void add_sphere_switch()
{
    stitch_big_image(key_frame(2), sphere_angles(), full_size(), moving_up, 2);
}

void launch_sphere_switch()
{
    launch_worker(key_frame(2), sphere_angles(), full_size(), moving_up, 2);
}

shared_state look_at_shared_state()
{
    const auto lock = lock_handover();
    return {big_stitch_status,   big_frame_num,         SP,
            big_work_scale,      big_stitch_image,      neighbour_homo,
            neighbour_keypoints, neighbour_descriptors, big_local_path};
}

::testing::AssertionResult same_state(const shared_state& expected, const shared_state& actual)
{
    const auto changed = [](const char* what) { return ::testing::AssertionFailure() << what << " changed"; };
    const auto same_image = [](const cv::Mat& a, const cv::Mat& b) {
        return a.data == b.data && a.size() == b.size() && a.type() == b.type();
    };
    if (expected.status != actual.status || expected.ticket != actual.ticket) {
        return ::testing::AssertionFailure() << "status " << actual.status << " and ticket " << actual.ticket
                                             << " instead of " << expected.status << " and " << expected.ticket;
    }
    if (expected.spherical != actual.spherical || expected.work_scale != actual.work_scale) {
        return changed("the sphere's switch or the scale");
    }
    if (!same_image(expected.panorama, actual.panorama)) {
        return changed("the panorama");
    }
    if (!same_image(expected.homo, actual.homo) || !same_image(expected.descriptors, actual.descriptors)
        || expected.keypoints.size() != actual.keypoints.size()) {
        return changed("the neighbour's record");
    }
    if (expected.directory != actual.directory) {
        return changed("the directory");
    }
    return ::testing::AssertionSuccess();
}

std::vector<unsigned char> bytes_of(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace tarn::test
