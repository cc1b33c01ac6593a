// SPDX-License-Identifier: Apache-2.0
#include "seams.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/seam_finders.hpp>

namespace tarn::finishing {

namespace {

/// What a cut must see of its surroundings, px.
constexpr int surroundings = 4;
constexpr int nobody = -1;

/// The picture so far.
struct composite {
    cv::Rect area;
    cv::Mat image;  // CV_8UC3
    cv::Mat mask;
    cv::Mat owner;
};

void show(composite& so_far, const small_drawing& drawing, const cv::Mat& image, const cv::Mat& mask, int number)
{
    const cv::Rect place = drawing.place - so_far.area.tl();
    image.copyTo(so_far.image(place), mask);
    so_far.mask(place).setTo(255, mask);
    so_far.owner(place).setTo(number, mask);
}

/// The part of an overlap in which the cut may run: not next to where either image ends, where there is least to choose
/// from and lenses are worst. Elsewhere it is settled who is shown, which also saves most of the time.
struct overlap {
    cv::Mat open;     // 255 where both may be shown
    cv::Mat for_new;  // 255 where the new one is
};

overlap divided(const cv::Mat& old_mask, const cv::Mat& new_mask)
{
    constexpr double nearest = 0.2;  // of the way across
    constexpr double farthest = 0.8;
    cv::Mat from_old;
    cv::Mat from_new;
    cv::distanceTransform(~(old_mask & ~new_mask), from_old, cv::DIST_L2, cv::DIST_MASK_3);
    cv::distanceTransform(~(new_mask & ~old_mask), from_new, cv::DIST_L2, cv::DIST_MASK_3);
    const cv::Mat both = old_mask & new_mask;
    cv::Mat way;
    cv::divide(from_old, from_old + from_new, way);
    overlap result;
    cv::inRange(way, cv::Scalar(nearest), cv::Scalar(farthest), result.open);
    result.open &= both;
    result.for_new = new_mask & ~(old_mask & (way < nearest)) & ~result.open;
    return result;
}

/// How different two images are where a cut may run, as a length of colours. What lies between differences, within the
/// width of an arm, costs as much as those: a dark coat before a dark wall is still somebody, who is not to be cut.
cv::Mat cost_of_crossing(const cv::Mat& one, const cv::Mat& other, const cv::Mat& both)
{
    constexpr int width_of_arm = 9;  // px of the small surface
    cv::Mat difference;
    cv::absdiff(one, other, difference);
    difference.convertTo(difference, CV_32F);
    cv::Mat squares;
    cv::transform(difference.mul(difference), squares, cv::Matx13f(1, 1, 1));
    cv::Mat cost;
    cv::sqrt(squares, cost);
    cost.setTo(0.0, ~both);
    cv::Mat closed;
    const cv::Mat disc = cv::getStructuringElement(cv::MORPH_ELLIPSE, {width_of_arm, width_of_arm});
    cv::morphologyEx(cost, closed, cv::MORPH_CLOSE, disc);
    return closed;
}

/// A minimal cut between two images.
/// @param cost     of crossing a pixel, as a length of colours
/// @param for_old  255 where the old one may be shown
/// @param for_new  the same of the new one
/// @returns 255 where the new one is to be shown
cv::Mat minimal_cut(const cv::Mat& cost, const cv::Mat& for_old, const cv::Mat& for_new)
{
    const cv::Mat both = for_old & for_new;
    cv::Mat result = for_new & ~for_old;
    const cv::Rect box = cv::boundingRect(both);
    if (box.empty()) {
        return result;
    }
    const cv::Rect graph = cv::Rect(box.x - surroundings, box.y - surroundings, box.width + 2 * surroundings,
                                    box.height + 2 * surroundings)
                           & cv::Rect(cv::Point(), cost.size());
    // The finder adds up squares of differences: it is given the cost as one colour, and nothing to compare it with.
    const cv::Mat nothing = cv::Mat::zeros(graph.size(), CV_32F);
    std::vector<cv::UMat> images(2);
    cv::merge(std::vector<cv::Mat>{cost(graph), nothing, nothing}, images[0]);
    images[1] = cv::UMat::zeros(graph.size(), CV_32FC3);
    std::vector<cv::UMat> masks(2);
    for_old(graph).copyTo(masks[0]);
    for_new(graph).copyTo(masks[1]);
    cv::detail::GraphCutSeamFinder(cv::detail::GraphCutSeamFinderBase::COST_COLOR)
        .find(images, {graph.tl(), graph.tl()}, masks);
    cv::Mat chosen;
    masks[1].copyTo(chosen);
    chosen.copyTo(result(graph), both(graph));
    return result;
}

/// The same in a fraction of the time: first at half the size, then exactly beside where that one runs.
cv::Mat nearly_minimal_cut(const cv::Mat& cost, const cv::Mat& for_old, const cv::Mat& for_new)
{
    constexpr int beside = 7;  // px, across the whole
    const cv::Size half((cost.cols + 1) / 2, (cost.rows + 1) / 2);
    const auto smaller = [&](const cv::Mat& mask) {
        cv::Mat result;
        cv::resize(mask, result, half, 0, 0, cv::INTER_AREA);
        return cv::Mat(result > 0);
    };
    cv::Mat small_cost;
    cv::resize(cost, small_cost, half, 0, 0, cv::INTER_AREA);
    cv::Mat rough;
    cv::resize(minimal_cut(small_cost, smaller(for_old), smaller(for_new)), rough, cost.size(), 0, 0,
               cv::INTER_NEAREST);
    cv::Mat wide;
    cv::Mat narrow;
    const cv::Mat square = cv::getStructuringElement(cv::MORPH_RECT, {beside, beside});
    cv::dilate(rough, wide, square);
    cv::erode(rough, narrow, square);
    return minimal_cut(cost, for_old & ~(narrow & for_new), for_new & ~(~wide & for_old));
}

/// Where the drawing is to replace what is there.
cv::Mat cut_out(const composite& so_far, const small_drawing& drawing, const cv::Mat& image, const cv::Mat& mask)
{
    const cv::Rect place = drawing.place - so_far.area.tl();
    const cv::Mat old_image = so_far.image(place);
    const cv::Mat old_mask = so_far.mask(place);
    if (cv::countNonZero(old_mask & mask) == 0) {
        return mask;
    }
    if (cv::countNonZero(mask & ~old_mask) == 0) {
        return cv::Mat::zeros(mask.size(), CV_8UC1);  // nothing new
    }
    // What surrounds the drawing is seen by it as well, as something that only the old picture has.
    cv::Mat old_around;
    cv::Mat new_around;
    const cv::Rect around = cv::Rect(place.x - 1, place.y - 1, place.width + 2, place.height + 2);
    cv::copyMakeBorder(mask, new_around, 1, 1, 1, 1, cv::BORDER_CONSTANT, cv::Scalar(0));
    old_around = cv::Mat::zeros(new_around.size(), CV_8UC1);
    const cv::Rect inside = around & cv::Rect(cv::Point(), so_far.area.size());
    so_far.mask(inside).copyTo(old_around(inside - around.tl()));
    const overlap parts = divided(old_around, new_around);
    const cv::Mat open = parts.open(cv::Rect(1, 1, mask.cols, mask.rows));
    cv::Mat result = parts.for_new(cv::Rect(1, 1, mask.cols, mask.rows)).clone();
    if (cv::countNonZero(open) == 0) {
        return result;
    }
    const cv::Mat cost = cost_of_crossing(old_image, image, old_mask & mask);
    nearly_minimal_cut(cost, old_mask & ~result, result | open).copyTo(result, open);
    return result;
}

/// Gives what nobody owns to a neighbour, so many pixels far.
void spread(cv::Mat& owner, int reach)
{
    for (int step = 0; step < reach; ++step) {
        const cv::Mat unowned = owner == nobody;
        if (cv::countNonZero(unowned) == 0) {
            return;
        }
        cv::Mat wider;
        cv::dilate(owner, wider, cv::Mat());
        wider.copyTo(owner, unowned);
    }
}

}  // namespace

ownership find_seams(const std::vector<small_drawing>& drawings, const std::vector<block_gains>& gains, int reach,
                     const progress_meter& progress)
{
    composite so_far;
    so_far.area = area_of(drawings);
    so_far.image = cv::Mat::zeros(so_far.area.size(), CV_8UC3);
    so_far.mask = cv::Mat::zeros(so_far.area.size(), CV_8UC1);
    so_far.owner = cv::Mat(so_far.area.size(), CV_16SC1, cv::Scalar(nobody));
    ownership result;
    result.area = so_far.area;
    result.covered = cv::Mat::zeros(so_far.area.size(), CV_8UC1);

    for (std::size_t k = 0; k < drawings.size(); ++k) {
        progress.at(stage::seams, static_cast<double>(k) / static_cast<double>(drawings.size()));
        const small_drawing& drawing = drawings[k];
        cv::Mat image = drawing.image.clone();
        apply_gains(gains[k], image, {0, 0}, 1.0);
        result.covered(drawing.place - so_far.area.tl()).setTo(255, drawing.mask);
        // Not the outermost pixels: the small mask is not exact, and what it promises must be there at full size.
        cv::Mat inner;
        cv::erode(drawing.mask, inner, cv::Mat(), cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar(0));
        show(so_far, drawing, image, cut_out(so_far, drawing, image, inner), static_cast<int>(k));
    }
    // The outermost pixels are those of whoever shows them.
    for (std::size_t k = 0; k < drawings.size(); ++k) {
        cv::Mat owner = so_far.owner(drawings[k].place - so_far.area.tl());
        owner.setTo(static_cast<double>(k), drawings[k].mask & (owner == nobody));
    }
    spread(so_far.owner, reach);
    result.owner = so_far.owner;
    return result;
}

}  // namespace tarn::finishing
