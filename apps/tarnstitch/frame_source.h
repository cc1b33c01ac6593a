// SPDX-License-Identifier: Apache-2.0
//
// Where frames come from: a video, a numbered image sequence or a directory of images.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace tarn::host {

/// One picture of the input.
struct source_frame {
    cv::Mat image;     ///< CV_8UC3, B,G,R; empty when this picture cannot be read, though others may follow
    std::string name;  ///< for messages: "frame 12 of clip.mp4", or the file
};

/// Pictures one after the other, each read when it is asked for, so that memory does not grow with the input.
class frame_source {
public:
    frame_source() = default;
    virtual ~frame_source() = default;
    frame_source(const frame_source&) = delete;
    frame_source& operator=(const frame_source&) = delete;

    /// @returns false when there are no more
    virtual bool read(source_frame& frame) = 0;

    /// How many pictures the input says that it has; 0 when it does not say. A video may be off by a few.
    virtual int announced() const = 0;

    /// The files that are read; an output must not be one of them.
    virtual const std::vector<std::string>& files() const = 0;
};

/// How an input is to be read.
struct source_settings {
    /// Whether pictures are turned as their file says (a video's display matrix, an image's EXIF), so that they
    /// come upright. Otherwise they come as the sensor recorded them.
    bool upright = true;
    /// Files that are no part of a directory's or sequence's pictures: results of an earlier run.
    std::vector<std::string> left_out;
};

/// Opens `input`: a video file, an image file, a pattern such as "frame%04d.png", or a directory. A file that
/// exists under the very name wins over the pattern that the name may be.
/// @throws host_error (input_failed) with the reason
std::unique_ptr<frame_source> open_frame_source(const std::string& input, const source_settings& settings);

/// What the outputs of an input are named after: "river" for "a/river.mp4", "stills" for "a/stills/", "frame"
/// for "frame_%04d.png".
std::string name_of_input(const std::string& input);

/// Keeps the media libraries from printing on standard error, unless OPENCV_LOG_LEVEL in the
/// environment asks them to. Call it before the first input is opened.
void silence_media_logs();

}  // namespace tarn::host
