// SPDX-License-Identifier: Apache-2.0
//
// What tests, and not the library, call of OpenCV, and what is behind the functions that they step in for.
#undef getTickCount  // the real one
#include <cmath>
#include <cstring>
#include <ctime>
#include <unistd.h>

#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include "opencv2/videoio.hpp"

namespace cv {

bool VideoCapture::read(Mat& frame)
{
    std::string kind;
    int width = 0;
    int height = 0;
    int white = 0;
    if (!(file_ >> kind >> width >> height >> white) || kind != "P6" || white != 255) {
        return false;
    }
    file_.get();  // the one space before the pixels
    frame.create(height, width, CV_8UC3);
    file_.read(reinterpret_cast<char*>(frame.data), static_cast<std::streamsize>(frame.total() * 3));
    cvtColor(frame, frame, COLOR_RGB2BGR);
    return static_cast<bool>(file_);
}

// The two ways that are called, by their definitions. Images of 8 bits a channel.
void matchTemplate(InputArray image_array, InputArray part_array, OutputArray scores_array, int method, InputArray mask)
{
    CV_Assert(mask.empty() && (method == TM_SQDIFF || method == TM_CCOEFF_NORMED));
    const Mat image = image_array.getMat();
    const Mat part = part_array.getMat();
    CV_Assert(image.depth() == CV_8U && image.type() == part.type());
    scores_array.create(image.rows - part.rows + 1, image.cols - part.cols + 1, CV_32F);
    Mat scores = scores_array.getMat();
    Mat wanted;
    part.convertTo(wanted, CV_MAKETYPE(CV_32F, part.channels()));
    const bool is_correlation = method == TM_CCOEFF_NORMED;
    if (is_correlation) {
        wanted -= mean(wanted);
    }
    const double wanted_energy = wanted.dot(wanted);
    Mat found;
    for (int y = 0; y < scores.rows; ++y) {
        for (int x = 0; x < scores.cols; ++x) {
            image(Rect(x, y, part.cols, part.rows)).convertTo(found, wanted.type());
            if (is_correlation) {
                found -= mean(found);
                const double energy = std::sqrt(found.dot(found) * wanted_energy);
                scores.at<float>(y, x) = static_cast<float>(energy > 0 ? found.dot(wanted) / energy : 0.0);
            } else {
                found -= wanted;
                scores.at<float>(y, x) = static_cast<float>(found.dot(found));
            }
        }
    }
}

}  // namespace cv

namespace {

int sleep_for(useconds_t microseconds)
{
    constexpr useconds_t second = 1000000;
    const timespec length = {static_cast<time_t>(microseconds / second),
                             static_cast<long>(microseconds % second) * 1000};
    return nanosleep(&length, nullptr);
}

}  // namespace

// In place of dlsym.
extern "C" void* stand_in_for(void* /*where*/, const char* name)
{
    if (std::strcmp(name, "usleep") == 0) {
        return reinterpret_cast<void*>(sleep_for);
    }
    CV_Assert(std::strcmp(name, "_ZN2cv12getTickCountEv") == 0);
    return reinterpret_cast<void*>(cv::getTickCount);
}
