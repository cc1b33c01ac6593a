// SPDX-License-Identifier: Apache-2.0
//
// The life cycle of a task.
#include "tarn_stitcher.h"

#include <unistd.h>
#include <utility>

#include "internal/forked_process.h"
#include "internal/preview_growth.h"
#include "internal/shared_state.h"
#include "internal/spare_frames.h"

TarnStitcher::TarnStitcher(std::string input_path) : local_path(std::move(input_path))
{
    std::string workers_path = local_path;  // before anything changes, since it may throw
    const auto no_file_is_written = tarn::lock_directory();
    {
        const auto workers_of_the_old_task_are_shut_out = tarn::begin_task();
        std::vector<cv::KeyPoint>().swap(neighbour_keypoints);  // the storage is released, too
        big_stitch_image = cv::Mat();
        neighbour_homo = cv::Mat();
        neighbour_descriptors = cv::Mat();
        tarn::store_release(big_stitch_status, tarn::pipeline_empty);
        tarn::store_release(SP, false);
        tarn::store_release(big_frame_num, 0);
        tarn::store_release(big_work_scale, 0.0f);
        big_local_path.swap(workers_path);
    }
    tarn::forget_frozen_preview();
    tarn::release_spare_frames();
    if (isFloderexit(local_path.c_str())) {
        deleteFile(local_path.c_str());
    }
}

void TarnStitcher::remove_local_path()
{
    if (tarn::is_forked_process()) {
        return;  // it is the parent's
    }
    const auto no_file_is_written = tarn::lock_directory();
    if (isFloderexit(local_path.c_str())) {
        deleteFile(local_path.c_str());
        rmdir(local_path.c_str());
    }
}
