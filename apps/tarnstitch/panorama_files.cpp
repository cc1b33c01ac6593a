// SPDX-License-Identifier: Apache-2.0
//
// The outputs of a sweep: names, checks, writing.
#include "panorama_files.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include <opencv2/imgcodecs.hpp>

#include "frame_source.h"
#include "host_error.h"
#include "output_file.h"

namespace tarn::host {

namespace {

std::string ending_of(const std::string& path)
{
    return std::filesystem::path(path).extension().string();
}

bool is_jpeg_name(const std::string& path)
{
    std::string ending = ending_of(path);
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return ending == ".jpg" || ending == ".jpeg";
}

/// Encodes an image in the format that the ending of `path` names; empty when there is no such format, or it
/// does not hold colour images of 8 bits.
std::vector<unsigned char> encoded(const std::string& path, const cv::Mat& image)
{
    std::vector<unsigned char> bytes;
    try {
        const std::string ending = ending_of(path);
        if (ending.empty() || !cv::imencode(ending, image, bytes)) {
            bytes.clear();
        }
    } catch (const cv::Exception&) {
        bytes.clear();
    }
    return bytes;
}

[[noreturn]] void fail(const std::string& line)
{
    throw host_error(exit_code::output_failed, line);
}

/// Writes one file and notes what went wrong. @returns whether it was written
bool write_noting(const std::string& path, const std::vector<unsigned char>& bytes, written_files& written)
{
    try {
        write_whole_file(path, bytes);
        return true;
    } catch (const host_error& error) {
        written.errors.emplace_back(error.what());
        return false;
    }
}

}  // namespace

panorama_files::panorama_files(const std::string& input, const std::string& output_name,
                               const std::string& preview_name)
    : panorama(output_name.empty() ? name_of_input(input) + "-panorama.jpg" : output_name),
      partial(with_addition(panorama, "-partial")), preview(preview_name)
{
    if (!is_jpeg_name(panorama)) {
        fail("cannot write " + panorama + ": the panorama is a JPEG, so its name must end in .jpg or .jpeg");
    }
    if (preview.empty()) {
        return;
    }
    const cv::Mat small_image(2, 2, CV_8UC3, cv::Scalar::all(0));
    if (encoded(preview, small_image).empty()) {
        fail("cannot write " + preview + ": "
             + (ending_of(preview).empty() ? "it has no ending" : ending_of(preview) + " is no image format")
             + " that says how to write it");
    }
    if (same_place(panorama, preview) || same_place(partial, preview)) {
        throw host_error(exit_code::usage, "the panorama and the preview need different names");
    }
}

void panorama_files::check_against_inputs(const std::vector<std::string>& input_files) const
{
    for (const std::string& file : input_files) {
        for (const std::string& output : {panorama, partial, preview}) {
            if (!output.empty() && same_place(file, output)) {
                fail("cannot write " + output + ": it is one of the input's files");
            }
        }
    }
}

void panorama_files::check_places() const
{
    check_output_place(panorama);
    if (!preview.empty()) {
        check_output_place(preview);
    }
}

written_files panorama_files::write(const sweep_result& result) const
{
    written_files written;
    if (!result.panorama_file.empty()) {
        const bool whole = result.outcome == sweep_outcome::complete;
        if (write_noting(whole ? panorama : partial, result.panorama_file, written) && !whole) {
            written.partial = partial;
        }
    }
    if (!preview.empty() && !result.preview.empty()) {
        const std::vector<unsigned char> bytes = encoded(preview, result.preview);
        if (bytes.empty()) {
            written.errors.push_back("cannot write " + preview + ": the preview does not fit the format");
        } else {
            write_noting(preview, bytes, written);
        }
    }
    return written;
}

}  // namespace tarn::host
