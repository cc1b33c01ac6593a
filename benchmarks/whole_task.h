// SPDX-License-Identifier: Apache-2.0
//
// What the benchmarks of whole sweeps share: the proof that a sweep's panorama is the right one.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "support/rendered_sweep.h"
#include "tarn_sweep.h"

namespace tarn::bench {

/// Whether the panorama is whole, and the sweep's end has left a file that decodes to a picture of its size and
/// content.
bool wrote_the_panorama(const sweep& sweep, const panorama& made);

/// Whether the panorama has the size and the content of the plane over which the sweep goes, as far as its key frames,
/// of which these are the numbers, show it.
bool shows_the_plane(const cv::Mat& panorama, const tarn::test::rendered_sweep& sweep,
                     const std::vector<int>& key_frames);

/// Whether two images have the same size and bytes, of which there are some.
bool same_pixels(const cv::Mat& a, const cv::Mat& b);

}  // namespace tarn::bench
