// SPDX-License-Identifier: Apache-2.0
//
// The table of options, its parser and its help text.
#include "options.h"

#include <algorithm>
#include <map>
#include <thread>

#include <CLI/CLI.hpp>
#include <opencv2/core.hpp>

#include "host_error.h"

namespace tarn::host {

namespace {

constexpr int most_workers = 16;

camera_motion motion_named(const std::string& option, const std::string& name)
{
    static const std::map<std::string, camera_motion> motions = {
        {"right", camera_motion::right}, {"left", camera_motion::left}, {"up", camera_motion::up},
        {"down", camera_motion::down},   {"none", camera_motion::any},
    };
    const auto found = motions.find(name);
    if (found == motions.end()) {
        throw CLI::ValidationError(option, "it is right, left, up, down or none, not " + name);
    }
    return found->second;
}

std::string has_a_name(const std::string& path)
{
    return path.empty() ? "it needs a name" : "";
}

/// An option of the table and what reading it does.
struct bound_row {
    option_row row;
    void (*add)(CLI::App& app, const option_row& row, options& into);
};

const std::vector<bound_row>& bound_table()
{
    static const std::vector<bound_row> table = {
        {{"Input", "INPUT", "",
          "a video file, a numbered image sequence (frame%04d.png), or a\n"
          "directory of images, which are taken in natural order"},
         [](CLI::App& app, const option_row& row, options& into) {
             app.add_option(row.names, into.input)->required()->check(has_a_name);
         }},
        {{"Outputs", "-o,--output", "FILE",
          "the high-resolution panorama, .jpg or .jpeg\n"
          "(default: the input's name + \"-panorama.jpg\", in the current directory)"},
         [](CLI::App& app, const option_row& row, options& into) {
             app.add_option(row.names, into.output)->type_name(row.value)->check(has_a_name);
         }},
        {{"Outputs", "--preview", "FILE", "the small live panorama; the ending decides the format"},
         [](CLI::App& app, const option_row& row, options& into) {
             app.add_option(row.names, into.preview)->type_name(row.value)->check(has_a_name);
         }},
        {{"Orientation and direction", "--sensor-orientation", "",
          "hand the frames over as the sensor recorded them: the panorama comes\n"
          "out turned by 90 degrees clockwise against them, the preview does not\n"
          "(default: frames are upright, and so are panorama and preview)"},
         [](CLI::App& app, const option_row& row, options& into) {
             app.add_flag(row.names, into.sensor_orientation);
         }},
        {{"Orientation and direction", "--direction", "WAY",
          "how the camera moves in the picture: right, left, up, down or none;\n"
          "motion the opposite way is then rejected (default: none)"},
         [](CLI::App& app, const option_row& row, options& into) {
             app.add_option_function<std::string>(
                    row.names,
                    [&row, &into](const std::string& name) { into.direction = motion_named(row.names, name); })
                 ->type_name(row.value);
         }},
        {{"Pace", "--workers", "N", "key frames worked on at once, 1 to 16 (default: by the processors)"},
         [](CLI::App& app, const option_row& row, options& into) {
             app.add_option(row.names, into.workers)->type_name(row.value)->check(CLI::Range(1, most_workers));
         }},
        {{"About", "-h,--help", "", "show this text"},
         [](CLI::App& app, const option_row& row, options&) { app.set_help_flag(row.names); }},
        {{"About", "--version", "", "show the versions of tarnstitch and OpenCV"},
         [](CLI::App& app, const option_row& row, options&) {
             app.set_version_flag(row.names, std::string());
         }},
    };
    return table;
}

/// The first line of a message of several.
std::string first_line(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

constexpr const char* usage_line = "usage: tarnstitch [options] INPUT\n";

constexpr const char* examples = R"(Examples:
  tarnstitch river.mp4
  tarnstitch stills/ -o hall.jpg --preview hall-preview.png
  tarnstitch frame%04d.png --direction right

)";

constexpr const char* exit_codes = R"(Exit codes:
  0  done
  1  the sweep could not be stitched; what was composed until then is written
     under the output's name with "-partial" before its ending
  2  usage
  3  the input is missing, unreadable or without frames
  4  an output cannot be written
)";

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
        throw host_error(exit_code::usage, first_line(error.what()) + " (see tarnstitch --help)");
    }
    return result;
}

std::string help_text()
{
    constexpr std::size_t column = 26;
    std::string text = usage_line;
    text += "Stitches the frames of a camera sweep into a panorama.\n";
    std::string topic;
    for (const option_row& row : option_table()) {
        if (row.topic != topic) {
            topic = row.topic;
            text += "\n" + topic + ":\n";
        }
        std::string names = row.names;
        const std::size_t comma = names.find(',');
        if (comma != std::string::npos) {
            names.insert(comma + 1, " ");
        }
        std::string entry = "  " + names + (*row.value == '\0' ? "" : " " + std::string(row.value));
        entry.resize(std::max(column, entry.size() + 2), ' ');
        for (const char character : std::string(row.help)) {
            entry += character;
            if (character == '\n') {
                entry += std::string(column, ' ');
            }
        }
        text += entry + "\n";
    }
    return text + "\n" + examples + exit_codes;
}

std::string version_text()
{
    return std::string("tarnstitch ") + TARNSTITCH_VERSION + " (OpenCV " + cv::getVersionString() + ")\n";
}

int default_workers()
{
    constexpr unsigned fewest = 2;  // one prepares its frame while the other has its turn
    constexpr unsigned most = 6;
    return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), fewest, most));
}

}  // namespace tarn::host
