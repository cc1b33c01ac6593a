// SPDX-License-Identifier: Apache-2.0
//
// Every pixel kernel, and the matcher, beside its plain reference.
#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include "descriptor_matching.h"
#include "internal/exact_routines.h"
#include "projection.h"
#include "reference/matching.h"
#include "reference/pixels.h"
#include "rivals.h"
#include "seam.h"
#include "support/rendered_sweep.h"
#include "tarn_stitch_jni.h"

namespace {

using tarn::bench::rival;

constexpr size_t beyond_caches = size_t{96} << 20;  // bytes that one round of inputs takes at least

// How many inputs of that size make a round.
size_t round_length(size_t bytes_per_input)
{
    return beyond_caches / bytes_per_input + 1;
}

bool same_bytes(const cv::Mat& a, const cv::Mat& b)
{
    return a.size() == b.size() && a.type() == b.type() && (a.empty() || cv::norm(a, b, cv::NORM_INF) == 0.0);
}

std::string size_name(cv::Size size)
{
    return std::to_string(size.width) + 'x' + std::to_string(size.height);
}

// A frame with detail at every scale. Dark ones have many bytes that are 0, and some whole pixels.
cv::Mat scene(cv::Size size, int offset, bool dark)
{
    const cv::Mat& plane = tarn::test::textured_plane(cv::Size(2816, 2816));
    cv::Mat image = plane(cv::Rect(cv::Point(offset * 7 % 500, offset * 13 % 500), size)).clone();
    if (dark) {
        cv::subtract(image, cv::Scalar::all(90), image);
    }
    return image;
}

std::vector<cv::Mat> scenes(cv::Size size, bool dark = false)
{
    std::vector<cv::Mat> result;
    for (size_t i = 0; i < round_length(static_cast<size_t>(size.area()) * 3); ++i) {
        result.push_back(scene(size, static_cast<int>(i), dark));
    }
    return result;
}

bool nothing_to_prove()
{
    return true;
}

// A kernel that makes a new image of one. Inputs are made when they are first used.
template <typename Plain, typename Kernel>
void add_image_maker(const std::string& subject, cv::Size size, Plain plain, Kernel kernel)
{
    struct inputs_t {
        std::vector<cv::Mat> images;
    };

    const auto inputs = std::make_shared<inputs_t>();
    const auto prepare = [inputs, size] {
        if (inputs->images.empty()) {
            inputs->images = scenes(size);
        }
    };
    const double pixels = size.area();
    const auto time = [inputs, prepare](auto function) {
        return [=](benchmark::State& state) {
            prepare();
            tarn::bench::time_frames(
                state, inputs->images.size(), [] {},
                [&](size_t index) { benchmark::DoNotOptimize(function(inputs->images[index])); });
        };
    };
    const auto proof = [inputs, prepare, plain, kernel] {
        prepare();
        return std::all_of(inputs->images.begin(), inputs->images.end(),
                           [&](cv::Mat& image) { return same_bytes(plain(image), kernel(image)); });
    };
    tarn::bench::add({subject, "plain", size_name(size), 1, pixels}, nothing_to_prove, time(plain));
    for (const int threads : {1, 2}) {
        tarn::bench::add({subject, "library", size_name(size), threads, pixels}, proof, time(kernel));
    }
}

constexpr float view_angle = 5.0f;  // degrees

const std::vector<cv::Size>& frame_sizes()
{
    // What the worker makes of 1920x1080 and of 1080x1920.
    static const std::vector<cv::Size> sizes = {{563, 1000}, {1778, 1000}};
    return sizes;
}

TARN_RIVALS(projections)
{
    for (const cv::Size size : frame_sizes()) {
        add_image_maker(
            "cylindrical_projection", size,
            [](cv::Mat& image) { return reference::cylindrical_projection(image, view_angle); },
            [](cv::Mat& image) {
                cv::Mat output;
                cylindrical_projection(image, output, view_angle);
                return output;
            });
        add_image_maker(
            "SphericalProjection", size,
            [](cv::Mat& image) { return reference::SphericalProjection(image, view_angle); },
            [](cv::Mat& image) {
                cv::Mat output;
                SphericalProjection(image, output, view_angle);
                return output;
            });
    }
}

TARN_RIVALS(shrinking)
{
    const auto shrunk_by = [](auto shrink) {
        return [shrink](const cv::Mat& image) {
            cv::Mat shrunk;
            shrink(image, shrunk, 300.0f / static_cast<float>(image.cols));
            return shrunk;
        };
    };
    for (const cv::Size size : {cv::Size(640, 480), cv::Size(1920, 1080), cv::Size(1080, 1920)}) {
        // The plain version is OpenCV's.
        add_image_maker("shrink", size, shrunk_by([](const cv::Mat& image, cv::Mat& shrunk, float scale) {
                            cv::resize(image, shrunk, cv::Size(), scale, scale, cv::INTER_LINEAR_EXACT);
                        }),
                        shrunk_by(tarn::shrink));
    }
}

// Two images, of which the second is changed in place. Restored after each round.
struct pair_inputs {
    std::vector<cv::Mat> sources;
    std::vector<cv::Mat> targets;
    std::vector<cv::Mat> untouched;

    void restore()
    {
        for (size_t i = 0; i < targets.size(); ++i) {
            untouched[i].copyTo(targets[i]);
        }
    }
};

// `floor`: what no kernel can do without, if there is such a thing.
template <typename Make, typename Plain, typename Kernel>
void add_in_place(const rival& what, Make make_inputs, Plain plain, Kernel kernel,
                  const std::function<void(const cv::Mat& source)>& floor = nullptr)
{
    const auto inputs = std::make_shared<pair_inputs>();
    const auto prepare = [inputs, make_inputs] {
        if (inputs->sources.empty()) {
            make_inputs(*inputs);
            for (const cv::Mat& target : inputs->targets) {
                inputs->untouched.push_back(target.clone());
            }
        }
    };
    const auto time = [inputs, prepare](auto function) {
        return [=](benchmark::State& state) {
            prepare();
            tarn::bench::time_frames(
                state, inputs->sources.size(), [&] { inputs->restore(); },
                [&](size_t index) { function(inputs->sources[index], inputs->targets[index]); });
        };
    };
    const auto proof = [inputs, prepare, plain, kernel] {
        prepare();
        for (size_t i = 0; i < inputs->sources.size(); ++i) {
            cv::Mat expected = inputs->untouched[i].clone();
            cv::Mat actual = inputs->untouched[i].clone();
            plain(inputs->sources[i], expected);
            kernel(inputs->sources[i], actual);
            if (!same_bytes(expected, actual) || same_bytes(actual, inputs->untouched[i])) {
                return false;
            }
        }
        return true;
    };
    rival who = what;
    who.name = "plain";
    tarn::bench::add(who, nothing_to_prove, time(plain));
    if (floor != nullptr) {
        who.name = "floor";
        tarn::bench::add(who, nothing_to_prove,
                         time([floor](const cv::Mat& source, const cv::Mat&) { floor(source); }));
    }
    who.name = "library";
    for (const int threads : {1, 2}) {
        who.threads = threads;
        tarn::bench::add(who, proof, time(kernel));
    }
}

// A preview to which a frame has been added at its right end: the box of the frame was pasted, black corners
// and all, and the panorama as it was ends in the middle of the box.
void make_seam(pair_inputs& inputs, cv::Size frame, const std::vector<cv::Point2f>& corners, bool dark)
{
    const cv::Size size(frame.width * 2, frame.height + frame.height / 8);
    for (size_t i = 0; i < round_length(static_cast<size_t>(size.area()) * 6); ++i) {
        cv::Mat source = cv::Mat::zeros(size, CV_8UC3);
        const cv::Rect old_part(0, 0, size.width * 3 / 4, size.height * 15 / 16);
        scene(old_part.size(), static_cast<int>(i), dark).copyTo(source(old_part));
        cv::Mat target = source.clone();
        const cv::Rect box = cv::boundingRect(corners);
        cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
        cv::fillConvexPoly(mask, std::vector<cv::Point>(corners.begin(), corners.end()), cv::Scalar(255));
        target(box).setTo(cv::Scalar::all(0));
        scene(box.size(), static_cast<int>(i) + 3, dark).copyTo(target(box), mask(box));
        inputs.sources.push_back(source);
        inputs.targets.push_back(target);
    }
}

TARN_RIVALS(seams)
{
    for (const bool dark : {false, true}) {
        // The working copies of 1080x1920, and of something ten times as large.
        for (const cv::Size frame : {cv::Size(300, 533), cv::Size(1000, 1778)}) {
            const auto w = static_cast<float>(frame.width);
            const auto h = static_cast<float>(frame.height);
            const std::vector<cv::Point2f> corners = {
                {0.91f * w, 0.011f * h}, {1.93f * w, 0.04f * h}, {1.91f * w, 1.05f * h}, {0.93f * w, 1.03f * h}};
            const double pixels = cv::boundingRect(corners).area();
            add_in_place(
                {"optimizeSeam", "", size_name(frame) + (dark ? " dark" : ""), 1, pixels},
                [=](pair_inputs& inputs) { make_seam(inputs, frame, corners, dark); },
                [corners](cv::Mat& source, cv::Mat& target) { reference::optimizeSeam(source, target, corners); },
                [corners](cv::Mat& source, cv::Mat& target) {
                    std::vector<cv::Point2f> own = corners;
                    optimizeSeam(source, target, own);
                });
        }
    }
}

// The warped frame, slightly turned in its box, and the merged region: panorama in its left seven tenths.
std::vector<cv::Point> panorama_outline(cv::Size size)
{
    const int end = size.width * 7 / 10;
    cv::Mat content = cv::Mat::zeros(size, CV_8UC1);
    const std::vector<cv::Point> polygon = {{0, 0},
                                            {end, size.height / 40},
                                            {end + size.width / 40, size.height - 1 - size.height / 50},
                                            {0, size.height - 1}};
    cv::fillConvexPoly(content, polygon, cv::Scalar(255));
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(content, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    return contours.at(0);
}

void make_joint(pair_inputs& inputs, cv::Size size, bool dark)
{
    const cv::Matx23d turned = cv::getRotationMatrix2D(cv::Point2f(cv::Point(size / 2)), 1.5, 0.95);
    const std::vector<std::vector<cv::Point>> outline = {panorama_outline(size)};
    for (size_t i = 0; i < round_length(static_cast<size_t>(size.area()) * 6); ++i) {
        const auto offset = static_cast<int>(i);
        cv::Mat source;
        cv::warpAffine(scene(size, offset, dark), source, turned, size);
        cv::Mat target = source.clone();
        cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
        cv::fillPoly(mask, outline, cv::Scalar(255));
        scene(size, offset + 2, dark).copyTo(target, mask);
        inputs.sources.push_back(source);
        inputs.targets.push_back(target);
    }
}

// The calls of OpenCV without which fill_contours cannot know the frame's content and its outline.
void content_and_contours(const cv::Mat& source)
{
    cv::Mat content;
    cv::cvtColor(source, content, cv::COLOR_BGR2GRAY);
    cv::threshold(content, content, 1.0, 255.0, cv::THRESH_BINARY);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(content, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    benchmark::DoNotOptimize(contours.data());
}

TARN_RIVALS(joints)
{
    for (const bool dark : {false, true}) {
        for (const cv::Size size : frame_sizes()) {
            const std::vector<std::vector<cv::Point>> outline = {panorama_outline(size)};
            add_in_place(
                {"fill_contours", "", size_name(size) + (dark ? " dark" : ""), 1, static_cast<double>(size.area())},
                [=](pair_inputs& inputs) { make_joint(inputs, size, dark); },
                [outline](cv::Mat& source, cv::Mat& target) { reference::fill_contours(outline, source, target); },
                [outline](cv::Mat& source, cv::Mat& target) { fill_contours(outline, source, target); },
                content_and_contours);
        }
    }
}

using pixel_array = std::unique_ptr<int[]>;

// Plain, and as the definition has it: into an array of its own. The tests' one fills a vector.
pixel_array plain_export(const cv::Mat& image)
{
    const size_t n = image.total();
    pixel_array pixels(new int[n + 2]);
    for (size_t i = 0; i < n; ++i) {
        const uchar* bytes = image.data + 3 * i;
        pixels[i] = static_cast<int>(0xFF000000U | unsigned{bytes[2]} << 16 | unsigned{bytes[1]} << 8 | bytes[0]);
    }
    pixels[n] = image.cols;
    pixels[n + 1] = image.rows;
    return pixels;
}

TARN_RIVALS(exports)
{
    for (const cv::Size size : {cv::Size(1200, 600), cv::Size(1920, 1080)}) {
        const auto images = std::make_shared<std::vector<cv::Mat>>();
        const auto prepare = [images, size] {
            if (images->empty()) {
                *images = scenes(size);
            }
        };
        const auto time = [images, prepare](auto function) {
            return [=](benchmark::State& state) {
                prepare();
                tarn::bench::time_frames(
                    state, images->size(), [] {},
                    [&](size_t index) { benchmark::DoNotOptimize(function((*images)[index])); });
            };
        };
        const auto library = [](const cv::Mat& image) { return pixel_array(matToBitmapArray(image)); };
        // What the new array alone takes, most of it its pages' first touch.
        const auto floor = [](const cv::Mat& image) {
            pixel_array pixels(new int[image.total() + 2]);
            std::fill_n(pixels.get(), image.total() + 2, 1);
            return pixels;
        };
        const auto proof = [images, prepare, library] {
            prepare();
            return std::all_of(images->begin(), images->end(), [&](const cv::Mat& image) {
                const std::vector<int> expected = reference::matToBitmapArray(image);
                return std::equal(expected.begin(), expected.end(), library(image).get());
            });
        };
        const double pixels = size.area();
        tarn::bench::add({"matToBitmapArray", "plain", size_name(size), 1, pixels}, nothing_to_prove,
                         time(plain_export));
        tarn::bench::add({"matToBitmapArray", "floor", size_name(size), 1, pixels}, nothing_to_prove, time(floor));
        for (const int threads : {1, 2}) {
            tarn::bench::add({"matToBitmapArray", "library", size_name(size), threads, pixels}, proof, time(library));
        }
    }
}

// Descriptors of two views of one scene, as the worker makes them; the first few pairs once more under other addresses
// until they do not fit the caches.
struct matching_inputs {
    static constexpr size_t different = 8;

    std::vector<cv::Mat> query;
    std::vector<cv::Mat> train;

    void make()
    {
        const auto finder = cv::AKAZE::create();
        for (size_t i = 0; i < different; ++i) {
            for (std::vector<cv::Mat>* views : {&query, &train}) {
                const int offset = static_cast<int>(i) * 5 + (views == &train ? 3 : 0);
                std::vector<cv::KeyPoint> keypoints;
                cv::Mat descriptors;
                finder->detectAndCompute(scene(cv::Size(450, 800), offset, false), cv::noArray(), keypoints,
                                         descriptors);
                descriptors.convertTo(descriptors, CV_32F, 1.0 / 255.0);
                views->push_back(descriptors);
            }
        }
        const size_t round = round_length(query[0].total() * query[0].elemSize() * 2);
        for (size_t i = different; i < round; ++i) {
            query.push_back(query[i - different].clone());
            train.push_back(train[i - different].clone());
        }
    }
};

TARN_RIVALS(matchers)
{
    const auto inputs = std::make_shared<matching_inputs>();
    const auto prepare = [inputs] {
        if (inputs->query.empty()) {
            inputs->make();
        }
    };
    const auto time = [inputs, prepare](auto function) {
        return [=](benchmark::State& state) {
            prepare();
            tarn::bench::time_frames(
                state, inputs->query.size(), [] {},
                [&](size_t index) { function(inputs->query[index], inputs->train[index]); });
        };
    };
    const auto bare_matcher = [](const cv::Mat& query, const cv::Mat& train) {
        cv::FlannBasedMatcher matcher(cv::makePtr<cv::flann::KDTreeIndexParams>(4),
                                      cv::makePtr<cv::flann::SearchParams>(32, 0.0f, true));
        std::vector<std::vector<cv::DMatch>> matches;
        matcher.knnMatch(query, train, matches, 2);
        benchmark::DoNotOptimize(matches.data());
    };
    const auto library = [](const cv::Mat& query, const cv::Mat& train) {
        std::vector<cv::DMatch> matches;
        single_match(query, train, matches, 0.2f);
        benchmark::DoNotOptimize(matches.data());
    };
    const auto proof = [inputs, prepare] {
        prepare();
        for (size_t i = 0; i < matching_inputs::different; ++i) {
            std::vector<cv::DMatch> expected;
            std::vector<cv::DMatch> actual;
            reference::single_match(inputs->query[i], inputs->train[i], expected, 0.2f);
            single_match(inputs->query[i], inputs->train[i], actual, 0.2f);
            if (expected.empty()
                || !std::equal(expected.begin(), expected.end(), actual.begin(), actual.end(),
                               [](const cv::DMatch& a, const cv::DMatch& b) {
                                   return a.queryIdx == b.queryIdx && a.trainIdx == b.trainIdx
                                          && a.distance == b.distance;
                               })) {
                return false;
            }
        }
        return true;
    };
    tarn::bench::add({"single_match", "the matcher alone", "two 450x800 views", 1, 0.0}, nothing_to_prove,
                     time(bare_matcher));
    for (const int threads : {1, 2}) {
        tarn::bench::add({"single_match", "library", "two 450x800 views", threads, 0.0}, proof, time(library));
    }
}

}  // namespace
