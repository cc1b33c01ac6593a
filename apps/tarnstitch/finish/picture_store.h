// SPDX-License-Identifier: Apache-2.0
//
// Key frames kept until the picture is finished: in memory as long as they are few, then in a temporary directory.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "scratch_directory.h"

namespace tarn::host {

/// Pictures at full resolution and without loss. The pictures in memory stay below a limit, whatever their number; the
/// files go with the object, and when the program is interrupted.
class picture_store {
public:
    static constexpr double usual_memory = 192e6;  ///< bytes

    /// @param memory  bytes of pixels to keep in memory
    explicit picture_store(double memory = usual_memory);

    /// Takes a picture, CV_8UC3, whose pixels must not change afterwards. Where no file can be written, it stays in
    /// memory all the same.
    /// @returns its number, from 0
    std::size_t add(const cv::Mat& picture);

    /// A picture; empty when its file cannot be read.
    cv::Mat picture(std::size_t number) const;

    /// Where a picture lies; "" when it is in memory.
    const std::string& file(std::size_t number) const
    {
        return entries_.at(number).file;
    }

    /// Pictures that are in files.
    int in_files() const
    {
        return in_files_;
    }

private:
    struct entry {
        cv::Mat pixels;  ///< empty when they are in the file
        cv::Size size;
        std::string file;
    };

    bool write(entry& one, const cv::Mat& picture);

    double memory_left_;
    std::vector<entry> entries_;
    std::optional<scratch_directory> directory_;
    int in_files_ = 0;
};

}  // namespace tarn::host
