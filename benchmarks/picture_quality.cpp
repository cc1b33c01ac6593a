// SPDX-License-Identifier: Apache-2.0
#include "picture_quality.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace tarn::bench {

namespace {

constexpr float nothing = 1e6F;  // where no frame explains a place

struct described {
    std::vector<cv::KeyPoint> points;
    cv::Mat descriptors;
};

described describe(const cv::Mat& gray, int most)
{
    described result;
    cv::ORB::create(most)->detectAndCompute(gray, cv::noArray(), result.points, result.descriptors);
    return result;
}

/// From a frame's pixels to the picture's, about; empty where the frame is not found.
cv::Mat picture_from_frame(const described& frame, const described& picture)
{
    if (frame.descriptors.rows < 2 || picture.descriptors.rows < 2) {
        return {};
    }
    constexpr float clearly_nearer = 0.8F;
    constexpr double tolerance = 6.0;  // px: a cylinder is no plane
    constexpr int fewest = 15;
    std::vector<std::vector<cv::DMatch>> nearest;
    cv::BFMatcher(cv::NORM_HAMMING).knnMatch(frame.descriptors, picture.descriptors, nearest, 2);
    std::vector<cv::Point2f> from;
    std::vector<cv::Point2f> to;
    for (const std::vector<cv::DMatch>& two : nearest) {
        if (two.size() == 2 && two[0].distance < clearly_nearer * two[1].distance) {
            from.push_back(frame.points[static_cast<std::size_t>(two[0].queryIdx)].pt);
            to.push_back(picture.points[static_cast<std::size_t>(two[0].trainIdx)].pt);
        }
    }
    if (static_cast<int>(from.size()) < fewest) {
        return {};
    }
    cv::Mat inliers;
    const cv::Mat homography = cv::findHomography(from, to, cv::RANSAC, tolerance, inliers);
    return homography.empty() || cv::countNonZero(inliers) < fewest ? cv::Mat() : homography;
}

/// A part of the picture as a frame shows it.
struct explanation {
    cv::Rect place;
    cv::Mat gray;  // CV_8UC1
    cv::Mat mask;
};

bool explain(const cv::Mat& picture, const cv::Mat& frame, const cv::Mat& homography, explanation& result)
{
    constexpr int border = 8;  // px
    constexpr float farthest = 16.0F;
    const cv::Size size = frame.size();
    std::vector<cv::Point2f> corners = {{0, 0},
                                        {static_cast<float>(size.width), 0},
                                        {static_cast<float>(size.width), static_cast<float>(size.height)},
                                        {0, static_cast<float>(size.height)}};
    cv::perspectiveTransform(corners, corners, homography);
    result.place = cv::boundingRect(corners) & cv::Rect(cv::Point(), picture.size());
    if (result.place.width < 4 * border || result.place.height < 4 * border) {
        return false;
    }
    const cv::Matx33d shift(1, 0, -result.place.x, 0, 1, -result.place.y, 0, 0, 1);
    const cv::Mat local = cv::Mat(shift) * homography;
    cv::Mat warped;
    cv::warpPerspective(frame, warped, local, result.place.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    cv::Mat mask;
    cv::warpPerspective(cv::Mat(size, CV_8UC1, cv::Scalar(255)), mask, local, result.place.size(), cv::INTER_NEAREST);
    cv::erode(mask, mask, cv::Mat(), cv::Point(-1, -1), border, cv::BORDER_CONSTANT, cv::Scalar(0));

    cv::Mat flow;
    cv::DISOpticalFlow::create(cv::DISOpticalFlow::PRESET_MEDIUM)->calc(picture(result.place).clone(), warped, flow);
    cv::Mat map(flow.size(), CV_32FC2);
    for (int y = 0; y < flow.rows; ++y) {
        for (int x = 0; x < flow.cols; ++x) {
            const cv::Vec2f by = flow.at<cv::Vec2f>(y, x);
            map.at<cv::Vec2f>(y, x) = cv::Vec2f(static_cast<float>(x), static_cast<float>(y)) + by;
            if (std::max(std::abs(by[0]), std::abs(by[1])) > farthest) {
                mask.at<uchar>(y, x) = 0;
            }
        }
    }
    // Out of the frame itself and not out of what was drawn of it: each time it is drawn it grows less sharp.
    cv::perspectiveTransform(map, map, local.inv());
    cv::remap(frame, result.gray, map, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_REPLICATE);
    result.mask = mask;
    return true;
}

/// A drawing between pixels loses of the finest detail as much as its way of drawing makes it, and noise with it. That
/// is no joint, and a picture that is less sharp is not to be called better for it: what is finer is not compared.
cv::Mat without_finest_detail(const cv::Mat& gray)
{
    constexpr double finest = 1.0;  // px
    cv::Mat smooth;
    gray.convertTo(smooth, CV_32F);
    cv::GaussianBlur(smooth, smooth, {}, finest);
    return smooth;
}

/// A frame as bright as the picture is around each place: a picture that is brighter than a frame has steeper edges all
/// over, and those are no joints either. Steps in brightness are another measure's.
cv::Mat as_bright_as(const cv::Mat& picture, const cv::Mat& frame, const cv::Mat& mask)
{
    constexpr double around = 24.0;  // px
    constexpr double dark = 8.0;     // gray levels: so that the dark does not count for more than it is seen
    const auto brightness_around = [&](const cv::Mat& values) {
        cv::Mat known = cv::Mat::zeros(values.size(), CV_32F);
        cv::Mat(values + dark).copyTo(known, mask);
        cv::GaussianBlur(known, known, {}, around, around, cv::BORDER_CONSTANT);
        return known;
    };
    cv::Mat ratio;
    cv::divide(brightness_around(picture), cv::max(brightness_around(frame), 1e-3), ratio);
    return frame.mul(ratio);
}

cv::Mat detail_of(const cv::Mat& smooth)
{
    constexpr double coarse = 6.0;  // px
    cv::Mat blurred;
    cv::GaussianBlur(smooth, blurred, {}, coarse);
    return smooth - blurred;
}

cv::Mat logarithm_of_brightness(const cv::Mat& gray)
{
    constexpr double scale = 2.0;  // px
    cv::Mat smooth;
    gray.convertTo(smooth, CV_32F);
    cv::GaussianBlur(smooth, smooth, {}, scale);
    smooth += 8.0;  // so that the dark does not count for more than it is seen
    cv::log(smooth, smooth);
    return smooth;
}

/// |a difference over `reach` px to each side|, the greater of both axes.
cv::Mat change_across(const cv::Mat& values, int reach)
{
    cv::Mat wide;
    cv::copyMakeBorder(values, wide, reach, reach, reach, reach, cv::BORDER_REPLICATE);
    const auto at = [&](int dx, int dy) { return wide(cv::Rect({reach + dx, reach + dy}, values.size())); };
    const cv::Mat level = cv::abs(at(reach, 0) - at(-reach, 0));
    const cv::Mat upright = cv::abs(at(0, reach) - at(0, -reach));
    return cv::max(level, upright);
}

void keep_least(cv::Mat least, const cv::Mat& own, const cv::Mat& mask)
{
    cv::Mat lower;
    cv::min(least, own, lower);
    lower.copyTo(least, mask);
}

/// Where the picture shows something, but for what is near to where it does not: a picture that is cut is not to be
/// called better for having no such edges.
cv::Mat away_from_emptiness(const cv::Mat& picture)
{
    constexpr int margin = 24;  // px
    cv::Mat brightest;
    cv::Mat mask;
    std::vector<cv::Mat> colours;
    cv::split(picture, colours);
    brightest = cv::max(cv::max(colours[0], colours[1]), colours[2]);
    cv::Mat shown = brightest > 0;
    cv::morphologyEx(shown, shown, cv::MORPH_CLOSE, cv::Mat(), cv::Point(-1, -1), 4);
    cv::erode(shown, mask, cv::Mat(), cv::Point(-1, -1), margin, cv::BORDER_CONSTANT, cv::Scalar(0));
    return mask;
}

std::vector<float> known_values(const cv::Mat& values)
{
    std::vector<float> result;
    for (int y = 0; y < values.rows; ++y) {
        for (int x = 0; x < values.cols; ++x) {
            if (values.at<float>(y, x) < nothing) {
                result.push_back(values.at<float>(y, x));
            }
        }
    }
    return result;
}

double percentile(std::vector<float> values, double part)
{
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

}  // namespace

picture_quality quality_of(const cv::Mat& picture, const std::vector<cv::Mat>& frames)
{
    constexpr int step = 8;  // px, to each side
    cv::Mat gray;
    cv::cvtColor(picture, gray, cv::COLOR_BGR2GRAY);
    const described in_picture = describe(gray, 20000);
    const cv::Mat smooth = without_finest_detail(gray);
    const cv::Mat detail = detail_of(smooth);
    const cv::Mat brightness = logarithm_of_brightness(gray);

    cv::Mat ghosting(gray.size(), CV_32F, cv::Scalar(nothing));
    cv::Mat jump = ghosting.clone();
    cv::Mat exposure = ghosting.clone();
    for (const cv::Mat& frame : frames) {
        cv::Mat frame_gray;
        cv::cvtColor(frame, frame_gray, cv::COLOR_BGR2GRAY);
        const cv::Mat homography = picture_from_frame(describe(frame_gray, 3000), in_picture);
        explanation own;
        if (homography.empty() || !explain(gray, frame_gray, homography, own)) {
            continue;
        }
        const cv::Mat here = smooth(own.place);
        const cv::Mat own_smooth = as_bright_as(here, without_finest_detail(own.gray), own.mask);
        cv::Mat difference = cv::abs(detail(own.place) - detail_of(own_smooth));
        cv::blur(difference, difference, {7, 7});
        keep_least(ghosting(own.place), difference, own.mask);
        keep_least(jump(own.place), change_across(here - own_smooth, 1) / 2.0, own.mask);
        keep_least(exposure(own.place), change_across(brightness(own.place) - logarithm_of_brightness(own.gray), step),
                   own.mask);
    }
    const cv::Mat not_compared = ~away_from_emptiness(picture);
    for (cv::Mat* const values : {&ghosting, &jump, &exposure}) {
        values->setTo(cv::Scalar(nothing), not_compared);
    }
    picture_quality result;
    const std::vector<float> ghosts = known_values(ghosting);
    if (ghosts.empty()) {
        return result;
    }
    constexpr double nearly_all = 0.99;
    constexpr double percent = 100.0;
    double sum = 0.0;
    for (const float value : ghosts) {
        sum += static_cast<double>(value);
    }
    result.known = true;
    result.seen = static_cast<double>(ghosts.size()) / std::max(1, cv::countNonZero(gray));
    result.ghosting = sum / static_cast<double>(ghosts.size());
    result.gradient_jump = percentile(known_values(jump), nearly_all);
    result.jumps = jump;
    result.exposure_step = percent * (std::exp(percentile(known_values(exposure), nearly_all)) - 1.0);
    return result;
}

}  // namespace tarn::bench
