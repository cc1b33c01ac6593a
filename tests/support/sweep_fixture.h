// SPDX-License-Identifier: Apache-2.0
//
// The fixture of the tests of tarn::sweep: frames of a camera that slides to the right, and what a sweep refuses.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "tarn_sweep.h"
#include "worker_stepper.h"

namespace tarn::test {

class sweep_fixture : public worker_fixture {
protected:
    static constexpr int frame_step = 24;  ///< px from frame to frame

    /// Twenty frames, 320 x 240, R,G,B,A. About every fifth becomes a key frame.
    static const std::vector<cv::Mat>& frames();

    static frame_view view(std::size_t i)
    {
        return view_of(frames().at(i));
    }

    /// A frame without corners.
    static frame_view blank_view();

    /// Feeds the frames from `first` to before `end`: the answers.
    static std::vector<frame_answer> feed(sweep& to, std::size_t first, std::size_t end);

    /// Feeds from `first` on until so many key frames have been handed over: the number of the next frame.
    static std::size_t feed_until_key_frame(sweep& to, int key_frames, std::size_t first = 0);

    /// Options of a sweep with a private directory below root().
    sweep_options options() const;

    /// The directories of sweeps that lie below root().
    std::vector<std::string> private_directories() const;
};

/// The text of the sweep_error that `call` throws; fails unless it throws one with that problem.
template <typename Call>
std::string refusal(sweep_problem problem, const Call& call)
{
    try {
        call();
    } catch (const sweep_error& error) {
        EXPECT_EQ(static_cast<int>(error.problem()), static_cast<int>(problem)) << error.what();
        return error.what();
    }
    ADD_FAILURE() << "nothing is thrown";
    return "";
}

/// Fails unless every method that may say so says that the sweep is over, and cancel does nothing.
void expect_over(sweep& ended);

}  // namespace tarn::test
