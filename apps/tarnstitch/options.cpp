// SPDX-License-Identifier: Apache-2.0
//
// The table of options and its parser.
#include "options.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

#include <CLI/CLI.hpp>

#include "host_error.h"

namespace tarn::host {

namespace {

constexpr int most_workers = 16;

/// The value for one of a row's words, in their order.
template <typename Value>
Value value_named(const option_row& row, const std::string& name, const std::vector<Value>& values)
{
    std::istringstream words(row.choices);
    std::string all;
    std::size_t place = 0;
    for (std::string word; words >> word; ++place) {
        if (word == name) {
            return values.at(place);
        }
        all += (all.empty() ? "" : ", ") + word;
    }
    const std::size_t comma = all.rfind(", ");
    throw CLI::ValidationError(row.names, "it is " + all.replace(comma, 2, " or ") + ", not " + name);
}

std::string has_a_name(const std::string& path)
{
    return path.empty() ? "it needs a name" : "";
}

// What reading an option does, by the kind of the member that it sets.

using adding = void(CLI::App& app, const option_row& row, options& into);

template <auto member>
void add_flag(CLI::App& app, const option_row& row, options& into)
{
    app.add_flag(row.names, into.*member);
}

template <auto member>
void add_negated_flag(CLI::App& app, const option_row& row, options& into)
{
    app.add_flag_callback(row.names, [&into] { into.*member = false; });
}

template <auto member>
void add_path(CLI::App& app, const option_row& row, options& into)
{
    app.add_option(row.names, into.*member)->type_name(row.value)->check(has_a_name);
}

template <auto member, int least, int most>
void add_number(CLI::App& app, const option_row& row, options& into)
{
    app.add_option(row.names, into.*member)->type_name(row.value)->check(CLI::Range(least, most));
}

template <auto member>
void add_time(CLI::App& app, const option_row& row, options& into)
{
    const auto read = [&row, &into](const std::string& text) {
        into.selection.*member = parse_time(text);
        if (into.selection.*member < 0.0) {
            throw CLI::ValidationError(row.names, text + " is no time (seconds or h:mm:ss)");
        }
    };
    app.add_option_function<std::string>(row.names, read)->type_name(row.value);
}

/// A choice between the row's words, which stand for the values in this order.
template <auto member, auto... values>
void add_words(CLI::App& app, const option_row& row, options& into)
{
    const auto read = [&row, &into](const std::string& name) {
        into.*member = value_named(row, name, std::vector{values...});
    };
    app.add_option_function<std::string>(row.names, read)->type_name(row.value);
}

void add_inputs(CLI::App& app, const option_row& row, options& into)
{
    app.add_option(row.names, into.inputs)->required()->check(has_a_name);
}

void add_step(CLI::App& app, const option_row& row, options& into)
{
    constexpr int most = 1000000;
    app.add_option(row.names, into.selection.step)->type_name(row.value)->check(CLI::Range(1, most));
}

void add_rate(CLI::App& app, const option_row& row, options& into)
{
    static constexpr double least = 0.001;
    static constexpr double most = 1000.0;
    app.add_option(row.names, into.selection.fps)->type_name(row.value)->check([](const std::string& text) {
        const double rate = std::strtod(text.c_str(), nullptr);
        return rate >= least && rate <= most ? "" : "it is 0.001 to 1000, not " + text;  // and so no NaN
    });
}

void add_help(CLI::App& app, const option_row& row, options&)
{
    app.set_help_flag(row.names);
}

void add_version(CLI::App& app, const option_row& row, options&)
{
    app.set_version_flag(row.names, std::string());
}

/// An option of the table and what reading it does.
struct bound_row {
    option_row row;
    adding* add;
};

const std::vector<bound_row>& bound_table()
{
    constexpr const char* input = "Input";
    constexpr const char* outputs = "Outputs";
    constexpr const char* orientation = "Orientation and direction";
    constexpr const char* pace = "Pace";
    constexpr const char* screen = "On the screen";
    constexpr const char* about = "About";
    constexpr int most_quality = 100;
    static const std::vector<bound_row> table = {
        {{input, "INPUT", "", value_kind::file, "",
          "a video file; a camera (camera:0 or /dev/video0); a numbered image\n"
          "sequence (frame%04d.png); a directory of images; or several images.\n"
          "Images are taken in natural order, frame2 before frame10"},
         add_inputs},
        {{input, "--start", "TIME", value_kind::text, "",
          "begin at TIME: seconds or h:mm:ss (videos and cameras)"},
         add_time<&frame_selection::start>},
        {{input, "--end", "TIME", value_kind::text, "", "end at TIME; with a camera, after so long"},
         add_time<&frame_selection::end>},
        {{input, "--step", "N", value_kind::text, "", "take every N-th frame"}, add_step},
        {{input, "--fps", "RATE", value_kind::text, "",
          "take at most RATE frames of each second (videos and cameras)"},
         add_rate},

        {{outputs, "-o,--output", "FILE", value_kind::file, "jpg jpeg png tif tiff",
          "the high-resolution panorama; the ending decides: .jpg, or .png and\n"
          ".tif without loss (default: the input's name + \"-panorama.jpg\", in the\n"
          "current directory)"},
         add_path<&options::output>},
        {{outputs, "--quality", "N", value_kind::text, "",
          "quality of a JPEG panorama, 1 to 100 (default: 95)"},
         add_number<&options::quality, 1, most_quality>},
        {{outputs, "--crop", "", value_kind::none, "",
          "cut the panorama to the largest upright rectangle without empty\n"
          "(wholly black) pixels"},
         add_flag<&options::crop>},
        {{outputs, "--preview", "FILE", value_kind::file, "jpg jpeg png tif tiff bmp webp",
          "the small live panorama; the ending decides the format"},
         add_path<&options::preview>},
        {{outputs, "--frames", "FILE", value_kind::file, "csv jsonl",
          "what became of each frame: its code, direction, motion, shape, time;\n"
          ".csv or .jsonl"},
         add_path<&options::frames>},
        {{outputs, "--keep-work", "DIR", value_kind::directory, "",
          "copy the library's working files (each key frame, the panorama) to DIR"},
         add_path<&options::keep_work>},
        {{outputs, "--json", "", value_kind::none, "",
          "a summary of the run on standard output, as one JSON object"},
         add_flag<&options::json_summary>},
        {{outputs, "--log", "FILE", value_kind::file, "",
          "the library's own log lines (default: they are dropped)"},
         add_path<&options::log>},

        {{orientation, "--turn", "WAY", value_kind::words, "auto ccw cw none",
          "how frames are turned before the library gets them. What is written is\n"
          "upright in any case, but some sweeps can be stitched one way only.\n"
          "auto, the default, is what the camera recorded where the file tells,\n"
          "and ccw elsewhere"},
         add_words<&options::turn, turn_choice::automatic, turn_choice::counter_clockwise,
                   turn_choice::clockwise, turn_choice::none>},
        {{orientation, "--direction", "WAY", value_kind::words, "right left up down none",
          "how the camera moves in the picture: right, left, up, down or none;\n"
          "motion the opposite way is then rejected (default: none)"},
         add_words<&options::direction, camera_motion::right, camera_motion::left, camera_motion::up,
                   camera_motion::down, camera_motion::any>},
        {{orientation, "--no-retry", "", value_kind::none, "",
          "no second try, with the frames turned the other way, after a failure"},
         add_negated_flag<&options::retry>},

        {{pace, "--realtime", "", value_kind::none, "",
          "play a video at its own rate, as a camera would: frames that come\n"
          "while the library is busy are dropped, and counted"},
         add_flag<&options::realtime>},
        {{pace, "--workers", "N", value_kind::text, "",
          "key frames worked on at once, 1 to 16 (default: by the processors)"},
         add_number<&options::workers, 1, most_workers>},

        {{screen, "--show", "", value_kind::none, "",
          "a window with the growing preview and the outline of the current\n"
          "frame; q finishes the sweep, Esc gives it up"},
         add_flag<&options::show>},
        {{screen, "-q,--quiet", "", value_kind::none, "",
          "no progress, notes or summary; errors are still told"},
         add_flag<&options::quiet>},

        {{about, "-h,--help", "", value_kind::none, "", "show this text"}, add_help},
        {{about, "--version", "", value_kind::none, "",
          "show the versions of tarnstitch, its library and OpenCV"},
         add_version},
    };
    return table;
}

/// The first line of a message of several.
std::string first_line(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

[[noreturn]] void fail(const std::string& line)
{
    throw host_error(exit_code::usage, line + " (see tarnstitch --help)");
}

/// Options that make no sense together.
void check_together(const options& asked)
{
    const frame_selection& selection = asked.selection;
    if (selection.end >= 0.0 && selection.end <= selection.start) {
        fail("--end: it must be later than --start");
    }
    std::string ending = std::filesystem::path(asked.output).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    if (asked.quality > 0 && (ending == ".png" || ending == ".tif" || ending == ".tiff")) {
        fail("--quality: it is for JPEG, and " + ending + " is without loss");
    }
}

}  // namespace

const std::vector<option_row>& option_table()
{
    static const std::vector<option_row> table = [] {
        std::vector<option_row> rows;
        for (const bound_row& bound : bound_table()) {
            rows.push_back(bound.row);
        }
        return rows;
    }();
    return table;
}

options parse_options(int argc, const char* const* argv)
{
    options result;
    CLI::App app;
    for (const bound_row& bound : bound_table()) {
        bound.add(app, bound.row, result);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        result.help = true;
    } catch (const CLI::CallForVersion&) {
        result.version = true;
    } catch (const CLI::ParseError& error) {
        fail(first_line(error.what()));
    }
    if (!result.help && !result.version) {
        check_together(result);
    }
    return result;
}

int default_workers()
{
    constexpr unsigned fewest = 2;  // one prepares its frame while the other has its turn
    constexpr unsigned most = 6;
    return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), fewest, most));
}

}  // namespace tarn::host
