// SPDX-License-Identifier: Apache-2.0
//
// Packets in, pictures out.
#include "picture_decoder.h"

#include <algorithm>
#include <array>
#include <new>

#include <opencv2/core/utility.hpp>

#include "host_error.h"

namespace tarn::host {

bool is_key(const AVFrame& picture)
{
#ifdef AV_FRAME_FLAG_KEY
    return (picture.flags & AV_FRAME_FLAG_KEY) != 0;
#else
    return picture.key_frame != 0;
#endif
}

static_assert(picture_ledger::no_time == AV_NOPTS_VALUE);

picture_decoder::picture_decoder(const media_file& file, int max_pixels)
    : picture_(av_frame_alloc()), packet_(av_packet_alloc())
{
    const AVStream& stream = file.stream();
    const AVCodec* const codec = avcodec_find_decoder(stream.codecpar->codec_id);
    context_.reset(avcodec_alloc_context3(codec));
    if (!picture_ || !packet_ || !context_) {
        throw std::bad_alloc();
    }
    if (avcodec_parameters_to_context(context_.get(), stream.codecpar) < 0) {
        throw std::bad_alloc();
    }
    constexpr int most_threads = 16;  // beyond which the decoders gain nothing
    // One more than may run, so that no processor waits while a finished picture is being converted.
    const int threads = cv::getNumThreads();
    context_->thread_count = threads > 1 ? std::min(threads + 1, most_threads) : 1;
    context_->max_pixels = max_pixels;
    if (avcodec_open2(context_.get(), codec, nullptr) < 0) {
        throw host_error(exit_code::input_failed, std::string("the decoder for ")
                                                      + avcodec_get_name(stream.codecpar->codec_id)
                                                      + " cannot be started");
    }
}

bool picture_decoder::is_shown(const AVPacket& packet) const
{
    // An edit list leaves it out, or the picture only serves others. A VP8 frame says so in its first bits.
    constexpr unsigned vp8_is_shown = 0x10;
    const bool serves_others =
        context_->codec_id == AV_CODEC_ID_VP8 && packet.size > 0 && (packet.data[0] & vp8_is_shown) == 0;
    return (packet.flags & AV_PKT_FLAG_DISCARD) == 0 && !serves_others;
}

bool picture_decoder::counts_by_packets() const
{
    static constexpr std::array codecs = {AV_CODEC_ID_H264,    AV_CODEC_ID_HEVC,   AV_CODEC_ID_VP8,
                                          AV_CODEC_ID_VP9,     AV_CODEC_ID_AV1,    AV_CODEC_ID_MJPEG,
                                          AV_CODEC_ID_DVVIDEO, AV_CODEC_ID_PRORES, AV_CODEC_ID_DNXHD};
    // An interlaced picture may come in two packets, one for each half.
    return std::find(codecs.begin(), codecs.end(), context_->codec_id) != codecs.end()
           && (context_->field_order == AV_FIELD_UNKNOWN || context_->field_order == AV_FIELD_PROGRESSIVE);
}

void picture_decoder::resume(int before)
{
    avcodec_flush_buffers(context_.get());
    ledger_.resume(before);
    ending_ = false;
}

void picture_decoder::send_next(media_file& file)
{
    if (!file.read(*packet_)) {
        ending_ = true;
        avcodec_send_packet(context_.get(), nullptr);
        return;
    }
    if (packet_->size == 0) {
        ledger_.add_repeat(packet_->pts, packet_->dts);
        return;
    }
    packet_->pts = is_shown(*packet_) ? ledger_.add(packet_->pts, packet_->dts) : AV_NOPTS_VALUE;
    if (avcodec_send_packet(context_.get(), packet_.get()) < 0) {
        ledger_.trouble();
    }
}

bool picture_decoder::next(media_file& file)
{
    // More than any decoder holds: one that fails without end must not keep the program busy.
    constexpr int most_failures_at_end = 1000;
    int failures_at_end = 0;
    for (;;) {
        const int result = avcodec_receive_frame(context_.get(), picture_.get());
        if (result >= 0) {
            place_ = ledger_.take(picture_->pts, is_key(*picture_));
            return true;
        }
        const bool wants_packet = result == AVERROR(EAGAIN);
        if (!wants_packet && result != AVERROR_EOF) {
            ledger_.trouble();
            failures_at_end += ending_ ? 1 : 0;
        }
        if (result == AVERROR_EOF || (ending_ && wants_packet) || failures_at_end > most_failures_at_end) {
            ledger_.finish();
            return false;
        }
        if (wants_packet) {
            send_next(file);
        }
    }
}

}  // namespace tarn::host
