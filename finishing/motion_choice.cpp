// SPDX-License-Identifier: Apache-2.0
//
// Which way of moving explains a sweep.
#include <algorithm>
#include <array>
#include <limits>

#include "adjustment.h"

namespace tarn::finishing {

namespace {

/// The camera in the middle of those that have a place: it stays where it is.
int fixed_camera(const camera_set& cameras)
{
    const auto count = static_cast<int>(std::count(cameras.placed.begin(), cameras.placed.end(), true));
    int before = 0;
    for (std::size_t i = 0; i < cameras.placed.size(); ++i) {
        if (cameras.placed[i] && before++ == count / 2) {
            return static_cast<int>(i);
        }
    }
    return 0;
}

std::vector<frame_link> links_between_placed(const std::vector<frame_link>& links, const camera_set& cameras)
{
    std::vector<frame_link> result;
    std::copy_if(links.begin(), links.end(), std::back_inserter(result), [&](const frame_link& link) {
        return cameras.placed[static_cast<std::size_t>(link.i)] && cameras.placed[static_cast<std::size_t>(link.j)];
    });
    return result;
}

constexpr int most_steps = 40;

/// A turning camera, begun with several focal lengths: from a wrong one the way to the right one may be closed.
camera_set turning_cameras(const std::vector<frame_link>& links, int count, const std::function<void()>& each_step)
{
    constexpr std::array focal_lengths = {0.5, 0.7, 1.0, 1.5, 2.5, 5.0};  // in longer sides
    constexpr int first_steps = 4;
    camera_set best;
    double least_cost = std::numeric_limits<double>::infinity();
    for (const double focal : focal_lengths) {
        camera_set cameras = chained_cameras(links, count, camera_motion::turning, focal);
        const double cost = adjust_cameras(cameras, links_between_placed(links, cameras), fixed_camera(cameras),
                                           first_steps, each_step);
        if (cost < least_cost) {
            least_cost = cost;
            best = cameras;
        }
    }
    adjust_cameras(best, links_between_placed(links, best), fixed_camera(best), most_steps, each_step);
    return best;
}

camera_set planar_cameras(const std::vector<frame_link>& links, camera_set cameras, camera_motion motion,
                          const std::function<void()>& each_step)
{
    cameras.motion = motion;
    adjust_cameras(cameras, links_between_placed(links, cameras), fixed_camera(cameras), most_steps, each_step);
    return cameras;
}

}  // namespace

camera_set find_cameras(const std::vector<frame_link>& links, int count, const std::function<void()>& each_step)
{
    // Below that nobody sees a difference: a fifth of a working copy's pixel.
    constexpr double unseen = 0.0002;
    // By so much must a motion with more freedom be better to be taken.
    constexpr double clearly_better = 0.75;
    constexpr double much_nearer = 0.25;
    // Longer sides: a longer focal length means that what turning does cannot be told from sliding.
    constexpr double longest_focal = 6.0;
    constexpr double shortest_focal = 0.3;

    // Each is only looked for while it may still be chosen.
    const auto residual_of = [&](const camera_set& cameras) {
        return std::max(unseen, median_residual(cameras, links));
    };
    camera_set turning = turning_cameras(links, count, each_step);
    bool turns = turning.focal < longest_focal && turning.focal > shortest_focal;
    const double exact_turning_residual = median_residual(turning, links);
    const double turning_residual = residual_of(turning);
    if (turns && exact_turning_residual <= much_nearer * unseen) {
        return turning;
    }
    camera_set best = planar_cameras(links, chained_cameras(links, count, camera_motion::sliding, 1.0),
                                     camera_motion::sliding, each_step);
    double residual = residual_of(best);
    // A turn through a long lens is nearly a slide: the one that is nearer by far is meant, however near both are.
    turns = turns && median_residual(best, links) >= much_nearer * exact_turning_residual;
    if (turns && turning_residual <= unseen) {
        return turning;
    }
    if (residual > unseen) {
        camera_set freer = best;
        for (const camera_motion motion : {camera_motion::tilting, camera_motion::projective}) {
            freer = planar_cameras(links, freer, motion, each_step);
            const double own = residual_of(freer);
            // A homography for each explains everything, parallax and a bent lens included, so it does not count
            // against turning.
            if (motion == camera_motion::tilting && turns && turning_residual <= own) {
                return turning;
            }
            if (own < clearly_better * residual) {
                best = freer;
                residual = own;
            }
        }
    }
    return best;
}

}  // namespace tarn::finishing
