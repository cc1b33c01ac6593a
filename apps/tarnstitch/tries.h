// SPDX-License-Identifier: Apache-2.0
//
// The tries of a run: the input stitched in one way after the other, and the best that came of it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_source.h"
#include "frames_file.h"
#include "judgement.h"
#include "key_frame_collector.h"
#include "options.h"
#include "panorama_files.h"
#include "panorama_verdict.h"
#include "report.h"
#include "report_collector.h"
#include "scratch_directory.h"
#include "sweep.h"
#include "sweep_pieces.h"

namespace tarn::host {

/// One way of stitching the input, and what came of it.
struct attempt {
    way made_by;
    sweep_result result;
    verdict judged;
    std::unique_ptr<frames_file> frames;         ///< not at its place yet
    std::shared_ptr<report_collector> reported;  ///< for the report; none if there is to be none
    std::string kept_files;                      ///< where the working files are; "" if they are not kept
    cv::Size frame_size;
    int announced = 0;
    int pictures = 0;
    lost_frames lost;
    std::vector<std::string> notes;  ///< on the input
    bool cut_short = false;
    bool later_interrupted = false;                  ///< whether Ctrl-C came in a further try, be it this one or not
    std::unique_ptr<key_frame_collector> collected;  ///< for the finished picture; none if there is to be none
    sweep_outcome last_piece = sweep_outcome::complete;  ///< how the sweep ended that went on behind a failure
    std::vector<sweep_piece> pieces;                     ///< the sweep, and what went on behind a failure

    /// Whether the panorama may take the place of an earlier one: it reaches to the end, and shows more than one frame.
    bool holds_the_sweep() const
    {
        return result.outcome == sweep_outcome::complete && judged.how_good != grade::nothing;
    }
};

/// Makes them. Not to be copied while one is being made, since attempts refer to its files.
class tries {
public:
    /// @param made  counts those that were begun
    tries(const options& asked, const panorama_files& files, int& made) : asked_(asked), files_(files), made_(made)
    {
    }

    /// The input that the command line names.
    /// @throws host_error: there is none, it has no times where the options need them, or an output would overwrite it
    std::unique_ptr<frame_source> open() const;

    /// The best attempt: the first one, or of further ones as long as they may help and there are ways left.
    /// @throws host_error where the first one cannot be made
    attempt best(std::unique_ptr<frame_source> source);

    /// Where no way of stitching the sweep has helped: the other command line that may give more, if it has been tried
    /// and did, so that nothing is advised that fails as well. One that would take long is not tried.
    std::optional<tried_remedy> remedy(const attempt& failed) const;

private:
    attempt make(std::unique_ptr<frame_source> source, const way& by);
    attempt best_of_further(attempt best);
    std::string new_directory_for_kept_files();

    const options& asked_;
    const panorama_files& files_;
    int& made_;
    std::optional<scratch_directory> scratch_;  ///< for working files that are to be kept
    bool may_go_on_ = false;                    ///< whether the input can be read again, and the user lets it be
    way first_;                                 ///< in which another command line would begin as well
    int looked_at_ = 0;                         ///< pictures, in the tries so far
};

}  // namespace tarn::host
