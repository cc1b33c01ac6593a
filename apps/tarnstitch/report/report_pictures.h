// SPDX-License-Identifier: Apache-2.0
//
// The pictures of a report: small enough, as text. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace tarn::host {

/// The picture with no side longer than asked for; its own pixels where it is not larger.
cv::Mat no_larger_than(const cv::Mat& picture, int longest_side);

/// A picture as large as a report ever shows one.
cv::Mat small_copy_of(const cv::Mat& picture);

/// The picture as a JPEG of at most so many bytes, at first with less quality, then smaller; at the worst a few hundred
/// bytes whatever the limit. Empty for a picture without pixels.
/// @param picture  CV_8UC3, B,G,R
std::vector<unsigned char> jpeg_within(const cv::Mat& picture, std::size_t most_bytes);

/// The bytes as Base64.
std::string base64(const std::vector<unsigned char>& bytes);

/// A JPEG as an address that holds it: "data:image/jpeg;base64,…"; "" where there is none.
std::string address_of(const std::vector<unsigned char>& jpeg);

/// The SHA-256 of a text as a content security policy names it: "sha256-…".
std::string policy_digest(const std::string& text);

}  // namespace tarn::host
