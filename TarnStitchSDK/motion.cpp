// SPDX-License-Identifier: Apache-2.0
#include "motion.h"

#include <cmath>

#include "vocabulary.h"

namespace {

// Mean shifts closer together than this leave the direction undecided.
constexpr double undecided_below = 2.0;  // px

// Slope that stands for an upright line: steep enough that distances from it are right to 0.0001 px nearby.
constexpr float upright_slope = 10000.0f;

}  // namespace

int get_direction(std::vector<cv::Point2f>& frame_corners, std::vector<cv::Point2f>& transpose_corners)
{
    const auto& f = frame_corners;
    const auto& t = transpose_corners;
    const float dx = ((t[0].x - f[0].x) + (t[1].x - f[1].x) + (t[2].x - f[2].x) + (t[3].x - f[3].x)) * 0.25f;
    const float dy = ((t[0].y - f[0].y) + (t[1].y - f[1].y) + (t[2].y - f[2].y) + (t[3].y - f[3].y)) * 0.25f;

    int direction = tarn::direction_undecided;
    if (std::fabs(dx) > std::fabs(dy)) {
        direction = dx > 0.0f ? tarn::direction_right : tarn::direction_left;
    } else {
        direction = dy > 0.0f ? tarn::direction_down : tarn::direction_up;
    }
    // The magnitudes are compared, not the components: a diagonal motion is undecided however fast it is.
    if (std::fabs(std::fabs(dx) - std::fabs(dy)) < undecided_below) {
        direction = tarn::direction_undecided;
    }
    return direction;
}

float get_move_distance(std::vector<cv::Point2f>& frame_center, std::vector<cv::Point2f>& transpose_center)
{
    const cv::Point2f d = frame_center[0] - transpose_center[0];
    const double dx = d.x;
    const double dy = d.y;
    return static_cast<float>(std::sqrt(dx * dx + dy * dy));
}

void getLinePara(float x1, float y1, float x2, float y2, LinePara& LP)
{
    const float m = x2 - x1;
    LP.k = m == 0.0f ? upright_slope : (y2 - y1) / m;
    LP.b = y1 - LP.k * x1;
}

float point_2_line(float k, float b, float k2, float x, float y)
{
    return std::fabs(k * x + b - y) / k2;
}
