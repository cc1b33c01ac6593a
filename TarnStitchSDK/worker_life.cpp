// SPDX-License-Identifier: Apache-2.0
#include "internal/worker_life.h"

#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>

#include <opencv2/imgcodecs.hpp>

#include "descriptor_matching.h"
#include "internal/frame_account.h"
#include "internal/frame_geometry.h"
#include "internal/high_res_registration.h"
#include "internal/parallel_loop.h"
#include "internal/picture_file.h"
#include "internal/turn_account.h"
#include "internal/wait_clock.h"
#include "internal/worker_pool.h"
#include "internal/worker_queue.h"
#include "module_globals.h"
#include "projection.h"
#include "shared_access.h"

namespace tarn {

namespace {

void at_stage(worker_stage stage, int big_frame_index)
{
    if (const auto hook = worker_stage_hook.load()) {
        hook(stage, big_frame_index);
    }
}

// One worker: the life of one frame, from the launch to the end of its turn. Every access to what workers share
// goes through the generation, so that a worker of a replaced task unwinds instead.
class high_res_worker {
public:
    explicit high_res_worker(key_frame_task task)
        : generation_(task.generation), frame_(std::move(task.frame)), angles_(std::move(task.angles)),
          scales_(std::move(task.scales)), direction_(task.direction), index_(task.big_frame_index)
    {
    }

    void run()
    {
        note_turn(generation_, index_, turn_point::begun);
        pass(worker_stage::started);
        if (load_acquire(big_stitch_status) == pipeline_failed) {
            const auto lock = lock_handover(generation_);
            leave_account_and_raise_ticket();
            return;
        }
        try {
            prepare_frame();
            describe_frame();
            write_frame_file();
            note_turn(generation_, index_, turn_point::prepared);
            if (wait_until_idle() && wait_for_ticket()) {
                take_turn();
            }
        } catch (const std::exception& error) {
            fail(reason_of(error));
        }
    }

private:
    // The boundary between two stages.
    void pass(worker_stage stage) const
    {
        at_stage(stage, index_);
        check_current(generation_);
    }

    void prepare_frame()
    {
        // Floats that are huge or no numbers at all would lead the feature detector out of its images.
        CV_Assert(frame_.depth() != CV_32F);
        frame_ = shrink_and_turn(frame_);
        const frame_shape shape = measure_shape(angles_, scales_);
        switch (choose_projection(shape, direction_, index_, load_acquire(SP))) {
        case projection_rule::switch_sphere:
            SphericalProjection(frame_, frame_, shape.min_v_angle);
            switch_to_sphere(shape.min_v_angle);
            break;
        case projection_rule::sphere:
            SphericalProjection(frame_, frame_, shape.min_v_angle);
            break;
        case projection_rule::cylinder:
            cylindrical_projection(frame_, frame_, shape.min_h_angle);
            break;
        case projection_rule::none:
            break;
        }
        pass(worker_stage::frame_prepared);
    }

    // Bends the one-frame panorama like the second frame, and describes it anew.
    void switch_to_sphere(float angle)
    {
        // Within the task this wait has no time-out, even after a failure. By design.
        while (load_acquire(big_stitch_status) != pipeline_ready) {
            pass(worker_stage::polling_for_base);
            if (is_queued_worker()) {
                give_up();
                throw task_replaced{};
            }
            usleep(poll_interval);
        }
        cv::Mat panorama;
        {
            const auto lock = lock_handover(generation_);
            panorama = big_stitch_image;
        }
        SphericalProjection(panorama, panorama, angle);
        {
            const auto lock = lock_handover(generation_);
            big_stitch_image = panorama;
        }
        std::vector<cv::KeyPoint> keypoints;
        cv::Mat descriptors;
        feature_finder_->detectAndCompute(panorama, cv::Mat(), keypoints, descriptors, false);
        const auto lock = lock_handover(generation_);
        neighbour_keypoints.swap(keypoints);
        // Bytes, not floats: the matcher refuses to pair them with the next frame's, and the turn fails. By
        // design; no conversion belongs here.
        neighbour_descriptors = descriptors;
        store_release(SP, true);
    }

    void describe_frame()
    {
        described_ = describe(frame_, feature_finder_);
        {
            const auto lock = lock_handover(generation_);
            store_release(big_work_scale, described_.work_scale);
        }
        pass(worker_stage::frame_described);
    }

    // Writes the detection copy. Whether that succeeds is ignored.
    void write_frame_file()
    {
        {
            // Whoever starts a new task waits for this file and then deletes it, or has been here first.
            const auto directory_stays = lock_directory();
            std::string path;
            {
                const auto lock = lock_handover(generation_);
                path = big_local_path + "big_frame" + std::to_string(index_) + ".jpg";
            }
            write_jpeg(path, described_.scaled_frame);
            const auto lock = lock_handover(generation_);
            test_image_path.swap(path);
        }
        described_.scaled_frame.release();
        pass(worker_stage::file_written);
    }

    // Both waits: true when the awaited state was seen, false after a time-out, which ends the pipeline.
    bool wait_until_idle()
    {
        wait_clock clock;
        while (load_acquire(big_stitch_status) == pipeline_busy) {
            if (clock.has_run_out() && load_acquire(big_stitch_status) == pipeline_busy) {
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
        wait_clock clock;
        while (load_acquire(big_frame_num) + 1 != index_) {
            if (clock.has_run_out() && load_acquire(big_frame_num) + 1 != index_) {
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
        note_turn(generation_, index_, turn_point::taken);
        int old_status = pipeline_empty;
        {
            const auto lock = lock_handover(generation_);
            // Whatever the status was, 4 included: a worker that was already waiting goes on after another's
            // failure. By design.
            old_status = load_acquire(big_stitch_status);
            store_release(big_stitch_status, pipeline_busy);
            // A later worker may have stored its own scale while this one waited.
            store_release(big_work_scale, described_.work_scale);
            if (old_status != pipeline_empty) {
                neighbour_ = {big_stitch_image, neighbour_homo, neighbour_keypoints, neighbour_descriptors};
            }
        }
        pass(worker_stage::turn_taken);
        if (old_status == pipeline_empty) {
            hand_over(frame_, cv::Mat::eye(3, 3, CV_64F));
            return;
        }
        const joined_frame joined = join_frame(neighbour_, frame_, described_, [this] {
            note_turn(generation_, index_, turn_point::registered);
            pass(worker_stage::registered);
        });
        if (joined.merged) {
            pass(worker_stage::composed);
            hand_over(*joined.merged);
        } else {
            fail(joined.why);
        }
    }

    // The three ways in which a turn, or the wait for one, ends.

    void hand_over(const merged_frame& merged)
    {
        moved_by_ = merged.old_place.tl();
        {
            // Nobody can ask for a header while the mutex is held, so pixels that only this turn and the task hold
            // can be written. What is written is the frame's box, and black around it: a few milliseconds.
            const auto lock = lock_handover(generation_);
            const int headers = big_stitch_image.u == neighbour_.panorama.u ? 2 : 1;
            if (can_grow_in_place(neighbour_.panorama, merged, headers)) {
                end_turn(grow_in_place(neighbour_.panorama, merged), merged.panorama_from_frame);
                return;
            }
        }
        hand_over(grow_in_new_storage(neighbour_.panorama, merged), merged.panorama_from_frame);
    }

    void hand_over(const cv::Mat& panorama, const cv::Mat& panorama_from_frame)
    {
        const auto lock = lock_handover(generation_);
        end_turn(panorama, panorama_from_frame);
    }

    // The hand-over mutex must be held. In this order: who waits for the ticket finds the whole account.
    void leave_account_and_raise_ticket() const
    {
        note_turn(generation_, index_, turn_point::ended);
        raise_ticket();
    }

    // The hand-over mutex must be held.
    void end_turn(const cv::Mat& panorama, const cv::Mat& panorama_from_frame)
    {
        big_stitch_image = panorama;
        neighbour_homo = panorama_from_frame;
        note_composed({frame_.size(), cv::Matx33d(panorama_from_frame), index_}, moved_by_);
        neighbour_keypoints.swap(described_.keypoints);
        neighbour_descriptors = described_.descriptors;
        store_release(big_stitch_status, pipeline_ready);
        leave_account_and_raise_ticket();
    }

    void fail(reason why) const
    {
        const auto lock = lock_handover(generation_);
        mark_failed(index_, why);
        leave_account_and_raise_ticket();
    }

    void give_up() const
    {
        const auto lock = lock_handover(generation_);
        leave_account_and_raise_ticket();
        mark_failed(index_, reason::timed_out);
    }

    task_generation generation_;
    // A share of its own, which the end of the process does not take away.
    cv::Ptr<cv::AKAZE> feature_finder_ = stitch_feature_finder;
    cv::Mat frame_;
    std::vector<float> angles_;
    std::vector<float> scales_;
    int direction_;
    int index_;
    described_frame described_{};
    neighbour_record neighbour_;  // as it was when the turn began
    cv::Point moved_by_;          // where this frame has moved the panorama that was there, px
};

void run_worker(high_res_worker& worker)
{
    try {
        worker.run();
    } catch (const task_replaced&) {
        // The task that the frame belonged to is gone, and with it everything that there was to report.
    }
}

// What a worker's thread owns. The count goes last, when the frame's pixels have been let go.
struct worker_thread {
    worker_in_flight counted;
    high_res_worker worker;

    void operator()()
    {
        run_worker(worker);
    }
};

}  // namespace

std::atomic<void (*)(worker_stage, int)> worker_stage_hook{nullptr};

void construct_what_workers_use()
{
    for_side_by_side(cv::Range(0, 2), [](const cv::Range&) {});
    cv::haveImageWriter(".jpg");
    const cv::Mat two_descriptors = cv::Mat::zeros(2, 1, CV_32F);
    std::vector<cv::DMatch> none;
    single_match(two_descriptors, two_descriptors, none, 0.0f);
}

void live_as_worker(key_frame_task task)
{
    high_res_worker worker(std::move(task));
    run_worker(worker);
}

void launch_worker(const cv::Mat& frame, const std::vector<float>& angles, const std::vector<float>& scales,
                   int direction, int big_frame_index)
{
    at_stage(worker_stage::launching, big_frame_index);
    // The generation first: when the process begins to end in between, it is a replaced task's.
    high_res_worker worker({current_generation(), frame, angles, scales, direction, big_frame_index});
    worker_thread life{worker_in_flight(construct_what_workers_use), std::move(worker)};
    if (workers_are_queued()) {
        queue_worker([shared = std::make_shared<worker_thread>(std::move(life))] { (*shared)(); });
    } else {
        std::thread(std::move(life)).detach();
    }
}

}  // namespace tarn
