// SPDX-License-Identifier: Apache-2.0
#include "python_finishing.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "tarn_finishing.h"

namespace {

using tarn::finishing::finishing_options;
using tarn::finishing::finishing_result;
using tarn::finishing::key_frame;

struct held_result {
    finishing_result result;
    std::vector<int> left_out;
};

key_frame frame_from(const tarnpy_finishing_frame& given, int number)
{
    key_frame frame;
    frame.number = number;
    if (given.placed != 0) {
        frame.placement.create(3, 3, CV_64F);
        std::copy(std::begin(given.placement), std::end(given.placement), frame.placement.begin<double>());
    }
    // OpenCV has no view of constant pixels; these are only read.
    cv::Mat pixels(given.height, given.width, CV_8UC3, const_cast<unsigned char*>(given.pixels), given.row_stride);
    frame.image = [pixels] { return pixels; };
    return frame;
}

void tell(const held_result& held, tarnpy_finished& told)
{
    const finishing_result& result = held.result;
    told.outcome = static_cast<int>(result.outcome);
    told.failed_number = result.failed_number;
    told.explanation = result.explanation.c_str();
    told.pixels = result.picture.data;
    told.mask = result.mask.data;
    if (!result.picture.empty()) {
        told.row_stride = result.picture.step[0];
        told.mask_stride = result.mask.step[0];
        told.width = result.picture.cols;
        told.height = result.picture.rows;
    }
    told.motion = name_of(result.motion);
    told.projection = name_of(result.drawn_on);
    told.horizontal_field_of_view = result.horizontal_field_of_view;
    told.vertical_field_of_view = result.vertical_field_of_view;
    told.scale = result.scale;
    told.residual = result.residual;
    told.left_out = held.left_out.data();
}

}  // namespace

int tarnpy_finish(const tarnpy_finishing_frame* frames, int count, int cropping, double most_megapixels,
                  int (*progress)(const char* stage, double part), tarnpy_finished* finished)
{
    *finished = {};
    try {
        std::vector<key_frame> key_frames;
        key_frames.reserve(static_cast<std::size_t>(count));
        for (int number = 0; number < count; ++number) {
            key_frames.push_back(frame_from(frames[number], number));
        }
        finishing_options options;
        options.cropping = static_cast<tarn::finishing::crop>(cropping);
        options.most_megapixels = most_megapixels;
        if (progress != nullptr) {
            options.progress = [progress](tarn::finishing::stage now, double part) {
                return progress(name_of(now), part) != 0;
            };
        }
        auto held = std::make_unique<held_result>();
        held->result = tarn::finishing::finish(key_frames, options);
        held->left_out.assign(static_cast<std::size_t>(count), 0);
        for (const tarn::finishing::frame_report& report : held->result.frames) {
            held->left_out.at(static_cast<std::size_t>(report.number)) = static_cast<int>(report.omitted);
        }
        tell(*held, *finished);
        finished->held = held.release();
        return 1;
    } catch (const std::exception&) {
        return 0;
    }
}

const char* tarnpy_finishing_outcome(int outcome)
{
    return name_of(static_cast<tarn::finishing::status>(outcome));
}

const char* tarnpy_left_out(int why)
{
    return name_of(static_cast<tarn::finishing::left_out>(why));
}

void tarnpy_free_finished(void* held)
{
    const std::unique_ptr<held_result> until_the_end(static_cast<held_result*>(held));
}
