// SPDX-License-Identifier: Apache-2.0
//
// Lists of image files: natural order, directories, numbered sequences.
#include "image_files.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "host_error.h"
#include "output_file.h"

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

bool is_digit(char character)
{
    return character >= '0' && character <= '9';
}

/// The run of digits that starts at `from`.
std::string_view digits_at(std::string_view text, std::size_t from)
{
    std::size_t to = from;
    while (to < text.size() && is_digit(text[to])) {
        ++to;
    }
    return text.substr(from, to - from);
}

std::string_view without_leading_zeros(std::string_view digits)
{
    const std::size_t first = std::min(digits.find_first_not_of('0'), digits.size());
    return digits.substr(first);
}

/// -1, 0 or 1; numbers of any length.
int compare_as_numbers(std::string_view one, std::string_view other)
{
    const std::string_view a = without_leading_zeros(one);
    const std::string_view b = without_leading_zeros(other);
    if (a.size() != b.size()) {
        return a.size() < b.size() ? -1 : 1;
    }
    const int order = a.compare(b);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

/// The names of the entries of a directory that are not directories themselves.
std::vector<std::string> file_names_in(const std::string& directory)
{
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entry(directory.empty() ? "." : directory, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        std::error_code ignored;
        if (!entry->is_directory(ignored)) {
            names.push_back(entry->path().filename().string());
        }
    }
    if (error) {
        throw host_error(exit_code::input_failed, "cannot read the directory "
                                                      + (directory.empty() ? std::string(".") : directory) + ": "
                                                      + error.message());
    }
    return names;
}

std::string joined(const std::string& directory, const std::string& name)
{
    return directory.empty() ? name : (fs::path(directory) / name).string();
}

/// The number in a file's name, as its digits, if the file belongs to the sequence; else nothing.
std::string_view number_in(std::string_view file, const numbered_name& name)
{
    if (file.size() <= name.before.size() + name.after.size() || file.substr(0, name.before.size()) != name.before
        || file.substr(file.size() - name.after.size()) != name.after) {
        return {};
    }
    std::string_view number = file.substr(name.before.size(), file.size() - name.before.size() - name.after.size());
    if (number.size() < name.width) {
        return {};
    }
    if (!name.zero_padded) {
        const std::size_t first = std::min(number.find_first_not_of(' '), number.size());
        if (first > 0 && number.size() != name.width) {
            return {};  // spaces fill up to the width and no further
        }
        number.remove_prefix(first);
    }
    // Filling zeros stop at the width as well; beyond it, and without it, a number starts with another digit.
    const bool padded = name.zero_padded && number.size() == name.width;
    if (number.empty() || digits_at(number, 0).size() != number.size()
        || (!padded && number.size() > 1 && number.front() == '0')) {
        return {};
    }
    return number;
}

}  // namespace

bool natural_less(std::string_view one, std::string_view other)
{
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < one.size() && j < other.size()) {
        if (is_digit(one[i]) && is_digit(other[j])) {
            const std::string_view a = digits_at(one, i);
            const std::string_view b = digits_at(other, j);
            const int order = compare_as_numbers(a, b);
            if (order != 0) {
                return order < 0;
            }
            i += a.size();
            j += b.size();
        } else {
            if (one[i] != other[j]) {
                return static_cast<unsigned char>(one[i]) < static_cast<unsigned char>(other[j]);
            }
            ++i;
            ++j;
        }
    }
    if (i < one.size() || j < other.size()) {
        return j < other.size();
    }
    // Equal but for leading zeros: the shorter name first, so that the order never depends on the directory's.
    return one.size() != other.size() ? one.size() < other.size() : one < other;
}

bool has_image_ending(const std::string& name)
{
    static constexpr std::array endings = {".jpg", ".jpeg", ".jpe",  ".jp2", ".png", ".bmp", ".dib",
                                           ".tif", ".tiff", ".webp", ".pbm", ".pgm", ".ppm", ".pnm",
                                           ".pxm", ".sr",   ".ras",  ".hdr", ".pic"};
    return std::find(endings.begin(), endings.end(), small_ending_of(name)) != endings.end();
}

std::vector<std::string> images_in_directory(const std::string& directory)
{
    std::vector<std::string> names = file_names_in(directory);
    names.erase(std::remove_if(names.begin(), names.end(),
                               [](const std::string& name) { return name.front() == '.' || !has_image_ending(name); }),
                names.end());
    std::sort(names.begin(), names.end(), natural_less);
    for (std::string& name : names) {
        name = joined(directory, name);
    }
    return names;
}

bool parse_numbered_name(const std::string& pattern, numbered_name& name)
{
    const std::size_t slash = pattern.rfind('/');
    const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
    numbered_name result;
    result.directory = pattern.substr(0, start);

    bool number_seen = false;
    for (std::size_t i = start; i < pattern.size(); ++i) {
        std::string& literal = number_seen ? result.after : result.before;
        if (pattern[i] != '%') {
            literal += pattern[i];
            continue;
        }
        if (i + 1 < pattern.size() && pattern[i + 1] == '%') {
            literal += '%';
            ++i;
            continue;
        }
        const std::string_view width = digits_at(pattern, i + 1);
        const std::size_t letter = i + 1 + width.size();
        constexpr std::size_t most_width_digits = 3;
        if (number_seen || width.size() > most_width_digits || letter >= pattern.size()
            || (pattern[letter] != 'd' && pattern[letter] != 'i')) {
            return false;
        }
        result.width = width.empty() ? 0 : std::stoul(std::string(width));
        result.zero_padded = !width.empty() && width.front() == '0';
        number_seen = true;
        i = letter;
    }
    if (number_seen) {
        name = result;
    }
    return number_seen;
}

std::vector<std::string> numbered_images(const numbered_name& name)
{
    struct numbered_file {
        std::string digits;
        std::string file;
    };

    std::vector<numbered_file> found;
    for (const std::string& file : file_names_in(name.directory)) {
        const std::string_view digits = number_in(file, name);
        if (!digits.empty()) {
            found.push_back({std::string(digits), file});
        }
    }
    std::sort(found.begin(), found.end(), [](const numbered_file& one, const numbered_file& other) {
        return compare_as_numbers(one.digits, other.digits) < 0;
    });
    std::vector<std::string> files;
    files.reserve(found.size());
    for (const numbered_file& one : found) {
        files.push_back(joined(name.directory, one.file));
    }
    return files;
}

bool is_cut_jpeg(const std::string& file)
{
    constexpr int start_of_image = 0xd8;
    constexpr int end_of_image = 0xd9;
    constexpr int start_of_scan = 0xda;
    constexpr int first_restart = 0xd0;
    std::filebuf stream;
    stream.open(file, std::ios::in | std::ios::binary);
    if (stream.sbumpc() != 0xff || stream.sbumpc() != start_of_image) {
        return false;
    }
    // Segments are walked, since a preview among them has an end marker of its own.
    bool within_scan = false;
    for (int byte = stream.sbumpc(); byte != EOF; byte = stream.sbumpc()) {
        if (byte != 0xff) {
            if (!within_scan) {
                return false;  // broken otherwise: the decoder's concern
            }
            continue;
        }
        int marker = stream.sbumpc();
        while (marker == 0xff) {  // filling
            marker = stream.sbumpc();
        }
        if (marker == end_of_image) {
            return false;
        }
        const bool without_length = marker == 0 || (marker >= first_restart && marker < start_of_image);
        if (without_length || marker == EOF) {
            continue;
        }
        const int high = stream.sbumpc();
        const int low = stream.sbumpc();
        if (low == EOF) {
            return true;
        }
        constexpr int length_itself = 2;
        stream.pubseekoff(std::max(0, (high << 8 | low) - length_itself), std::ios::cur, std::ios::in);
        within_scan = marker == start_of_scan;
    }
    return true;
}

}  // namespace tarn::host
