// SPDX-License-Identifier: Apache-2.0
//
// Cameras found from links whose truth is known.
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "finishing/adjustment.h"
#include "finishing_sweeps.h"

namespace {

using namespace tarn::finishing;

const auto no_step = [] {};

/// Links between neighbours, and those next but one, of cameras with those places.
std::vector<frame_link> links_of(const camera_set& truth, double noise)
{
    std::mt19937 random(5);
    std::uniform_real_distribution<double> place(-0.5, 0.5);
    std::normal_distribution<double> off(0.0, noise);
    std::vector<frame_link> links;
    const int count = static_cast<int>(truth.places.size());
    for (int i = 0; i < count; ++i) {
        for (int j = i + 1; j < count && j <= i + 2; ++j) {
            frame_link link;
            link.i = i;
            link.j = j;
            link.source = placed_by::features;
            link.j_from_i = truth.j_from_i(i, j);
            while (link.in_i.size() < 60) {
                const cv::Point2d p(place(random), 0.75 * place(random));
                const cv::Vec3d q = link.j_from_i * cv::Vec3d(p.x, p.y, 1.0);
                link.in_i.emplace_back(p);
                link.in_j.emplace_back(q[0] / q[2] + off(random), q[1] / q[2] + off(random));
            }
            links.push_back(link);
        }
    }
    return links;
}

camera_set turning_truth(int count, double degrees, double focal)
{
    camera_set truth;
    truth.motion = camera_motion::turning;
    truth.focal = focal;
    for (int i = 0; i < count; ++i) {
        truth.places.push_back(tarn::test::panorama_room::rotation(i * degrees * CV_PI / 180, 0.05 * std::sin(i)));
    }
    truth.placed.assign(truth.places.size(), true);
    return truth;
}

TEST(FinishingCameras, ATurningCameraIsFoundWithItsFocalLength)
{
    for (const double focal : {0.6, 1.2, 3.0}) {
        const camera_set truth = turning_truth(12, 8.0 / focal, focal);
        const camera_set found = find_cameras(links_of(truth, 0.0005), 12, no_step);
        EXPECT_EQ(found.motion, camera_motion::turning) << focal;
        EXPECT_NEAR(found.focal, focal, 0.02 * focal);
        for (int i = 1; i < 12; ++i) {
            const cv::Matx33d difference = (found.places[0].t() * found.places[static_cast<std::size_t>(i)]).t()
                                           * truth.places[0].t() * truth.places[static_cast<std::size_t>(i)];
            EXPECT_NEAR(cv::trace(difference), 3.0, 1e-3);
        }
    }
}

TEST(FinishingCameras, ASlidingCameraIsTakenForOne)
{
    camera_set truth;
    truth.motion = camera_motion::sliding;
    for (int i = 0; i < 12; ++i) {
        const double turn = 0.03 * std::sin(2.0 * i);
        const double size = 1.0 + 0.02 * std::cos(i);
        truth.places.emplace_back(size * std::cos(turn), -size * std::sin(turn), 0.2 * i, size * std::sin(turn),
                                  size * std::cos(turn), 0.01 * i, 0, 0, 1);
    }
    truth.placed.assign(12, true);
    const camera_set found = find_cameras(links_of(truth, 0.0003), 12, no_step);
    EXPECT_EQ(found.motion, camera_motion::sliding);
    const cv::Matx33d difference = found.j_from_i(0, 11).inv() * truth.j_from_i(0, 11);
    EXPECT_NEAR(cv::norm(difference - cv::Matx33d::eye()), 0.0, 0.01);
}

TEST(FinishingCameras, OutliersDoNotMoveTheCameras)
{
    const camera_set truth = turning_truth(8, 8.0, 1.2);
    std::vector<frame_link> links = links_of(truth, 0.0002);
    for (frame_link& link : links) {
        for (std::size_t k = 0; k < link.in_j.size(); k += 6) {
            link.in_j[k] += decltype(link.in_j)::value_type(0.05f, 0.02f);
        }
    }
    const camera_set found = find_cameras(links, 8, no_step);
    EXPECT_EQ(found.motion, camera_motion::turning);
    EXPECT_NEAR(found.focal, 1.2, 0.05);
    EXPECT_LT(median_residual(found, links), 0.0008);
}

TEST(FinishingCameras, WhatNothingJoinsHasNoPlace)
{
    const camera_set truth = turning_truth(9, 8.0, 1.2);
    std::vector<frame_link> links;
    for (const frame_link& link : links_of(truth, 0.0)) {
        if (link.j < 6 || link.i >= 6) {
            links.push_back(link);
        }
    }
    const camera_set found = find_cameras(links, 9, no_step);
    for (std::size_t i = 0; i < 9; ++i) {
        EXPECT_EQ(found.placed[i], i < 6) << i;
    }
}

TEST(FinishingCameras, EachStepMayEndTheSearch)
{
    struct enough {};

    const std::vector<frame_link> links = links_of(turning_truth(6, 8.0, 1.2), 0.0);
    int steps = 0;
    EXPECT_THROW(find_cameras(links, 6,
                              [&] {
                                  if (++steps == 3) {
                                      throw enough();
                                  }
                              }),
                 enough);
}

TEST(FinishingCameras, TheNearestRotationOfARotationIsItself)
{
    const cv::Matx33d rotation = tarn::test::panorama_room::rotation(0.7, -0.4);
    EXPECT_NEAR(cv::norm(nearest_rotation(rotation * 3.0) - rotation), 0.0, 1e-12);
    EXPECT_NEAR(cv::norm(nearest_rotation(rotation * -3.0) - rotation), 0.0, 1e-12);
}

}  // namespace
