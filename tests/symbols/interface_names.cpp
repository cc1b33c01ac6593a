// SPDX-License-Identifier: Apache-2.0
//
// Uses every name that the interface gives, with the type that it gives it; links the shared library, so a name
// that is missing there stops the build.
#include <iostream>
#include <string>
#include <vector>

#include "tarn_stitch_jni.h"

namespace {

using points = std::vector<cv::Point2f>;
using floats = std::vector<float>;

int names = 0;

/// Counts a name. Its address must not be optimised away, nor compared: a compiler knows it is not null.
template <typename T>
void use(T address)
{
    T volatile kept = address;
    static_cast<void>(kept);
    ++names;
}

void use_functions()
{
    use<int (*)(const char*)>(resetStitch);
    use<int* (*)(cv::Mat, int, int)>(videoStitch);
    use<const char* (*)()>(getCurrentPanoramaShow);
    use<const char* (*)()>(getTestCurrentPanoramaShow);
    use<cv::Mat (*)()>(getCurrentPanoramsShowMat);
    use<int* (*)()>(nativeCarrier_getCurrentPanoramaShow);
    use<int* (*)(const cv::Mat&)>(matToBitmapArray);

    use<void (TarnStitcher::*)()>(&TarnStitcher::remove_local_path);
    use<int* (TarnStitcher::*)(cv::Mat&, int, int)>(&TarnStitcher::ofcheck_stitch);
    use<bool (TarnStitcher::*)(int)>(&TarnStitcher::get_big_image);

    use<void (*)(const cv::Mat&, const cv::Mat&, std::vector<cv::DMatch>&, float)>(single_match);
    use<void (*)(std::vector<cv::KeyPoint>, points&, int)>(randomSelectKeyPoints);

    use<void (*)(cv::Mat, floats, floats, int, int)>(stitch_big_image);
    use<tarn::pipeline_snapshot (*)()>(tarn::look_at_pipeline);
    use<void (*)(int)>(tarn::set_max_wait_seconds);

    use<int (*)(points&, points&)>(get_direction);
    use<float (*)(points&, points&)>(get_move_distance);
    use<void (*)(float, float, float, float, LinePara&)>(getLinePara);
    use<float (*)(float, float, float, float, float)>(point_2_line);

    use<void (*)(cv::Mat&, cv::Mat&, float)>(cylindrical_projection);
    use<void (*)(cv::Mat&, cv::Mat&, float)>(SphericalProjection);

    use<bool (*)(const points&, const cv::Mat&, float, float)>(is_good_homo);
    use<bool (*)(const points&)>(is_convex);
    use<float (*)(cv::Point2f&, cv::Point2f&, cv::Point2f&)>(angle_of_two_vector);
    use<float (*)(const points&)>(calc_hangle);
    use<float (*)(const points&)>(calc_vangle);
    use<float (*)(const points&)>(calc_angle);
    use<void (*)()>(calc_angles);
    use<float (*)(points, points)>(single_box_iou);
    use<float (*)(floats)>(min_axis);
    use<float (*)(floats)>(max_axis);
    use<float (*)(cv::Point2f, cv::Point2f, cv::Point2f)>(cross);
    use<cv::Point2f (*)(cv::Point2f, cv::Point2f, cv::Point2f, cv::Point2f)>(get_intersection_point);

    use<void (*)(cv::Mat&, cv::Mat&, points&)>(optimizeSeam);
    use<void (*)(std::vector<std::vector<cv::Point>>, cv::Mat&, cv::Mat&)>(fill_contours);

    use<void (*)(const cv::Mat&, cv::Mat&, int, int)>(image_resize);
    use<void (*)(const cv::Mat&, cv::Mat&)>(to_gray);

    use<bool (*)(const char*)>(isFloderexit);
    use<void (*)(const char*, const char*, char*)>(getFilePath);
    use<void (*)(const char*)>(deleteFile);
}

void use_variables()
{
    use<TarnStitcher*>(&tarn_stitcher);
    use<std::string*>(&test_image_path);
    use<cv::Ptr<cv::AKAZE>*>(&stitch_feature_finder);
    use<cv::Ptr<cv::FastFeatureDetector>*>(&detector);
    use<const std::string*>(&ERROR_PLACE);
    use<cv::Mat*>(&big_stitch_image);
    use<cv::Mat*>(&neighbour_homo);
    use<std::vector<cv::KeyPoint>*>(&neighbour_keypoints);
    use<cv::Mat*>(&neighbour_descriptors);
    use<int*>(&big_stitch_status);
    use<bool*>(&SP);
    use<int*>(&big_frame_num);
    use<float*>(&big_work_scale);
    use<std::string*>(&big_local_path);
    use<int*>(&max_wait_seconds);
}

}  // namespace

int main()
{
    use_functions();
    use_variables();
    // Constructing a task uses the constructor and, by it, the rest of the two classes.
    tarn_stitcher = TarnStitcher("");
    tarn_stitcher.last_check_data = stitch_data();
    std::cout << names << " names\n";
    return tarn_stitcher.local_path.empty() ? 0 : 1;
}
