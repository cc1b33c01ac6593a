// SPDX-License-Identifier: Apache-2.0
//
// Frames for the live path, and the fixture of its tests: workers are held at their start.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "plain_live_path.h"
#include "random_input.h"
#include "rendered_sweep.h"
#include "stitcher_fixture.h"

namespace tarn::test {

const cv::Size usual_size(240, 180);

/// What a camera sees that stands (x, y) pixels away from the start.
cv::Mat view(int x, int y, cv::Size size = usual_size);
cv::Mat view(cv::Point at, cv::Size size = usual_size);

/// A step of so many pixels in a direction.
cv::Point step(int direction, int length);

cv::Mat blank(cv::Size size = usual_size);

/// A frame with `count` (up to 77) bright dots, each of which gives one corner.
cv::Mat dots(int count, cv::Point shift = {0, 0});

cv::Mat matrix(const cv::Matx33d& values);
cv::Mat moved_by(double x, double y);

/// Vertical edges that lean: x' = x + k y.
cv::Mat leaning(double k);

class LiveRegistration : public stitcher_fixture {
protected:
    void SetUp() override
    {
        stitcher_fixture::SetUp();
        hold_workers();
    }

    /// One call of the frame step itself: the code.
    static int feed(cv::Mat frame, int direction = no_direction)
    {
        return tarn_stitcher.ofcheck_stitch(frame, direction, 0)[0];
    }

    /// A sweep that has its first frame: what is seen at (0, 0).
    static void start(cv::Size size = usual_size)
    {
        ASSERT_EQ(feed(view(0, 0, size)), 1);
        ASSERT_EQ(tarn_stitcher.frame_index, 1);
    }

    /// What the frame will measure, found by the plain steps from the present state.
    static plain_live_path measured(const cv::Mat& frame, int direction = no_direction)
    {
        plain_live_path steps(tarn_stitcher);
        steps.feed(frame, direction);
        return steps;
    }

    static stitch_data& reference()
    {
        return tarn_stitcher.last_check_data;
    }
};

}  // namespace tarn::test
