// SPDX-License-Identifier: Apache-2.0
//
// The command line: one table of options, from which the parser and the help text are made.
#pragma once

#include <string>
#include <vector>

#include "frame_turn.h"

namespace tarn::host {

/// What the command line asks for.
struct options {
    std::string input;
    std::string output;   ///< "" for the name made from the input's
    std::string preview;  ///< "" for none
    bool sensor_orientation = false;
    camera_motion direction = camera_motion::any;
    int workers = 0;  ///< 0 for the number that suits this machine

    bool help = false;
    bool version = false;
};

/// One option, or a positional argument, as the user sees it.
struct option_row {
    const char* topic;
    const char* names;  ///< "-o,--output"; a name without a dash is positional
    const char* value;  ///< what stands for its value in the help text; "" for a flag
    const char* help;   ///< lines of at most 72 characters, separated by "\n"
};

/// The table, by topics in the order of the help text.
const std::vector<option_row>& option_table();

/// Reads the command line. With --help or --version among the arguments nothing else is asked for.
/// @throws host_error (usage), with one line that says what is wrong
options parse_options(int argc, const char* const* argv);

/// The text of --help.
std::string help_text();

/// The text of --version.
std::string version_text();

/// Key frames on their way at once where --workers does not say: as many as there are processors, within the
/// limits in which more help and the memory stays small.
int default_workers();

}  // namespace tarn::host
