// SPDX-License-Identifier: Apache-2.0
#include "seams.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/seam_finders.hpp>

namespace tarn::finishing {

namespace {

/// What the cut must see of the surroundings, px: it takes care of ten around what two images share.
constexpr int surroundings = 12;
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

/// Where the drawing is to replace what is there.
cv::Mat cut_out(const composite& so_far, const small_drawing& drawing, const cv::Mat& image, const cv::Mat& mask)
{
    const cv::Rect around(drawing.place.x - surroundings, drawing.place.y - surroundings,
                          drawing.place.width + 2 * surroundings, drawing.place.height + 2 * surroundings);
    const cv::Rect old_place = around & so_far.area;
    std::vector<cv::UMat> images(2);
    std::vector<cv::UMat> masks(2);
    so_far.image(old_place - so_far.area.tl()).convertTo(images[0], CV_32F);
    image.convertTo(images[1], CV_32F);
    so_far.mask(old_place - so_far.area.tl()).copyTo(masks[0]);
    mask.copyTo(masks[1]);
    cv::detail::GraphCutSeamFinder(cv::detail::GraphCutSeamFinderBase::COST_COLOR)
        .find(images, {old_place.tl(), drawing.place.tl()}, masks);
    cv::Mat result;
    masks[1].copyTo(result);
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
