// SPDX-License-Identifier: Apache-2.0
//
// Texts from the table of options. Beside it, what belongs to no single option stands here once: examples, keys,
// exit codes.
#include "option_documents.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <vector>

#include <opencv2/core.hpp>

#include "options.h"

namespace tarn::host {

namespace {

constexpr const char* one_line = "stitch the frames of a camera sweep into a panorama";

struct example {
    const char* what;
    const char* command;
};

constexpr std::array examples = {
    example{"the panorama in a video, river-panorama.jpg", "tarnstitch river.mp4"},
    example{"without black corners and without loss, from still images", "tarnstitch stills/ --crop -o hall.png"},
    example{"the picture that a person expects as well, river-finished.jpg", "tarnstitch river.mp4 --finish"},
    example{"from the tenth to the twentieth second, every second frame",
            "tarnstitch long.mp4 --start 10 --end 0:20 --step 2"},
    example{"what became of a sweep, at a glance", "tarnstitch sweep.mp4 --report sweep.html"},
    example{"why a sweep failed: one line on each frame", "tarnstitch sweep.mp4 --frames sweep.csv --log sweep.log"},
    example{"as an application would see it, live", "tarnstitch camera:0 --end 20 --direction right --show"},
    example{"one of many, on one processor, unless it is there already",
            "tarnstitch --skip-done --threads 1 sweep.mp4 -o out.jpg"},
    example{"for a script", "tarnstitch -q --json sweep.mp4 -o out.jpg > summary.json"},
};

/// How to film, so that a panorama comes of it: lines of at most 78 characters.
constexpr std::array filming = {
    "Turn on the spot, do not walk; or slide along something flat, equally near.",
    "Overlap: a video has enough of it; neighbours among stills share a half.",
    "Speed: even, with three seconds or more for what fills the screen.",
    "Light: the more the better, since dim pictures blur; keep the sun behind you.",
    "What moves: let people and cars be far off, or wait until they have gone.",
    "Start at one end, where there is detail; go level, one way, to the other end.",
};

struct exit_line {
    int code;
    const char* meaning;
};

constexpr const char* another_try =
    "Another try is worth it after 5, and after 4 once there is room; after 1, 2 and 3 the\n"
    "same would come of it. What a signal ended (143, 137) is worth it, too; its outputs are\n"
    "earlier ones, or new and whole.";

constexpr std::array exit_lines = {
    exit_line{0, "done"},
    exit_line{1, "the sweep could not be stitched, or not finished, or shows nothing beyond its\n"
                 "first frame; what was composed is written under the outputs' names with\n"
                 "\"-partial\" before their endings"},
    exit_line{2, "the command line makes no sense, or --show has no display; nothing was done"},
    exit_line{3, "the input is missing, unreadable or without frames"},
    exit_line{4, "an output, or a temporary file, cannot be written"},
    exit_line{5, "the machine gave too little memory, too few threads or open files, or no time"},
    exit_line{130, "stopped: by Ctrl-C, after which what there was has been written (if it came in\n"
                   "a further try, perhaps the first one's part), or given up by Esc in the window"},
};

struct key_line {
    const char* key;
    const char* meaning;
};

constexpr std::array key_lines = {
    key_line{"q", "finish: the sweep ends as if the last frame had come, and the panorama is\n"
                  "written"},
    key_line{"Esc", "give up: nothing is written; closing the window does the same"},
};

constexpr const char* stopping = "The first Ctrl-C ends the sweep as if the last frame had come, and what there is\n"
                                 "is written. The second ends the program at once.";

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

std::string with_replaced(std::string text, const std::string& what, const std::string& by)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
    return text;
}

/// Lines under each other, with `indent` before each but the first.
std::string hanging(const std::string& lines, std::size_t indent)
{
    return with_replaced(lines, "\n", "\n" + std::string(indent, ' '));
}

// ------------------------------------------------------------------------------------------- the manual page

/// Text that man(7) shows as it is.
std::string roff(const std::string& text)
{
    std::string shown = with_replaced(text, "\\", "\\e");
    shown = with_replaced(shown, "-", "\\-");
    shown = with_replaced(shown, "\n", " ");
    return !shown.empty() && (shown.front() == '.' || shown.front() == '\'') ? "\\&" + shown : shown;
}

// -------------------------------------------------------------------------------------------- the completions

/// A help text in one line without its full explanation: what stands before the first ";", ":" or ".".
std::string brief(const option_row& row)
{
    const std::string text = with_replaced(row.help, "\n", " ");
    std::size_t end = text.find_first_of(";:(");
    end = std::min(end, text.find(". "));
    std::string shortened = text.substr(0, end);
    shortened.erase(shortened.find_last_not_of(' ') + 1);
    return shortened;
}

/// "jpg jpeg" as "jpg|jpeg".
std::string alternatives(const char* words)
{
    return with_replaced(words, " ", "|");
}

}  // namespace

std::string help_text()
{
    constexpr std::size_t column = 26;
    std::string text = "usage: tarnstitch [options] INPUT...\nStitches the frames of a camera sweep into a panorama.\n";
    std::string topic;
    for (const option_row& row : option_table()) {
        if (row.topic != topic) {
            topic = row.topic;
            text += "\n" + topic + ":\n";
        }
        std::string entry = "  " + with_replaced(row.names, ",", ", ");
        entry += *row.value == '\0' ? "" : " " + std::string(row.value);
        entry.resize(std::max(column, entry.size() + 2), ' ');
        text += entry + hanging(row.help, column) + "\n";
    }
    text += "\nExamples:\n";
    for (const example& one : examples) {
        text += "  # " + std::string(one.what) + "\n  " + one.command + "\n";
    }
    text += "\nHow to film:\n";
    for (const char* const one : filming) {
        text += "  " + std::string(one) + "\n";
    }
    text += "\nKeys in the window of --show:\n";
    for (const key_line& one : key_lines) {
        constexpr std::size_t width = 7;
        std::string entry = "  " + std::string(one.key);
        entry.resize(width, ' ');
        text += entry + hanging(one.meaning, width) + "\n";
    }
    text += "\nStopping:\n  " + hanging(stopping, 2) + "\n\nExit codes:\n";
    for (const exit_line& one : exit_lines) {
        constexpr std::size_t width = 7;
        std::string entry = "  " + std::to_string(one.code);
        entry.resize(width, ' ');
        text += entry + hanging(one.meaning, width) + "\n";
    }
    return text + "  " + hanging(another_try, 2) + "\n";
}

std::string version_text()
{
    return std::string("tarnstitch ") + TARNSTITCH_VERSION + "\nTarnStitch library " + TARNSTITCH_VERSION + "\nOpenCV "
           + cv::getVersionString() + "\n";
}

std::string manual_page()
{
    std::string page =
        ".TH TARNSTITCH 1 \"\" \"tarnstitch " + std::string(TARNSTITCH_VERSION) + "\" \"User Commands\"\n";
    page += ".SH NAME\ntarnstitch \\- " + std::string(one_line) + "\n";
    page += ".SH SYNOPSIS\n.B tarnstitch\n.RI [ options ]\n.IR INPUT ...\n";
    page += ".SH DESCRIPTION\nReads the frames of a sweep, hands them to the TarnStitch library as a camera\n"
            "application would, and writes the high\\-resolution panorama.\n.PP\n"
            + roff(stopping) + "\n.SH OPTIONS\n";
    std::string topic;
    for (const option_row& row : option_table()) {
        if (row.topic != topic) {
            topic = row.topic;
            page += ".SS " + roff(topic) + "\n";
        }
        std::string names = "\\fB" + with_replaced(roff(row.names), ",", "\\fR, \\fB") + "\\fR";
        if (is_positional(row)) {
            names = "\\fI" + roff(row.names) + "\\fR";
        }
        page += ".TP\n" + names + (*row.value == '\0' ? "" : " \\fI" + std::string(row.value) + "\\fR") + "\n"
                + roff(row.help) + "\n";
    }
    page += ".SH KEYS\nIn the window of\n.BR " + roff("--show") + " :\n";
    for (const key_line& one : key_lines) {
        page += ".TP\n.B " + std::string(one.key) + "\n" + roff(one.meaning) + "\n";
    }
    page += ".SH FILMING\n";
    for (const char* const one : filming) {
        page += ".IP \\(bu 2\n" + roff(one) + "\n";
    }
    page += ".SH EXIT STATUS\n";
    for (const exit_line& one : exit_lines) {
        page += ".TP\n.B " + std::to_string(one.code) + "\n" + roff(one.meaning) + "\n";
    }
    page += ".PP\n" + roff(another_try) + "\n.SH EXAMPLES\n";
    for (const example& one : examples) {
        page += ".PP\n" + roff(one.what) + ":\n.PP\n.nf\n.RS\n" + roff(one.command) + "\n.RE\n.fi\n";
    }
    page += ".SH ENVIRONMENT\n.TP\n.B TMPDIR\nwhere the private directory for working files is made (/tmp)\n"
            ".TP\n.B OPENCV_LOG_LEVEL\nlets the media libraries print their own messages\n";
    return page;
}

std::string bash_completion()
{
    std::string names;
    std::string cases;
    for (const option_row& row : option_table()) {
        if (is_positional(row)) {
            continue;
        }
        names += (names.empty() ? "" : " ") + with_replaced(row.names, ",", " ");
        std::string action;
        switch (row.kind) {
        case value_kind::none:
            continue;
        case value_kind::text:
            action = "return";
            break;
        case value_kind::words:
            action =
                "mapfile -t COMPREPLY < <(compgen -W '" + std::string(row.choices) + "' -- \"$current\")\n      return";
            break;
        case value_kind::directory:
            action = "compopt -o filenames\n      mapfile -t COMPREPLY < <(compgen -d -- \"$current\")\n      "
                     "return";
            break;
        case value_kind::file:
            action = std::string("_tarnstitch_files '") + alternatives(row.choices) + "'\n      return";
            break;
        }
        cases += "    " + with_replaced(row.names, ",", " | ") + ")\n      " + action + "\n      ;;\n";
    }
    return R"(# bash completion for tarnstitch, made from its table of options.

# _tarnstitch_files ENDINGS: directories, and files with one of the endings ("jpg|png"), or all files for "".
_tarnstitch_files() {
  local name place
  compopt -o filenames
  COMPREPLY=()
  while IFS= read -r name; do
    place=$name
    if [[ $place == "~/"* ]]; then
      place=$HOME/${place:2}
    fi
    if [[ -d $place || -z $1 || ${name,,} =~ \.($1)$ ]]; then
      COMPREPLY+=("$name")
    fi
  done < <(compgen -f -- "$current")
}

_tarnstitch() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  # A long option's value may also follow a "=", which bash takes for a word of its own.
  if [[ $current == '=' ]]; then
    current=
  elif [[ $previous == '=' ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  case $previous in
)" + cases + R"(  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W ')"
           + names + R"(' -- "$current")
  else
    _tarnstitch_files ''
  fi
}

complete -F _tarnstitch tarnstitch
)";
}

std::string zsh_completion()
{
    std::string text = "#compdef tarnstitch\n# zsh completion for tarnstitch, made from its table of options.\n\n"
                       "_arguments -s -S \\\n";
    for (const option_row& row : option_table()) {
        std::string action;
        switch (row.kind) {
        case value_kind::none:
            break;
        case value_kind::text:
            action = ":" + std::string(row.value) + ": ";
            break;
        case value_kind::words:
            action = ":" + std::string(row.value) + ":(" + row.choices + ")";
            break;
        case value_kind::directory:
            action = ":" + std::string(row.value) + ":_files -/";
            break;
        case value_kind::file:
            action = ":" + std::string(*row.value == '\0' ? row.names : row.value) + ":_files"
                     + (*row.choices == '\0' ? "" : " -g \"*.(#i)(" + alternatives(row.choices) + ")\"");
            break;
        }
        if (is_positional(row)) {
            text += "  '*" + action + "' \\\n";
            continue;
        }
        const std::string shown = "[" + with_replaced(brief(row), "'", "'\\''") + "]";
        const std::vector<std::string> names = split(row.names, ',');
        if (names.size() == 1) {
            text.append("  '").append(names[0]);
        } else {
            text.append("  '(").append(names[0]).append(" ").append(names[1]).append(")'{");
            text.append(names[0]).append(",").append(names[1]).append("}'");
        }
        text.append(shown).append(action).append("' \\\n");
    }
    text.erase(text.rfind(" \\\n"));
    return text + "\n";
}

}  // namespace tarn::host
