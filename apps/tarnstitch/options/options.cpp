// SPDX-License-Identifier: Apache-2.0
//
// The table of options and its parser.
#include "options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "command_line.h"
#include "host_error.h"

namespace tarn::host {

namespace {

constexpr int most_workers = 16;
constexpr int most_threads = 256;

[[noreturn]] void fail(const std::string& line)
{
    throw host_error(exit_code::usage, line + " (see tarnstitch --help)");
}

/// What stands for a value in a message; an empty one would not be seen.
std::string shown(const std::string& text)
{
    return text.empty() ? "empty" : text;
}

// What reading an option does, by the kind of the member that it sets.

template <auto member>
void set_flag(const option_row&, const std::string&, const std::string&, options& into)
{
    into.*member = true;
}

template <auto member>
void clear_flag(const option_row&, const std::string&, const std::string&, options& into)
{
    into.*member = false;
}

template <auto member>
void read_path(const option_row& row, const std::string& name, const std::string& text, options& into)
{
    if (text.empty()) {
        fail(name + " needs a name: " + name + " " + row.value);
    }
    into.*member = text;
}

int whole_number(const std::string& name, const std::string& text, int least, int most)
{
    int number = 0;
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number < least || number > most) {
        fail(name + " is a whole number from " + std::to_string(least) + " to " + std::to_string(most) + ", not "
             + shown(text));
    }
    return number;
}

template <auto member, int least, int most>
void read_number(const option_row&, const std::string& name, const std::string& text, options& into)
{
    into.*member = whole_number(name, text, least, most);
}

template <auto member>
void read_time(const option_row&, const std::string& name, const std::string& text, options& into)
{
    into.selection.*member = parse_time(text);
    if (into.selection.*member < 0.0) {
        fail(name + " is a time, in seconds or as h:mm:ss, not " + shown(text));
    }
}

/// A choice between the row's words, which stand for the values in this order.
template <auto member, auto... values>
void read_word(const option_row& row, const std::string& name, const std::string& text, options& into)
{
    const std::vector meanings = {values...};
    std::istringstream words(row.choices);
    std::size_t place = 0;
    for (std::string word; words >> word; ++place) {
        if (word == text) {
            into.*member = meanings.at(place);
            return;
        }
    }
    fail(name + " is " + listed(row.choices) + ", not " + shown(text));
}

/// A flag that may say how, behind a "=".
void read_crop(const option_row& row, const std::string& name, const std::string& text, options& into)
{
    if (text == "none") {
        into.cut_of_finished = finished_crop::none;
    } else if (text == "auto") {
        into.cut_of_finished = finished_crop::generous;
    } else if (!text.empty() && text != "full") {
        fail(name + " is " + listed(row.choices) + ", not " + text);
    }
    into.crop = text != "none";
}

void read_input(const option_row&, const std::string&, const std::string& text, options& into)
{
    if (text.empty()) {
        fail("an INPUT needs a name, and one is empty");
    }
    into.inputs.push_back(text);
}

void read_step(const option_row&, const std::string& name, const std::string& text, options& into)
{
    constexpr int most = 1000000;
    into.selection.step = whole_number(name, text, 1, most);
}

void read_rate(const option_row&, const std::string& name, const std::string& text, options& into)
{
    constexpr double least = 0.001;
    constexpr double most = 1000.0;
    const bool plain = !text.empty() && text.find_first_not_of("0123456789.eE+-") == std::string::npos;
    char* end = nullptr;
    const double rate = plain ? std::strtod(text.c_str(), &end) : 0.0;
    if (!(plain && *end == '\0' && rate >= least && rate <= most)) {
        fail(name + " is a number from 0.001 to 1000, not " + shown(text));
    }
    into.selection.fps = rate;
}

}  // namespace

const std::vector<option_row>& option_table()
{
    constexpr const char* input = "Input";
    constexpr const char* outputs = "Outputs";
    constexpr const char* orientation = "Orientation and direction";
    constexpr const char* pace = "Pace";
    constexpr const char* screen = "On the screen";
    constexpr const char* about = "About";
    constexpr int most_quality = 100;
    constexpr int most_pixels = 1'000'000'000;  // more is beyond OpenCV's own limit
    static const std::vector<option_row> table = {
        {input, "INPUT", "", value_kind::file, "",
         "a video file; a camera (camera:0 or /dev/video0); a numbered image\n"
         "sequence (frame%04d.png); a directory of images; or several images.\n"
         "Images are taken in natural order, frame2 before frame10",
         read_input},
        {input, "--start", "TIME", value_kind::text, "", "begin at TIME: seconds or h:mm:ss (videos and cameras)",
         read_time<&frame_selection::start>},
        {input, "--end", "TIME", value_kind::text, "", "end at TIME; with a camera, after so long",
         read_time<&frame_selection::end>},
        {input, "--step", "N", value_kind::text, "", "take every N-th frame", read_step},
        {input, "--fps", "RATE", value_kind::text, "", "take at most RATE frames of each second (videos and cameras)",
         read_rate},
        {input, "--max-pixels", "N", value_kind::text, "",
         "refuse pictures of more pixels, before they take memory (default:\n"
         "100000000)",
         read_number<&options::max_pixels, 1, most_pixels>},

        {outputs, "-o,--output", "FILE", value_kind::file, "jpg jpeg png tif tiff",
         "the high-resolution panorama; the ending decides: .jpg, or .png and\n"
         ".tif without loss (default: the input's name + \"-panorama.jpg\", in the\n"
         "current directory)",
         read_path<&options::output>},
        {outputs, "--quality", "N", value_kind::text, "", "quality of a JPEG panorama, 1 to 100 (default: 95)",
         read_number<&options::quality, 1, most_quality>},
        {outputs, "--crop", "", value_kind::none, "full auto none",
         "cut the panorama to the largest upright rectangle without empty\n"
         "(wholly black) pixels. The finished picture is cut so in any case, but\n"
         "with --crop=auto it may take in thin empty corners, which are filled,\n"
         "and with --crop=none neither is cut",
         read_crop},
        {outputs, "--finish", "", value_kind::none, "",
         "write the finished picture as well: one projection, one brightness, a\n"
         "level horizon, joints that nobody sees. Its name is the panorama's with\n"
         "\"-finished\" before the ending, or the input's + \"-finished.jpg\"",
         set_flag<&options::finish>},
        {outputs, "--preview", "FILE", value_kind::file, "jpg jpeg png tif tiff bmp webp",
         "the small live panorama; the ending decides the format", read_path<&options::preview>},
        {outputs, "--frames", "FILE", value_kind::file, "csv jsonl",
         "what became of each frame: its code, direction, motion, shape, time;\n"
         ".csv or .jsonl",
         read_path<&options::frames>},
        {outputs, "--report", "FILE", value_kind::file, "html htm",
         "a page that tells of the sweep at a glance, in one file: its pictures,\n"
         "each frame along time, the workers, where and why it broke",
         read_path<&options::report>},
        {outputs, "--keep-work", "DIR", value_kind::directory, "",
         "copy the library's working files (each key frame, the panorama) to DIR", read_path<&options::keep_work>},
        {outputs, "--json", "", value_kind::none, "", "a summary of the run on standard output, as one JSON object",
         set_flag<&options::json_summary>},
        {outputs, "--skip-done", "", value_kind::none, "",
         "do nothing when an earlier run with it has made the same of the same\n"
         "input; its summary, as of --json, is beside the panorama: FILE.json",
         set_flag<&options::skip_done>},
        {outputs, "--log", "FILE", value_kind::file, "", "the library's own log lines (default: they are dropped)",
         read_path<&options::log>},

        {orientation, "--turn", "WAY", value_kind::words, "auto ccw cw none",
         "how frames are turned before the library gets them: auto, ccw\n"
         "(counter-clockwise), cw (clockwise) or none. What is written is upright\n"
         "in any case, but some sweeps can be stitched one way only. auto, the\n"
         "default, is what the camera recorded where the file tells, else ccw",
         read_word<&options::turn, turn_choice::automatic, turn_choice::counter_clockwise, turn_choice::clockwise,
                   turn_choice::none>},
        {orientation, "--direction", "WAY", value_kind::words, "right left up down none",
         "how the camera moves in the picture: right, left, up, down or none;\n"
         "motion the opposite way is then rejected (default: none)",
         read_word<&options::direction, camera_motion::right, camera_motion::left, camera_motion::up,
                   camera_motion::down, camera_motion::any>},
        {orientation, "--no-retry", "", value_kind::none, "",
         "no further tries after a failure or a bad panorama: with the frames\n"
         "turned the other way, and with key frames nearer to each other",
         clear_flag<&options::retry>},

        {pace, "--realtime", "", value_kind::none, "",
         "play a video at its own rate, as a camera would: frames that come\n"
         "while the library is busy are dropped, and counted",
         set_flag<&options::realtime>},
        {pace, "--threads", "N", value_kind::text, "",
         "threads of the decoder, and of all that is done with a frame: at most,\n"
         "and without it, as many as affinity and the container's quota allow",
         read_number<&options::threads, 1, most_threads>},
        {pace, "--workers", "N", value_kind::text, "",
         "key frames worked on at once, 1 to 16 (default: as many as threads, up\n"
         "to 6)",
         read_number<&options::workers, 1, most_workers>},

        {screen, "--show", "", value_kind::none, "",
         "a window with the growing preview and the outline of the current\n"
         "frame, green while frames are taken, red when one is rejected",
         set_flag<&options::show>},
        {screen, "-q,--quiet", "", value_kind::none, "", "no progress, notes or summary; errors are still told",
         set_flag<&options::quiet>},

        {about, "-h,--help", "", value_kind::none, "", "show this text", set_flag<&options::help>},
        {about, "--version", "", value_kind::none, "", "show the versions of tarnstitch, its library and OpenCV",
         set_flag<&options::version>},
    };
    return table;
}

namespace {

/// Options that make no sense together.
void check_together(const options& asked)
{
    const frame_selection& selection = asked.selection;
    if (selection.end >= 0.0 && selection.end <= selection.start) {
        fail("--end must be later than --start");
    }
    std::string ending = std::filesystem::path(asked.output).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    if (asked.quality > 0 && (ending == ".png" || ending == ".tif" || ending == ".tiff")) {
        fail("--quality is for JPEG, and " + asked.output + " is without loss");
    }
}

}  // namespace

bool is_positional(const option_row& row)
{
    return row.names[0] != '-';
}

std::string long_name(const option_row& row)
{
    const std::string names = row.names;
    const std::size_t comma = names.rfind(',');
    return comma == std::string::npos ? names : names.substr(comma + 1);
}

std::string options::as_written(const std::string& name) const
{
    const auto found = written.find(name);
    return found == written.end() ? name : found->second.name;
}

options parse_options(int argc, const char* const* argv)
{
    options result;
    std::string wrong;
    const std::vector<written_option> line = written_options(argc, argv, wrong);
    for (const written_option& option : line) {
        if (!is_positional(*option.row)) {
            result.written[long_name(*option.row)] = {option.name, option.value};
        }
    }
    // Who asks for help gets it, whatever else is on the line.
    result.help = result.written.count("--help") > 0;
    result.version = result.written.count("--version") > 0;
    if (result.help || result.version) {
        return result;
    }
    if (!wrong.empty()) {
        fail(wrong);
    }
    for (const written_option& option : line) {
        option.row->read(*option.row, option.name, option.value, result);
    }
    if (result.inputs.empty()) {
        fail("there is no INPUT: a video, a camera, or images");
    }
    check_together(result);
    return result;
}

int default_workers(int threads)
{
    constexpr int most = 6;
    return std::min(threads, most);
}

}  // namespace tarn::host
