// SPDX-License-Identifier: Apache-2.0
//
// Words for inputs that make no sweep.
#include "input_mistakes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "image_files.h"

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

constexpr const char* once_for_each = "run tarnstitch once for each";

/// The videos of a directory by their endings, in natural order. Hidden files are none.
std::vector<std::string> videos_in(const std::string& directory)
{
    std::vector<std::string> videos;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.front() != '.' && has_video_ending(name)) {
            videos.push_back(entry->path().string());
        }
    }
    std::sort(videos.begin(), videos.end(), natural_less);
    return videos;
}

}  // namespace

bool has_video_ending(const std::string& name)
{
    static constexpr std::array endings = {".mp4", ".mov", ".m4v",  ".mkv", ".avi", ".webm", ".3gp",   ".3g2", ".mpg",
                                           ".ts",  ".mts", ".m2ts", ".ogv", ".wmv", ".flv",  ".mjpeg", ".mpeg"};
    std::string ending = fs::path(name).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return std::find(endings.begin(), endings.end(), ending) != endings.end();
}

std::string no_images_in(const std::string& directory)
{
    std::string line = "there are no images in " + directory;
    const std::vector<std::string> videos = videos_in(directory);
    if (videos.empty()) {
        return line;
    }
    return line
           + (videos.size() == 1 ? ", but a video: name it, " + videos.front()
                                 : ", but " + std::to_string(videos.size()) + " videos, " + videos.front()
                                       + " among them: a run takes one; " + once_for_each);
}

std::string missing_among(const std::vector<std::string>& inputs, const std::string& missing)
{
    std::string line = "there is no file " + missing;
    return missing == inputs.back() && has_image_ending(missing)
               ? line + "; if that is the panorama's name, it belongs behind -o"
               : line;
}

std::string not_together(const std::vector<std::string>& inputs, const std::string& other)
{
    const auto videos = std::count_if(inputs.begin(), inputs.end(), has_video_ending);
    if (has_video_ending(other) && videos > 1) {
        return std::to_string(videos) + " videos are named, and a run takes one: " + once_for_each;
    }
    std::error_code error;
    const std::string line = "of several inputs each must be an image, and " + other + " is ";
    if (fs::is_directory(other, error)) {
        return line + "a directory: name it alone";
    }
    return line + (has_video_ending(other) ? "a video: name it alone" : "none")
           + "; the panorama's name belongs behind -o";
}

}  // namespace tarn::host
