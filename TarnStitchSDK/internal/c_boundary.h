// SPDX-License-Identifier: Apache-2.0
//
// What lies between the functions of tarn_c.h and the session: what handles stand for, how callbacks are called, and
// each structure in the terms of the other side.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "../tarn_c.h"
#include "../tarn_sweep.h"
#include "handle_table.h"
#include "sized_structure.h"

namespace tarn {

struct held_sweep final : held_thing {
    held_sweep(sweep begun, std::string its_directory) : session(std::move(begun)), directory(std::move(its_directory))
    {
    }

    sweep session;
    const std::string directory;
};

struct held_picture final : held_thing {
    explicit held_picture(cv::Mat image) : pixels(std::move(image))
    {
    }

    const cv::Mat pixels;  ///< CV_8UC3, B,G,R
};

struct held_panorama final : held_thing {
    explicit held_panorama(panorama made) : result(std::move(made))
    {
    }

    const panorama result;
    std::mutex encoding;  ///< for jpeg
    std::vector<unsigned char> jpeg;
};

/// The table of all handles. Never destroyed: a thread may call while the process ends.
handle_table& handles();

/// What a handle stands for. @throws c_failure if it is null, was freed, or is of another kind; `name` is the
/// parameter's
template <typename Thing>
std::shared_ptr<Thing> thing_of(const void* handle, const char* name)
{
    std::shared_ptr<Thing> thing = handles().find<Thing>(handle);
    if (thing == nullptr) {
        throw c_failure{TARN_ERROR_NO_SUCH_HANDLE,
                        handle == nullptr ? std::string(name) + " is null"
                                          : std::string(name) + " was freed, or is the handle of something else"};
    }
    return thing;
}

/// A new handle, the host's.
template <typename Handle, typename Thing>
Handle* handle_of(std::shared_ptr<Thing> thing)
{
    return static_cast<Handle*>(handles().add(std::move(thing)));
}

/// Whether this thread is in one of the host's callbacks.
bool is_in_callback();

/// Copies a text, as far as it fits with its NUL, and never a part of a UTF-8 character.
void copy_text(std::string_view text, char* to, std::size_t capacity) noexcept;

// From the host. All throw c_failure for a structure that cannot be read.

frame_view view_from(const tarn_image* given, const char* name);

/// The callbacks hold what the host gave them, and stay valid without `given`.
sweep_options options_from(const tarn_sweep_options* given);

/// @param last_frame  where the last frame is put, to which the options point
finish_options options_from(const tarn_finish_options* given, frame_view& last_frame);

// To the host. Those that fill a structure throw c_failure if its size cannot be one.

void tell(const cv::Mat& pixels, tarn_image* view);
void tell(const frame_answer& given, tarn_answer* answer);
void tell(const sweep_status& found, tarn_status* status);
void tell(const preview_view& preview, tarn_preview_info* info);
void tell(const panorama& made, tarn_panorama_info* info);

}  // namespace tarn
