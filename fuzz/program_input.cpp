// SPDX-License-Identifier: Apache-2.0
//
// What the command-line host makes of its arguments and of the names of the files that it is given. Anything may
// be refused with a host_error; nothing else may leave, and what is accepted must agree with the definitions.
#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "frame_source.h"
#include "host_error.h"
#include "image_files.h"
#include "input_bytes.h"
#include "options.h"
#include "private_directory.h"
#include "target.h"

using namespace tarn::fuzz;  // NOLINT(google-build-using-namespace): the targets' own helpers

namespace {

constexpr std::size_t most_characters = 40;

void check_arguments(input_bytes& input)
{
    static const std::vector<std::string> known = {
        "-o",    "--output",   "--preview",   "--frames",  "--turn",    "--crop", "--step", "--fps",      "--start",
        "--end", "--json",     "--direction", "--workers", "--help",    "--",     "-",      "right",      "none",
        "3",     "0:01:30",    "clip.mp4",    "-q",        "1e9",       "nan",    "jpg",    "--realtime", "--keep-work",
        "--log", "--no-retry", "--quality",   "--show",    "--version", ""};
    std::vector<std::string> arguments = {"tarnstitch"};
    const int count = input.integer(0, 12);
    for (int i = 0; i < count; ++i) {
        const std::uint8_t which = input.byte();
        arguments.push_back(which < 160 ? known[which % known.size()] : input.text(most_characters));
        if (which % 32 == 31) {
            arguments.back() += "=" + input.text(most_characters);
        }
    }
    std::vector<const char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    try {
        const tarn::host::options options = tarn::host::parse_options(static_cast<int>(arguments.size()), argv.data());
        check(options.help || options.version || !options.inputs.empty(), "an accepted command line has an input");
        check(options.workers >= 0 && options.workers <= 16, "the number of workers is within its limits");
    } catch (const tarn::host::host_error& error) {
        const std::string message = error.what();
        check(!message.empty(), "a refusal says why");
        // An argument may be quoted as it stands; say() takes care of what would make a second line of it.
        const auto is_one_line = [](const std::string& text) { return text.find('\n') == std::string::npos; };
        if (std::all_of(arguments.begin(), arguments.end(), is_one_line)) {
            check(is_one_line(message), "a refusal is one line");
        }
    }
}

void check_order(input_bytes& input)
{
    using tarn::host::natural_less;
    std::vector<std::string> names(3);
    for (std::string& name : names) {
        name = input.text(most_characters);
    }
    for (const std::string& a : names) {
        check(!natural_less(a, a), "natural_less: no name is less than itself");
        for (const std::string& b : names) {
            check(!(natural_less(a, b) && natural_less(b, a)), "natural_less: not both ways");
            check(natural_less(a, b) || natural_less(b, a) || a == b, "natural_less: only equal names are equal");
            for (const std::string& c : names) {
                check(!(natural_less(a, b) && natural_less(b, c)) || natural_less(a, c), "natural_less: transitive");
            }
        }
    }
}

/// The file name that printf would make of the pattern's last component.
std::string printed(const tarn::host::numbered_name& name, int number)
{
    char digits[1200];
    const int width = static_cast<int>(name.width);
    if (name.zero_padded) {
        std::snprintf(digits, sizeof digits, "%0*d", width, number);
    } else {
        std::snprintf(digits, sizeof digits, "%*d", width, number);
    }
    return name.before + digits + name.after;
}

bool is_file_name(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." && name.size() <= 255 && name.find('/') == std::string::npos;
}

void check_lists(input_bytes& input)
{
    const std::string directory = private_directory() + "frames";
    mkdir(directory.c_str(), 0700);
    std::string pattern = input.text(most_characters);
    if (input.flag()) {
        static const std::vector<std::string> formats = {"%d", "%4d", "%04d", "%i", "%%%d", "%03d%%"};
        pattern += formats[input.byte() % formats.size()] + input.text(8);
    }
    tarn::host::numbered_name numbered;
    const bool is_numbered = tarn::host::parse_numbered_name(directory + "/" + pattern, numbered);

    const auto make = [&directory](const std::string& name, bool is_directory) {
        const std::string path = directory + "/" + name;
        if (is_directory) {
            mkdir(path.c_str(), 0700);
        } else {
            close(open(path.c_str(), O_WRONLY | O_CREAT, 0600));
        }
    };
    static const std::vector<std::string> endings = {"", ".jpg", ".JPG", ".png", ".txt", ".jpg.bak"};
    std::vector<int> numbers;
    const int count = input.integer(0, 12);
    for (int i = 0; i < count; ++i) {
        const std::uint8_t how = input.byte();
        std::string name = input.text(most_characters) + endings[how % endings.size()];
        if (is_numbered && how < 128 && numbered.directory == directory + "/") {
            numbers.push_back(input.integer(0, 20000));
            name = printed(numbered, numbers.back());
            if (!is_file_name(name)) {
                numbers.pop_back();
            }
            if (is_file_name(name)) {
                make(name, false);
            }
            continue;
        }
        std::replace(name.begin(), name.end(), '/', '_');
        if (is_file_name(name)) {
            make(name, how >= 240);
        }
    }

    const std::vector<std::string> images = tarn::host::images_in_directory(directory);
    for (std::size_t i = 0; i < images.size(); ++i) {
        check(access(images[i].c_str(), F_OK) == 0, "images_in_directory names files that are there");
        check(tarn::host::has_image_ending(images[i]), "images_in_directory goes by the endings");
        check(i == 0 || tarn::host::natural_less(images[i - 1], images[i]), "images_in_directory is in order");
    }
    if (is_numbered && numbered.directory == directory + "/") {
        const std::vector<std::string> sequence = tarn::host::numbered_images(numbered);
        std::sort(numbers.begin(), numbers.end());
        numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
        auto from = sequence.begin();
        for (const int number : numbers) {
            from = std::find(from, sequence.end(), directory + "/" + printed(numbered, number));
            check(from != sequence.end(), "numbered_images finds every number, by rising number");
        }
        for (const std::string& file : sequence) {
            check(access(file.c_str(), F_OK) == 0, "numbered_images names files that are there");
        }
    }
    check(!tarn::host::name_of_input(directory).empty(), "name_of_input");
    static_cast<void>(tarn::host::name_of_input(pattern));
    remove_tree(directory);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    input_bytes input(data, size);
    do {
        run_one_of({check_arguments, check_order, check_lists}, input);
    } while (!input.at_end());
    return 0;
}
