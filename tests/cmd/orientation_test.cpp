// SPDX-License-Identifier: Apache-2.0
//
// Rendered sweeps in every direction, handed over with every turn and every hint: the viewer's words are translated
// for the library and its answers back, and both panoramas come out upright.
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "frame_feed.h"
#include "frame_turn.h"
#include "frames_file.h"
#include "picture_list.h"
#include "support/rendered_sweep.h"
#include "support/stitcher_fixture.h"
#include "sweep.h"

using namespace tarn::host;

namespace {

constexpr int length = 6;
constexpr double step = 36.0;  // px
const cv::Size frame_size(480, 360);

int direction_of(camera_motion motion)
{
    switch (motion) {
    case camera_motion::right:
        return tarn::test::moving_right;
    case camera_motion::left:
        return tarn::test::moving_left;
    case camera_motion::up:
        return tarn::test::moving_up;
    case camera_motion::down:
        return tarn::test::moving_down;
    case camera_motion::any:
        break;
    }
    return tarn::test::no_direction;
}

camera_motion opposite_of(camera_motion motion)
{
    switch (motion) {
    case camera_motion::right:
        return camera_motion::left;
    case camera_motion::left:
        return camera_motion::right;
    case camera_motion::up:
        return camera_motion::down;
    case camera_motion::down:
        return camera_motion::up;
    case camera_motion::any:
        break;
    }
    return camera_motion::any;
}

std::vector<cv::Mat> pictures_of(camera_motion motion)
{
    const tarn::test::rendered_sweep sweep = tarn::test::slide(frame_size, direction_of(motion), step, length);
    std::vector<cv::Mat> pictures;
    for (int i = 0; i < length; ++i) {
        pictures.push_back(sweep.frame(i));
    }
    return pictures;
}

/// How well the middle of a frame is found in a picture as it is, 1 for the same pixels.
double found_in(const cv::Mat& picture, const cv::Mat& frame)
{
    const cv::Rect middle(frame.cols / 3, frame.rows / 3, frame.cols / 3, frame.rows / 3);
    cv::Mat scores;
    cv::matchTemplate(picture, frame(middle), scores, cv::TM_CCOEFF_NORMED);
    double best = 0.0;
    cv::minMaxLoc(scores, nullptr, &best);
    return best;
}

class direction_recorder : public sweep_observer {
public:
    void frame_done(const frame_record& frame) override
    {
        last = frame;
        all.push_back(frame);
    }

    void waiting(int) override
    {
    }

    frame_record last;
    std::vector<frame_record> all;
};

class Orientation : public tarn::test::stitcher_fixture,
                    public testing::WithParamInterface<std::tuple<camera_motion, frame_turn>> {
protected:
    static camera_motion motion()
    {
        return std::get<0>(GetParam());
    }

    static frame_turn turn()
    {
        return std::get<1>(GetParam());
    }

    sweep_result sweep_with_hint(camera_motion hint)
    {
        frame_feed feed(std::make_unique<tarn::test::picture_list>(pictures_of(motion())), {}, turn());
        sweep_settings settings;
        settings.direction_hint = direction_hint(hint, turn());
        settings.workers = 2;
        settings.observers = {&recorder};
        return run_sweep(feed, settings);
    }

    static int wrong_way(const sweep_result& result)
    {
        return result.by_code[tarn::code_wrong_way];
    }

    direction_recorder recorder;
};

std::string name_of(const testing::TestParamInfo<std::tuple<camera_motion, frame_turn>>& info)
{
    const frame_turn turn = std::get<1>(info.param);
    return std::string(motion_name(std::get<0>(info.param)))
           + (turn == frame_turn::none ? "_not_turned"
                                       : (turn == frame_turn::clockwise ? "_clockwise" : "_counter_clockwise"));
}

}  // namespace

TEST_P(Orientation, PanoramasAreUprightAndTheDirectionIsTheViewers)
{
    const sweep_result result = sweep_with_hint(motion());
    ASSERT_EQ(result.outcome, sweep_outcome::complete);
    EXPECT_EQ(wrong_way(result), 0);
    EXPECT_EQ(motion_name(motion_for_viewer(recorder.last.answer.direction, turn())),
              std::string(motion_name(motion())));

    const std::vector<cv::Mat> pictures = pictures_of(motion());
    const cv::Mat panorama = panorama_for_viewer(result.panorama, turn());
    constexpr double least = 0.9;
    EXPECT_GT(found_in(panorama, pictures.front()), least);
    EXPECT_GT(found_in(panorama, pictures.back()), least);
    const bool level = motion() == camera_motion::right || motion() == camera_motion::left;
    const int travelled = static_cast<int>(step) * (length - 1);
    EXPECT_NEAR(panorama.cols, frame_size.width + (level ? travelled : 0), 8);
    EXPECT_NEAR(panorama.rows, frame_size.height + (level ? 0 : travelled), 8);

    const cv::Mat preview = preview_for_viewer(result.preview, turn());
    EXPECT_EQ(preview.cols > preview.rows, level) << preview.size();
    cv::Mat first = pictures.front();
    const double scale = (level ? preview.rows : preview.cols) / static_cast<double>(level ? first.rows : first.cols);
    cv::resize(first, first, cv::Size(), scale, scale, cv::INTER_AREA);
    EXPECT_GT(found_in(preview, first), least);
}

TEST_P(Orientation, ShiftIsTheViewersWhicheverWayTheFramesAreTurned)
{
    ASSERT_EQ(sweep_with_hint(motion()).outcome, sweep_outcome::complete);
    constexpr double preview_frame_width = 300.0;
    const double scale = preview_frame_width / (turn() == frame_turn::none ? frame_size.width : frame_size.height);
    double travelled = 0.0;  // since the last key frame
    int between_key_frames = 0;
    ASSERT_EQ(recorder.all.size(), static_cast<std::size_t>(length));
    for (int index = 0; index < length - 1; ++index) {  // the last one is not laid onto the preview
        const frame_record& frame = recorder.all[static_cast<std::size_t>(index)];
        ASSERT_TRUE(frame.answer.taken);
        travelled = frame.answer.key_frame > 0 ? 0.0 : travelled + step * scale;
        between_key_frames += frame.answer.key_frame > 0 ? 0 : 1;
        const nlohmann::json line = nlohmann::json::parse(frame_as_json(frame, turn()));
        constexpr double registration = 3.0;  // px
        EXPECT_NEAR(line["shift_x"].get<double>(), motion() == camera_motion::left ? travelled : 0.0, registration)
            << index;
        EXPECT_NEAR(line["shift_y"].get<double>(), motion() == camera_motion::up ? travelled : 0.0, registration)
            << index;
    }
    EXPECT_GT(between_key_frames, 0);
}

TEST_P(Orientation, OppositeHintRejectsTheMotionAndOneAcrossDoesNot)
{
    // The first frame stays the reference, until the others have gone too far from it to be compared at all. The
    // last one is composed, if it can be, without being registered.
    const sweep_result rejected = sweep_with_hint(opposite_of(motion()));
    EXPECT_GE(wrong_way(rejected), 1);
    EXPECT_LT(rejected.taken, length - 1);
    const bool level = motion() == camera_motion::right || motion() == camera_motion::left;
    const camera_motion across = level ? camera_motion::up : camera_motion::right;
    EXPECT_EQ(wrong_way(sweep_with_hint(across)), 0);
}

INSTANTIATE_TEST_SUITE_P(
    All, Orientation,
    testing::Combine(testing::Values(camera_motion::right, camera_motion::left, camera_motion::up, camera_motion::down),
                     testing::Values(frame_turn::counter_clockwise, frame_turn::clockwise, frame_turn::none)),
    name_of);
