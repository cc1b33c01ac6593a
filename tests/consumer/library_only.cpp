// SPDX-License-Identifier: Apache-2.0
//
// A host that links nothing but TarnStitch: two frames of a texture that moves, their answers and the preview; and
// the variables of the interface, of which there must be one set.
#include <iostream>
#include <memory>
#include <TarnStitchSDK/tarn_stitch_jni.h>

namespace {

cv::Mat texture(int shift)
{
    cv::Mat image(240, 320, CV_8UC4);
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) {
            // A plane of blocks, each of a shade of its own.
            const unsigned block = static_cast<unsigned>((x + shift) / 12 * 7919 + y / 12 * 104729);
            const auto shade = static_cast<unsigned char>(40 + block * 2654435761U % 200);
            image.at<cv::Vec4b>(y, x) = cv::Vec4b(shade, shade, shade, 255);
        }
    }
    return image;
}

}  // namespace

int main()
{
    resetStitch("");
    const int first = videoStitch(texture(0), 0, 0)[0];
    const int second = videoStitch(texture(4), 0, 0)[0];
    const std::unique_ptr<int[]> pixels(nativeCarrier_getCurrentPanoramaShow());
    const cv::Mat preview = getCurrentPanoramsShowMat();

    // What a host writes here the library must read, and the other way round.
    big_local_path = "/nonexistent/";
    const bool finder_is_there = !stitch_feature_finder.empty();
    resetStitch("");
    const bool shared = finder_is_there && big_local_path.empty() && tarn::look_at_pipeline().turns_over == 0;

    std::cout << "\nanswers " << first << ' ' << second << ", preview " << preview.cols << " x " << preview.rows
              << ", one set of variables: " << (shared ? "yes" : "no") << '\n';
    return first == 1 && preview.cols >= 300 && pixels && shared ? 0 : 1;
}
