// SPDX-License-Identifier: Apache-2.0
#include "preview_composition.h"

#include <opencv2/imgproc.hpp>

#include "numeric.h"
#include "parallel_loop.h"
#include "quadrilateral.h"
#include "seam.h"

namespace tarn {

namespace {

// The pixels that the seam may read.
cv::Rect bounding_box(const std::vector<cv::Point2f>& p)
{
    const cv::Point first(truncate_to_int(min_axis({p[0].x, p[1].x, p[2].x, p[3].x})),
                          truncate_to_int(min_axis({p[0].y, p[1].y, p[2].y, p[3].y})));
    const cv::Point end(truncate_to_int(max_axis({p[0].x, p[1].x, p[2].x, p[3].x})),
                        truncate_to_int(max_axis({p[0].y, p[1].y, p[2].y, p[3].y})));
    return {first, end};
}

}  // namespace

cv::Mat grown_preview(const cv::Mat& panorama, cv::Size size, cv::Point at)
{
    // An image without gaps cannot grow in its own storage. This one copy is all that is made at its full size.
    cv::Mat grown(size, CV_8UC3);
    // Constant, so that a panorama of another type cannot replace it: it is converted, or raises.
    const cv::Mat old_place = grown(cv::Rect(at, panorama.size()));
    const cv::Point end = at + cv::Point(panorama.size());
    grown.rowRange(0, at.y).setTo(cv::Scalar());
    grown.rowRange(end.y, size.height).setTo(cv::Scalar());
    grown(cv::Range(at.y, end.y), cv::Range(0, at.x)).setTo(cv::Scalar());
    grown(cv::Range(at.y, end.y), cv::Range(end.x, size.width)).setTo(cv::Scalar());
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

void paste_onto_preview(const cv::Mat& panorama, cv::Point at, cv::Mat& grown, const cv::Mat& frame,
                        cv::Rect box, const cv::Mat& box_from_frame,
                        std::vector<cv::Point2f>& transpose_corners)
{
    // The panorama before, at the coordinates of the grown one, for the seam. It passes over what lies outside
    // of its images; so where nothing has moved, that is the old panorama, and otherwise only the box has pixels.
    cv::Mat before = panorama;
    if (at != cv::Point() || panorama.type() != CV_8UC3) {
        const cv::Rect seam_box = bounding_box(transpose_corners) & cv::Rect(cv::Point(), grown.size());
        before = cv::Mat(grown.size(), CV_8UC3);
        cv::Mat box_before = before(seam_box);
        grown(seam_box).copyTo(box_before);
    }
    // The whole bounding box is overwritten, its black corners included; the seam puts the panorama back there.
    cv::Mat pasted = grown(box);
    cv::warpPerspective(frame, pasted, box_from_frame, box.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                        cv::Scalar());
    if (pasted.u != grown.u) {  // a frame of another type, for which the view was replaced
        const cv::Mat place = grown(box);
        pasted.copyTo(place);
    }
    optimizeSeam(before, grown, transpose_corners);
}

}  // namespace tarn
