// SPDX-License-Identifier: Apache-2.0
//
// What a processor computed, written down as text: one line for each kernel or stage.
//
//   exact NAME DIGEST        must be the same on every processor
//   close NAME VALUE…        angles in degrees that depend on the C library's arc tangent: may differ by a few last
//                            bits of a single-precision number
//   library NAME VALUE…      depends on OpenCV, or on whether a last bit of the C library's arc tangent
//                            moves a pixel: may differ, and is only reported
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace tarn::test {

/// A 64-bit digest (FNV-1a) of a sequence of results.
class digest {
public:
    void add(int value);
    /// By its bits. The sign and the payload of a NaN are the processor's own, so all of them count as one.
    void add(float value);
    void add(const cv::Point2f& point);
    void add(const std::vector<cv::Point2f>& points);
    /// Size, type and every byte.
    void add(const cv::Mat& image);
    void add_bytes(const void* bytes, std::size_t count);

    std::string text() const;

private:
    std::uint64_t state_ = 14695981039346656037U;
};

/// Writes the line of a kernel to standard output.
void write_exact(const std::string& name, const digest& results);

/// Writes the line of a stage, or of a kernel whose pixels another library may move, to standard output.
void write_library(const std::string& name, const std::vector<double>& values);

/// Writes the line of a helper that uses the C library's arc tangent.
void write_close(const std::string& name, const std::vector<double>& degrees);

/// All kernels and helpers, over random input of a fixed seed; those with an arc tangent twice, exact with a properly
/// rounded one, and with the C library's close or, for the cylinder, as library.
void write_kernel_digests();

/// Writes the frames of a sample sweep into a directory, as frame1000.png and so on: a video is not decoded to the
/// same pixels everywhere, a picture without losses is.
/// @returns whether all could be written
bool write_frames(const std::string& directory);

/// The stages of the live path and of a worker that are OpenCV's, on frames that write_frames wrote. A
/// stage's input is what the stage before gave on the same processor.
/// @returns whether the frames can be read
bool write_library_stages(const std::string& directory);

/// Compares two records line by line and reports to standard output.
/// @returns whether the records have the same lines, and all exact and close ones agree
bool compare_records(const std::string& one, const std::string& other);

/// Compares two image files and reports to standard output: sizes, and the differences of the bytes where both
/// images have some.
/// @returns whether both can be read and their sizes differ by no more than `tolerance` pixels
bool compare_images(const std::string& one, const std::string& other, int tolerance);

}  // namespace tarn::test
