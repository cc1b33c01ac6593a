// SPDX-License-Identifier: Apache-2.0
#include "internal/high_res_composition.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "internal/frame_geometry.h"
#include "seam.h"
#include "shared_access.h"

namespace tarn {

namespace {

constexpr float greatest_side = 10000.0f;  // px
constexpr double content_above = 1.0;      // gray value

using contour_t = std::vector<cv::Point>;

points mapped_corners(const cv::Mat& frame, const cv::Mat& homography)
{
    return mapped(corners_of(frame.size()), homography);
}

// The outer contour with most points, the first of equals, of what the image shows; none for an empty image.
std::vector<contour_t> largest_contour(const cv::Mat& image)
{
    cv::Mat tmp_gray;
    cv::Mat tmp_binary;
    cv::cvtColor(image, tmp_gray, cv::COLOR_BGR2GRAY);
    cv::threshold(tmp_gray, tmp_binary, content_above, 255.0, cv::THRESH_BINARY);
    std::vector<contour_t> contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(tmp_binary, contours, hierarchy, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    const auto largest = std::max_element(contours.begin(), contours.end(),
                                          [](const contour_t& a, const contour_t& b) { return a.size() < b.size(); });
    return largest == contours.end() ? std::vector<contour_t>() : std::vector<contour_t>{std::move(*largest)};
}

// Merges a warped frame into the region of the canvas under its bounding box.
void merge(cv::Mat& region, cv::Mat& shift_frame_warp)
{
    const std::vector<contour_t> content = largest_contour(region);
    if (content.empty()) {
        // Nothing lies under the frame, so there is nothing to keep and no joint to hide.
        shift_frame_warp.copyTo(region);
        return;
    }
    cv::Mat tmp_shifted_frame_warp = shift_frame_warp.clone();
    cv::fillPoly(shift_frame_warp, content, cv::Scalar(), cv::LINE_8, 0);
    // The two overlap on the contour only, and where the panorama has content outside of its largest contour.
    cv::add(region, shift_frame_warp, region);
    fill_contours(content, tmp_shifted_frame_warp, region);
}

// Asserts that the place lies inside an image of that size.
void check_inside(const cv::Rect& place, const cv::Size& size)
{
    CV_Assert(place.x >= 0 && place.width >= 0 && place.x <= size.width && place.width <= size.width - place.x);
    CV_Assert(place.y >= 0 && place.height >= 0 && place.y <= size.height && place.height <= size.height - place.y);
}

// A part of the grown panorama before the frame is laid onto it: the old one, and black around it.
cv::Mat part_without_frame(const cv::Mat& panorama, const cv::Rect& old_place, const cv::Rect& part)
{
    cv::Mat result = cv::Mat::zeros(part.size(), CV_8UC3);
    const cv::Rect shown = old_place & part;
    if (!shown.empty()) {
        cv::Mat shown_place = result(shown - part.tl());
        panorama(shown - old_place.tl()).copyTo(shown_place);
    }
    return result;
}

// How many pixels a panorama grows on each side.
struct margins {
    int top, bottom, left, right;

    explicit margins(const merged_frame& merged)
        : top(merged.old_place.y), bottom(merged.grown_size.height - merged.old_place.br().y), left(merged.old_place.x),
          right(merged.grown_size.width - merged.old_place.br().x)
    {
    }
};

// Room beyond what a side grows now: none where it does not, and never more than a panorama may get.
int room_beyond(int growth, int length)
{
    return growth == 0 ? 0 : std::min(length / 2, static_cast<int>(greatest_side) - length);
}

// A view of that size with room around it; without any, when there is no address space for it.
cv::Mat with_room(cv::Size size, const margins& room)
{
    try {
        const cv::Mat storage(size.height + room.top + room.bottom, size.width + room.left + room.right, CV_8UC3);
        return storage(cv::Rect(cv::Point(room.left, room.top), size));
    } catch (const cv::Exception&) {
        return {size, CV_8UC3};
    }
}

}  // namespace

std::optional<merged_frame> merge_frame(const cv::Mat& panorama, const cv::Mat& frame,
                                        const cv::Mat& panorama_from_frame)
{
    CV_Assert(panorama.type() == CV_8UC3 && frame.type() == CV_8UC3);
    const bounds reach(mapped_corners(frame, panorama_from_frame));
    const cv::Point2f base_shift = shift_into_view(reach.left_x, reach.top_y);
    merged_frame merged;
    merged.panorama_from_frame = translation(base_shift.x, base_shift.y) * panorama_from_frame;

    const bounds box(mapped_corners(frame, merged.panorama_from_frame));
    const float stitch_width = std::max(box.right_x, base_shift.x + static_cast<float>(panorama.cols));
    const float stitch_height = std::max(box.bottom_y, base_shift.y + static_cast<float>(panorama.rows));
    if (stitch_width > greatest_side || stitch_height > greatest_side) {
        return std::nullopt;
    }
    merged.grown_size = {truncate_to_int(stitch_width), truncate_to_int(stitch_height)};
    merged.old_place = {{truncate_to_int(base_shift.x), truncate_to_int(base_shift.y)}, panorama.size()};
    merged.frame_place = {truncate_to_int(box.left_x), truncate_to_int(box.top_y),
                          truncate_to_int(box.right_x - box.left_x), truncate_to_int(box.bottom_y - box.top_y)};
    check_inside(merged.old_place, merged.grown_size);
    check_inside(merged.frame_place, merged.grown_size);

    merged.region = part_without_frame(panorama, merged.old_place, merged.frame_place);
    const cv::Mat warpH = translation(-box.left_x, -box.top_y) * merged.panorama_from_frame;
    cv::Mat shift_frame_warp;
    cv::warpPerspective(frame, shift_frame_warp, warpH, merged.frame_place.size(), cv::INTER_LINEAR,
                        cv::BORDER_CONSTANT, cv::Scalar());
    merge(merged.region, shift_frame_warp);
    return merged;
}

bool can_grow_in_place(const cv::Mat& panorama, const merged_frame& merged, int headers)
{
    // Whoever has let go of its header is done with the pixels: the count is read no earlier than that.
    if (panorama.u == nullptr || load_acquire(panorama.u->refcount) != headers) {
        return false;
    }
    cv::Size storage;
    cv::Point at;
    panorama.locateROI(storage, at);
    const margins growth(merged);
    return at.x >= growth.left && at.y >= growth.top && storage.width - at.x - panorama.cols >= growth.right
           && storage.height - at.y - panorama.rows >= growth.bottom;
}

cv::Mat grow_in_place(const cv::Mat& panorama, const merged_frame& merged)
{
    const margins growth(merged);
    cv::Mat grown = panorama;
    grown.adjustROI(growth.top, growth.bottom, growth.left, growth.right);
    clear_around(grown, merged.old_place);
    cv::Mat frame_place = grown(merged.frame_place);
    merged.region.copyTo(frame_place);
    return grown;
}

cv::Mat grow_in_new_storage(const cv::Mat& panorama, const merged_frame& merged)
{
    margins room(merged);
    room.top = room_beyond(room.top, merged.grown_size.height);
    room.bottom = room_beyond(room.bottom, merged.grown_size.height);
    room.left = room_beyond(room.left, merged.grown_size.width);
    room.right = room_beyond(room.right, merged.grown_size.width);
    cv::Mat grown = with_room(merged.grown_size, room);
    clear_around(grown, merged.old_place);
    cv::Mat old_place = grown(merged.old_place);
    panorama.copyTo(old_place);
    cv::Mat frame_place = grown(merged.frame_place);
    merged.region.copyTo(frame_place);
    return grown;
}

}  // namespace tarn
