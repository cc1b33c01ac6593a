// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "finishing/pair_graph.h"

namespace {

using namespace tarn::finishing;

cv::Matx33d moved(double x, double y)
{
    return {1, 0, x, 0, 1, y, 0, 0, 1};
}

/// Frames along a line, `step` longer sides apart.
std::vector<working_frame> frames_at(const std::vector<double>& places)
{
    std::vector<working_frame> frames;
    for (const double x : places) {
        working_frame frame;
        frame.full_size = {400, 300};
        frame.has_placement = true;
        frame.placement = moved(x, 0);
        frames.push_back(frame);
    }
    return frames;
}

TEST(FinishingPairs, SharedPartsAreThoseOfRectangles)
{
    const cv::Size size(400, 300);
    EXPECT_NEAR(shared_part(cv::Matx33d::eye(), size, size), 1.0, 1e-6);
    EXPECT_NEAR(shared_part(moved(0.25, 0), size, size), 0.75, 1e-6);
    EXPECT_NEAR(shared_part(moved(0, 0.375), size, size), 0.5, 1e-6);
    EXPECT_EQ(shared_part(moved(1.1, 0), size, size), 0.0);
    EXPECT_NEAR(shared_part(cv::Matx33d::eye() * -2.0, size, size), 1.0, 1e-6);
    EXPECT_EQ(shared_part({1, 0, 0, 0, 1, 0, 3, 0, 1}, size, size), 0.0);   // folded
    EXPECT_EQ(shared_part({-1, 0, 0, 0, 1, 0, 0, 0, 1}, size, size), 0.0);  // mirrored
}

TEST(FinishingPairs, NeighboursAlwaysAndTheNextButOneWhereTheyOverlap)
{
    const std::vector<index_pair> near = {{0, 1}, {0, 2}, {1, 2}, {1, 3}, {2, 3}};
    EXPECT_EQ(pairs_of_neighbours(frames_at({0, 0.2, 0.4, 0.6})), near);
    const std::vector<index_pair> far = {{0, 1}, {1, 2}, {2, 3}};
    EXPECT_EQ(pairs_of_neighbours(frames_at({0, 0.5, 1.0, 1.5})), far);
    auto unplaced = frames_at({0, 0.2, 0.4, 0.6});
    for (working_frame& frame : unplaced) {
        frame.has_placement = false;
    }
    EXPECT_EQ(pairs_of_neighbours(unplaced), far);
}

TEST(FinishingPairs, ACameraThatComesBackMeetsItsFirstFrames)
{
    const auto frames = frames_at({0, 0.4, 0.8, 1.2, 0.8, 0.4, 0});
    const auto known = pairs_of_neighbours(frames);
    const auto found = pairs_that_overlap(frames, known, [&](int i, int j) {
        return std::optional<cv::Matx33d>(frames[static_cast<std::size_t>(j)].placement.inv()
                                          * frames[static_cast<std::size_t>(i)].placement);
    });
    EXPECT_NE(std::find(found.begin(), found.end(), index_pair(0, 6)), found.end());
    for (const index_pair& pair : found) {
        EXPECT_EQ(std::find(known.begin(), known.end(), pair), known.end());
    }
}

TEST(FinishingPairs, TheyAreFewHoweverManyFramesShowTheSame)
{
    const int count = 60;
    const auto frames = frames_at(std::vector<double>(count, 0.0));
    const auto known = pairs_of_neighbours(frames);
    const auto found =
        pairs_that_overlap(frames, known, [](int, int) { return std::optional<cv::Matx33d>(cv::Matx33d::eye()); });
    EXPECT_LE(known.size() + found.size(), 4U * count);
}

}  // namespace
