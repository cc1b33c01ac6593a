// SPDX-License-Identifier: Apache-2.0
//
// What the benchmarks of whole tasks share: a task of their own, and the proof that its panorama is the right one.
#pragma once

#include <streambuf>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "support/rendered_sweep.h"

namespace tarn::bench {

/// A new task in a directory of its own while it lives, and the log out of the way.
class quiet_task {
public:
    quiet_task();
    /// Waits for the workers, and removes the directory.
    ~quiet_task();
    quiet_task(const quiet_task&) = delete;
    quiet_task& operator=(const quiet_task&) = delete;

private:
    std::streambuf* console_;
    std::string directory_;
};

/// Waits until all key frames so far have had their turns.
void wait_for_turns();

/// Whether the last frame's call has left a file that decodes to a picture of the panorama's size and content.
bool wrote_the_panorama();

/// Whether the panorama has the size and the content of the plane over which the sweep goes, as far as its key frames,
/// of which these are the numbers, show it.
bool shows_the_plane(const cv::Mat& panorama, const tarn::test::rendered_sweep& sweep,
                     const std::vector<int>& key_frames);

/// Whether two images have the same size and bytes, of which there are some.
bool same_pixels(const cv::Mat& a, const cv::Mat& b);

}  // namespace tarn::bench
