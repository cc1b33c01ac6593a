// SPDX-License-Identifier: Apache-2.0
//
// Opening and reading videos by libavformat.
#include "media_file.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/dict.h>
#include <libavutil/display.h>
#include <libavutil/parseutils.h>
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "frame_source.h"
#include "host_error.h"

namespace tarn::host {

namespace {

/// What phones, cameras, screen recorders and the programs that pass their recordings on write.
constexpr const char* formats =
    "mov,matroska,webm,avi,mpegts,mpeg,asf,flv,ogg,dv,mxf,h264,hevc,m4v,mpegvideo,mjpeg,yuv4mpegpipe";

/// Those that are lists of other files, or lead to them.
constexpr const char* lists = "hls,applehttp,concat,dash,imf,sdp,rtsp,image2,webm_dash_manifest";

[[noreturn]] void fail(const std::string& line)
{
    throw host_error(exit_code::input_failed, line);
}

/// Of one whose tables would take more memory than it may.
[[noreturn]] void fail_for_claims(const std::string& file)
{
    fail(file + " claims more tracks or pictures than are believed of a file of its size");
}

template <typename Handle>
Handle* made(Handle* handle)
{
    return handle != nullptr ? handle : throw std::bad_alloc();
}

class dictionary {
public:
    dictionary(const char* key, const std::string& value)
    {
        av_dict_set(&entries_, key, value.c_str(), 0);
    }

    ~dictionary()
    {
        av_dict_free(&entries_);
    }

    dictionary(const dictionary&) = delete;
    dictionary& operator=(const dictionary&) = delete;

    AVDictionary** get()
    {
        return &entries_;
    }

private:
    AVDictionary* entries_ = nullptr;
};

/// Looks through the streams, which may decode some pictures, but none that is too large.
bool find_streams(AVFormatContext& context, int max_pixels)
{
    std::vector<AVDictionary*> options(context.nb_streams, nullptr);
    for (AVDictionary*& one : options) {
        av_dict_set_int(&one, "max_pixels", max_pixels, 0);
    }
    const bool found = avformat_find_stream_info(&context, options.data()) >= 0;
    std::for_each(options.begin(), options.end(), [](AVDictionary*& one) { av_dict_free(&one); });
    return found;
}

/// Whether it makes tables of what a file claims not only when it is opened, but also while it is read.
bool has_fragments(const AVInputFormat& format)
{
    return av_match_name("mov", format.name) != 0;
}

/// Pixels of the largest pictures that are to be decoded. Only where the tables of the file would profit from more are
/// the sizes believed that it tells in advance.
std::int64_t most_expected(const AVFormatContext& context, int max_pixels)
{
    std::int64_t most = 0;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        const AVCodecParameters& content = *context.streams[i]->codecpar;
        if (content.codec_type == AVMEDIA_TYPE_VIDEO) {
            most = std::max(most, std::int64_t{content.width} * content.height);
        }
    }
    return has_fragments(*context.iformat) ? std::min<std::int64_t>(most, max_pixels) : max_pixels;
}

/// The stream that a player shows: pictures on a cover are none.
AVStream* shown_stream(AVFormatContext& context)
{
    const int best = av_find_best_stream(&context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    AVStream* shown = nullptr;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        AVStream* const stream = context.streams[i];
        stream->discard = AVDISCARD_ALL;
        const bool is_cover =
            (stream->disposition & (AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS)) != 0;
        if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !is_cover
            && (shown == nullptr || static_cast<int>(i) == best)) {
            shown = stream;
        }
    }
    if (shown != nullptr) {
        shown->discard = AVDISCARD_DEFAULT;
    }
    return shown;
}

const std::int32_t* display_matrix(const AVStream& stream)
{
#if LIBAVFORMAT_VERSION_INT >= AV_VERSION_INT(60, 15, 100)
    const AVPacketSideData* const data = av_packet_side_data_get(
        stream.codecpar->coded_side_data, stream.codecpar->nb_coded_side_data, AV_PKT_DATA_DISPLAYMATRIX);
    return data != nullptr ? reinterpret_cast<const std::int32_t*>(data->data) : nullptr;
#else
    return reinterpret_cast<const std::int32_t*>(av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
#endif
}

/// A number that a file may have wrong; 0 then.
double believable(double value, double most)
{
    return value > 0.0 && value <= most ? value : 0.0;
}

}  // namespace

std::unique_ptr<media_file> media_file::open(const std::string& file, int max_pixels)
{
    const std::string url = "file:" + as_path(file);
    dictionary only_files("protocol_whitelist", "file");
    AVIOContext* io = nullptr;
    if (avio_open2(&io, url.c_str(), AVIO_FLAG_READ, nullptr, only_files.get()) < 0) {
        return nullptr;
    }
    const std::size_t for_tables = memory_for_tables(avio_size(io));
    auto opened = std::unique_ptr<media_file>(new media_file(for_tables));
    opened->name_ = file;
    opened->io_.reset(io);
    // Without its name: a name must not make a format of a content that does not show one.
    const AVInputFormat* format = nullptr;
    if (av_probe_input_buffer2(io, &format, "", nullptr, 0, 0) < 0 || format == nullptr) {
        return nullptr;
    }
    // One JPEG and a stream of them begin alike. Here the name tells.
    if (av_match_list(format->name, "jpeg_pipe", ',') != 0 && av_match_ext(file.c_str(), "mjpeg,mjpg") != 0) {
        format = av_find_input_format("mjpeg");
    }
    if (format == nullptr) {
        return nullptr;
    }
    if (av_match_list(format->name, lists, ',') != 0) {
        fail(file + " is a list of other files (" + format->name + "), which is not followed: name a video itself");
    }
    if (av_match_list(format->name, formats, ',') == 0) {
        return nullptr;
    }

    constexpr int most_streams = 32;  // some cameras record a dozen; each has tables of its own
    AVFormatContext* context = made(avformat_alloc_context());
    context->pb = io;
    context->max_streams = most_streams;
    // Also for what a format might open by itself.
    context->protocol_whitelist = made(av_strdup("file"));
    context->format_whitelist = made(av_strdup(formats));
    const int result = avformat_open_input(&context, url.c_str(), format, nullptr);
    if (result == AVERROR(ENOMEM)) {
        fail_for_claims(file);
    }
    if (result < 0) {
        return nullptr;
    }
    opened->context_.reset(context);
    opened->has_index_ = context->nb_streams > 0 && avformat_index_get_entries_count(context->streams[0]) > 0;
    const auto make_room = [&] {
        opened->memory_.set(std::max(for_tables, memory_for_pictures(most_expected(*context, max_pixels))));
    };
    make_room();
    if (!find_streams(*context, max_pixels)) {
        return nullptr;
    }
    make_room();  // the pictures themselves may be of another size
    opened->stream_ = shown_stream(*context);
    if (opened->stream_ == nullptr) {
        return nullptr;
    }
    opened->numbers_pictures_ = av_match_name("avi", format->name) != 0;
    const AVCodecParameters& pictures = *opened->stream_->codecpar;
    check_size(file, {pictures.width, pictures.height}, max_pixels);
    if (avcodec_find_decoder(pictures.codec_id) == nullptr) {
        fail("nothing here decodes the pictures of " + file + " (" + avcodec_get_name(pictures.codec_id) + ")");
    }
    return opened;
}

bool media_file::has_list_of_pictures() const
{
    return av_match_name("mov", context_->iformat->name) != 0 && stream_->nb_frames > 0
           && avformat_index_get_entries_count(stream_) > 0;
}

int media_file::announced() const
{
    if (has_list_of_pictures()) {
        int shown = 0;
        for (int i = 0; i < avformat_index_get_entries_count(stream_); ++i) {
            shown += (avformat_index_get_entry(stream_, i)->flags & AVINDEX_DISCARD_FRAME) == 0 ? 1 : 0;
        }
        return shown;
    }
    constexpr double most_pictures = 1e8;
    double count = static_cast<double>(stream_->nb_frames);
    if (count <= 0.0) {
        const double seconds = stream_->duration != AV_NOPTS_VALUE
                                   ? static_cast<double>(stream_->duration) * av_q2d(stream_->time_base)
                                   : static_cast<double>(context_->duration) / AV_TIME_BASE;
        count = std::floor(seconds * rate() + 0.5);
    }
    return static_cast<int>(believable(count, most_pictures));
}

double media_file::rate() const
{
    constexpr double most_per_second = 1e4;
    const AVRational guessed = av_guess_frame_rate(context_.get(), stream_, nullptr);
    return guessed.den > 0 ? believable(av_q2d(guessed), most_per_second) : 0.0;
}

picture_orientation media_file::orientation() const
{
    const std::int32_t* const matrix = display_matrix(*stream_);
    if (matrix == nullptr) {
        return {};
    }
    // A point (x, y), with y downward, is shown at (a x + c y, b x + d y).
    const auto sign = [](std::int32_t value) { return value > 0 ? 1 : (value < 0 ? -1 : 0); };
    const std::array<int, 4> shown = {sign(matrix[0]), sign(matrix[1]), sign(matrix[3]), sign(matrix[4])};  // a b c d
    static constexpr std::array<std::array<int, 4>, 8> known = {{{1, 0, 0, 1},
                                                                 {0, 1, -1, 0},
                                                                 {-1, 0, 0, -1},
                                                                 {0, -1, 1, 0},
                                                                 {-1, 0, 0, 1},
                                                                 {0, -1, -1, 0},
                                                                 {1, 0, 0, -1},
                                                                 {0, 1, 1, 0}}};
    const auto place = std::find(known.begin(), known.end(), shown);
    if (place == known.end()) {
        return {};  // no turn by quarters
    }
    const int index = static_cast<int>(place - known.begin());
    return {index % 4, index >= 4};
}

std::optional<std::int64_t> media_file::recording_time() const
{
    const AVDictionaryEntry* const entry = av_dict_get(context_->metadata, "creation_time", nullptr, 0);
    std::int64_t microseconds = 0;
    if (entry == nullptr || av_parse_time(&microseconds, entry->value, 0) < 0 || microseconds <= 0) {
        return std::nullopt;
    }
    return microseconds / AV_TIME_BASE;
}

bool media_file::read(AVPacket& packet)
{
    av_packet_unref(&packet);
    if (put_back_.empty() && read_from_file(packet)) {
        if (!numbers_pictures_ || packet.dts == AV_NOPTS_VALUE) {
            return true;
        }
        const std::int64_t number = packet.dts;
        if (stream_->codecpar->video_delay > 0) {
            packet.pts = AV_NOPTS_VALUE;  // a number again, though pictures are shown in another order
        }
        media_handle<AVPacket> next(made(av_packet_alloc()));
        av_packet_move_ref(next.get(), &packet);
        put_repeats_back(number);
        put_back_.push_back(std::move(next));
        next_number_ = number + 1;
    } else if (put_back_.empty() && numbers_pictures_) {
        // With an index, which has no entries for repeats, the file is whole: what it announced and has not are such.
        if (has_index_ && next_number_
            && avformat_index_get_entry_from_timestamp(stream_, *next_number_, AVSEEK_FLAG_ANY) == nullptr) {
            put_repeats_back(stream_->nb_frames);
        }
    }
    if (put_back_.empty()) {
        return false;
    }
    av_packet_move_ref(&packet, put_back_.front().get());
    put_back_.pop_front();
    return true;
}

bool media_file::read_from_file(AVPacket& packet)
{
    int result = 0;
    while ((result = av_read_frame(context_.get(), &packet)) >= 0) {
        if (packet.stream_index == stream_->index) {
            return true;
        }
        av_packet_unref(&packet);
    }
    if (result == AVERROR(ENOMEM)) {
        fail_for_claims(name_);
    }
    return false;
}

/// For the numbers without a packet up to an end.
void media_file::put_repeats_back(std::int64_t end)
{
    constexpr std::int64_t most = 10'000;  // what a damaged file claims must not fill the memory
    if (!next_number_ || end - *next_number_ > most) {
        return;
    }
    for (; *next_number_ < end; ++*next_number_) {
        media_handle<AVPacket> repeat(made(av_packet_alloc()));
        repeat->pts = repeat->dts = *next_number_;
        put_back_.push_back(std::move(repeat));
    }
}

void media_file::put_back(media_handle<AVPacket> packet)
{
    put_back_.push_front(std::move(packet));
}

std::optional<int> media_file::seek(std::int64_t time)
{
    constexpr int most_tries = 8;  // a key picture is decoded before it is shown, by a few pictures
    std::int64_t from = time;
    const int listed = avformat_index_get_entries_count(stream_);
    for (int i = 0; has_list_of_pictures() && i < most_tries; ++i) {
        media_handle<AVPacket> packet(made(av_packet_alloc()));
        put_back_.clear();
        if (av_seek_frame(context_.get(), stream_->index, from, AVSEEK_FLAG_BACKWARD) < 0 || !read(*packet)
            || packet->pts == AV_NOPTS_VALUE || (packet->flags & AV_PKT_FLAG_KEY) == 0) {
            return std::nullopt;
        }
        if (avformat_index_get_entries_count(stream_) != listed) {
            return std::nullopt;  // it grows with the fragments that are met: not all that lies before is in it
        }
        if (packet->pts > time) {
            from = packet->dts - 1;
            continue;
        }
        int shown = 0;
        std::optional<int> before;
        for (int entry = 0; entry < avformat_index_get_entries_count(stream_); ++entry) {
            const AVIndexEntry& one = *avformat_index_get_entry(stream_, entry);
            if (one.pos == packet->pos) {
                if (before) {
                    return std::nullopt;  // shown in several places
                }
                before = shown;
            }
            shown += (one.flags & AVINDEX_DISCARD_FRAME) == 0 ? 1 : 0;
        }
        put_back(std::move(packet));
        return before;
    }
    return std::nullopt;
}

}  // namespace tarn::host
