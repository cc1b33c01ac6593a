// SPDX-License-Identifier: Apache-2.0
#include "tarn_c.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include <opencv2/core.hpp>

#include "internal/c_boundary.h"
#include "tarn_sweep.h"
#include "vocabulary.h"

namespace tarn {

namespace {

// Failure.

/// Without a destructor, so that it can be read until a thread's very end.
thread_local char last_error[1024];

tarn_result fail(tarn_result result, const char* text) noexcept
{
    copy_text(*text == '\0' ? tarn_result_name(result) : text, last_error, sizeof last_error);
    std::replace(last_error, last_error + std::strlen(last_error), '\n', ' ');
    return result;
}

/// Does a function's work; what it throws becomes the result and the text.
template <typename Work>
tarn_result answer_of(const Work& work) noexcept
{
    try {
        work();
        return TARN_OK;
    } catch (const c_failure& failure) {
        return fail(failure.result, failure.text.c_str());
    } catch (const sweep_error& error) {
        return fail(static_cast<tarn_result>(error.problem()), error.what());
    } catch (const std::bad_alloc&) {
        return fail(TARN_ERROR_NO_MEMORY, "no memory");
    } catch (const cv::Exception& error) {
        return fail(error.code == cv::Error::StsNoMem ? TARN_ERROR_NO_MEMORY : TARN_ERROR_UNEXPECTED, error.what());
    } catch (const std::exception& error) {
        return fail(TARN_ERROR_UNEXPECTED, error.what());
    } catch (...) {
        return fail(TARN_ERROR_UNEXPECTED, "an exception of unknown type");
    }
}

template <typename Pointer>
void require(const Pointer* pointer, const char* name)
{
    if (pointer == nullptr) {
        throw c_failure{TARN_ERROR_BAD_ARGUMENT, std::string(name) + " is null"};
    }
}

void require_outside_of_callbacks()
{
    if (is_in_callback()) {
        throw c_failure{TARN_ERROR_IN_CALLBACK, "called from a callback, for whose end it would have to wait"};
    }
}

const cv::Mat& image_of(const held_panorama& panorama)
{
    if (panorama.result.image.empty()) {
        throw c_failure{TARN_ERROR_NO_PANORAMA, std::string("there is no panorama: ") + name_of(panorama.result.why)};
    }
    return panorama.result.image;
}

}  // namespace

}  // namespace tarn

using namespace tarn;  // NOLINT(google-build-using-namespace): what follows is this namespace's face to C

const char* tarn_last_error()
{
    return last_error;
}

// A sweep.

tarn_result tarn_sweep_begin(const tarn_sweep_options* options, tarn_sweep** sweep)
{
    return answer_of([&] {
        require(sweep, "sweep");
        *sweep = nullptr;
        require_outside_of_callbacks();
        tarn::sweep begun = tarn::sweep::begin(options_from(options));
        std::string directory = begun.directory();
        *sweep = handle_of<tarn_sweep>(std::make_shared<held_sweep>(std::move(begun), std::move(directory)));
    });
}

tarn_result tarn_sweep_feed(tarn_sweep* sweep, const tarn_image* frame, int hint, tarn_answer* answer)
{
    return answer_of([&] {
        const auto held = thing_of<held_sweep>(sweep, "sweep");
        require_outside_of_callbacks();
        const frame_view view = view_from(frame, "frame");
        if (answer != nullptr) {
            size_of_host(answer, "answer");
        }
        const frame_answer given = held->session.feed(view, static_cast<direction_code>(hint));
        if (answer != nullptr) {
            tell(given, answer);
        }
    });
}

tarn_result tarn_sweep_finish(tarn_sweep* sweep, const tarn_finish_options* options, tarn_panorama** panorama)
{
    return answer_of([&] {
        require(panorama, "panorama");
        *panorama = nullptr;
        const auto held = thing_of<held_sweep>(sweep, "sweep");
        require_outside_of_callbacks();
        frame_view last_frame;
        const finish_options wanted = options_from(options, last_frame);
        *panorama = handle_of<tarn_panorama>(std::make_shared<held_panorama>(held->session.finish(wanted)));
    });
}

tarn_result tarn_sweep_cancel(tarn_sweep* sweep)
{
    return answer_of([&] { thing_of<held_sweep>(sweep, "sweep")->session.cancel(); });
}

int tarn_sweep_is_current(tarn_sweep* sweep)
{
    const auto held = handles().find<held_sweep>(sweep);
    return held != nullptr && held->session.is_current() ? 1 : 0;
}

tarn_result tarn_sweep_get_status(tarn_sweep* sweep, tarn_status* status)
{
    return answer_of([&] {
        const auto held = thing_of<held_sweep>(sweep, "sweep");
        size_of_host(status, "status");
        tell(held->session.status(), status);
    });
}

tarn_result tarn_sweep_wait_for_room(tarn_sweep* sweep, int most, int milliseconds, int* has_room)
{
    return answer_of([&] {
        const auto held = thing_of<held_sweep>(sweep, "sweep");
        require(has_room, "has_room");
        const auto time_out =
            milliseconds < 0 ? std::chrono::milliseconds::max() : std::chrono::milliseconds(milliseconds);
        *has_room = held->session.wait_for_room(most, time_out) ? 1 : 0;
    });
}

tarn_result tarn_sweep_preview(tarn_sweep* sweep, tarn_picture** picture, tarn_preview_info* info)
{
    return answer_of([&] {
        require(picture, "picture");
        *picture = nullptr;
        const auto held = thing_of<held_sweep>(sweep, "sweep");
        if (info != nullptr) {
            size_of_host(info, "info");
        }
        const preview_view preview = held->session.preview();
        if (!preview.pixels.empty()) {
            *picture = handle_of<tarn_picture>(std::make_shared<held_picture>(preview.pixels));
        }
        if (info != nullptr) {
            tell(preview, info);
        }
    });
}

tarn_result tarn_sweep_directory(tarn_sweep* sweep, const char** path)
{
    return answer_of([&] {
        require(path, "path");
        *path = nullptr;
        const auto held = thing_of<held_sweep>(sweep, "sweep");
        static_cast<void>(held->session.directory());  // throws when the sweep is over
        *path = held->directory.c_str();
    });
}

void tarn_sweep_free(tarn_sweep* sweep)
{
    // Another thread's call, or the one around this callback, may have hold of it for a while yet.
    if (const auto held = handles().take<held_sweep>(sweep)) {
        held->session.cancel();
    }
}

// A picture.

tarn_result tarn_picture_view(tarn_picture* picture, tarn_image* view)
{
    return answer_of([&] { tell(thing_of<held_picture>(picture, "picture")->pixels, view); });
}

tarn_result tarn_picture_keep(tarn_picture* picture, tarn_picture** own)
{
    return answer_of([&] {
        require(own, "own");
        *own = nullptr;
        *own = handle_of<tarn_picture>(thing_of<held_picture>(picture, "picture"));
    });
}

void tarn_picture_free(tarn_picture* picture)
{
    handles().take<held_picture>(picture);
}

// A panorama.

tarn_result tarn_panorama_get_info(tarn_panorama* panorama, tarn_panorama_info* info)
{
    return answer_of([&] {
        const auto held = thing_of<held_panorama>(panorama, "panorama");
        tell(held->result, info);
    });
}

tarn_result tarn_panorama_last_answer(tarn_panorama* panorama, tarn_answer* answer)
{
    return answer_of([&] { tell(thing_of<held_panorama>(panorama, "panorama")->result.last_frame, answer); });
}

tarn_result tarn_panorama_view(tarn_panorama* panorama, tarn_image* view)
{
    return answer_of([&] {
        const auto held = thing_of<held_panorama>(panorama, "panorama");
        tell(image_of(*held), view);
    });
}

tarn_result tarn_panorama_jpeg(tarn_panorama* panorama, const unsigned char** bytes, size_t* count)
{
    return answer_of([&] {
        require(bytes, "bytes");
        require(count, "count");
        *bytes = nullptr;
        *count = 0;
        const auto held = thing_of<held_panorama>(panorama, "panorama");
        image_of(*held);
        const std::lock_guard<std::mutex> guard(held->encoding);
        if (held->jpeg.empty()) {
            held->jpeg = held->result.jpeg();
        }
        *bytes = held->jpeg.data();
        *count = held->jpeg.size();
    });
}

tarn_result tarn_panorama_save(tarn_panorama* panorama, const char* path)
{
    return answer_of([&] {
        const auto held = thing_of<held_panorama>(panorama, "panorama");
        require(path, "path");
        image_of(*held);
        held->result.save(path);
    });
}

void tarn_panorama_free(tarn_panorama* panorama)
{
    handles().take<held_panorama>(panorama);
}
