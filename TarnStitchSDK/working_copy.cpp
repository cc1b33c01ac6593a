// SPDX-License-Identifier: Apache-2.0
#include "working_copy.h"

#include <opencv2/imgproc.hpp>

#include "internal/exact_routines.h"

void image_resize(const cv::Mat& input, cv::Mat& output, int target_height, int /*mode*/)
{
    float scale = 1.0f;
    if (input.cols > target_height) {
        scale = static_cast<float>(target_height) / static_cast<float>(input.cols);
    }
    tarn::shrink(input, output, scale);
}

void to_gray(const cv::Mat& image, cv::Mat& gray)
{
    if (image.channels() == 3) {
        cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY);
    } else if (image.channels() == 1) {
        image.copyTo(gray);
    }
}
