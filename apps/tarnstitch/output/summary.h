// SPDX-License-Identifier: Apache-2.0
//
// The summary of --json: all that is known of a run at its end, for a program to read.
#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "finish_stage.h"
#include "frame_turn.h"
#include "host_error.h"
#include "options.h"
#include "panorama_files.h"
#include "panorama_verdict.h"
#include "report.h"
#include "run_record.h"
#include "sweep.h"
#include "sweep_pieces.h"

namespace tarn::host {

class report_collector;

struct run_summary {
    exit_code code = exit_code::done;
    std::string error;  ///< why nothing could be stitched or written; "" if that is not so

    cv::Size frame_size;  ///< upright; empty when no input could be opened
    int announced = 0;    ///< pictures that the input says it has; 0 if it does not
    int pictures = 0;     ///< met in it
    bool cut_short = false;
    std::vector<file_identity> input_files;  ///< as they were before they were opened; none where nobody asks
    std::vector<file_identity> outputs;      ///< as they are after it; likewise
    lost_frames lost;

    frame_turn turn = frame_turn::counter_clockwise;
    int tries = 0;
    sweep_result result;
    verdict judged;                      ///< of the panorama
    std::vector<std::string> sentences;  ///< what is wrong with it and why, the worst first
    written_files written;
    std::optional<finished_picture> finished;  ///< where one was tried; without its pixels
    std::vector<sweep_piece> pieces;           ///< for it: the sweep, and what went on behind a failure
    std::string earlier;             ///< the record of an earlier run that has left nothing to do; "" if there is none
    std::vector<std::string> notes;  ///< what was said beside, a line each
    double seconds = 0.0;
    double peak_memory = 0.0;  ///< bytes
    int threads = 0;
    std::string report;  ///< the file of the report; "" if there is none

    std::shared_ptr<report_collector> reported;  ///< what a report is made of; none where none is asked for
};

/// One JSON object over several lines, the last of which ends. Text that is no UTF-8 is repaired.
std::string summary_as_json(const run_summary& summary, const options& asked);

/// What a text of such an object is: indented, and with a line end.
std::string as_text(const nlohmann::ordered_json& object);

/// The versions that make a result what it is, by their names in the summary.
nlohmann::ordered_json versions_as_json();

/// The options on the command line, by their long names, without those that only say where outputs go, or how fast and
/// with what words they are made.
nlohmann::ordered_json options_as_json(const options& asked);

/// The most memory that this process has had, in bytes.
double peak_memory();

}  // namespace tarn::host
