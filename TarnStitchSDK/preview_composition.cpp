// SPDX-License-Identifier: Apache-2.0
#include "internal/preview_composition.h"

#include <opencv2/imgproc.hpp>

#include "internal/frame_geometry.h"
#include "internal/parallel_loop.h"
#include "seam.h"

namespace tarn {

cv::Mat grown_preview(const cv::Mat& panorama, cv::Size size, cv::Point at)
{
    // An image without gaps cannot grow in its own storage. This one copy is all that is made at its full size.
    cv::Mat grown(size, CV_8UC3);
    // Constant, so that a panorama of another type cannot replace it: it is converted, or raises.
    const cv::Mat old_place = grown(cv::Rect(at, panorama.size()));
    clear_around(grown, cv::Rect(at, panorama.size()));
    if (panorama.type() != CV_8UC3 || panorama.empty()) {
        panorama.copyTo(old_place);
        return grown;
    }
    // A long panorama is mostly fetched from memory, which two threads do faster than one.
    constexpr double bytes_per_part = 1 << 19;
    const double parts = static_cast<double>(panorama.total() * panorama.elemSize()) / bytes_per_part;
    const auto copy_rows = [&](const cv::Range& rows) {
        const cv::Mat place = old_place.rowRange(rows);
        panorama.rowRange(rows).copyTo(place);
    };
    for_side_by_side(cv::Range(0, panorama.rows), copy_rows, parts);
    return grown;
}

void paste_onto_preview(const cv::Mat& panorama, cv::Point at, cv::Mat& grown, const cv::Mat& frame, cv::Rect box,
                        const cv::Mat& box_from_frame, std::vector<cv::Point2f>& transpose_corners)
{
    // The panorama before, at the coordinates of the grown one, for the seam. It passes over what lies outside
    // of its images; so where nothing has moved, that is the old panorama, and otherwise only the box has pixels.
    cv::Mat before = panorama;
    if (at != cv::Point() || panorama.type() != CV_8UC3) {
        // The pixels that the seam may read.
        const pixel_bounds reach(transpose_corners);
        const cv::Rect seam_box = cv::Rect({reach.left_x, reach.top_y}, cv::Point(reach.right_x, reach.bottom_y))
                                  & cv::Rect(cv::Point(), grown.size());
        before = cv::Mat(grown.size(), CV_8UC3);
        cv::Mat box_before = before(seam_box);
        grown(seam_box).copyTo(box_before);
    }
    // The whole bounding box is overwritten, its black corners included; the seam puts the panorama back there.
    cv::Mat pasted = grown(box);
    cv::warpPerspective(frame, pasted, box_from_frame, box.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar());
    if (pasted.u != grown.u) {  // a frame of another type, for which the view was replaced
        const cv::Mat place = grown(box);
        pasted.copyTo(place);
    }
    optimizeSeam(before, grown, transpose_corners);
}

}  // namespace tarn
