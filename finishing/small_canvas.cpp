// SPDX-License-Identifier: Apache-2.0
#include "small_canvas.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "pair_graph.h"

namespace tarn::finishing {

drawing_surface small_surface_for(const drawing_surface& surface, const std::vector<working_frame>& frames)
{
    double factor = 1.0;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (surface.cameras.placed[i]) {
            factor = std::min(factor, static_cast<double>(frames[i].small.cols) / frames[i].full_size.width);
        }
    }
    return surface.scaled(factor);
}

std::vector<small_drawing> draw_small(const drawing_surface& small_surface, const std::vector<working_frame>& frames,
                                      std::vector<frame_report>& reports, const progress_meter& progress)
{
    // A frame that takes so many times its own size is seen too much askew to be of use.
    constexpr double greatest_growth = 12.0;
    std::vector<small_drawing> drawings;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (!small_surface.cameras.placed[i]) {
            continue;
        }
        small_drawing drawing;
        drawing.index = static_cast<int>(i);
        drawing.place = small_surface.outline(drawing.index, frames[i].full_size);
        if (drawing.place.empty()
            || static_cast<double>(drawing.place.area())
                   > greatest_growth * static_cast<double>(frames[i].small.total())) {
            reports[i].omitted = left_out::beyond;
            continue;
        }
        reports[i].omitted = left_out::no;
        drawings.push_back(drawing);
    }
    progress.for_each(stage::exposure, 0.0, 0.3, drawings.size(), [&](std::size_t k) {
        small_drawing& drawing = drawings[k];
        const cv::Mat& small = frames[static_cast<std::size_t>(drawing.index)].small;
        cv::Mat pixels;
        small_surface.pixels_of_frame(drawing.index, small.size(), drawing.place, pixels);
        drawing.mask = shown_part(pixels, small.size());
        cv::remap(small, drawing.image, pixels, cv::noArray(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    });
    return drawings;
}

void leave_out_superfluous(std::vector<small_drawing>& drawings, const camera_set& cameras,
                           const std::vector<working_frame>& frames, std::vector<frame_report>& reports)
{
    constexpr double shown_by_others = 0.995;
    constexpr double left_in_common = 0.45;
    const cv::Rect area = area_of(drawings);
    cv::Mat count = cv::Mat::zeros(area.size(), CV_16UC1);
    const auto counted = [&](const small_drawing& drawing) { return count(drawing.place - area.tl()); };
    for (const small_drawing& drawing : drawings) {
        cv::Mat part = counted(drawing);
        cv::add(part, cv::Scalar(1), part, drawing.mask);
    }
    const auto size_of = [&](int index) { return frames[static_cast<std::size_t>(index)].full_size; };
    std::vector<small_drawing> kept;
    for (std::size_t k = 0; k < drawings.size(); ++k) {
        const small_drawing& drawing = drawings[k];
        cv::Mat part = counted(drawing);
        const cv::Mat by_others = part >= 2;
        const double covered = static_cast<double>(cv::countNonZero(by_others & drawing.mask))
                               / std::max(1, cv::countNonZero(drawing.mask));
        bool is_superfluous = covered >= shown_by_others;
        if (is_superfluous && !kept.empty() && k + 1 < drawings.size()) {
            const int before = kept.back().index;
            const int after = drawings[k + 1].index;
            is_superfluous =
                shared_part(cameras.j_from_i(before, after), size_of(before), size_of(after)) >= left_in_common;
        }
        if (is_superfluous) {
            cv::subtract(part, cv::Scalar(1), part, drawing.mask);
            reports[static_cast<std::size_t>(drawing.index)].omitted = left_out::adds_nothing;
        } else {
            kept.push_back(drawing);
        }
    }
    drawings = kept;
}

cv::Rect area_of(const std::vector<small_drawing>& drawings)
{
    cv::Rect area;
    for (const small_drawing& drawing : drawings) {
        area = area.empty() ? drawing.place : area | drawing.place;
    }
    return area;
}

}  // namespace tarn::finishing
