// SPDX-License-Identifier: Apache-2.0
#include "high_res_worker.h"

#include <utility>

#include "internal/worker_life.h"
#include "internal/worker_pool.h"
#include "module_globals.h"
#include "shared_access.h"

void stitch_big_image(cv::Mat frame, std::vector<float> angles, std::vector<float> scales, int direction,
                      int big_frame_index)
{
    tarn::live_as_worker({tarn::current_generation(), std::move(frame), std::move(angles), std::move(scales), direction,
                          big_frame_index});
}

namespace tarn {

void set_max_wait_seconds(int seconds)
{
    store_release(max_wait_seconds, seconds);
}

pipeline_snapshot look_at_pipeline()
{
    const call_inside call(nullptr);
    if (!call.may_look()) {
        pipeline_snapshot nothing;
        nothing.status = pipeline_failed;
        return nothing;
    }
    const auto lock = lock_handover();
    return {big_stitch_status, big_frame_num, first_failed_frame(), big_stitch_image, first_failure()};
}

}  // namespace tarn
