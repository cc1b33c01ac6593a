// SPDX-License-Identifier: Apache-2.0
//
// JPEGs within limits.
#include "report_pictures.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <new>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/sha.h>
}

namespace tarn::host {

namespace {

std::vector<unsigned char> jpeg_of(const cv::Mat& picture, int quality)
{
    std::vector<unsigned char> bytes;
    cv::imencode(".jpg", picture, bytes, {cv::IMWRITE_JPEG_QUALITY, quality, cv::IMWRITE_JPEG_OPTIMIZE, 1});
    return bytes;
}

}  // namespace

cv::Mat no_larger_than(const cv::Mat& picture, int longest_side)
{
    const int longest = std::max(picture.cols, picture.rows);
    if (longest <= longest_side) {
        return picture;
    }
    const double scale = static_cast<double>(longest_side) / longest;
    const cv::Size size(std::max(1, cvRound(picture.cols * scale)), std::max(1, cvRound(picture.rows * scale)));
    cv::Mat smaller;
    cv::resize(picture, smaller, size, 0.0, 0.0, cv::INTER_AREA);
    return smaller;
}

cv::Mat small_copy_of(const cv::Mat& picture)
{
    constexpr int longest_side = 1600;
    return no_larger_than(picture, longest_side);
}

std::vector<unsigned char> jpeg_within(const cv::Mat& picture, std::size_t most_bytes)
{
    if (picture.empty()) {
        return {};
    }
    constexpr int good = 80;
    constexpr int fair = 60;
    constexpr int smallest_side = 16;
    constexpr double smaller = 0.75;
    cv::Mat shown = picture;
    std::vector<unsigned char> bytes = jpeg_of(shown, good);
    while (bytes.size() > most_bytes) {
        bytes = jpeg_of(shown, fair);
        const int longest = std::max(shown.cols, shown.rows);
        if (bytes.size() <= most_bytes || longest <= smallest_side) {
            break;
        }
        // From the first pixels each time, which costs no more than a blur upon a blur.
        shown = no_larger_than(picture, static_cast<int>(longest * smaller));
        bytes = jpeg_of(shown, good);
    }
    return bytes;
}

std::string base64(const std::vector<unsigned char>& bytes)
{
    static constexpr std::array letters = {
        'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L', 'M', 'N', 'O', 'P', 'Q', 'R', 'S', 'T', 'U', 'V',
        'W', 'X', 'Y', 'Z', 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p', 'q', 'r',
        's', 't', 'u', 'v', 'w', 'x', 'y', 'z', '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', '+', '/'};
    std::string text;
    constexpr std::size_t group = 3;
    text.reserve((bytes.size() + group - 1) / group * 4);
    for (std::size_t at = 0; at < bytes.size(); at += group) {
        const std::size_t count = std::min(group, bytes.size() - at);
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < group; ++i) {
            bits = bits << 8U | (i < count ? bytes[at + i] : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            text += i <= count ? letters.at(bits >> (18U - 6U * i) & 63U) : '=';
        }
    }
    return text;
}

std::string address_of(const std::vector<unsigned char>& jpeg)
{
    return jpeg.empty() ? "" : "data:image/jpeg;base64," + base64(jpeg);
}

std::string policy_digest(const std::string& text)
{
    constexpr int bits = 256;
    const std::unique_ptr<AVSHA, void (*)(void*)> state(av_sha_alloc(), av_free);
    if (!state) {
        throw std::bad_alloc();
    }
    av_sha_init(state.get(), bits);
    av_sha_update(state.get(), reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    std::vector<unsigned char> digest(bits / 8);
    av_sha_final(state.get(), digest.data());
    return "sha256-" + base64(digest);
}

}  // namespace tarn::host
