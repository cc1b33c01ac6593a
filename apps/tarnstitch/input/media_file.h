// SPDX-License-Identifier: Apache-2.0
//
// A video file as FFmpeg's libavformat takes it apart: its packets, and what it says of itself.
//
// What the file is shows in its content. It must be one of the formats in which cameras, phones and the programs
// behind them record, and is the only file that is opened: formats that name others, playlists for one, are refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "media_handles.h"
#include "media_memory.h"
#include "picture_conversion.h"

namespace tarn::host {

/// The first of its video streams, or the one that the file prefers, packet by packet.
class media_file {
public:
    /// @param max_pixels  that a picture may have, at least 1
    /// @returns nothing when the file is no video
    /// @throws host_error (input_failed) for a playlist, for pictures that are too large, and when nothing here can
    ///         decode them
    static std::unique_ptr<media_file> open(const std::string& file, int max_pixels);

    const AVStream& stream() const
    {
        return *stream_;
    }

    /// Pictures that are shown, as far as the file tells; 0 if it does not.
    int announced() const;

    /// Pictures per second, about; 0 when it is not known.
    double rate() const;

    /// How the pictures are to be turned and mirrored to be upright.
    picture_orientation orientation() const;

    /// When it was recorded, in seconds since the beginning of 1970, UTC; nothing if the file does not say.
    std::optional<std::int64_t> recording_time() const;

    /// Goes on to the next packet of the stream. One without content stands where the picture before is to be shown
    /// once more, in a file whose pictures have numbers and no times.
    /// @returns false at the end of the file, or of what can be read of it
    /// @throws host_error (input_failed) where it goes on with tables that claim more than a file of its size can have
    bool read(AVPacket& packet);

    /// Makes a packet the next one that read() gives, before those that were put back earlier.
    void put_back(media_handle<AVPacket> packet);

    /// Goes to a key picture that is shown at a time or before it, by the file's index.
    /// @param time  in the stream's units
    /// @returns the pictures that lie before it in the file and are shown; nothing when the index does not tell: the
    ///          file then has to be opened anew
    std::optional<int> seek(std::int64_t time);

private:
    explicit media_file(std::size_t memory) : memory_(memory)
    {
    }

    bool has_list_of_pictures() const;
    bool read_from_file(AVPacket& packet);
    void put_repeats_back(std::int64_t end);

    std::string name_;
    media_memory_limit memory_;     ///< also of those who decode the packets
    media_handle<AVIOContext> io_;  ///< outlives the context that reads by it
    media_handle<AVFormatContext> context_;
    AVStream* stream_ = nullptr;  ///< the context's
    std::deque<media_handle<AVPacket>> put_back_;
    bool numbers_pictures_ = false;            ///< instead of giving them times: an AVI
    bool has_index_ = false;                   ///< has been read before the first packet
    std::optional<std::int64_t> next_number_;  ///< of the packet behind those read; nothing before the first
};

}  // namespace tarn::host
