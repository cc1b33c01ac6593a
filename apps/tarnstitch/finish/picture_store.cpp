// SPDX-License-Identifier: Apache-2.0
//
// Files of bare pixels: they are read once or twice and then removed.
#include "picture_store.h"

#include <cstdio>
#include <fstream>

#include "host_error.h"

namespace tarn::host {

namespace {

double bytes_of(const cv::Mat& picture)
{
    return static_cast<double>(picture.total() * picture.elemSize());
}

std::streamsize bytes_of_row(const cv::Mat& picture)
{
    return static_cast<std::streamsize>(picture.elemSize() * static_cast<std::size_t>(picture.cols));
}

}  // namespace

picture_store::picture_store(double memory) : memory_left_(memory)
{
}

std::size_t picture_store::add(const cv::Mat& picture)
{
    entry one;
    one.size = picture.size();
    if (bytes_of(picture) <= memory_left_ || !write(one, picture)) {
        memory_left_ -= bytes_of(picture);
        one.pixels = picture;
    } else {
        ++in_files_;
    }
    entries_.push_back(one);
    return entries_.size() - 1;
}

bool picture_store::write(entry& one, const cv::Mat& picture)
{
    try {
        if (!directory_) {
            directory_.emplace();
        }
    } catch (const host_error&) {
        return false;
    }
    one.file = directory_->path() + std::to_string(entries_.size());
    std::ofstream file(one.file, std::ios::binary);
    for (int y = 0; y < picture.rows && file; ++y) {
        file.write(picture.ptr<char>(y), bytes_of_row(picture));
    }
    file.close();
    if (!file) {
        std::remove(one.file.c_str());
        one.file.clear();
        return false;
    }
    return true;
}

cv::Mat picture_store::picture(std::size_t number) const
{
    const entry& one = entries_.at(number);
    if (!one.pixels.empty()) {
        return one.pixels;
    }
    cv::Mat picture(one.size, CV_8UC3);
    std::ifstream file(one.file, std::ios::binary);
    for (int y = 0; y < picture.rows && file; ++y) {
        file.read(picture.ptr<char>(y), bytes_of_row(picture));
    }
    return file ? picture : cv::Mat();
}

}  // namespace tarn::host
