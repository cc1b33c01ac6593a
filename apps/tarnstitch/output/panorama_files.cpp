// SPDX-License-Identifier: Apache-2.0
//
// The outputs of a sweep: checks, turning and cutting, writing.
#include "panorama_files.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include <opencv2/imgcodecs.hpp>

#include "best_rectangle.h"
#include "host_error.h"
#include "output_file.h"
#include "output_names.h"
#include "report_pictures.h"
#include "run_record.h"
#include "scratch_directory.h"
#include "working_directory.h"

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

/// Encodes an image in the format that the ending of `path` names; empty when there is no such format, or it
/// does not hold colour images of 8 bits.
/// @param quality  of a JPEG; 0 for the usual one
std::vector<unsigned char> encoded(const std::string& path, const cv::Mat& image, int quality = 0)
{
    std::vector<unsigned char> bytes;
    std::vector<int> parameters;
    if (quality > 0) {
        parameters = {cv::IMWRITE_JPEG_QUALITY, quality};
    }
    try {
        const std::string ending = small_ending_of(path);
        if (ending.empty() || !cv::imencode(ending, image, bytes, parameters)) {
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

/// Removes what an earlier run has kept, so that the files in the directory are of one sweep.
void remove_working_files(const fs::path& directory)
{
    for (const fs::path& file : entries_of(directory)) {
        std::error_code error;
        if (!is_working_name(file.filename().string()) || fs::is_directory(fs::symlink_status(file, error))) {
            continue;
        }
        if (!fs::remove(file, error) && error) {
            fail("cannot remove " + file.string() + " of an earlier run: " + error.message());
        }
    }
}

/// Writes one picture and notes what went wrong. @returns whether it was written
bool write_noting(const std::string& path, std::vector<unsigned char> bytes, const output_metadata& metadata,
                  written_files& written, const panorama_view& view = {})
{
    if (bytes.empty()) {
        written.errors.push_back("cannot write " + path + ": the picture does not fit the format");
        return false;
    }
    if (!metadata.add_to(bytes, view)) {
        written.warnings.push_back(path + " is without metadata: they cannot be put into it");
    }
    try {
        write_whole_file(path, bytes);
        return true;
    } catch (const host_error& error) {
        written.errors.emplace_back(error.what());
        return false;
    }
}

/// That --crop takes much of what a panorama shows; "" while it does not.
/// @param kept  px
std::string note_on_crop(const std::string& name, const cv::Mat& panorama, int kept)
{
    constexpr double noticed = 0.25;
    constexpr double percent = 100.0;
    cv::Mat empty;
    cv::inRange(panorama, cv::Scalar(0, 0, 0), cv::Scalar(0, 0, 0), empty);
    const auto shown = static_cast<double>(panorama.total()) - cv::countNonZero(empty);
    const double lost = 1.0 - kept / shown;
    if (lost <= noticed) {
        return "";
    }
    return "--crop takes " + std::to_string(std::lround(percent * lost)) + " % of what the panorama shows, since "
           + name + " has no larger rectangle without empty pixels";
}

}  // namespace

panorama_files::panorama_files(const options& asked)
    : asked_(asked), panorama_(name_of_panorama(asked)), partial_(with_addition(panorama_, "-partial")),
      partial_preview_(asked.preview.empty() ? "" : with_addition(asked.preview, "-partial")),
      finished_(name_of_finished_picture(asked)), partial_finished_(with_addition(finished_, "-partial"))
{
    check_output_names(asked);
    if (!asked.preview.empty() && encoded(asked.preview, cv::Mat(2, 2, CV_8UC3, cv::Scalar::all(0))).empty()) {
        const std::string ending = std::filesystem::path(asked.preview).extension().string();
        throw host_error(exit_code::usage, "cannot write " + asked.preview + ": "
                                               + (ending.empty() ? "its name has no ending, which would tell the format"
                                                                 : ending + " is no image format that can be written"));
    }
}

std::vector<std::string> panorama_files::left_out_of_inputs() const
{
    std::vector<std::string> left_out =
        asked_.skip_done ? outputs_of_earlier_run(panorama_) : std::vector<std::string>();
    // Else only a name that nobody gave is one that nobody thinks of.
    if (asked_.output.empty()) {
        left_out.insert(left_out.end(), {panorama_, partial_, finished_, partial_finished_});
    }
    return left_out;
}

void panorama_files::check_against_inputs(const std::vector<std::string>& input_files) const
{
    for (const std::string& file : input_files) {
        for (const named_output& output : named_outputs(asked_)) {
            const bool named_by_input = asked_.output.empty()
                                        && (output.file == panorama_ || output.file == partial_
                                            || output.file == finished_ || output.file == partial_finished_);
            if (same_place(file, output.file)) {
                fail("cannot write " + output.file + ": it is one of the input's files"
                     + (named_by_input ? "; -o gives the panorama another name" : ""));
            }
        }
        // Where it is a link, its target counts, too.
        if (!asked_.keep_work.empty()
            && (same_place(fs::absolute(file).parent_path(), kept_directory(asked_))
                || same_place(fs::path(canonical_place(file)).parent_path(), kept_directory(asked_)))) {
            fail("cannot keep working files in " + asked_.keep_work + ": the input's files are there");
        }
    }
}

void panorama_files::check_places() const
{
    check_output_place(panorama_);
    for (const std::string& name :
         {asked_.preview, asked_.frames, asked_.report, asked_.finish ? finished_ : std::string(),
          asked_.skip_done ? record_place(panorama_) : std::string()}) {
        if (!name.empty()) {
            check_output_place(name);
        }
    }
    if (!asked_.keep_work.empty()) {
        std::error_code error;
        if (fs::is_directory(asked_.keep_work, error)) {
            check_output_place((fs::path(asked_.keep_work) / panorama_file_name).string());
        } else if (fs::exists(fs::symlink_status(asked_.keep_work, error))) {
            fail("cannot keep working files in " + asked_.keep_work + ": it is not a directory");
        } else {
            // Not made before there is something to keep in it.
            check_output_place(kept_directory(asked_));
        }
    }
}

written_files panorama_files::write(const sweep_result& result, bool whole, frame_turn turn,
                                    const output_metadata& metadata) const
{
    written_files written;
    if (!result.panorama.empty()) {
        write_panorama(result, whole, turn, metadata, written);
    }
    if (!asked_.preview.empty() && !result.preview.empty()) {
        write_preview(result, whole, turn, metadata, written);
    }
    return written;
}

void panorama_files::write_panorama(const sweep_result& result, bool whole, frame_turn turn,
                                    const output_metadata& metadata, written_files& written) const
{
    const std::string& name = whole ? panorama_ : partial_;
    cv::Mat image = panorama_for_viewer(result.panorama, turn);
    written.uncropped = image.size();
    if (asked_.crop) {
        const cv::Rect best = largest_full_rectangle(image);
        if (best.empty()) {
            written.warnings.push_back(name + " is not cropped: all of it is empty");
        } else {
            if (const std::string line = note_on_crop(name, image, best.area()); !line.empty()) {
                written.warnings.push_back(line);
            }
            image = image(best);
        }
    }
    // The library's own file, unless it is not quite what is wanted.
    const bool as_it_is = is_jpeg_name(name) && asked_.quality == 0 && !result.panorama_file.empty()
                          && image.data == result.panorama.data && image.size() == result.panorama.size();
    if (write_noting(name, as_it_is ? result.panorama_file : encoded(name, image, asked_.quality), metadata, written)) {
        written.panorama = {name, image.size(), asked_.report.empty() ? cv::Mat() : small_copy_of(image)};
        written.whole = whole;
    }
}

void panorama_files::write_preview(const sweep_result& result, bool whole, frame_turn turn,
                                   const output_metadata& metadata, written_files& written) const
{
    const std::string& name = whole ? asked_.preview : partial_preview_;
    const cv::Mat image = preview_for_viewer(result.preview, turn);
    if (write_noting(name, encoded(name, image), metadata, written)) {
        written.preview = {name, image.size()};
        if (!whole) {
            written.warnings.push_back("the preview until then is in " + name);
        }
    }
}

void panorama_files::write_finished(const cv::Mat& picture, bool whole, const output_metadata& metadata,
                                    const panorama_view& view, written_files& written) const
{
    const std::string& name = whole ? finished_ : partial_finished_;
    constexpr int usual_quality = 95;
    const int quality = asked_.quality > 0 ? asked_.quality : usual_quality;
    if (write_noting(name, encoded(name, picture, is_jpeg_name(name) ? quality : 0), metadata, written, view)) {
        written.finished = {name, picture.size(), asked_.report.empty() ? cv::Mat() : small_copy_of(picture)};
        written.finished_whole = whole;
    }
}

void panorama_files::keep_working_files(const std::string& from, const sweep_result& result) const
{
    std::error_code error;
    fs::create_directory(asked_.keep_work, error);
    if (error) {
        fail("cannot make the directory " + asked_.keep_work + ": " + error.message());
    }
    remove_working_files(asked_.keep_work);
    int frames = 0;
    bool panorama = false;
    for (const fs::path& kept : entries_of(from)) {
        const fs::path target = fs::path(asked_.keep_work) / kept.filename();
        std::ifstream file(kept, std::ios::binary);
        write_whole_file(target.string(), {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
        frames += is_working_frame_name(target.filename().string()) ? 1 : 0;
        panorama = panorama || target.filename() == panorama_file_name;
    }
    // The library goes on without a file that it cannot write. From the first key frame that fails on there may be
    // none, and where the sweep breaks there is no panorama.
    const bool complete = result.outcome == sweep_outcome::complete;
    int frames_due = result.outcome == sweep_outcome::pipeline_failed ? 0 : result.key_frames;
    if (result.failed_key_frame > 0) {
        frames_due = result.failed_key_frame - 1;
    }
    const int missing = std::max(0, frames_due - frames) + (complete && !panorama ? 1 : 0);
    if (missing > 0) {
        fail(asked_.keep_work + " is without " + std::to_string(missing)
             + (missing == 1 ? " working file" : " working files")
             + ", which could not be written in the temporary directory");
    }
}

}  // namespace tarn::host
