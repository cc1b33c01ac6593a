// SPDX-License-Identifier: Apache-2.0
//
// The kernels and helpers whose results are the library's own, over random input of every kind.
#include <functional>
#include <memory>

#include <opencv2/imgproc.hpp>

#include "arc_tangent.h"
#include "internal/exact_routines.h"
#include "internal/high_res_frame.h"
#include "internal/numeric.h"
#include "record.h"
#include "support/random_input.h"
#include "tarn_stitch_jni.h"

namespace tarn::test {

namespace {

constexpr std::uint64_t seed = 20261121;

using kernel = std::function<void(random_input& random, digest& results)>;

void write(const std::string& name, int times, const kernel& run)
{
    random_input random(seed);
    digest results;
    for (int i = 0; i < times; ++i) {
        run(random, results);
    }
    write_exact(name, results);
}

cv::Size any_size(random_input& random)
{
    return {random.integer(1, 200), random.integer(1, 150)};
}

// A result, or the fact that there is none.
void add_if_there_is_one(digest& results, const std::function<cv::Mat()>& run)
{
    try {
        results.add(run());
    } catch (const cv::Exception&) {
        results.add(-1);
    }
}

constexpr int bent_images = 200;

void write_projection(const char* name, void (*project)(cv::Mat& source, cv::Mat& target, float angle))
{
    write(name, bent_images, [project](random_input& random, digest& results) {
        cv::Mat image = random.image(any_size(random));
        const float angle = random.real(0.0f, 60.0f);
        add_if_there_is_one(results, [&image, angle, project] {
            cv::Mat bent;
            project(image, bent, angle);
            return bent;
        });
    });
}

// The cylinder's columns are rounded arc tangents, so a last bit of the C library's may move one. Of each image that
// write_projection bends, the width and the mean.
void write_cylinder_of_c_library()
{
    round_arc_tangents(false);
    random_input random(seed);
    std::vector<double> values;
    for (int i = 0; i < bent_images; ++i) {
        cv::Mat image = random.image(any_size(random));
        cv::Mat bent;
        cylindrical_projection(image, bent, random.real(0.0f, 60.0f));
        values.push_back(bent.cols);
        values.push_back(bent.empty() ? 0.0 : cv::sum(cv::mean(bent))[0]);
    }
    write_library("cylinder_by_c_library", values);
    round_arc_tangents(true);
}

void write_pixel_kernels()
{
    write("random_input", 100, [](random_input& random, digest& results) {
        results.add(random.image(any_size(random)));
        results.add(random.any_quadrilateral({100, 100}));
    });
    const auto write_shrunk = [](const char* name, int count, cv::Size least, cv::Size most, float least_scale,
                                 float most_scale) {
        write(name, count, [=](random_input& random, digest& results) {
            const int width = random.integer(least.width, most.width);
            const int height = random.integer(least.height, most.height);
            const cv::Mat image = random.noise(cv::Size(width, height), CV_8UC3);
            cv::Mat shrunk;
            tarn::shrink(image, shrunk, random.real(least_scale, most_scale));
            results.add(shrunk);
        });
    };
    write_shrunk("shrink", 300, {2, 2}, {200, 150}, 0.5f, 1.0f);
    // As far as the frames of cameras are shrunk for the preview.
    write_shrunk("shrink_camera_frame", 100, {100, 50}, {1000, 200}, 0.08f, 0.5f);
    write("optimizeSeam", 300, [](random_input& random, digest& results) {
        const cv::Size size = any_size(random);
        cv::Mat before = random.image(size);
        cv::Mat pasted = random.image(size);
        std::vector<cv::Point2f> corners =
            random.one_in(4) ? random.any_quadrilateral(size) : random.quadrilateral(size);
        optimizeSeam(before, pasted, corners);
        results.add(pasted);
    });
    write("fill_contours", 150, [](random_input& random, digest& results) {
        const cv::Size size = any_size(random);
        cv::Mat source = random.image(size);
        cv::Mat target = random.image(size);
        std::vector<std::vector<cv::Point>> contours(1);
        for (int i = random.integer(0, 60); i > 0; --i) {
            contours[0].push_back({random.integer(-5, size.width + 5), random.integer(-5, size.height + 5)});
        }
        fill_contours(contours, source, target);
        results.add(target);
    });
    write_projection("cylindrical_projection", cylindrical_projection);
    write_cylinder_of_c_library();
    write_projection("SphericalProjection", SphericalProjection);
    write("matToBitmapArray", 200, [](random_input& random, digest& results) {
        const cv::Mat image = random.image(any_size(random));
        const std::unique_ptr<int[]> pixels(matToBitmapArray(image));
        results.add_bytes(pixels.get(), (image.total() + 2) * sizeof(int));
    });
}

std::vector<cv::Point2f> corners_of_any_kind(random_input& random)
{
    return random.one_in(3) ? random.any_quadrilateral({300, 200}) : random.quadrilateral({300, 200});
}

void write_angles()
{
    struct angle {
        const char* name;
        float (*of)(std::vector<cv::Point2f>& corners);
    };

    const angle angles[] = {
        {"angle_of_two_vector",
         [](std::vector<cv::Point2f>& corners) { return angle_of_two_vector(corners[0], corners[1], corners[2]); }},
        {"calc_hangle", [](std::vector<cv::Point2f>& corners) { return calc_hangle(corners); }},
        {"calc_vangle", [](std::vector<cv::Point2f>& corners) { return calc_vangle(corners); }},
        {"calc_angle", [](std::vector<cv::Point2f>& corners) { return calc_angle(corners); }},
    };
    for (const angle& each : angles) {
        write(each.name, 20000, [&each](random_input& random, digest& results) {
            std::vector<cv::Point2f> corners = corners_of_any_kind(random);
            results.add(each.of(corners));
        });
    }
    round_arc_tangents(false);
    for (const angle& each : angles) {
        random_input random(seed);
        std::vector<double> degrees;
        for (int i = 0; i < 5000; ++i) {
            std::vector<cv::Point2f> corners = corners_of_any_kind(random);
            degrees.push_back(static_cast<double>(each.of(corners)));
        }
        write_close(each.name, degrees);
    }
    round_arc_tangents(true);
}

void write_geometry()
{
    write("polygon_coverage", 2000, [](random_input& random, digest& results) {
        const cv::Size size = any_size(random);
        std::vector<cv::Point> polygon;
        for (int i = random.integer(0, 8); i > 0; --i) {
            const auto x = static_cast<double>(random.any_float(size.width));
            const auto y = static_cast<double>(random.any_float(size.height));
            polygon.emplace_back(truncate_to_int(x), truncate_to_int(y));
        }
        results.add(polygon_coverage(size, polygon));
    });
    write("is_good_homo", 3000, [](random_input& random, digest& results) {
        const cv::Size size = any_size(random);
        const std::vector<cv::Point2f> corners =
            random.one_in(4) ? random.any_quadrilateral(size) : random.quadrilateral(size);
        const cv::Mat frame(size, CV_8UC3);
        const float area = random.real(0.0f, 1.0f);
        results.add(is_good_homo(corners, frame, area, random.real(0.0f, 40.0f)) ? 1 : 0);
    });
    const auto any_corners = [](random_input& random) { return corners_of_any_kind(random); };
    write("is_convex", 5000, [any_corners](random_input& random, digest& results) {
        results.add(is_convex(any_corners(random)) ? 1 : 0);
    });
    write("single_box_iou", 20000, [any_corners](random_input& random, digest& results) {
        const std::vector<cv::Point2f> one = any_corners(random);
        results.add(single_box_iou(one, any_corners(random)));
    });
    write("min_axis,max_axis", 5000, [](random_input& random, digest& results) {
        std::vector<float> list;
        for (int i = random.integer(1, 9); i > 0; --i) {
            list.push_back(random.any_float(100));
        }
        results.add(min_axis(list));
        results.add(max_axis(list));
    });
    write("cross", 20000, [any_corners](random_input& random, digest& results) {
        const std::vector<cv::Point2f> corners = any_corners(random);
        results.add(cross(corners[0], corners[1], corners[2]));
    });
    write("get_intersection_point", 20000, [any_corners](random_input& random, digest& results) {
        const std::vector<cv::Point2f> corners = any_corners(random);
        results.add(get_intersection_point(corners[0], corners[2], corners[1], corners[3]));
    });
}

void write_motion()
{
    write("get_direction", 20000, [](random_input& random, digest& results) {
        std::vector<cv::Point2f> from = random.any_quadrilateral({300, 200});
        std::vector<cv::Point2f> to = random.quadrilateral({300, 200});
        results.add(get_direction(from, to));
    });
    write("get_move_distance", 20000, [](random_input& random, digest& results) {
        std::vector<cv::Point2f> from = random.any_quadrilateral({300, 200});
        std::vector<cv::Point2f> to = random.quadrilateral({300, 200});
        results.add(get_move_distance(from, to));
    });
    write("getLinePara,point_2_line", 20000, [](random_input& random, digest& results) {
        const std::vector<cv::Point2f> points = random.any_quadrilateral({300, 200});
        LinePara line{};
        getLinePara(points[0].x, points[0].y, points[1].x, points[1].y, line);
        results.add(line.k);
        results.add(line.b);
        results.add(point_2_line(line.k, line.b, random.real(1.0f, 10.0f), points[2].x, points[2].y));
    });
    write("truncate_to_int", 20000, [](random_input& random, digest& results) {
        results.add(truncate_to_int(static_cast<double>(random.any_float(1000))));
    });
    write("measure_shape,choose_projection", 5000, [](random_input& random, digest& results) {
        std::vector<float> angles;
        std::vector<float> scales;
        for (int i = 0; i < 4; ++i) {
            angles.push_back(random.real(60.0f, 120.0f));
            scales.push_back(random.real(0.5f, 2.0f));
        }
        const frame_shape shape = measure_shape(angles, scales);
        results.add(shape.min_h_angle);
        results.add(shape.min_v_angle);
        results.add(shape.mean_scale);
        const int direction = random.integer(0, 4);
        const int index = random.integer(1, 3);
        results.add(static_cast<int>(choose_projection(shape, direction, index, random.one_in(2))));
    });
}

}  // namespace

void write_kernel_digests()
{
    round_arc_tangents(true);
    write_pixel_kernels();
    write_angles();
    write_geometry();
    write_motion();
    round_arc_tangents(false);
}

}  // namespace tarn::test
