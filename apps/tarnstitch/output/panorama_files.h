// SPDX-License-Identifier: Apache-2.0
//
// The files that a sweep ends in: the panorama, or the part of it, the preview, the lines on frames, the log, the
// working files.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_turn.h"
#include "metadata.h"
#include "options.h"
#include "sweep.h"

namespace tarn::host {

/// A picture that was written.
struct written_picture {
    std::string file;  ///< "" if there is none
    cv::Size size;
    cv::Mat small_copy = {};  ///< where a report is to show it, and no larger than that needs
};

/// What has become of the files.
struct written_files {
    written_picture panorama;
    bool whole = false;  ///< whether that is the panorama; else it is the part that was composed
    cv::Size uncropped;  ///< the panorama's size before it was cut
    written_picture preview;
    written_picture finished;
    bool finished_whole = false;        ///< whether that is under its own name
    std::vector<std::string> errors;    ///< one line for each file that could not be written
    std::vector<std::string> warnings;  ///< one line for each that falls short of what was asked for
};

/// Checks and writes the outputs.
class panorama_files {
public:
    /// Takes the names asked for and checks their endings.
    /// @throws host_error (usage): an ending that cannot be written, one name given twice, or a working file's
    explicit panorama_files(const options& asked);

    /// The name of the panorama, once it is whole.
    const std::string& panorama() const
    {
        return panorama_;
    }

    /// Files that belong to an earlier run's results, not to a directory's pictures.
    std::vector<std::string> left_out_of_inputs() const;

    /// Checks that no output is one of the input's files.
    /// @throws host_error (output_failed)
    void check_against_inputs(const std::vector<std::string>& input_files) const;

    /// Checks that the outputs can be written where they are to be.
    /// @throws host_error (output_failed)
    void check_places() const;

    /// Writes what the sweep gave, upright: the panorama and the preview, under their own names if they are whole,
    /// else under the partial ones, so that earlier whole ones stay. Each file is tried, whatever became of the
    /// other.
    written_files write(const sweep_result& result, bool whole, frame_turn turn, const output_metadata& metadata) const;

    /// Writes the finished picture, under the partial name if it does not reach to the end of the sweep.
    void write_finished(const cv::Mat& picture, bool whole, const output_metadata& metadata, const panorama_view& view,
                        written_files& written) const;

    /// Copies the files in a directory to the one for working files, which is made if it is missing. Those of an
    /// earlier run are removed from it.
    /// @param result  of the sweep, which tells how many there should be
    /// @throws host_error (output_failed), also when there are fewer
    void keep_working_files(const std::string& from, const sweep_result& result) const;

private:
    void write_panorama(const sweep_result& result, bool whole, frame_turn turn, const output_metadata& metadata,
                        written_files& written) const;
    void write_preview(const sweep_result& result, bool whole, frame_turn turn, const output_metadata& metadata,
                       written_files& written) const;

    const options& asked_;
    std::string panorama_;
    std::string partial_;          ///< the panorama's name with "-partial" before its ending
    std::string partial_preview_;  ///< the preview's likewise; "" if there is none
    std::string finished_;
    std::string partial_finished_;
};

}  // namespace tarn::host
