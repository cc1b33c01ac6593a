// SPDX-License-Identifier: Apache-2.0
#include "crop_loss.h"

#include <algorithm>

namespace tarn::finishing {

namespace {

/// Of the pixels that are not nought, the part that lies in `shown`, or a turn away from there: what is seen twice is
/// there if it is there once.
/// @param place  of the mask
double part_within(const cv::Mat& mask, cv::Rect place, cv::Rect shown, cv::Size turn)
{
    const bool goes_around = turn.width > 0 || turn.height > 0;
    int inside = 0;
    for (int around = goes_around ? -1 : 0; around <= (goes_around ? 1 : 0); ++around) {
        const cv::Rect common = (shown + around * cv::Point(turn)) & place;
        inside += common.empty() ? 0 : cv::countNonZero(mask(common - place.tl()));
    }
    return std::min(1.0, static_cast<double>(inside) / std::max(1, cv::countNonZero(mask)));
}

/// What of a range is not longer than a turn, has `inner` in it, and begins as near to half a turn before nought as
/// that allows.
cv::Range at_most_a_turn(cv::Range whole, cv::Range inner, int turn)
{
    if (turn == 0 || whole.size() <= turn) {
        return whole;
    }
    const int begin = std::clamp(-turn / 2, inner.end - turn, inner.start);
    return {begin, begin + turn};
}

cv::Range columns_of(cv::Rect r)
{
    return {r.x, r.br().x};
}

cv::Range rows_of(cv::Rect r)
{
    return {r.y, r.br().y};
}

/// Which way the camera went.
struct way {
    bool level;   ///< along the rows
    bool onward;  ///< to the right, or down
};

way way_of(const std::vector<small_drawing>& drawn)
{
    // Twice the middles, to stay with whole numbers.
    const auto middle = [](const small_drawing& drawing) { return drawing.place.tl() + drawing.place.br(); };
    cv::Point least = middle(drawn.front());
    cv::Point most = least;
    for (const small_drawing& drawing : drawn) {
        const cv::Point own = middle(drawing);
        least = {std::min(least.x, own.x), std::min(least.y, own.y)};
        most = {std::max(most.x, own.x), std::max(most.y, own.y)};
    }
    const bool level = most.x - least.x >= most.y - least.y;
    const cv::Point whole = middle(drawn.back()) - middle(drawn.front());
    return {level, (level ? whole.x : whole.y) >= 0};
}

}  // namespace

cv::Rect enlarged(cv::Rect small, double factor)
{
    return {cv::Point(cvFloor(small.x * factor), cvFloor(small.y * factor)),
            cv::Point(cvCeil((small.br().x - 1) * factor) + 1, cvCeil((small.br().y - 1) * factor) + 1)};
}

cv::Size turn_of(const drawing_surface& surface)
{
    const int turn = cvRound(2 * CV_PI * surface.scale);
    switch (surface.kind) {
    case projection::cylinder:
    case projection::sphere:
        return {turn, 0};
    case projection::turned_cylinder:
        return {0, turn};
    case projection::plane:
        break;
    }
    return {};
}

cut_off measure_cut(const std::vector<small_drawing>& drawn, const ownership& owners, double small_scale,
                    const drawing_surface& surface, cv::Rect area, std::vector<frame_report>& reports)
{
    // Every small pixel whose place, at full size, is in the picture's reach.
    const auto smaller = [small_scale](int full) { return cvRound(full * small_scale); };
    const cv::Rect shown(cv::Point(smaller(area.x), smaller(area.y)),
                         cv::Point(smaller(area.br().x - 1) + 1, smaller(area.br().y - 1) + 1));
    const cv::Size small_turn = turn_of(surface.scaled(small_scale));
    for (const small_drawing& drawing : drawn) {
        reports[static_cast<std::size_t>(drawing.index)].part_in_picture =
            part_within(drawing.mask, drawing.place, shown, small_turn);
    }

    const cv::Size turn = turn_of(surface);
    const cv::Rect whole = enlarged(owners.area, 1.0 / small_scale) | area;
    const cv::Range columns = at_most_a_turn(columns_of(whole), columns_of(area), turn.width);
    const cv::Range rows = at_most_a_turn(rows_of(whole), rows_of(area), turn.height);
    const way went = way_of(drawn);
    const cv::Range seen = went.level ? columns : rows;
    const cv::Range left = went.level ? columns_of(area) : rows_of(area);
    const double before = static_cast<double>(left.start - seen.start) / seen.size();
    const double behind = static_cast<double>(seen.end - left.end) / seen.size();

    cut_off lost;
    lost.part = 1.0 - part_within(owners.covered, owners.area, shown, small_turn);
    lost.at_beginning = went.onward ? before : behind;
    lost.at_end = went.onward ? behind : before;
    lost.seen = cv::Rect(columns.start, rows.start, columns.size(), rows.size()) - area.tl();
    return lost;
}

}  // namespace tarn::finishing
