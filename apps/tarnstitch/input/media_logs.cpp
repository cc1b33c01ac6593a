// SPDX-License-Identifier: Apache-2.0
//
// The media libraries' ways of printing.
#include "media_logs.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdlib>
#include <unistd.h>

#include <opencv2/core/utils/logger.hpp>

namespace tarn::host {

namespace {

bool media_logs_are_wanted()
{
    return std::getenv("OPENCV_LOG_LEVEL") != nullptr;
}

}  // namespace

void silence_media_logs()
{
    if (!media_logs_are_wanted()) {
        cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
        av_log_set_level(AV_LOG_QUIET);
    }
    constexpr const char* quiet = "-8";
    setenv("OPENCV_FFMPEG_LOGLEVEL", quiet, 0);
}

quiet_decoder::quiet_decoder()
{
    if (!media_logs_are_wanted()) {
        silence_.emplace(STDERR_FILENO);
    }
}

}  // namespace tarn::host
