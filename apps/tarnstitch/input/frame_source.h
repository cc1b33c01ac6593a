// SPDX-License-Identifier: Apache-2.0
//
// Where frames come from: a video, a camera, a numbered image sequence, a directory of images, listed images.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_selection.h"
#include "frame_turn.h"

namespace tarn::host {

/// What is known of an input once it is open.
struct source_facts {
    std::vector<std::string> files;  ///< that are read; the camera's name for a camera
    int announced = 0;               ///< pictures that it says it has, perhaps off by a few; 0: it does not say
    double rate = 0.0;               ///< pictures per second; 0 when there are no times, or it is not known
    bool has_times = false;          ///< whether pictures come with time stamps
    bool live = false;               ///< a camera: pictures come when they come
    bool rereadable = false;         ///< whether opening it again gives the same pictures
    /// The turn that gives the library what the camera's sensor recorded, where the file tells.
    frame_turn as_recorded = frame_turn::counter_clockwise;
    std::optional<std::int64_t> recorded;  ///< when, in seconds since the beginning of 1970, UTC; a video may tell
};

/// Pictures one after the other, each read when it is asked for, so that memory does not grow with the input.
class frame_source {
public:
    frame_source() = default;
    virtual ~frame_source() = default;
    frame_source(const frame_source&) = delete;
    frame_source& operator=(const frame_source&) = delete;

    virtual const source_facts& facts() const = 0;

    /// Goes as near to a moment, in seconds from the beginning, as it can without reading what lies before, and not
    /// beyond it. Pictures keep their numbers. To be called before the first one is asked for.
    virtual void skip_to(double /*seconds*/)
    {
    }

    /// Goes on to the next picture.
    /// @returns false when there are no more
    virtual bool advance(frame_stamp& stamp) = 0;

    /// The picture as the library takes it: CV_8UC3, B,G,R, upright and then turned; empty when it cannot be read,
    /// though others may follow. To be called once at most for each picture; one that is not asked for costs as little
    /// as the input's kind allows.
    /// @throws host_error (input_failed) for a picture that is too large
    virtual cv::Mat picture(frame_turn turn) = 0;

    /// What the picture is called in messages: "frame 12 of clip.mp4", or its file.
    virtual std::string name() const = 0;

    /// Pictures so far that the input has and its decoder passed over, because they were damaged.
    virtual int passed_over() const = 0;
};

/// The file's path as decoders take it for a path and nothing else. A name such as "a:b.mp4" or "file://b.jpg" would be
/// taken for a protocol's or an address, and another file be read; behind "./" it is not.
std::string as_path(const std::string& file);

/// Checks a picture's size before it is decoded.
/// @throws host_error (input_failed) for one of more than `max_pixels`
void check_size(const std::string& name, const cv::Size& size, int max_pixels);

/// Opens the inputs of a command line: a video file, a camera ("camera:0" or its device), an image file, a pattern
/// such as "frame%04d.png", a directory, or several image files, which are sorted in natural order. A file that
/// exists under the very name wins over whatever else the name may mean.
/// @param left_out  files that are no part of a directory's or sequence's pictures: results of an earlier run. Files
///                  listed by their names are taken, whatever they are
/// @param max_pixels  that a picture may have, at least 1
/// @throws host_error (input_failed) with the reason
std::unique_ptr<frame_source> open_frame_source(const std::vector<std::string>& inputs,
                                                const std::vector<std::string>& left_out, int max_pixels);

/// What the outputs of an input are named after: "river" for "a/river.mp4", "stills" for "a/stills/", "frame"
/// for "frame_%04d.png", "camera0" for "camera:0".
std::string name_of_input(const std::string& input);

}  // namespace tarn::host
