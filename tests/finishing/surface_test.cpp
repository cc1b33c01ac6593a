// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include <gtest/gtest.h>

#include "finishing/surface.h"
#include "finishing/working_frames.h"
#include "finishing_sweeps.h"

namespace {

using namespace tarn::finishing;
using tarn::test::panorama_room;

const cv::Size frame_size(400, 300);

drawing_surface surface_of(projection kind, double heading, double tilt)
{
    drawing_surface surface;
    surface.kind = kind;
    surface.scale = 500.0;
    surface.cameras.motion = camera_motion::turning;
    surface.cameras.focal = 1.1;
    surface.cameras.places = {panorama_room::rotation(heading, tilt)};
    surface.cameras.placed = {true};
    surface.headings = {kind == projection::turned_cylinder ? tilt : heading};
    return surface;
}

TEST(FinishingSurface, APixelOfTheSurfaceShowsThePixelThatIsDrawnThere)
{
    for (const projection kind :
         {projection::plane, projection::cylinder, projection::turned_cylinder, projection::sphere}) {
        const drawing_surface surface = surface_of(kind, 0.3, 0.2);
        const cv::Rect outline = surface.outline(0, frame_size);
        ASSERT_FALSE(outline.empty());
        cv::Mat pixels;
        surface.pixels_of_frame(0, frame_size, outline, pixels);
        const cv::Matx33d centred = centred_from_pixel(frame_size);
        int inside = 0;
        for (int y = 0; y < outline.height; y += 7) {
            for (int x = 0; x < outline.width; x += 7) {
                const cv::Vec2f p = pixels.at<cv::Vec2f>(y, x);
                if (p[0] < 0 || p[1] < 0 || p[0] > 399 || p[1] > 299) {
                    continue;
                }
                ++inside;
                const cv::Point2d back =
                    surface.from_frame(0, {centred(0, 0) * p[0] + centred(0, 2), centred(1, 1) * p[1] + centred(1, 2)});
                EXPECT_NEAR(back.x, outline.x + x, 0.01) << name_of(kind);
                EXPECT_NEAR(back.y, outline.y + y, 0.01) << name_of(kind);
            }
        }
        EXPECT_GT(inside, 1000) << name_of(kind);
    }
}

TEST(FinishingSurface, TurnsAreNotWrapped)
{
    drawing_surface surface = surface_of(projection::cylinder, 0.3, 0.0);
    const cv::Rect once = surface.outline(0, frame_size);
    surface.headings[0] += 2 * CV_PI;
    const cv::Rect again = surface.outline(0, frame_size);
    EXPECT_NEAR(again.x - once.x, 2 * CV_PI * surface.scale, 1.5);
    // And what lies there is seen there only.
    cv::Mat pixels;
    surface.pixels_of_frame(0, frame_size, once, pixels);
    EXPECT_EQ(cv::countNonZero(shown_part(pixels, frame_size)), 0);
    surface.pixels_of_frame(0, frame_size, again, pixels);
    EXPECT_GT(cv::countNonZero(shown_part(pixels, frame_size)), again.area() / 2);
}

TEST(FinishingSurface, AFrameAroundAPoleCoversAllHeadings)
{
    const drawing_surface surface = surface_of(projection::sphere, 0.0, 1.5);
    const cv::Rect outline = surface.outline(0, frame_size);
    EXPECT_NEAR(outline.width, 2 * CV_PI * surface.scale, 3.0);
    EXPECT_NEAR(outline.br().y, CV_PI / 2 * surface.scale, 3.0);
}

TEST(FinishingSurface, WhatIsBehindAPlaneIsNotDrawn)
{
    EXPECT_TRUE(surface_of(projection::plane, 3.0, 0.0).outline(0, frame_size).empty());
}

TEST(FinishingSurface, TheProjectionIsChosenByExtent)
{
    const auto chosen = [](const std::vector<cv::Matx33d>& places) {
        camera_set cameras;
        cameras.motion = camera_motion::turning;
        cameras.focal = 1.1;
        cameras.places = places;
        cameras.placed.assign(places.size(), true);
        return choose_surface(cameras, std::vector<cv::Size>(places.size(), frame_size)).kind;
    };
    std::vector<cv::Matx33d> little;
    std::vector<cv::Matx33d> wide;
    std::vector<cv::Matx33d> high;
    std::vector<cv::Matx33d> both;
    for (int i = 0; i < 7; ++i) {
        little.push_back(panorama_room::rotation(0.02 * i, 0));
        wide.push_back(panorama_room::rotation(0.3 * i, 0.1));
        high.push_back(panorama_room::rotation(0.02 * i, 0.25 * i));
        both.push_back(panorama_room::rotation(0.3 * i, i % 2 == 0 ? 0.0 : 0.9));
    }
    EXPECT_EQ(chosen(little), projection::plane);
    EXPECT_EQ(chosen(wide), projection::cylinder);
    EXPECT_EQ(chosen(high), projection::turned_cylinder);
    EXPECT_EQ(chosen(both), projection::sphere);
}

}  // namespace
