// SPDX-License-Identifier: Apache-2.0
//
// A video's packets, decoder and colours put together; and the way to a moment far from the beginning.
#include "video_source.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

#include "host_error.h"
#include "media_file.h"
#include "picture_conversion.h"
#include "picture_decoder.h"

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

/// The turn by which upright frames become what the sensor recorded, when that had to be turned by so many
/// quarters, clockwise, to be upright. Frames that were recorded upright tell nothing of how the device was held.
frame_turn turn_as_recorded(int quarter_turns)
{
    return quarter_turns == 3 ? frame_turn::clockwise : frame_turn::counter_clockwise;
}

class video_source : public frame_source {
public:
    video_source(std::unique_ptr<media_file> file, const std::string& path, int max_pixels)
        : file_(std::move(file)), path_(path), max_pixels_(max_pixels), decoder_(std::in_place, *file_, max_pixels),
          shown_(file_->orientation())
    {
        facts_.files = {path};
        facts_.has_times = true;
        facts_.announced = file_->announced();
        facts_.rate = file_->rate();
        std::error_code error;
        facts_.rereadable = fs::is_regular_file(path, error);
        facts_.as_recorded = turn_as_recorded(shown_.quarter_turns);
        facts_.recorded = file_->recording_time();
    }

    const source_facts& facts() const override
    {
        return facts_;
    }

    void skip_to(double seconds) override
    {
        frame_stamp first;
        if (!facts_.rereadable || seconds <= 0.0 || !advance(first)) {
            return;
        }
        is_ahead_ = true;
        const std::int64_t begin = decoder_->place().time;
        if (begin == picture_ledger::no_time || !decoder_->counts_by_packets()) {
            return;
        }
        const bool begins_with_key = is_key(decoder_->picture());
        constexpr double furthest = 1e9;  // s, beyond all recordings
        const auto target =
            begin + static_cast<std::int64_t>(std::min(seconds, furthest) / av_q2d(file_->stream().time_base));
        const bool is_there = go_to_key_picture();
        const std::int64_t key = decoder_->place().time;
        const int not_shown = is_there ? decoder_->ledger().uncounted() + leading_pictures(key) : 0;
        const bool is_cut = !begins_with_key || not_shown > 0;
        if (const std::optional<int> before = is_there ? file_->seek(target) : std::nullopt) {
            decoder_->resume(std::max(0, *before - not_shown));
        } else if (!is_there || !skip_by_reading(target, not_shown)) {
            begin_anew();
            return;
        }
        // Behind a key picture that is damaged there may be none, though there are from the beginning. And at the first
        // one of a recording that was cut, what is not shown would be counted.
        if (decoder_->next(*file_) && is_key(decoder_->picture()) && (!is_cut || decoder_->place().time > key)) {
            take_place();
        } else {
            begin_anew();
        }
    }

    bool advance(frame_stamp& stamp) override
    {
        if (!is_ahead_ && !decoder_->next(*file_)) {
            const picture_ledger& ledger = decoder_->ledger();
            facts_.announced = std::max(number_, facts_.announced - ledger.repeats_at_end());
            return false;
        }
        if (!is_ahead_) {
            take_place();
        }
        is_ahead_ = false;
        stamp = stamp_;
        return true;
    }

    cv::Mat picture(frame_turn turn) override
    {
        return converter_.convert(decoder_->picture(), shown_, turn);
    }

    std::string name() const override
    {
        return "frame " + std::to_string(number_) + " of " + facts_.files.front();
    }

    int passed_over() const override
    {
        return decoder_->ledger().missing();
    }

private:
    /// Goes on to the first key picture. Recordings that were cut begin with pictures that need others before them.
    /// @returns false when there is none for long
    bool go_to_key_picture()
    {
        constexpr int most = 1000;  // further than key pictures are apart
        for (int i = 0; !is_key(decoder_->picture()); ++i) {
            if (i == most || !decoder_->next(*file_)) {
                return false;
            }
        }
        return true;
    }

    /// How many of the pictures that come next in the file would be shown before the first key picture: they need others
    /// before it, and are not shown.
    int leading_pictures(std::int64_t key)
    {
        constexpr int most = 64;  // more than any decoder can put into another order
        std::deque<media_handle<AVPacket>> next;
        int leading = 0;
        for (int i = 0; i < most; ++i) {
            media_handle<AVPacket> packet(av_packet_alloc());
            if (!packet || !file_->read(*packet)) {
                break;
            }
            // One without any time is left from before the beginning, where a file has been cut.
            const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
            leading += time < key && decoder_->is_shown(*packet) ? 1 : 0;
            // What is decoded after it is shown after it.
            const bool past = packet->dts != AV_NOPTS_VALUE && packet->dts > key;
            next.push_back(std::move(packet));
            if (past) {
                break;
            }
        }
        for (; !next.empty(); next.pop_back()) {
            file_->put_back(std::move(next.back()));
        }
        return leading;
    }

    void take_place()
    {
        stamp_ = {decoder_->place().number, seconds_of(decoder_->place())};
        number_ = stamp_.number;
    }

    /// Goes back to the beginning, and to the first picture.
    void begin_anew()
    {
        std::unique_ptr<media_file> anew = opened_anew();
        decoder_.emplace(*anew, max_pixels_);
        file_ = std::move(anew);
        first_.reset();
        number_ = 0;
        is_ahead_ = false;
        frame_stamp first;
        is_ahead_ = advance(first);
    }

    std::unique_ptr<media_file> opened_anew() const
    {
        std::unique_ptr<media_file> anew = media_file::open(path_, max_pixels_);
        if (!anew) {
            throw host_error(exit_code::input_failed, path_ + " cannot be read again from its beginning");
        }
        return anew;
    }

    /// When a picture is shown, from the first one on. Times that go back begin anew behind those before.
    double seconds_of(const picture_ledger::entry& place)
    {
        const double unit = av_q2d(file_->stream().time_base);
        const double step = facts_.rate > 0.0 ? 1.0 / facts_.rate : 0.0;
        if (place.time == picture_ledger::no_time) {
            return number_ == 0 ? 0.0 : stamp_.seconds + step * (place.number - number_);
        }
        const double time = static_cast<double>(place.time) * unit;
        if (!first_) {
            first_ = time;
        }
        double seconds = time - *first_;
        if (number_ > 0 && (place.after_jump || seconds < stamp_.seconds)) {
            const double after = std::max(seconds, stamp_.seconds + step);
            *first_ -= after - seconds;
            seconds = after;
        }
        return seconds;
    }

    /// Goes to the last key picture before a time without the help of an index: all packets are read, and none before
    /// it decoded.
    /// @param not_shown  pictures in the file before that are not shown
    /// @returns false where times go back on the way, as they do between recordings that were put together: then only
    ///          what lies before tells when a picture is shown, and nothing is skipped
    bool skip_by_reading(std::int64_t target, int not_shown)
    {
        std::unique_ptr<media_file> anew = opened_anew();
        constexpr std::size_t most_held = std::size_t{256} << 20;  // bytes, far more than lie between two key pictures
        std::deque<media_handle<AVPacket>> held;                   // from the last key picture on
        std::size_t size = 0;
        int before = 0;
        int pictures = 0;
        std::int64_t last = AV_NOPTS_VALUE;
        media_handle<AVPacket> packet(av_packet_alloc());
        while (packet && anew->read(*packet)) {
            // What is decoded after the moment is shown after it. The first times may not be known.
            if (packet->dts != AV_NOPTS_VALUE) {
                if (last != AV_NOPTS_VALUE && packet->dts < last) {
                    return false;
                }
                last = packet->dts;
            }
            const bool past = packet->dts != AV_NOPTS_VALUE && (packet->pts == AV_NOPTS_VALUE || packet->dts > target);
            if (packet->pts <= target && packet->pts != AV_NOPTS_VALUE && (packet->flags & AV_PKT_FLAG_KEY) != 0) {
                held.clear();
                size = 0;
                before = pictures;
            }
            pictures += decoder_->is_shown(*packet) ? 1 : 0;
            size += static_cast<std::size_t>(packet->size);
            held.push_back(std::move(packet));
            if (past || size > most_held) {
                break;
            }
            packet.reset(av_packet_alloc());
        }
        for (; !held.empty(); held.pop_back()) {
            anew->put_back(std::move(held.back()));
        }
        decoder_.emplace(*anew, max_pixels_);
        file_ = std::move(anew);
        decoder_->resume(std::max(0, before - not_shown));
        return true;
    }

    std::unique_ptr<media_file> file_;
    std::string path_;
    int max_pixels_;
    std::optional<picture_decoder> decoder_;
    picture_orientation shown_;
    picture_converter converter_;
    source_facts facts_;
    frame_stamp stamp_;            ///< of the picture decoded last
    int number_ = 0;               ///< its number; 0 before the first
    std::optional<double> first_;  ///< when the first picture is shown, in the file's own time
    bool is_ahead_ = false;        ///< it is yet to be given
};

}  // namespace

std::unique_ptr<frame_source> open_video(const std::string& path, int max_pixels)
{
    std::unique_ptr<media_file> file = media_file::open(path, max_pixels);
    if (!file) {
        return nullptr;
    }
    return std::make_unique<video_source>(std::move(file), path, max_pixels);
}

}  // namespace tarn::host
