// SPDX-License-Identifier: Apache-2.0
//
// Writing a picture into the working directory, whole or not at all, and so that nothing outside is reached.
#pragma once

#include <string>

#include <opencv2/core.hpp>

namespace tarn {

/// Writes an image as a JPEG file, with the bytes that cv::imwrite would write, and with the mode that it would
/// give: 0666, less what the process's umask takes away.
///
/// The file appears whole or not at all: it is written under a hidden name beside `path` and then moved there. What
/// lay at `path` is replaced and never written into, be it a symbolic link, a further name of another file, a pipe
/// or a device. If anything fails, what lay there stays, and nothing else is left behind.
///
/// @param path   a file name, in the file system's own encoding; the directory must exist
/// @param image  1, 3 or 4 channels; depths other than 8 bits are converted
/// @returns whether the file was written
/// @throws cv::Exception for an image without pixels
bool write_jpeg(const std::string& path, const cv::Mat& image);

}  // namespace tarn
