// SPDX-License-Identifier: Apache-2.0
//
// The pictures of a video one after the other, as FFmpeg's libavcodec decodes them: those that a player shows.
#pragma once

#include "media_file.h"
#include "media_handles.h"
#include "picture_ledger.h"

namespace tarn::host {

/// Whether a picture can be decoded without others.
bool is_key(const AVFrame& picture);

class picture_decoder {
public:
    /// @param max_pixels  that a picture may have: a larger one is missing
    /// @throws host_error (input_failed) when the decoder cannot be had
    picture_decoder(const media_file& file, int max_pixels);

    /// Decodes the next picture that can be decoded.
    /// @returns false when there are no more
    bool next(media_file& file);

    /// The picture decoded last, and where it belongs.
    const AVFrame& picture() const
    {
        return *picture_;
    }

    const picture_ledger::entry& place() const
    {
        return place_;
    }

    const picture_ledger& ledger() const
    {
        return ledger_;
    }

    /// Whether a packet is of a picture that is shown, sooner or later.
    bool is_shown(const AVPacket& packet) const;

    /// Whether the number of pictures can be told from their packets alone.
    bool counts_by_packets() const;

    /// Begins anew at a key picture with so many pictures before it in the file.
    void resume(int before);

private:
    void send_next(media_file& file);

    media_handle<AVCodecContext> context_;
    media_handle<AVFrame> picture_;
    media_handle<AVPacket> packet_;
    picture_ledger ledger_;
    picture_ledger::entry place_;
    bool ending_ = false;  ///< there are no more packets
};

}  // namespace tarn::host
