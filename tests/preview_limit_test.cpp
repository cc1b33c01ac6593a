// SPDX-License-Identifier: Apache-2.0
//
// The preview's limit: below it nothing changes, beyond it nothing but the preview.
#include <vector>

#include <gtest/gtest.h>

#include "internal/frame_account.h"
#include "preview_limit.h"
#include "support/live_fixture.h"

namespace {

using namespace tarn::test;

/// What is told of a frame, but for the preview.
struct told {
    int code;
    bool taken;
    int key_frame;
    int inliers;
    float overlap;
    std::vector<float> angles;
    cv::Matx33d plane_from_frame;

    bool operator==(const told& other) const
    {
        return code == other.code && taken == other.taken && key_frame == other.key_frame && inliers == other.inliers
               && overlap == other.overlap && angles == other.angles && plane_from_frame == other.plane_from_frame;
    }
};

class PreviewLimit : public LiveRegistration {
protected:
    void TearDown() override
    {
        tarn::set_preview_limit(tarn::usual_preview_limit);
        LiveRegistration::TearDown();
    }

    /// A camera that goes to the right and back again, twice as far to the left, and returns.
    std::vector<told> sweep()
    {
        std::vector<told> all;
        frozen.clear();
        sizes.clear();
        resetStitch(directory().c_str());
        constexpr int step = 30;
        int x = 0;
        for (const int sign : {1, 1, 1, 1, -1, -1, -1, -1, -1, -1, -1, -1, 1, 1, 1, 1}) {
            const int code = feed(view(x, 0));
            const tarn::frame_account& account = tarn::account_of_this_thread();
            const tarn::frame_answer& answer = account.answer;
            all.push_back({code, answer.taken, answer.key_frame, answer.inliers, answer.overlap,
                           std::vector<float>(answer.angles.begin(), answer.angles.end()), account.plane_from_frame});
            frozen.push_back(tarn::preview_is_frozen());
            sizes.push_back(getCurrentPanoramsShowMat().size());
            x += sign * step;
        }
        return all;
    }

    std::vector<bool> frozen;
    std::vector<cv::Size> sizes;
};

TEST_F(PreviewLimit, BelowItNothingChanges)
{
    const std::vector<told> usual = sweep();
    const cv::Mat preview = getCurrentPanoramsShowMat();
    tarn::set_preview_limit(static_cast<std::int64_t>(preview.total()));
    EXPECT_TRUE(sweep() == usual);
    EXPECT_EQ(getCurrentPanoramsShowMat().size(), preview.size());
    EXPECT_EQ(cv::norm(getCurrentPanoramsShowMat(), preview, cv::NORM_INF), 0.0);
    EXPECT_FALSE(tarn::preview_is_frozen());
}

TEST_F(PreviewLimit, BeyondItOnlyThePreviewStands)
{
    const std::vector<told> usual = sweep();
    const std::vector<cv::Size> usual_sizes = sizes;
    tarn::set_preview_limit(usual_sizes.back().area() - 1);
    EXPECT_TRUE(sweep() == usual);
    EXPECT_TRUE(frozen.back());
    bool was_frozen = false;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        EXPECT_LE(sizes[i].area(), tarn::preview_limit());
        if (!frozen[i]) {
            EXPECT_FALSE(was_frozen) << "frame " << i << ": a camera that comes back does not let it grow again";
            EXPECT_EQ(sizes[i], usual_sizes[i]);
        }
        was_frozen = frozen[i];
    }
}

TEST_F(PreviewLimit, NoneAtAllLeavesTheFirstFrame)
{
    tarn::set_preview_limit(-5);
    EXPECT_EQ(tarn::preview_limit(), 0);
    sweep();
    EXPECT_EQ(sizes.back(), working_copy_size(usual_size));
    EXPECT_TRUE(tarn::preview_is_frozen());
}

TEST_F(PreviewLimit, RaisedInMidSweepLetsThePreviewGrowToItsPlace)
{
    sweep();
    const cv::Size full = sizes.back();
    tarn::set_preview_limit(full.area() - 1);
    sweep();
    ASSERT_TRUE(tarn::preview_is_frozen());
    tarn::set_preview_limit(tarn::usual_preview_limit);
    for (int x = 0; x <= 300; x += 30) {
        EXPECT_NE(feed(view(x, 0)), 0);
    }
    EXPECT_FALSE(tarn::preview_is_frozen());
    EXPECT_GE(getCurrentPanoramsShowMat().cols, full.width);
}

TEST_F(PreviewLimit, ANewTaskBeginsAnew)
{
    tarn::set_preview_limit(0);
    sweep();
    ASSERT_TRUE(tarn::preview_is_frozen());
    resetStitch("");
    EXPECT_FALSE(tarn::preview_is_frozen());
}

}  // namespace
