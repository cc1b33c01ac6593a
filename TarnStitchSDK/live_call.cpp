// SPDX-License-Identifier: Apache-2.0
#include "internal/live_call.h"

#include <opencv2/core.hpp>

#include "internal/frame_account.h"
#include "internal/log.h"
#include "internal/shared_state.h"
#include "tarn_stitch_jni.h"

namespace tarn {

std::int64_t begin_live_call()
{
    account_of_this_thread() = {};
    return cv::getTickCount();
}

void note_refused_live_call()
{
    frame_answer& answer = account_of_this_thread().answer;
    answer.code = code_pipeline_failed;
    answer.why = reason::process_ends;
}

void note_failed_live_call(const std::exception& error)
{
    log_line("stitch: When checkimage encounter an error", error.what());
    note_failure(account_of_this_thread(), error);
    const auto members = lock_members();
    store_release(tarn_stitcher.stitcher_status, live_finished);
}

double end_live_call(std::int64_t begun)
{
    const double spent = static_cast<double>(cv::getTickCount() - begun) / cv::getTickFrequency();
    log_line("main thread: videoStitch finish, total spent", spent);
    constexpr double milliseconds = 1000.0;
    return spent * milliseconds;
}

}  // namespace tarn
