// SPDX-License-Identifier: Apache-2.0
//
// The file that tells of each frame, for somebody who wants to know why a sweep failed.
#pragma once

#include <memory>
#include <string>

#include "frame_turn.h"
#include "output_file.h"
#include "sweep.h"

namespace tarn::host {

/// A frame as one line without its end, in the viewer's orientation.
std::string frame_as_csv(const frame_record& frame, frame_turn turn);
std::string frame_as_json(const frame_record& frame, frame_turn turn);

/// The names of the columns of frame_as_csv.
/// @param with_pieces  whether the frames tell their piece of the sweep
std::string csv_header(bool with_pieces = false);

/// Writes a sweep's frames as they come. The file is at its place only after finish().
class frames_file : public sweep_observer {
public:
    /// @param path         ends in .csv, for comma-separated values, or else in .jsonl
    /// @param with_pieces  whether each frame tells its piece of the sweep
    /// @throws host_error (output_failed)
    frames_file(const std::string& path, frame_turn turn, bool with_pieces = false);

    void frame_done(const frame_record& frame) override;

    void waiting(int) override
    {
    }

    void piece_begins() override;

    /// @throws host_error (output_failed) when it, or a frame before, could not be written
    void finish();

private:
    growing_file file_;
    frame_turn turn_;
    bool csv_;
    int piece_;  ///< 0 where pieces are not told apart
};

}  // namespace tarn::host
