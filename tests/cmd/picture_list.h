// SPDX-License-Identifier: Apache-2.0
//
// An input of the command-line host whose pictures are in memory.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "frame_source.h"

namespace tarn::test {

/// Pictures that are in memory already.
class picture_list : public host::frame_source {
public:
    /// @param rate  pictures per second; 0 for pictures without times
    /// @param live  as from a camera, which does not know how many there will be
    explicit picture_list(std::vector<cv::Mat> pictures, double rate = 0.0, bool live = false)
        : pictures_(std::move(pictures))
    {
        facts_.files = {"pictures"};
        facts_.rate = rate;
        facts_.has_times = rate > 0.0;
        facts_.announced = live ? 0 : static_cast<int>(pictures_.size());
        facts_.live = live;
    }

    const host::source_facts& facts() const override
    {
        return facts_;
    }

    bool advance(host::frame_stamp& stamp) override
    {
        if (next_ == pictures_.size()) {
            return false;
        }
        stamp.number = static_cast<int>(++next_);
        stamp.seconds = facts_.rate > 0.0 ? static_cast<double>(next_ - 1) / facts_.rate : -1.0;
        return true;
    }

    cv::Mat picture(host::frame_turn turn) override
    {
        return host::frame_for_library(pictures_[next_ - 1], turn);
    }

    std::string name() const override
    {
        return "picture " + std::to_string(next_);
    }

    int passed_over() const override
    {
        return 0;
    }

private:
    std::vector<cv::Mat> pictures_;
    host::source_facts facts_;
    std::size_t next_ = 0;
};

}  // namespace tarn::test
