// SPDX-License-Identifier: Apache-2.0
//
// Finishing: from the key frames of a sweep the picture that a person expects. A library of its own beside the live
// one: it takes seconds where that one takes milliseconds, looks at all key frames at once, and needs OpenCV's
// stitching module.
//
// Conventions
// -----------
// Pixels      x is the column, y the row, y grows downward; the centre of the top-left pixel is (0, 0).
// Images      8 bits. In: one channel, three in B,G,R order, or four in R,G,B,A order, of any size. Out: B,G,R.
// Placements  3 x 3, CV_64F: a pixel of the frame's copy that is at most 300 px wide (the live path's working copy)
//             into one frame of reference that all key frames share, such as the preview as it was at one moment.
// Angles      radians, where the name does not say degrees.
// Memory      pictures are asked for when they are needed and let go soon after, at most
//             finishing_options::image_cache_megabytes of them at a time; cv::Mat headers share pixels.
// Threads     a call works on OpenCV's threads and calls back on its own; several calls may run at once. The result has
//             the same bytes whatever the number of threads.
// Failure     finish throws nothing; its result says what went wrong.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

// Visible whatever the host's own flags say.
#pragma GCC visibility push(default)

namespace tarn::finishing {

/// A frame that is to be part of the picture.
struct key_frame {
    /// Whatever tells the host which one it is, such as its number in the video; only passed through.
    int number = 0;
    /// Where the live path saw it (see above); empty when it did not, and then its neighbours must have enough in
    /// common with it.
    cv::Mat placement;
    /// The frame at full resolution. Called on the calling thread of finish, twice and seldom more often, in the order
    /// of the sweep if the sweep goes one way. It may read from a file. What it returns is not written to, and must not
    /// change until finish returns. An empty image, or an exception, ends finish with status::unreadable.
    std::function<cv::Mat()> image;
};

enum class status {
    ok,
    cancelled,      ///< the progress function answered false
    no_key_frames,  ///< there is none
    unreadable,     ///< a key frame could not be had; failed_number tells which
    out_of_memory,  ///< the machine refused memory
    failed,         ///< anything else; explanation tells what
};

/// What finish is about, in this order.
enum class stage {
    reading,   ///< every key frame is read once
    pairing,   ///< key frames that overlap are compared
    placing,   ///< the cameras are found
    exposure,  ///< gains
    seams,     ///< joints
    blending,  ///< the picture, strip by strip; every key frame in use is read again
};

/// How the camera moved.
enum class camera_motion {
    none,        ///< there is one key frame
    turning,     ///< about one point: a rotation for each key frame, one focal length
    sliding,     ///< along a plane, facing it: a similarity for each
    tilting,     ///< along a plane, not quite facing it: an affine map for each
    projective,  ///< along a plane, in any attitude: a homography for each
};

/// What the picture is drawn on.
enum class projection {
    plane,
    cylinder,         ///< with an upright axis: straight lines that stand upright stay straight
    turned_cylinder,  ///< with a level axis, for sweeps up or down
    sphere,           ///< equirectangular
};

enum class crop {
    none,       ///< all that was seen, black where nothing was
    full,       ///< the largest upright rectangle without an empty pixel
    automatic,  ///< the largest upright rectangle with next to no empty pixels, in thin corners; those are filled with
                ///< what
                ///< lies beside them. None is larger by little, so that full is taken then.
};

/// What told where a key frame belongs.
enum class placed_by {
    features,     ///< points found again in another key frame
    alignment,    ///< the live motion, made exact by comparing the two frames pixel by pixel
    live_motion,  ///< the live motion alone
    nothing,      ///< nothing; it is left out
};

enum class left_out {
    no,
    adds_nothing,  ///< others show all that it shows
    unplaced,      ///< nothing joins it with the others
    beyond,        ///< it would lie too far away, or too much askew, to be drawn
};

struct finishing_options {
    crop cropping = crop::full;
    /// The picture is made smaller than the key frames show it when it would have more pixels than that.
    double most_megapixels = 150.0;
    /// Key frames kept in memory for the strips to come; one is always kept.
    double image_cache_megabytes = 192.0;
    /// Called on the calling thread several times a second. Answer false to end the call: it then returns within half a
    /// second beyond what reading a key frame takes.
    /// @param part  how much of the stage is done, 0 to 1
    std::function<bool(stage now, double part)> progress;
};

/// What is known of a key frame, in the order in which the key frames came.
struct frame_report {
    int number = 0;  ///< of key_frame
    placed_by placement = placed_by::nothing;
    left_out omitted = left_out::unplaced;
    /// How the camera saw the scene: for a turning camera the rotation world_from_camera (x right, y down, z ahead);
    /// otherwise plane_from_frame, in both cases for coordinates of a frame from its centre, in units of its longer
    /// side.
    cv::Matx33d camera = cv::Matx33d::eye();
    double gain = 1.0;  ///< mean factor on brightness
    double residual =
        -1.0;  ///< median distance of its points from where the cameras say, % of its longer side; -1: none
    /// Part of what the frame saw that lies within the picture, 0 to 1, whoever shows it there: 0 when the crop has left
    /// nothing of it. -1 of frames that are not drawn anywhere (left_out::unplaced and beyond).
    double part_in_picture = -1.0;
};

/// What the picture lacks of what was seen, because it is a rectangle. All nought with crop::none.
struct cut_off {
    /// Part of what was seen, of its area, 0 to 1.
    double part = 0.0;
    /// Parts of the sweep's length, 0 to 1, at the end where it begins and at the one where it stops. The length is that
    /// of what was seen, along the axis of the picture along which the camera went farther. A camera that came back
    /// began and stopped at the same end: then the first number is that of the left, or upper, end.
    double at_beginning = 0.0;
    double at_end = 0.0;
    /// Around all that was seen, px of the picture: it begins left of the picture or above where its numbers are less
    /// than nought. Never longer than a full turn.
    cv::Rect seen;
};

/// What panorama viewers want to know (the GPano tags), where the projection is one that they know.
struct viewer_description {
    bool known = false;           ///< whether a viewer can be told; everything else is empty when not
    std::string projection_type;  ///< "cylindrical" or "equirectangular"
    cv::Size full_size;           ///< px of the panorama of which the picture is a part, a full turn wide
    cv::Rect cropped_area;        ///< the picture in it
};

struct finishing_result {
    status outcome = status::failed;
    std::string explanation;  ///< of what went wrong, in English; "" when nothing did
    int failed_number = 0;    ///< with status::unreadable: number of the key frame

    cv::Mat picture;  ///< CV_8UC3, B,G,R; may have gaps between its rows
    cv::Mat mask;     ///< CV_8UC1, of the same size: 255 where the picture shows something

    camera_motion motion = camera_motion::none;
    projection drawn_on = projection::plane;
    double focal_length = 0.0;              ///< of a turning camera, in units of a frame's longer side; 0 of others
    double scale = 1.0;                     ///< px of the picture for one of a key frame's, at its centre
    double horizontal_field_of_view = 0.0;  ///< degrees, of a turning camera's picture; 0 of others
    double vertical_field_of_view = 0.0;    ///< degrees
    double residual = -1.0;                 ///< median of all points' distances, % of a frame's longer side
    viewer_description viewers;
    cut_off lost;  ///< to the crop
    std::vector<frame_report> frames;
    int pairs_compared = 0;
    int joined_by_alignment = 0;    ///< key frames placed so
    int joined_by_live_motion = 0;  ///< key frames placed so

    /// Where a pixel of a key frame lies in the picture.
    /// @param index       0 to frames.size() - 1, of a key frame that was placed
    /// @param pixel       of the key frame at full resolution
    /// @param frame_size  of the key frame, px
    /// @returns pixels; NaN for what the picture cannot show
    cv::Point2d picture_from_frame(int index, cv::Point2d pixel, cv::Size frame_size) const;

    /// Where the picture begins on what it is drawn on, px; for picture_from_frame.
    cv::Point2d origin;
    /// Px of the picture for a radian, or for a frame's longer side; for picture_from_frame.
    double surface_scale = 1.0;
    std::vector<double> headings;  ///< of the key frames, radians, not wrapped to one turn; for picture_from_frame
};

/// Makes the picture.
///
/// @param key_frames  in the order of the sweep
/// @returns what was made. With any outcome but status::ok there is no picture.
finishing_result finish(const std::vector<key_frame>& key_frames, const finishing_options& options = {});

/// "ok", "cancelled", ... and so on: names as they stand above, spaces for underscores.
const char* name_of(status value);
const char* name_of(stage value);
const char* name_of(camera_motion value);
const char* name_of(projection value);
const char* name_of(placed_by value);
const char* name_of(left_out value);

}  // namespace tarn::finishing

#pragma GCC visibility pop
