// SPDX-License-Identifier: Apache-2.0
//
// The command line: one table of options, from which the parser, the help text, the manual page and the shells'
// completions are made.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame_selection.h"
#include "frame_turn.h"

namespace tarn::host {

/// To what the finished picture is cut.
enum class finished_crop {
    full,      ///< a rectangle without empty pixels
    generous,  ///< one that may take in thin empty corners
    none,      ///< nothing: all that was seen
};

/// What the command line asks for.
struct options {
    std::vector<std::string> inputs;
    frame_selection selection;
    int max_pixels = 100'000'000;  ///< that a picture of the input may have

    std::string output;   ///< "" for the name made from the input's
    int quality = 0;      ///< of a JPEG panorama, 1 to 100; 0 for the library's own
    bool crop = false;    ///< cut the panorama to the largest rectangle without empty pixels
    bool finish = false;  ///< make the finished picture as well
    finished_crop cut_of_finished = finished_crop::full;
    std::string preview;    ///< "" for none
    std::string frames;     ///< the file that tells of each frame; "" for none
    std::string report;     ///< the page that tells of the sweep; "" for none
    std::string keep_work;  ///< the directory for the working files; "" for none
    bool json_summary = false;
    bool skip_done = false;  ///< nothing is done where an earlier run has done the same
    std::string log;         ///< the file for the library's log lines; "" for none

    turn_choice turn = turn_choice::automatic;
    camera_motion direction = camera_motion::any;
    bool retry = true;

    bool realtime = false;
    int threads = 0;  ///< at most; 0 for the processors that the program was given
    int workers = 0;  ///< 0 for the number that suits the threads

    bool show = false;
    bool quiet = false;

    bool help = false;
    bool version = false;

    struct writing {
        std::string name;   ///< that was used
        std::string value;  ///< "" for a flag
    };

    std::map<std::string, writing> written;  ///< options on the command line, by their long names

    /// The name that an option has on the command line: "-o" for "--output" perhaps.
    std::string as_written(const std::string& name) const;
};

/// What an option's value is, for the shells' completions.
enum class value_kind { none, text, file, directory, words };

/// One option, or a positional argument, as the user sees it.
struct option_row {
    const char* topic;
    const char* names;  ///< "-o,--output"; a name without a dash is positional
    const char* value;  ///< what stands for its value in the help text; "" for a flag
    value_kind kind;
    const char* choices;  ///< the words, or the endings of files, separated by " "; "" if any will do. Of a flag: the
                          ///< words that may follow it behind a "="
    const char* help;     ///< lines of at most 72 characters, separated by "\n"
    /// Sets what it stands for in `into`. @throws host_error (usage) that calls the option by `name`
    void (*read)(const option_row& row, const std::string& name, const std::string& value, options& into);
};

/// The table, by topics in the order of the help text.
const std::vector<option_row>& option_table();

bool is_positional(const option_row& row);

/// "--output" of "-o,--output".
std::string long_name(const option_row& row);

/// Reads the command line. With --help or --version among the arguments nothing else is asked for.
/// @throws host_error (usage), with one line that says what is wrong
options parse_options(int argc, const char* const* argv);

/// Key frames on their way at once where --workers does not say: as many as there are threads, as long as more help
/// and the memory stays small.
int default_workers(int threads);

}  // namespace tarn::host
