// SPDX-License-Identifier: Apache-2.0
//
// Owners of what FFmpeg's libraries hand out.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <memory>

namespace tarn::host {

struct media_deleter {
    void operator()(AVFormatContext* context) const
    {
        avformat_close_input(&context);
    }

    void operator()(AVIOContext* io) const
    {
        avio_closep(&io);
    }

    void operator()(AVCodecContext* context) const
    {
        avcodec_free_context(&context);
    }

    void operator()(AVFrame* frame) const
    {
        av_frame_free(&frame);
    }

    void operator()(AVPacket* packet) const
    {
        av_packet_free(&packet);
    }

    void operator()(SwsContext* context) const
    {
        sws_freeContext(context);
    }
};

template <typename Handle>
using media_handle = std::unique_ptr<Handle, media_deleter>;

}  // namespace tarn::host
