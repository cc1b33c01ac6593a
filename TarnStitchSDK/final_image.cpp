// SPDX-License-Identifier: Apache-2.0
#include "internal/final_image.h"

#include <string>

#include "internal/picture_file.h"
#include "internal/wait_clock.h"
#include "internal/worker_queue.h"
#include "tarn_stitcher.h"
#include "working_directory.h"

namespace tarn {

panorama_write write_panorama(TarnStitcher& task, int last_big_frame_index, task_generation generation)
{
    wait_clock clock;
    const int entry_status = load_acquire(big_stitch_status);
    if (entry_status == pipeline_failed) {
        return panorama_write::pipeline_has_failed;
    }
    while (load_acquire(big_frame_num) < last_big_frame_index) {
        if (clock.has_run_out() || generation != current_generation()) {
            break;
        }
        wait_a_moment(poll_interval);
    }

    const auto directory_stays = lock_directory();  // and with it the task
    cv::Mat panorama;
    std::string _img_path;
    {
        const auto lock = lock_handover();
        if (generation != current_generation() || big_frame_num != last_big_frame_index
            || big_stitch_status != pipeline_ready) {
            return panorama_write::nothing_to_write;
        }
        panorama = big_stitch_image;
        _img_path = big_local_path + panorama_file_name;
    }
    const bool is_written = write_jpeg(_img_path, panorama);
    const auto lock = lock_handover();
    task.big_stitch_image_path = _img_path;  // of a file that could not be written, too. By design.
    return is_written ? panorama_write::written : panorama_write::file_failed;
}

bool finish_panorama(TarnStitcher& task, int last_big_frame_index, task_generation generation)
{
    // With nothing to write it is true all the same: the path tells, not the result. By design.
    return write_panorama(task, last_big_frame_index, generation) != panorama_write::pipeline_has_failed;
}

}  // namespace tarn

bool TarnStitcher::get_big_image(int last_big_frame_index)
{
    return tarn::finish_panorama(*this, last_big_frame_index, tarn::current_generation());
}
