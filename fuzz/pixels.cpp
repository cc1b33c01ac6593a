// SPDX-License-Identifier: Apache-2.0
//
// Each pixel kernel against its plain transcription, or against OpenCV's function whose result it gives in
// less time, on images that are views of larger ones: the results must agree to the last byte, and no byte outside of
// the views may change. Where the transcription leaves the images, the definition says nothing, and the kernel must
// only keep inside.
#include "reference/pixels.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "descriptor_matching.h"
#include "input_bytes.h"
#include "internal/exact_routines.h"
#include "internal/high_res_composition.h"
#include "internal/live_tracking.h"
#include "projection.h"
#include "reference/composition.h"
#include "reference/matching.h"
#include "seam.h"
#include "support/library_tracking.h"
#include "target.h"
#include "tarn_stitch_jni.h"

using namespace tarn::fuzz;  // NOLINT(google-build-using-namespace): the targets' own helpers

namespace {

cv::Size any_size(input_bytes& input, int greatest)
{
    const int width = input.integer(0, greatest);
    return {width, input.integer(0, greatest)};
}

template <typename Result, typename Call>
std::optional<Result> unless_it_throws(const Call& call)
{
    try {
        return call();
    } catch (const cv::Exception&) {
        return std::nullopt;
    }
}

void check_seam(input_bytes& input)
{
    const cv::Size size = any_size(input, 80);
    const cv::Mat source = input.image(size, CV_8UC3);
    const cv::Mat destination = input.image(size, CV_8UC3);
    std::vector<cv::Point2f> corners = input.any_quadrilateral(size);
    std::optional<cv::Mat> expected;
    if (std::all_of(corners.begin(), corners.end(), [](const cv::Point2f& c) { return c.y > -1e6f && c.y < 1e6f; })) {
        expected = unless_it_throws<cv::Mat>([&] {
            cv::Mat result = destination.clone();
            reference::optimizeSeam(source, result, corners);
            return result;
        });
    }
    guarded_view shipped_source(source);
    guarded_view shipped(destination);
    optimizeSeam(shipped_source.view(), shipped.view(), corners);
    check(!expected || same_image(*expected, shipped.view()), "optimizeSeam");
    check(same_image(source, shipped_source.view()), "optimizeSeam only reads its source");
    check(shipped.guards_are_untouched(), "optimizeSeam stays inside");
}

void check_fill(input_bytes& input)
{
    const cv::Size size(input.integer(1, 120), input.integer(1, 120));
    const cv::Mat source = input.image(size, CV_8UC3);
    const cv::Mat target = input.image(size, CV_8UC3);
    std::vector<std::vector<cv::Point>> contours(static_cast<std::size_t>(input.integer(0, 2)));
    const bool inside = input.byte() < 192;
    for (auto& contour : contours) {
        contour.resize(static_cast<std::size_t>(input.integer(0, 60)));
        cv::Point walker(input.integer(0, size.width - 1), input.integer(0, size.height - 1));
        for (cv::Point& next : contour) {
            // Mostly a walk, as an outline is one; a jump now and then; a point anywhere.
            const int step = input.byte();
            walker += cv::Point(step % 3 - 1, step / 3 % 3 - 1);
            if (step >= 240) {
                const int x = input.integer(-3, size.width + 2);
                walker = cv::Point(x, input.integer(-3, size.height + 2));
            }
            cv::Point point = walker;
            if (step == 239) {
                constexpr int far = std::numeric_limits<int>::max();
                point.x = input.integer(-far - 1, far);
                point.y = input.integer(-far - 1, far);
            }
            if (inside) {
                point.x = std::min(std::max(point.x, 0), size.width - 1);
                point.y = std::min(std::max(point.y, 0), size.height - 1);
            }
            next = point;
        }
    }
    // Differences of points that are far apart overflow in the transcription, which asks for none of them.
    std::optional<cv::Mat> expected;
    if (inside) {
        expected = target.clone();
        reference::fill_contours(contours, source, *expected);
    }
    guarded_view shipped_source(source);
    guarded_view shipped(target);
    fill_contours(contours, shipped_source.view(), shipped.view());
    check(!expected || same_image(*expected, shipped.view()), "fill_contours");
    check(same_image(source, shipped_source.view()), "fill_contours only reads its source");
    check(shipped.guards_are_untouched(), "fill_contours stays inside");
}

void check_projection(input_bytes& input, bool sphere)
{
    cv::Mat image = input.image(any_size(input, 80), CV_8UC3);
    if (image.empty()) {
        image = cv::Mat(0, 0, CV_8UC3);  // as a view, it would have no size either
    }
    const float angle = input.flag() ? static_cast<float>(input.integer(0, 899)) / 10.0f : input.any_float(180);
    const auto expected = unless_it_throws<cv::Mat>([&] {
        return sphere ? reference::SphericalProjection(image, angle) : reference::cylindrical_projection(image, angle);
    });
    guarded_view guarded(image);
    const auto actual = unless_it_throws<cv::Mat>([&] {
        cv::Mat output;
        (sphere ? SphericalProjection : cylindrical_projection)(guarded.view(), output, angle);
        return output;
    });
    // Steep angles push pixels out of the image, of which the definition says nothing.
    const bool is_defined = angle >= 0.0f && angle < 60.0f;
    if (is_defined) {
        check(actual.has_value() == expected.has_value(), "projection: throws when its definition does");
        check(!expected || same_image(*expected, *actual), "projection");
    }
    check(same_image(image, guarded.view()), "projection only reads its source");
    check(guarded.guards_are_untouched(), "projection stays inside");
}

void check_cylinder(input_bytes& input)
{
    check_projection(input, false);
}

void check_sphere(input_bytes& input)
{
    check_projection(input, true);
}

/// The same frame once more, onto a panorama that may have the room to grow where it is.
void check_growth_in_place(cv::Mat panorama, const cv::Mat& frame, const cv::Mat& H)
{
    const auto merged = tarn::merge_frame(panorama, frame, H);
    if (!merged || !tarn::can_grow_in_place(panorama, *merged, panorama.u->refcount)) {
        return;
    }
    const reference::composition expected = reference::compose(panorama.clone(), frame, H);
    check(same_image(expected.image, tarn::grow_in_place(panorama, *merged)), "growing in place: the canvas");
}

void check_composition(input_bytes& input)
{
    const cv::Mat panorama = input.image({input.integer(1, 160), input.integer(1, 160)}, CV_8UC3);
    const cv::Mat frame = input.image({input.integer(1, 120), input.integer(1, 120)}, CV_8UC3);
    cv::Mat H = cv::Mat::eye(3, 3, CV_64F);
    for (int i = 0; i < 8; ++i) {
        const double small = static_cast<double>(input.integer(-127, 127)) / 512.0;
        H.at<double>(i / 3, i % 3) += i % 3 == 2 ? small * 1000.0 : (i >= 6 ? small / 100.0 : small);
    }
    if (input.byte() >= 250) {
        H.at<double>(input.integer(0, 2), input.integer(0, 2)) = static_cast<double>(input.any_float(1000));
    }
    bool raises = false;
    reference::composition expected{};
    try {
        expected = reference::compose(panorama, frame, H);
    } catch (const cv::Exception&) {
        raises = true;
    }
    guarded_view shipped_panorama(panorama);
    guarded_view shipped_frame(frame);
    try {
        const auto merged = tarn::merge_frame(shipped_panorama.view(), shipped_frame.view(), H);
        check(!raises, "merging raises when its definition does");
        check(merged.has_value() != expected.is_too_large, "merging: the limit of the canvas");
        if (merged) {
            const cv::Mat grown = tarn::grow_in_new_storage(shipped_panorama.view(), *merged);
            check(same_image(expected.image, grown), "growing: the canvas");
            check(same_image(expected.H, merged->panorama_from_frame), "merging: the homography");
            check_growth_in_place(grown, frame, H);
        }
    } catch (const cv::Exception&) {
        check(raises, "merging raises only when its definition does");
    }
    check(same_image(panorama, shipped_panorama.view()), "merging only reads the panorama");
    check(same_image(frame, shipped_frame.view()), "merging only reads the frame");
}

void check_export(input_bytes& input)
{
    static constexpr int types[] = {CV_8UC3, CV_8UC1, CV_8UC4, CV_16UC3, CV_32FC1};
    const int type = types[input.integer(0, 4)];
    const cv::Mat image = input.image(any_size(input, 80), type);
    guarded_view guarded(image);
    const cv::Mat& view = guarded.view();  // of an image without pixels, a view has no size at all
    const std::unique_ptr<int[]> pixels(matToBitmapArray(view));
    const std::size_t n = view.total();
    check(pixels[n] == view.cols && pixels[n + 1] == view.rows, "the size behind the pixels");
    if (type == CV_8UC3) {
        const std::vector<int> expected = reference::matToBitmapArray(view);
        check(std::equal(expected.begin(), expected.end(), pixels.get()), "matToBitmapArray");
    }
    for (std::size_t i = 0; i < n; ++i) {
        check(static_cast<std::uint32_t>(pixels[i]) >> 24U == 255U, "every pixel is opaque");
    }
}

void check_matching(input_bytes& input)
{
    const int width = input.integer(1, 61);
    const cv::Mat query = input.image({width, input.integer(0, 30)}, CV_8UC1);
    const cv::Mat train = input.image({input.byte() > 250 ? width + 1 : width, input.integer(0, 30)}, CV_8UC1);
    cv::Mat query_floats;
    cv::Mat train_floats;
    query.convertTo(query_floats, CV_32F, 1.0 / 255.0);
    train.convertTo(train_floats, CV_32F, 1.0 / 255.0);
    const float confidence = static_cast<float>(input.byte()) / 255.0f;
    using matches_t = std::vector<cv::DMatch>;
    const auto actual = unless_it_throws<matches_t>([&] {
        matches_t matches;
        single_match(query_floats, train_floats, matches, confidence);
        return matches;
    });
    const auto expected = unless_it_throws<matches_t>([&] {
        matches_t matches;
        reference::single_match(query_floats, train_floats, matches, confidence);
        return matches;
    });
    check(actual.has_value() == expected.has_value(), "single_match throws when its definition does");
    if (actual) {
        check(std::equal(actual->begin(), actual->end(), expected->begin(), expected->end(),
                         [](const cv::DMatch& one, const cv::DMatch& other) {
                             return one.queryIdx == other.queryIdx && one.trainIdx == other.trainIdx
                                    && same_float(one.distance, other.distance);
                         }),
              "single_match");
        int before = -1;
        for (const cv::DMatch& match : *actual) {
            check(match.queryIdx > before && match.queryIdx < query.rows, "matches stand in the query's order");
            check(match.trainIdx >= 0 && match.trainIdx < train.rows, "matches name rows of the train set");
            before = match.queryIdx;
        }
    }
}

void check_shrink(input_bytes& input)
{
    static constexpr int types[] = {CV_8UC3, CV_8UC3, CV_8UC3, CV_8UC1, CV_8UC4, CV_16UC3, CV_16SC3, CV_32SC3};
    const int type = types[input.byte() % std::size(types)];
    const cv::Size size(input.integer(1, 700), input.integer(1, 60));
    const cv::Mat image = input.image(size, type);
    const int target_width = input.integer(1, 320);
    const float scale = input.byte() >= 224 ? static_cast<float>(input.integer(1, 2000)) / 1000.0f
                                            : static_cast<float>(target_width) / static_cast<float>(size.width);
    guarded_view guarded(image);
    const auto actual = unless_it_throws<cv::Mat>([&] {
        cv::Mat shrunk;
        tarn::shrink(guarded.view(), shrunk, scale);
        return shrunk;
    });
    const auto expected = unless_it_throws<cv::Mat>([&] {
        cv::Mat shrunk;
        cv::resize(guarded.view(), shrunk, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
        return shrunk;
    });
    check(actual.has_value() == expected.has_value(), "shrinking throws when OpenCV does");
    check(!expected || same_image(*expected, *actual), "shrinking");
    check(same_image(image, guarded.view()), "shrinking only reads its source");
    check(guarded.guards_are_untouched(), "shrinking stays inside");
}

void check_corners(input_bytes& input)
{
    static constexpr int types[] = {CV_8UC1, CV_8UC1, CV_8UC1, CV_32FC1, CV_8UC3, CV_16UC1};
    const int type = types[input.byte() % std::size(types)];
    const cv::Mat gray = input.image(any_size(input, 120), type);
    const auto actual = unless_it_throws<std::vector<cv::Point2f>>([&] { return tarn::find_corners(gray); });
    const auto expected = unless_it_throws<std::vector<cv::Point2f>>([&] { return tarn::test::library_corners(gray); });
    check(actual.has_value() == expected.has_value(), "corners: throws when OpenCV does");
    check(!expected || *expected == *actual, "corners");
}

void check_flow(input_bytes& input)
{
    const cv::Size size(input.integer(1, 120), input.integer(1, 120));
    const cv::Mat reference = input.image(size, CV_8UC1);
    cv::Mat gray = input.image(size, input.byte() >= 250 ? CV_8UC3 : CV_8UC1);
    if (input.flag()) {
        const cv::Matx23d moved(1, 0, input.integer(-20, 20), 0, 1, input.integer(-20, 20));
        cv::warpAffine(reference, gray, moved, size, cv::INTER_LINEAR, cv::BORDER_REFLECT_101);
    }
    std::vector<cv::Point2f> points(static_cast<std::size_t>(input.integer(0, 45)));
    for (cv::Point2f& point : points) {
        point.x = static_cast<float>(input.integer(-30, 150));
        point.y = static_cast<float>(input.integer(-30, 150));
        if (input.byte() >= 250) {
            point = {input.any_float(size.width), input.any_float(size.height)};
        }
    }
    const auto actual = unless_it_throws<tarn::point_flow>([&] {
        tarn::frame_flow flow(reference, gray, points);
        return flow.result();
    });
    const auto expected =
        unless_it_throws<tarn::point_flow>([&] { return tarn::test::library_flow(reference, gray, points); });
    check(actual.has_value() == expected.has_value(), "flow: throws when OpenCV does");
    if (actual) {
        check(actual->found == expected->found, "flow: which points are found");
        check(std::equal(actual->places.begin(), actual->places.end(), expected->places.begin(), expected->places.end(),
                         [](const cv::Point2f& one, const cv::Point2f& other) {
                             return same_float(one.x, other.x) && same_float(one.y, other.y);
                         }),
              "flow: where points are found");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    cv::setNumThreads(1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    input_bytes input(data, size);
    run_one_of({check_seam, check_fill, check_cylinder, check_sphere, check_composition, check_export, check_matching,
                check_shrink, check_corners, check_flow},
               input);
    return 0;
}
