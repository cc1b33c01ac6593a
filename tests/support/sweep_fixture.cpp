// SPDX-License-Identifier: Apache-2.0
#include "sweep_fixture.h"

#include <algorithm>

#include "rendered_sweep.h"

namespace tarn::test {

const std::vector<cv::Mat>& sweep_fixture::frames()
{
    static const auto& rendered = *new std::vector<cv::Mat>([] {
        const rendered_sweep sweep = slide(cv::Size(320, 240), moving_right, frame_step, 20);
        std::vector<cv::Mat> result;
        for (int i = 0; i < sweep.length(); ++i) {
            result.push_back(sweep.host_frame(i));
        }
        return result;
    }());
    return rendered;
}

frame_view sweep_fixture::blank_view()
{
    static const auto& blank = *new cv::Mat(blank_host_frame(cv::Size(320, 240)));
    return view_of(blank);
}

std::vector<frame_answer> sweep_fixture::feed(sweep& to, std::size_t first, std::size_t end)
{
    std::vector<frame_answer> answers;
    for (std::size_t i = first; i < end; ++i) {
        answers.push_back(to.feed(view(i)));
    }
    return answers;
}

std::size_t sweep_fixture::feed_until_key_frame(sweep& to, int key_frames, std::size_t first)
{
    while (to.status().key_frames < key_frames && first < frames().size()) {
        EXPECT_TRUE(to.feed(view(first)).taken) << "frame " << first;
        ++first;
    }
    EXPECT_EQ(to.status().key_frames, key_frames);
    return first;
}

sweep_options sweep_fixture::options() const
{
    sweep_options result;
    result.private_parent = root();
    return result;
}

std::vector<std::string> sweep_fixture::private_directories() const
{
    std::vector<std::string> names = entries_of(root());
    names.erase(std::remove_if(names.begin(), names.end(),
                               [](const std::string& name) { return name.rfind("tarnstitch-", 0) != 0; }),
                names.end());
    return names;
}

void expect_over(sweep& ended)
{
    static const cv::Mat frame(8, 8, CV_8UC3, cv::Scalar::all(0));
    refusal(sweep_problem::over, [&] { ended.feed(view_of(frame)); });
    refusal(sweep_problem::over, [&] { ended.finish(); });
    refusal(sweep_problem::over, [&] { ended.status(); });
    refusal(sweep_problem::over, [&] { ended.wait_for_room(0); });
    refusal(sweep_problem::over, [&] { ended.preview(); });
    refusal(sweep_problem::over, [&] { ended.directory(); });
    EXPECT_FALSE(ended.is_current());
    const std::uint64_t before = current_generation();
    ended.cancel();
    EXPECT_EQ(current_generation(), before) << "cancel does nothing";
}

}  // namespace tarn::test
