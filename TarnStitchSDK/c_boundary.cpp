// SPDX-License-Identifier: Apache-2.0
#include "internal/c_boundary.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <pthread.h>

namespace tarn {

namespace {

/// How many of the host's callbacks this thread is in.
thread_local int callback_depth = 0;

/// Calls a callback of the host's.
template <typename Callback, typename... Argument>
auto call_host(Callback* callback, Argument... argument)
{
    struct depth {
        depth()
        {
            ++callback_depth;
        }

        ~depth()
        {
            --callback_depth;
        }
    } const inside;

    return callback(argument...);
}

void give_key_frame(void (*callback)(void*, const tarn_key_frame*), void* user, const key_frame& given)
{
    tarn_key_frame told;
    TARN_INIT(told);
    told.number = given.number;
    told.placed = given.placed ? 1 : 0;
    std::copy(std::begin(given.plane_from_frame.val), std::end(given.plane_from_frame.val), told.plane_from_frame);
    told.working_width = given.working_size.width;
    told.working_height = given.working_size.height;
    told.picture = handle_of<tarn_picture>(std::make_shared<held_picture>(given.image));
    // The handle ends with the callback, whichever way that is left.
    const std::unique_ptr<tarn_picture, decltype(&tarn_picture_free)> until_the_end(told.picture, &tarn_picture_free);
    call_host(callback, user, &told);
}

void copy_corners(const corners& from, float* to)
{
    for (const cv::Point2f& corner : from) {
        *to++ = corner.x;
        *to++ = corner.y;
    }
}

}  // namespace

handle_table& handles()
{
    static auto& table = *new handle_table;
    // A process that is forked off finds the table whole, and open.
    static const int ready_for_forks =
        pthread_atfork([] { table.lock(); }, [] { table.unlock(); }, [] { table.unlock(); });
    static_cast<void>(ready_for_forks);
    return table;
}

bool is_in_callback()
{
    return callback_depth > 0;
}

/// Copies a text, as far as it fits with its NUL, and never a part of a UTF-8 character.
void copy_text(std::string_view text, char* to, std::size_t capacity) noexcept
{
    std::size_t length = std::min(text.size(), capacity - 1);
    while (length > 0 && length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
        --length;
    }
    std::memcpy(to, text.data(), length);
    to[length] = '\0';
}

frame_view view_from(const tarn_image* given, const char* name)
{
    const tarn_image image = from_host(given, name);
    return {image.pixels, image.width, image.height, image.row_stride, static_cast<pixel_format>(image.format)};
}

sweep_options options_from(const tarn_sweep_options* given)
{
    if (given == nullptr) {
        return {};
    }
    const tarn_sweep_options asked = from_host(given, "options");
    sweep_options options;
    options.directory = asked.directory == nullptr ? "" : asked.directory;
    options.private_parent = asked.private_parent == nullptr ? "" : asked.private_parent;
    options.most_under_way = asked.most_under_way;
    void* const user = asked.user;
    if (asked.while_waiting != nullptr) {
        options.while_waiting = [callback = asked.while_waiting, user](int under_way) {
            return call_host(callback, user, under_way) != 0;
        };
    }
    if (asked.on_key_frame != nullptr) {
        options.on_key_frame = [callback = asked.on_key_frame, user](const key_frame& frame) {
            give_key_frame(callback, user, frame);
        };
    }
    if (asked.on_log != nullptr) {
        options.on_log = [callback = asked.on_log, user](const std::string& text) {
            call_host(callback, user, text.c_str());
        };
    }
    return options;
}

finish_options options_from(const tarn_finish_options* given, frame_view& last_frame)
{
    if (given == nullptr) {
        return {};
    }
    const tarn_finish_options asked = from_host(given, "options");
    finish_options options;
    if (asked.last_frame != nullptr) {
        last_frame = view_from(asked.last_frame, "options.last_frame");
        options.last_frame = &last_frame;
    }
    options.hint = static_cast<direction_code>(asked.hint);
    if (asked.on_progress != nullptr) {
        options.on_progress = [callback = asked.on_progress, user = asked.user](int done, int key_frames) {
            return call_host(callback, user, done, key_frames) != 0;
        };
    }
    return options;
}

void tell(const cv::Mat& pixels, tarn_image* view)
{
    tarn_image told{};
    told.pixels = pixels.data;
    told.width = pixels.cols;
    told.height = pixels.rows;
    told.row_stride = pixels.step;
    told.format = TARN_FORMAT_BGR;
    to_host(view, "view", told);
}

void tell(const frame_answer& given, tarn_answer* answer)
{
    tarn_answer told{};
    told.code = given.code;
    told.why = static_cast<int>(given.why);
    told.taken = given.taken ? 1 : 0;
    told.key_frame = given.key_frame;
    told.key_frames = given.key_frames;
    told.registered = given.registered ? 1 : 0;
    told.direction = given.direction;
    told.move_distance = given.move_distance;
    told.corners_found = given.corners_found;
    told.corners_tracked = given.corners_tracked;
    told.inliers = given.inliers;
    told.overlap = given.overlap;
    told.placed = given.placed ? 1 : 0;
    copy_corners(given.outline, told.outline);
    std::copy(given.angles.begin(), given.angles.end(), told.angles);
    std::copy(given.scales.begin(), given.scales.end(), told.scales);
    told.milliseconds = given.milliseconds;
    copy_text(given.detail, told.detail, sizeof told.detail);
    to_host(answer, "answer", told);
}

void tell(const sweep_status& found, tarn_status* status)
{
    tarn_status told{};
    told.key_frames = found.key_frames;
    told.under_way = found.under_way;
    told.pipeline = found.pipeline;
    told.first_failed_key_frame = found.first_failed_key_frame;
    told.why = static_cast<int>(found.why);
    to_host(status, "status", told);
}

void tell(const preview_view& preview, tarn_preview_info* info)
{
    tarn_preview_info told{};
    told.has_outline = preview.has_outline ? 1 : 0;
    told.frozen = preview.frozen ? 1 : 0;
    copy_corners(preview.outline, told.outline);
    to_host(info, "info", told);
}

void tell(const panorama& made, tarn_panorama_info* info)
{
    tarn_panorama_info told{};
    told.extent = static_cast<int>(made.extent);
    told.why = static_cast<int>(made.why);
    told.first_failed_key_frame = made.first_failed_key_frame;
    told.key_frames = made.key_frames;
    to_host(info, "info", told);
}

}  // namespace tarn
