// SPDX-License-Identifier: Apache-2.0
//
// Names from the options, and what is wrong with them.
#include "output_names.h"

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <regex>

#include "frame_source.h"
#include "host_error.h"
#include "output_file.h"
#include "working_directory.h"

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

[[noreturn]] void refuse(const std::string& line)
{
    throw host_error(exit_code::usage, line);
}

bool ends_in(const std::string& path, std::initializer_list<const char*> endings)
{
    return std::find(endings.begin(), endings.end(), small_ending_of(path)) != endings.end();
}

/// @param wanted  what a name must end in, in words
void check_ending(const std::string& path, const char* what, std::initializer_list<const char*> endings,
                  const char* wanted)
{
    if (!path.empty() && !ends_in(path, endings)) {
        refuse("cannot write " + path + ": the " + what + " must end in " + wanted);
    }
}

}  // namespace

std::string name_of_panorama(const options& asked)
{
    return asked.output.empty() ? name_of_input(asked.inputs.front()) + "-panorama.jpg" : asked.output;
}

std::string record_place(const std::string& panorama)
{
    return panorama + ".json";
}

bool is_jpeg_name(const std::string& path)
{
    return ends_in(path, {".jpg", ".jpeg"});
}

bool is_working_frame_name(const std::string& name)
{
    static const std::regex form("big_frame[0-9]+\\.jpg");
    return std::regex_match(name, form);
}

bool is_working_name(const std::string& name)
{
    return name == panorama_file_name || is_working_frame_name(name);
}

std::string name_of_finished_picture(const options& asked)
{
    return asked.output.empty() ? name_of_input(asked.inputs.front()) + "-finished.jpg"
                                : with_addition(asked.output, "-finished");
}

std::vector<named_output> named_outputs(const options& asked)
{
    const std::string panorama = asked.output.empty() ? "the panorama" : asked.as_written("--output");
    const std::string panorama_file = name_of_panorama(asked);
    std::vector<named_output> outputs = {{panorama, panorama_file},
                                         {panorama + "'s -partial file", with_addition(panorama_file, "-partial")}};
    if (!asked.preview.empty()) {
        outputs.push_back({"--preview", asked.preview});
        outputs.push_back({"--preview's -partial file", with_addition(asked.preview, "-partial")});
    }
    if (asked.finish) {
        const std::string finished = name_of_finished_picture(asked);
        outputs.push_back({"the finished picture", finished});
        outputs.push_back({"the finished picture's -partial file", with_addition(finished, "-partial")});
    }
    if (!asked.frames.empty()) {
        outputs.push_back({"--frames", asked.frames});
    }
    if (!asked.report.empty()) {
        outputs.push_back({"--report", asked.report});
    }
    if (!asked.log.empty()) {
        outputs.push_back({"--log", asked.log});
    }
    if (asked.skip_done) {
        outputs.push_back({"the record of --skip-done", record_place(panorama_file)});
    }
    return outputs;
}

std::string kept_directory(const options& asked)
{
    const fs::path directory(asked.keep_work);
    return (directory.has_filename() ? directory : directory.parent_path()).string();
}

void check_output_names(const options& asked)
{
    check_ending(name_of_panorama(asked), "panorama's name", {".jpg", ".jpeg", ".png", ".tif", ".tiff"},
                 ".jpg, .jpeg, .png, .tif or .tiff");
    check_ending(asked.frames, "name of the file on frames", {".csv", ".jsonl"}, ".csv or .jsonl");
    check_ending(asked.report, "name of the report", {".html", ".htm"}, ".html or .htm");
    const std::vector<named_output> outputs = named_outputs(asked);
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        for (std::size_t j = i + 1; j < outputs.size(); ++j) {
            if (same_place(outputs[i].file, outputs[j].file)) {
                refuse(outputs[i].what + " and " + outputs[j].what
                       + " need different names, and both would be written to " + outputs[j].file);
            }
        }
        const fs::path place = canonical_place(outputs[i].file);
        if (!asked.keep_work.empty() && is_working_name(place.filename().string())
            && same_place(place.parent_path().string(), kept_directory(asked))) {
            refuse(outputs[i].what + " needs another name: in " + asked.keep_work + ", " + place.filename().string()
                   + " is the name of a working file that --keep-work puts there");
        }
    }
}

}  // namespace tarn::host
