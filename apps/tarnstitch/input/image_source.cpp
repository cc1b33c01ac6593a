// SPDX-License-Identifier: Apache-2.0
//
// Reading still images, each when it is its turn.
#include "image_source.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include <opencv2/imgcodecs.hpp>

#include "image_files.h"
#include "image_size.h"
#include "media_logs.h"
#include "metadata.h"

namespace tarn::host {

namespace {

bool is_regular(const std::string& path)
{
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

class image_source : public frame_source {
public:
    image_source(std::vector<std::string> files, int max_pixels) : max_pixels_(max_pixels)
    {
        facts_.announced = static_cast<int>(files.size());
        facts_.rereadable = std::all_of(files.begin(), files.end(), is_regular);
        if (is_regular(files.front()) && exif_orientation(files.front()) == shown_turned_counter_clockwise) {
            facts_.as_recorded = frame_turn::clockwise;
        }
        facts_.files = std::move(files);
    }

    const source_facts& facts() const override
    {
        return facts_;
    }

    bool advance(frame_stamp& stamp) override
    {
        if (next_ == facts_.files.size()) {
            return false;
        }
        stamp.number = static_cast<int>(++next_);
        return true;
    }

    cv::Mat picture(frame_turn turn) override
    {
        if (is_regular(name())) {
            check_size(name(), image_size(name()), max_pixels_);
            if (is_cut_jpeg(name())) {
                return {};
            }
        }
        const quiet_decoder quiet;
        try {
            return frame_for_library(cv::imread(name(), cv::IMREAD_COLOR),
                                     turn);  // upright by its Exif orientation
        } catch (const cv::Exception& error) {
            if (error.code == cv::Error::StsNoMem) {
                throw;
            }
            return {};  // a size beyond OpenCV's limits, a broken header
        }
    }

    std::string name() const override
    {
        return facts_.files[next_ - 1];
    }

    int passed_over() const override
    {
        return 0;
    }

private:
    static constexpr int shown_turned_counter_clockwise = 8;  // Exif's value of an orientation

    source_facts facts_;
    int max_pixels_;
    std::size_t next_ = 0;
};

}  // namespace

std::unique_ptr<frame_source> open_images(std::vector<std::string> files, int max_pixels)
{
    return std::make_unique<image_source>(std::move(files), max_pixels);
}

}  // namespace tarn::host
