// SPDX-License-Identifier: Apache-2.0
#include "high_res_worker.h"

#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>

#include <opencv2/calib3d.hpp>

#include "high_res_composition.h"
#include "high_res_frame.h"
#include "internal/frame_account.h"
#include "internal/worker_queue.h"
#include "private_file.h"
#include "tarn_stitcher.h"
#include "worker_protocol.h"

namespace {

using tarn::at_stage;
using tarn::load_acquire;
using tarn::reason;
using tarn::store_release;
using tarn::worker_stage;

constexpr int poll_interval = 10000;  // µs

// Measures one wait of the protocol against max_wait_seconds.
class wait_clock {
public:
    bool has_run_out() const
    {
        const double elapsed = static_cast<double>(cv::getTickCount() - start_) / cv::getTickFrequency();
        return tarn::is_queued_worker() || elapsed > static_cast<double>(load_acquire(max_wait_seconds));
    }

private:
    std::int64_t start_ = cv::getTickCount();
};

// One worker: the life of one frame, from the launch to the end of its turn. Every access to what workers share
// goes through the generation, so that a worker of a replaced task unwinds instead.
class high_res_worker {
public:
    high_res_worker(tarn::task_generation generation, cv::Mat frame, std::vector<float> angles,
                    std::vector<float> scales, int direction, int big_frame_index)
        : generation_(generation), frame_(std::move(frame)), angles_(std::move(angles)),
          scales_(std::move(scales)), direction_(direction), index_(big_frame_index)
    {
    }

    void run()
    {
        pass(worker_stage::started);
        if (load_acquire(big_stitch_status) == tarn::pipeline_failed) {
            const auto lock = tarn::lock_task(generation_);
            tarn::raise_ticket();
            return;
        }
        try {
            prepare_frame();
            describe_frame();
            write_frame_file();
            if (wait_until_idle() && wait_for_ticket()) {
                take_turn();
            }
        } catch (const std::exception& error) {
            fail(tarn::reason_of(error));
        }
    }

private:
    // The boundary between two stages.
    void pass(worker_stage stage) const
    {
        at_stage(stage, index_);
        tarn::check_current(generation_);
    }

    void prepare_frame()
    {
        // Floats that are huge or no numbers at all would lead the feature detector out of its images.
        CV_Assert(frame_.depth() != CV_32F);
        frame_ = tarn::shrink_and_turn(frame_);
        const tarn::frame_shape shape = tarn::measure_shape(angles_, scales_);
        switch (tarn::choose_projection(shape, direction_, index_, load_acquire(SP))) {
        case tarn::projection_rule::switch_sphere:
            SphericalProjection(frame_, frame_, shape.min_v_angle);
            switch_to_sphere(shape.min_v_angle);
            break;
        case tarn::projection_rule::sphere:
            SphericalProjection(frame_, frame_, shape.min_v_angle);
            break;
        case tarn::projection_rule::cylinder:
            cylindrical_projection(frame_, frame_, shape.min_h_angle);
            break;
        case tarn::projection_rule::none:
            break;
        }
        pass(worker_stage::frame_prepared);
    }

    // Bends the one-frame panorama like the second frame, and describes it anew.
    void switch_to_sphere(float angle)
    {
        // Within the task this wait has no time-out, even after a failure. This is meant.
        while (load_acquire(big_stitch_status) != tarn::pipeline_ready) {
            pass(worker_stage::polling_for_base);
            if (tarn::is_queued_worker()) {
                give_up();
                throw tarn::task_replaced{};
            }
            usleep(poll_interval);
        }
        cv::Mat panorama;
        {
            const auto lock = tarn::lock_task(generation_);
            panorama = big_stitch_image;
        }
        SphericalProjection(panorama, panorama, angle);
        {
            const auto lock = tarn::lock_task(generation_);
            big_stitch_image = panorama;
        }
        std::vector<cv::KeyPoint> keypoints;
        cv::Mat descriptors;
        feature_finder_->detectAndCompute(panorama, cv::Mat(), keypoints, descriptors, false);
        const auto lock = tarn::lock_task(generation_);
        neighbour_keypoints.swap(keypoints);
        // Bytes, not floats: the matcher refuses to pair them with the next frame's, and the turn fails. This is
        // meant; no conversion belongs here.
        neighbour_descriptors = descriptors;
        store_release(SP, true);
    }

    void describe_frame()
    {
        described_ = tarn::describe(frame_, feature_finder_);
        {
            const auto lock = tarn::lock_task(generation_);
            store_release(big_work_scale, described_.work_scale);
        }
        pass(worker_stage::frame_described);
    }

    // Writes the detection copy. Whether that succeeds is ignored.
    void write_frame_file()
    {
        {
            // Whoever starts a new task waits for this file and then deletes it, or has been here first.
            const tarn::working_directory_lock directory_stays;
            std::string path;
            {
                const auto lock = tarn::lock_task(generation_);
                path = big_local_path + "big_frame" + std::to_string(index_) + ".jpg";
            }
            tarn::write_private_jpeg(path, described_.scaled_frame);
            const auto lock = tarn::lock_task(generation_);
            test_image_path.swap(path);
        }
        described_.scaled_frame.release();
        pass(worker_stage::file_written);
    }

    // Both waits: true when the awaited state was seen, false after a time-out, which ends the pipeline.
    bool wait_until_idle()
    {
        const wait_clock clock;
        while (load_acquire(big_stitch_status) == tarn::pipeline_busy) {
            if (clock.has_run_out()) {
                give_up();
                return false;
            }
            pass(worker_stage::polling_for_idle);
            usleep(poll_interval);
        }
        return true;
    }

    bool wait_for_ticket()
    {
        const wait_clock clock;
        while (load_acquire(big_frame_num) + 1 != index_) {
            if (clock.has_run_out()) {
                give_up();
                return false;
            }
            pass(worker_stage::polling_for_turn);
            usleep(poll_interval);
        }
        return true;
    }

    void take_turn()
    {
        int old_status = tarn::pipeline_empty;
        {
            const auto lock = tarn::lock_task(generation_);
            // Whatever the status was, 4 included: a worker that was already waiting goes on after another's
            // failure. This is meant.
            old_status = load_acquire(big_stitch_status);
            store_release(big_stitch_status, tarn::pipeline_busy);
            // A later worker may have stored its own scale while this one waited.
            store_release(big_work_scale, described_.work_scale);
            if (old_status != tarn::pipeline_empty) {
                neighbour_ = {big_stitch_image, neighbour_homo, neighbour_keypoints, neighbour_descriptors};
            }
        }
        pass(worker_stage::turn_taken);
        if (old_status == tarn::pipeline_empty) {
            hand_over(frame_, cv::Mat::eye(3, 3, CV_64F));
            return;
        }
        reason refused = reason::none;
        const cv::Mat panorama_from_frame = register_frame(refused);
        pass(worker_stage::registered);
        if (refused != reason::none) {
            fail(refused);
            return;
        }
        const auto merged = tarn::merge_frame(neighbour_.panorama, frame_, panorama_from_frame);
        pass(worker_stage::composed);
        if (!merged) {
            fail(reason::too_large);
            return;
        }
        hand_over(*merged);
    }

    // The frame into the panorama, found by way of the frame composed last. Says why that is refused, if it is.
    cv::Mat register_frame(reason& refused) const
    {
        constexpr float check_match_conf = 0.2f;
        constexpr size_t least_matches = 20;
        constexpr double reprojection_threshold = 3.0;  // px
        constexpr int max_iterations = 2000;
        constexpr double confidence = 0.995;

        std::vector<cv::DMatch> good_matches;
        single_match(neighbour_.descriptors, described_.descriptors, good_matches, check_match_conf);
        if (good_matches.size() < least_matches) {
            refused = reason::too_few_matches;
            return {};
        }
        // Both frames' points are divided by the current frame's scale: all frames of a sweep have one size.
        const float scale = described_.work_scale;
        std::vector<cv::Point2f> frame_points;
        std::vector<cv::Point2f> neighbour_points;
        for (const cv::DMatch& m : good_matches) {
            const cv::Point2f& here = described_.keypoints[static_cast<size_t>(m.trainIdx)].pt;
            const cv::Point2f& there = neighbour_.keypoints[static_cast<size_t>(m.queryIdx)].pt;
            frame_points.emplace_back(here.x / scale, here.y / scale);
            neighbour_points.emplace_back(there.x / scale, there.y / scale);
        }
        const cv::Mat neighbour_from_frame =
            cv::findHomography(frame_points, neighbour_points, cv::RANSAC, reprojection_threshold,
                               cv::noArray(), max_iterations, confidence);
        if (neighbour_from_frame.empty()) {
            refused = reason::no_homography;
            return {};
        }
        cv::Mat panorama_from_frame = neighbour_.homo * neighbour_from_frame;

        const auto width = static_cast<float>(frame_.cols);
        const auto height = static_cast<float>(frame_.rows);
        const std::vector<cv::Point2f> frame_corners = {
            {0.0f, 0.0f}, {width, 0.0f}, {width, height}, {0.0f, height}};
        std::vector<cv::Point2f> transpose_corners;
        cv::perspectiveTransform(frame_corners, transpose_corners, panorama_from_frame);
        if (!is_convex(transpose_corners)) {
            refused = reason::shape_refused;
        }
        return panorama_from_frame;
    }

    // The three ways in which a turn, or the wait for one, ends.

    void hand_over(const tarn::merged_frame& merged)
    {
        {
            // Nobody can ask for a header while the mutex is held, so pixels that only this turn and the task hold
            // can be written. What is written is the frame's box, and black around it: a few milliseconds.
            const auto lock = tarn::lock_task(generation_);
            const int headers = big_stitch_image.u == neighbour_.panorama.u ? 2 : 1;
            if (tarn::can_grow_in_place(neighbour_.panorama, merged, headers)) {
                end_turn(tarn::grow_in_place(neighbour_.panorama, merged), merged.panorama_from_frame);
                return;
            }
        }
        hand_over(tarn::grow_in_new_storage(neighbour_.panorama, merged), merged.panorama_from_frame);
    }

    void hand_over(const cv::Mat& panorama, const cv::Mat& panorama_from_frame)
    {
        const auto lock = tarn::lock_task(generation_);
        end_turn(panorama, panorama_from_frame);
    }

    // The hand-over mutex must be held.
    void end_turn(const cv::Mat& panorama, const cv::Mat& panorama_from_frame)
    {
        big_stitch_image = panorama;
        neighbour_homo = panorama_from_frame;
        neighbour_keypoints.swap(described_.keypoints);
        neighbour_descriptors = described_.descriptors;
        store_release(big_stitch_status, tarn::pipeline_ready);
        tarn::raise_ticket();
    }

    void fail(reason why) const
    {
        const auto lock = tarn::lock_task(generation_);
        tarn::mark_failed(index_, why);
        tarn::raise_ticket();
    }

    void give_up() const
    {
        const auto lock = tarn::lock_task(generation_);
        tarn::raise_ticket();
        tarn::mark_failed(index_, reason::timed_out);
    }

    // What is read of the frame composed last, as it was when the turn began.
    struct neighbour {
        cv::Mat panorama;
        cv::Mat homo;
        std::vector<cv::KeyPoint> keypoints;
        cv::Mat descriptors;
    };

    tarn::task_generation generation_;
    // A share of its own, which the end of the process does not take away.
    cv::Ptr<cv::AKAZE> feature_finder_ = stitch_feature_finder;
    cv::Mat frame_;
    std::vector<float> angles_;
    std::vector<float> scales_;
    int direction_;
    int index_;
    tarn::described_frame described_{};
    neighbour neighbour_;
};

void run_worker(high_res_worker& worker)
{
    try {
        worker.run();
    } catch (const tarn::task_replaced&) {
        // The task that the frame belonged to is gone, and with it everything that there was to report.
    }
}

// What a worker's thread owns. The count goes last, when the frame's pixels have been let go.
struct worker_thread {
    tarn::worker_in_flight counted;
    high_res_worker worker;

    void operator()()
    {
        run_worker(worker);
    }
};

}  // namespace

void stitch_big_image(cv::Mat frame, std::vector<float> angles, std::vector<float> scales, int direction,
                      int big_frame_index)
{
    high_res_worker worker(tarn::current_generation(), std::move(frame), std::move(angles), std::move(scales),
                           direction, big_frame_index);
    run_worker(worker);
}

bool TarnStitcher::get_big_image(int last_big_frame_index)
{
    return tarn::finish_panorama(*this, last_big_frame_index, tarn::current_generation());
}

namespace tarn {

bool finish_panorama(TarnStitcher& task, int last_big_frame_index, task_generation generation)
{
    const wait_clock clock;
    const int entry_status = load_acquire(big_stitch_status);
    if (entry_status == pipeline_failed) {
        return false;
    }
    while (load_acquire(big_frame_num) < last_big_frame_index) {
        if (clock.has_run_out() || generation != current_generation()) {
            break;
        }
        wait_a_moment(poll_interval);
    }

    const working_directory_lock directory_stays;  // and with it the task
    cv::Mat panorama;
    std::string _img_path;
    {
        const auto lock = lock_current_task();
        if (generation != current_generation() || big_frame_num != last_big_frame_index
            || big_stitch_status != pipeline_ready) {
            return true;  // nothing to write; the path tells, not the result. This is meant.
        }
        panorama = big_stitch_image;
        _img_path = big_local_path + "big_stitch.jpg";
    }
    write_private_jpeg(_img_path, panorama);
    const auto lock = lock_current_task();
    task.big_stitch_image_path = _img_path;
    return true;
}

void launch_worker(const cv::Mat& frame, const std::vector<float>& angles, const std::vector<float>& scales,
                   int direction, int big_frame_index)
{
    at_stage(worker_stage::launching, big_frame_index);
    // The generation first: when the process begins to end in between, it is a replaced task's.
    high_res_worker worker(current_generation(), frame, angles, scales, direction, big_frame_index);
    worker_thread life{worker_in_flight(), std::move(worker)};
    if (workers_are_queued()) {
        queue_worker([life = std::make_shared<worker_thread>(std::move(life))] { (*life)(); });
    } else {
        std::thread(std::move(life)).detach();
    }
}

pipeline_snapshot look_at_pipeline()
{
    const auto lock = lock_current_task();
    return {big_stitch_status, big_frame_num, first_failed_frame(), big_stitch_image, first_failure()};
}

}  // namespace tarn
