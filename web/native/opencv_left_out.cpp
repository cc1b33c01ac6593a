// SPDX-License-Identifier: Apache-2.0
//
// Functions of OpenCV's that its files refer to and the library never calls: conversions between colours that it does
// not use, estimators that it does not choose. Leaving them out saves a third of what is compiled and sent.
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

namespace {

[[noreturn]] void left_out()
{
    CV_Error(cv::Error::StsNotImplemented, "left out of this build");
}

}  // namespace

namespace cv {

void cvtColorBGR2Lab(InputArray, OutputArray, bool, bool)
{
    left_out();
}

void cvtColorBGR2Luv(InputArray, OutputArray, bool, bool)
{
    left_out();
}

void cvtColorLab2BGR(InputArray, OutputArray, int, bool, bool)
{
    left_out();
}

void cvtColorLuv2BGR(InputArray, OutputArray, int, bool, bool)
{
    left_out();
}

void cvtColorBGR2XYZ(InputArray, OutputArray, bool)
{
    left_out();
}

void cvtColorXYZ2BGR(InputArray, OutputArray, int, bool)
{
    left_out();
}

void cvtColorBGR2YUV(InputArray, OutputArray, bool, bool)
{
    left_out();
}

void cvtColorYUV2BGR(InputArray, OutputArray, int, bool, bool)
{
    left_out();
}

void cvtColorOnePlaneYUV2BGR(InputArray, OutputArray, int, bool, int, int)
{
    left_out();
}

void cvtColorTwoPlaneYUV2BGR(InputArray, OutputArray, int, bool, int)
{
    left_out();
}

void cvtColorTwoPlaneYUV2BGRpair(InputArray, InputArray, OutputArray, int, bool, int)
{
    left_out();
}

void cvtColorThreePlaneYUV2BGR(InputArray, OutputArray, int, bool, int)
{
    left_out();
}

void cvtColorBGR2ThreePlaneYUV(InputArray, OutputArray, bool, int)
{
    left_out();
}

void cvtColorYUV2Gray_420(InputArray, OutputArray)
{
    left_out();
}

void cvtColorYUV2Gray_ch(InputArray, OutputArray, int)
{
    left_out();
}

void cvtColorBGR2HLS(InputArray, OutputArray, bool, bool)
{
    left_out();
}

void cvtColorBGR2HSV(InputArray, OutputArray, bool, bool)
{
    left_out();
}

void cvtColorHLS2BGR(InputArray, OutputArray, int, bool, bool)
{
    left_out();
}

void cvtColorHSV2BGR(InputArray, OutputArray, int, bool, bool)
{
    left_out();
}

void demosaicing(InputArray, OutputArray, int, int)
{
    left_out();
}

void crossCorr(const Mat&, const Mat&, Mat&, Point, double, int)
{
    left_out();
}

namespace usac {

class Model;
class RansacOutput;
enum EstimationMethod : int;

Mat findHomography(InputArray, InputArray, int, double, OutputArray, int, double)
{
    left_out();
}

Mat findFundamentalMat(InputArray, InputArray, int, double, double, int, OutputArray)
{
    left_out();
}

Mat estimateAffine2D(InputArray, InputArray, OutputArray, int, double, int, double, int)
{
    left_out();
}

void setParameters(Ptr<Model>&, EstimationMethod, const UsacParams&, bool)
{
    left_out();
}

bool run(const Ptr<const Model>&, InputArray, InputArray, int, Ptr<RansacOutput>&, InputArray, InputArray, InputArray,
         InputArray)
{
    left_out();
}

}  // namespace usac

}  // namespace cv
