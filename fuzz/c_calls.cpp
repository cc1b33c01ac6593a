// SPDX-License-Identifier: Apache-2.0
//
// Any sequence of calls of the C interface, right and wrong ones: handles that live, were freed, are of another kind,
// null or invented; structures of every size, with and without what a newer host would ask for; frames of real sweeps
// and frames that are none. A model knows what each call has to be answered.
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "input_bytes.h"
#include "private_directory.h"
#include "target.h"
#include "tarn_c.h"
#include "tarn_stitch_jni.h"

using namespace tarn::fuzz;  // NOLINT(google-build-using-namespace): the targets' own helpers

namespace {

constexpr int most_calls = 60;
constexpr int frames_per_strip = 10;
constexpr int longest_wait = 2;  // s, of a worker for its turn
constexpr std::size_t greatest_size = 4096;

/// Frames of the sample sweeps, CV_8UC3, B,G,R.
std::vector<std::vector<cv::Mat>> sweeps;

void load_sweeps()
{
    for (const char* name : {"river_pan.jpg", "parking_pan.jpg", "hall_slide.jpg"}) {
        const cv::Mat strip = cv::imread(std::string(TARN_FUZZ_MATERIAL_DIR "/") + name);
        check(!strip.empty(), "the frames in fuzz/material can be read");
        const int height = strip.rows / frames_per_strip;
        sweeps.emplace_back();
        for (int i = 0; i < frames_per_strip; ++i) {
            sweeps.back().push_back(strip(cv::Rect(0, i * height, strip.cols, height)).clone());
        }
    }
}

/// A structure as a host of any version has it: in just so many bytes of memory as its size says.
template <typename Structure>
class structure {
public:
    structure(input_bytes& input, const Structure& wanted)
    {
        size_ = sizeof(Structure);
        const int kind = input.byte();
        if (kind >= 250) {
            const std::size_t none[] = {0, 7, 36, greatest_size + 1, ~std::size_t{0}};
            size_ = none[input.byte() % std::size(none)];
        } else if (kind >= 230) {
            size_ = sizeof(std::size_t) * static_cast<std::size_t>(input.integer(1, 50));
        } else if (kind >= 224) {
            size_ = greatest_size;
        }
        is_valid_ = size_ > 0 && size_ % sizeof(std::size_t) == 0 && size_ <= greatest_size;
        held_ = is_valid_ ? size_ : sizeof(std::size_t);
        bytes_.reset(new unsigned char[held_]);
        std::memset(bytes_.get(), 0, held_);
        std::memcpy(bytes_.get(), &wanted, std::min(held_, sizeof wanted));
        std::memcpy(bytes_.get(), &size_, sizeof size_);
        if (held_ > sizeof(Structure) && input.byte() % 4 == 0) {
            bytes_[held_ - 1] = 1;
            asks_for_more_ = true;
        }
        is_null_ = input.byte() >= 252;
    }

    Structure* pointer()
    {
        return is_null_ ? nullptr : reinterpret_cast<Structure*>(bytes_.get());
    }

    bool is_null() const
    {
        return is_null_;
    }

    /// Whether all members up to the one that ends there lie within it.
    bool reaches(std::size_t end) const
    {
        return held_ >= end;
    }

    /// What is wrong with it, as far as its size says.
    void add_faults(std::set<int>& faults, bool is_input) const
    {
        if (is_null_) {
            return;
        }
        if (!is_valid_) {
            faults.insert(TARN_ERROR_BAD_ARGUMENT);
        } else if (is_input && asks_for_more_) {
            faults.insert(TARN_ERROR_UNSUPPORTED);
        }
    }

    /// What it was filled with; what it did not reach is 0. Checks what lies beyond this version.
    Structure filled() const
    {
        Structure result;
        std::memset(&result, 0, sizeof result);
        std::memcpy(&result, bytes_.get(), std::min(held_, sizeof result));
        check(result.size == size_, "a structure's size is the host's");
        for (std::size_t i = sizeof(Structure); i < held_; ++i) {
            check(bytes_[i] == 0, "what the library does not know is told as 0");
        }
        return result;
    }

private:
    std::unique_ptr<unsigned char[]> bytes_;
    std::size_t size_ = 0;
    std::size_t held_ = 0;
    bool is_valid_ = true;
    bool is_null_ = false;
    bool asks_for_more_ = false;
};

enum class kind { sweep, picture, panorama };

struct slot {
    kind is = kind::sweep;
    void* handle = nullptr;
    bool lives = true;
    bool is_over = false;  ///< of a sweep: cancelled, or replaced
    cv::Mat shared;        ///< of a picture or panorama: a header of its pixels
    cv::Mat copy;          ///< and what they were
};

cv::Mat header_of(const tarn_image& view)
{
    check(view.format == TARN_FORMAT_BGR, "what is handed out is B,G,R");
    check(view.width > 0 && view.height > 0 && view.pixels != nullptr, "what is handed out has pixels");
    check(view.row_stride >= static_cast<std::size_t>(view.width) * 3, "its rows do not overlap");
    return {view.height, view.width, CV_8UC3, const_cast<void*>(view.pixels), view.row_stride};
}

class host {
public:
    explicit host(input_bytes& input) : input_(input)
    {
    }

    void make_call()
    {
        switch (input_.byte() % 20) {
        case 0:
            begin();
            break;
        case 1:
            finish();
            break;
        case 2:
            cancel();
            break;
        case 3:
            free_one();
            break;
        case 4:
            status();
            break;
        case 5:
            wait_for_room();
            break;
        case 6:
            preview();
            break;
        case 7:
            directory();
            break;
        case 8:
            keep();
            break;
        case 9:
            look_at_panorama();
            break;
        case 10:
            save();
            break;
        case 11:
            words();
            break;
        case 12:
            feed(any_frame());
            break;
        default:
            if (current() == nullptr) {
                begin();
            }
            sweep_ = input_.byte() % sweeps.size();
            for (int i = input_.integer(1, 5); i > 0; --i) {
                feed(next_frame());
            }
            break;
        }
    }

    void end()
    {
        for (slot& each : slots_) {
            free_slot(each);
        }
    }

private:
    // What is known of a result.

    /// `faults` holds what is wrong with the call: if nothing is, it must succeed, and else it must say one of them.
    bool judge(tarn_result result, const std::set<int>& faults)
    {
        if (result == TARN_OK) {
            check(faults.empty(), "a wrong call is refused");
            return true;
        }
        const std::string text = tarn_last_error();
        if (faults.count(result) == 0) {
            std::fprintf(stderr, "result %d: %s\n", result, text.c_str());
        }
        check(faults.count(result) != 0, "a call is refused for what is wrong with it");
        check(!text.empty() && text.size() < 1024 && text.find('\n') == std::string::npos,
              "a failure has a text of one line");
        check(std::strcmp(tarn_result_name(result), "unknown") != 0, "a result has a name");
        return false;
    }

    slot* current()
    {
        for (slot& each : slots_) {
            if (each.is == kind::sweep && each.lives && !each.is_over) {
                return &each;
            }
        }
        return nullptr;
    }

    /// A handle to pass as one of that kind, and the slot behind it, if there is a right one.
    void* any_handle(kind wanted, slot*& found)
    {
        found = nullptr;
        const int choice = input_.byte();
        if (choice >= 254) {
            return nullptr;
        }
        if (choice >= 252) {
            return reinterpret_cast<void*>(~static_cast<std::uintptr_t>(input_.byte()));
        }
        if (choice < 200) {
            for (auto each = slots_.rbegin(); each != slots_.rend(); ++each) {
                if (each->is == wanted && each->lives) {
                    found = &*each;
                    return each->handle;
                }
            }
        }
        if (slots_.empty()) {
            return nullptr;
        }
        slot& each = slots_[input_.byte() % slots_.size()];
        found = each.is == wanted && each.lives ? &each : nullptr;
        return each.handle;
    }

    tarn_sweep* any_sweep(slot*& found, std::set<int>& faults)
    {
        void* const handle = any_handle(kind::sweep, found);
        if (found == nullptr) {
            faults.insert(TARN_ERROR_NO_SUCH_HANDLE);
        } else if (found->is_over) {
            faults.insert(TARN_ERROR_OVER);
        }
        return static_cast<tarn_sweep*>(handle);
    }

    void add(kind is, void* handle, const cv::Mat& shared = {})
    {
        check(handle != nullptr, "a handle that is given is not null");
        for (const slot& each : slots_) {
            check(each.handle != handle, "a handle is not given twice");
        }
        slots_.push_back({is, handle, true, false, shared, shared.clone()});
    }

    void free_slot(slot& each)
    {
        if (each.lives && !each.copy.empty()) {
            check(same_image(each.shared, each.copy), "pixels that were handed out never change");
        }
        tarn_sweep_free(each.is == kind::sweep ? static_cast<tarn_sweep*>(each.handle) : nullptr);
        tarn_picture_free(each.is == kind::picture ? static_cast<tarn_picture*>(each.handle) : nullptr);
        tarn_panorama_free(each.is == kind::panorama ? static_cast<tarn_panorama*>(each.handle) : nullptr);
        each.lives = false;
        each.shared.release();
    }

    // Frames.

    struct frame {
        std::vector<unsigned char> bytes;  ///< just so many as are said to be there
        tarn_image image;
        bool is_valid = true;
    };

    frame next_frame()
    {
        const int step = input_.byte();
        at_ = (at_ + (step >= 240 ? frames_per_strip - 1 : 1)) % frames_per_strip;
        cv::Mat pixels = sweeps[sweep_][static_cast<std::size_t>(at_)];
        if (step % 8 == 0) {
            cv::flip(pixels, pixels, step % 3 - 1);
        }
        return made_of(pixels, 1 + step % 4, static_cast<std::size_t>(step % 3));
    }

    static frame made_of(const cv::Mat& bgr, int format, std::size_t padding)
    {
        static constexpr int conversions[] = {cv::COLOR_BGR2RGBA, cv::COLOR_BGR2BGRA, -1, cv::COLOR_BGR2GRAY};
        cv::Mat pixels = bgr;
        if (format != TARN_FORMAT_BGR) {
            cv::cvtColor(bgr, pixels, conversions[format - 1]);
        }
        const std::size_t row = static_cast<std::size_t>(pixels.cols) * pixels.elemSize();
        const std::size_t stride = row + padding;
        frame made;
        TARN_INIT(made.image);
        made.bytes.resize(static_cast<std::size_t>(pixels.rows - 1) * stride + row, 0xA5);
        for (int y = 0; y < pixels.rows; ++y) {
            std::memcpy(&made.bytes[static_cast<std::size_t>(y) * stride], pixels.ptr(y), row);
        }
        made.image.width = pixels.cols;
        made.image.height = pixels.rows;
        made.image.row_stride = padding == 0 ? 0 : stride;
        made.image.format = format;
        return made;
    }

    /// Of any size and content, or none at all.
    frame any_frame()
    {
        static constexpr int sides[] = {1, 2, 3, 17, 128, 300, 640, 16384};
        cv::Size size(sides[input_.byte() % std::size(sides)], sides[input_.byte() % std::size(sides)]);
        if (size.area() > 640 * 640) {
            size.height = 1;
        }
        frame made = made_of(input_.image(size, CV_8UC3), 1 + input_.byte() % 4, input_.byte() % 5);
        tarn_image& image = made.image;
        switch (input_.byte() % 12) {
        case 0:
            image.format = input_.integer(5, 2147483647);
            break;
        case 1:
            image.format = -input_.integer(0, 2147483647);
            break;
        case 2:
            image.width = -input_.integer(0, 2147483647);
            break;
        case 3:
            image.height = input_.integer(16385, 2147483647);
            break;
        case 4:
            image.width = input_.integer(16385, 2147483647);
            break;
        case 5:
            image.height = -input_.integer(0, 2147483647);
            break;
        case 6:
            image.row_stride = ~std::size_t{0} - input_.byte();
            break;
        case 7:
            image.row_stride = 1;
            made.is_valid = image.width == 1 && image.format == TARN_FORMAT_GRAY;
            return made;
        default:
            return made;
        }
        made.is_valid = false;
        return made;
    }

    // Calls.

    static void see_key_frame(void* user, const tarn_key_frame* told)
    {
        host& caller = *static_cast<host*>(user);
        check(told != nullptr && told->size == sizeof(tarn_key_frame), "a key frame's size");
        check(told->number >= 1 && (told->placed == 0 || told->placed == 1), "a key frame's number");
        check(told->working_width >= told->placed && told->working_width <= 300, "a key frame's working size");
        tarn_image view;
        TARN_INIT(view);
        check(tarn_picture_view(told->picture, &view) == TARN_OK, "a key frame has a picture");
        const cv::Mat pixels = header_of(view);
        tarn_sweep* other = nullptr;
        check(tarn_sweep_begin(nullptr, &other) == TARN_ERROR_IN_CALLBACK, "no sweep begins in a callback");
        const int wish = caller.input_.byte() % 8;
        if (wish < 3) {
            tarn_picture* own = nullptr;
            check(tarn_picture_keep(told->picture, &own) == TARN_OK, "a picture can be kept");
            caller.add(kind::picture, own, pixels);
        } else if (wish == 3) {
            slot* const sweep = caller.current();
            check(sweep == nullptr || tarn_sweep_cancel(static_cast<tarn_sweep*>(sweep->handle)) == TARN_OK,
                  "a sweep can be cancelled in a callback");
            caller.is_to_end_ = true;
        }
    }

    void begin()
    {
        const bool wants_callbacks = input_.flag();
        const std::string name = private_directory() + "sweep" + std::to_string(input_.byte() % 3);
        const std::string file = private_directory() + "file/below";
        tarn_sweep_options options;
        TARN_INIT(options);
        options.private_parent = private_directory().c_str();
        std::set<int> faults;
        const int place = input_.byte() % 8;
        options.directory = place == 0 ? file.c_str() : place < 4 ? name.c_str() : nullptr;
        options.most_under_way = input_.byte() % 16 == 0 ? -1 : input_.byte() % 4;
        options.user = this;
        if (wants_callbacks) {
            options.while_waiting = [](void* user, int under_way) {
                check(under_way >= 1, "nobody waits for no key frame");
                return static_cast<host*>(user)->input_.byte() % 64 == 1 ? 0 : 1;
            };
            options.on_key_frame = &host::see_key_frame;
            options.on_log = [](void* /*user*/, const char* text) { check(text != nullptr, "a log has a text"); };
        }
        structure<tarn_sweep_options> given(input_, options);
        given.add_faults(faults, true);
        if (!given.is_null() && given.reaches(offsetof(tarn_sweep_options, most_under_way) + sizeof(int))
            && options.most_under_way < 0) {
            faults.insert(TARN_ERROR_BAD_ARGUMENT);
        }
        if (!given.is_null() && place == 0 && given.reaches(offsetof(tarn_sweep_options, private_parent))) {
            faults.insert(TARN_ERROR_DIRECTORY_UNUSABLE);
        }
        tarn_sweep* sweep = nullptr;
        const bool has_room = input_.byte() < 252;
        if (!has_room) {
            faults.insert(TARN_ERROR_BAD_ARGUMENT);
        }
        if (!judge(tarn_sweep_begin(given.pointer(), has_room ? &sweep : nullptr), faults)) {
            check(sweep == nullptr, "no handle comes with a failure");
            return;
        }
        for (slot& each : slots_) {
            each.is_over = true;
        }
        add(kind::sweep, sweep);
    }

    static void check_answer(const tarn_answer& answer)
    {
        check(answer.code >= TARN_CODE_PIPELINE_FAILED && answer.code <= TARN_CODE_SKEWED, "a code is one of -1 to 6");
        check(answer.why >= TARN_REASON_NONE && answer.why <= TARN_REASON_NO_FRAMES, "a reason is one of those");
        check(answer.direction >= 0 && answer.direction <= TARN_DIRECTION_LEFT, "a direction is one of 0 to 4");
        for (const int flag : {answer.taken, answer.registered, answer.placed}) {
            check(flag == 0 || flag == 1, "a flag is 0 or 1");
        }
        // The host's structure may end between the two.
        check(answer.key_frame >= 0 && (answer.key_frames == 0 || answer.key_frame <= answer.key_frames),
              "a key frame's number");
        check(answer.detail[sizeof answer.detail - 1] == '\0', "a text ends");
        check(answer.milliseconds >= 0.0, "time goes on");
    }

    void feed(frame fed)
    {
        std::set<int> faults;
        slot* sweep = nullptr;
        tarn_sweep* const handle = any_sweep(sweep, faults);
        fed.image.pixels = fed.bytes.data();
        if (input_.byte() >= 254) {
            fed.image.pixels = nullptr;
            fed.is_valid = false;
        }
        structure<tarn_image> image(input_, fed.image);
        image.add_faults(faults, true);
        const int hint = input_.byte() < 240 ? input_.byte() % 5 : input_.integer(-2, 6);
        if (image.is_null() || !fed.is_valid || hint < 0 || hint > 4
            || !image.reaches(offsetof(tarn_image, format) + sizeof(int))) {
            faults.insert(TARN_ERROR_BAD_ARGUMENT);
        }
        structure<tarn_answer> answer(input_, tarn_answer{});
        answer.add_faults(faults, false);
        const std::vector<unsigned char> before = fed.bytes;
        is_to_end_ = false;
        if (judge(tarn_sweep_feed(handle, image.pointer(), hint, answer.pointer()), faults) && !answer.is_null()) {
            check_answer(answer.filled());
        }
        check(fed.bytes == before, "a frame is only read");
        end_what_was_cancelled();
    }

    /// A callback may have ended the current sweep.
    void end_what_was_cancelled()
    {
        slot* const sweep = current();
        if (is_to_end_ && sweep != nullptr) {
            sweep->is_over = true;
        }
    }

    void finish()
    {
        std::set<int> faults;
        slot* sweep = nullptr;
        tarn_sweep* const handle = any_sweep(sweep, faults);
        tarn_finish_options options;
        TARN_INIT(options);
        options.user = this;
        frame last = input_.byte() % 4 == 0 ? any_frame() : next_frame();
        last.image.pixels = last.bytes.data();
        structure<tarn_image> image(input_, last.image);
        const bool has_last = input_.flag() && !image.is_null();
        if (has_last) {
            options.last_frame = image.pointer();
        }
        if (input_.flag()) {
            options.on_progress = [](void* user, int done, int key_frames) {
                check(done >= 0 && done <= key_frames, "no more is done than there is");
                return static_cast<host*>(user)->input_.byte() % 64 == 1 ? 0 : 1;
            };
        }
        options.hint = input_.byte() < 240 ? 0 : input_.integer(-2, 6);
        structure<tarn_finish_options> given(input_, options);
        given.add_faults(faults, true);
        const bool is_read = !given.is_null();
        if (is_read && has_last && given.reaches(offsetof(tarn_finish_options, user))) {
            image.add_faults(faults, true);
            if (!last.is_valid || !image.reaches(offsetof(tarn_image, format) + sizeof(int))) {
                faults.insert(TARN_ERROR_BAD_ARGUMENT);
            }
        }
        if (is_read && given.reaches(offsetof(tarn_finish_options, hint) + sizeof(int))
            && (options.hint < 0 || options.hint > 4)) {
            faults.insert(TARN_ERROR_BAD_ARGUMENT);
        }
        tarn_panorama* panorama = nullptr;
        is_to_end_ = false;
        if (judge(tarn_sweep_finish(handle, given.pointer(), &panorama), faults)) {
            tarn_image view;
            TARN_INIT(view);
            const bool has_image = tarn_panorama_view(panorama, &view) == TARN_OK;
            add(kind::panorama, panorama, has_image ? header_of(view) : cv::Mat());
        } else {
            check(panorama == nullptr, "no handle comes with a failure");
        }
        end_what_was_cancelled();
    }

    void cancel()
    {
        std::set<int> faults;
        slot* sweep = nullptr;
        tarn_sweep* const handle = any_sweep(sweep, faults);
        faults.erase(TARN_ERROR_OVER);
        if (judge(tarn_sweep_cancel(handle), faults)) {
            sweep->is_over = true;
        }
        check(tarn_sweep_is_current(handle) == 0, "what was cancelled is not the current one");
    }

    void free_one()
    {
        slot* found = nullptr;
        const kind wanted = static_cast<kind>(input_.byte() % 3);
        void* const handle = any_handle(wanted, found);
        if (found != nullptr) {
            free_slot(*found);
        }
        // Freed, of another kind, invented or null: nothing happens.
        switch (wanted) {
        case kind::sweep:
            tarn_sweep_free(static_cast<tarn_sweep*>(handle));
            break;
        case kind::picture:
            tarn_picture_free(static_cast<tarn_picture*>(handle));
            break;
        case kind::panorama:
            tarn_panorama_free(static_cast<tarn_panorama*>(handle));
            break;
        }
    }

    void status()
    {
        std::set<int> faults;
        slot* sweep = nullptr;
        tarn_sweep* const handle = any_sweep(sweep, faults);
        structure<tarn_status> status(input_, tarn_status{});
        status.add_faults(faults, false);
        if (status.is_null()) {
            faults.insert(TARN_ERROR_BAD_ARGUMENT);
        }
        if (judge(tarn_sweep_get_status(handle, status.pointer()), faults)) {
            const tarn_status told = status.filled();
            check(told.under_way >= 0 && told.under_way <= told.key_frames, "no more is under way than there is");
            check(std::strcmp(tarn_pipeline_name(told.pipeline), "unknown") != 0, "the pipeline's state has a name");
            check(told.why >= TARN_REASON_NONE && told.why <= TARN_REASON_NO_FRAMES, "a reason is one of those");
        }
    }

    void wait_for_room()
    {
        std::set<int> faults;
        slot* sweep = nullptr;
        tarn_sweep* const handle = any_sweep(sweep, faults);
        const int most = input_.byte() % 8 == 0 ? -input_.integer(1, 2147483647) : input_.byte() % 4;
        if (most < 0) {
            faults.insert(TARN_ERROR_BAD_ARGUMENT);
        }
        int has_room = 7;
        const bool has_place = input_.byte() < 250;
        if (!has_place) {
            faults.insert(TARN_ERROR_BAD_ARGUMENT);
        }
        const int milliseconds = input_.integer(-1, 50);
        if (judge(tarn_sweep_wait_for_room(handle, most, milliseconds, has_place ? &has_room : nullptr), faults)) {
            check(has_room == 0 || has_room == 1, "a flag is 0 or 1");
        } else {
            check(has_room == 7, "a failure leaves what it was given");
        }
    }

    void preview()
    {
        std::set<int> faults;
        slot* sweep = nullptr;
        tarn_sweep* const handle = any_sweep(sweep, faults);
        structure<tarn_preview_info> info(input_, tarn_preview_info{});
        info.add_faults(faults, false);
        tarn_picture* picture = nullptr;
        if (!judge(tarn_sweep_preview(handle, &picture, info.pointer()), faults)) {
            check(picture == nullptr, "no handle comes with a failure");
            return;
        }
        if (!info.is_null()) {
            static_cast<void>(info.filled());
        }
        if (picture != nullptr) {
            tarn_image view;
            TARN_INIT(view);
            check(tarn_picture_view(picture, &view) == TARN_OK, "a picture can be looked at");
            add(kind::picture, picture, header_of(view));
        }
    }

    void directory()
    {
        std::set<int> faults;
        slot* sweep = nullptr;
        tarn_sweep* const handle = any_sweep(sweep, faults);
        const char* path = nullptr;
        if (judge(tarn_sweep_directory(handle, &path), faults)) {
            check(path != nullptr && path[std::strlen(path) - 1] == '/', "a directory ends with a slash");
        } else {
            check(path == nullptr, "no text comes with a failure");
        }
    }

    void keep()
    {
        std::set<int> faults;
        slot* found = nullptr;
        auto* const handle = static_cast<tarn_picture*>(any_handle(kind::picture, found));
        if (found == nullptr) {
            faults.insert(TARN_ERROR_NO_SUCH_HANDLE);
        }
        structure<tarn_image> view(input_, tarn_image{});
        std::set<int> faults_of_view = faults;
        view.add_faults(faults_of_view, false);
        if (view.is_null()) {
            faults_of_view.insert(TARN_ERROR_BAD_ARGUMENT);
        }
        judge(tarn_picture_view(handle, view.pointer()), faults_of_view);
        tarn_picture* own = nullptr;
        if (judge(tarn_picture_keep(handle, &own), faults)) {
            add(kind::picture, own, cv::Mat(found->shared));
        } else {
            check(own == nullptr, "no handle comes with a failure");
        }
    }

    void look_at_panorama()
    {
        std::set<int> faults;
        slot* found = nullptr;
        auto* const handle = static_cast<tarn_panorama*>(any_handle(kind::panorama, found));
        if (found == nullptr) {
            faults.insert(TARN_ERROR_NO_SUCH_HANDLE);
        }
        structure<tarn_panorama_info> info(input_, tarn_panorama_info{});
        std::set<int> faults_of_info = faults;
        info.add_faults(faults_of_info, false);
        if (info.is_null()) {
            faults_of_info.insert(TARN_ERROR_BAD_ARGUMENT);
        }
        if (judge(tarn_panorama_get_info(handle, info.pointer()), faults_of_info)
            && info.reaches(offsetof(tarn_panorama_info, key_frames) + sizeof(int))) {
            const tarn_panorama_info told = info.filled();
            check(told.extent >= TARN_EXTENT_MISSING && told.extent <= TARN_EXTENT_WHOLE, "an extent is one of those");
            check((told.extent == TARN_EXTENT_MISSING) == found->copy.empty(), "what is missing has no image");
            check((told.extent == TARN_EXTENT_WHOLE) == (told.why == TARN_REASON_NONE), "what is not whole says why");
        }
        structure<tarn_answer> answer(input_, tarn_answer{});
        std::set<int> faults_of_answer = faults;
        answer.add_faults(faults_of_answer, false);
        if (answer.is_null()) {
            faults_of_answer.insert(TARN_ERROR_BAD_ARGUMENT);
        }
        if (judge(tarn_panorama_last_answer(handle, answer.pointer()), faults_of_answer)) {
            check_answer(answer.filled());
        }
        if (found != nullptr && found->copy.empty()) {
            faults.insert(TARN_ERROR_NO_PANORAMA);
        }
        const unsigned char* bytes = nullptr;
        std::size_t count = 0;
        if (judge(tarn_panorama_jpeg(handle, &bytes, &count), faults)) {
            check(count > 2 && bytes[0] == 0xFF && bytes[1] == 0xD8, "a panorama's bytes are a JPEG");
        } else {
            check(bytes == nullptr && count == 0, "no bytes come with a failure");
        }
    }

    void save()
    {
        std::set<int> faults;
        slot* found = nullptr;
        auto* const handle = static_cast<tarn_panorama*>(any_handle(kind::panorama, found));
        if (found == nullptr) {
            faults.insert(TARN_ERROR_NO_SUCH_HANDLE);
        } else if (found->copy.empty()) {
            faults.insert(TARN_ERROR_NO_PANORAMA);
        }
        const bool is_there = input_.byte() < 200;
        const std::string path = private_directory() + (is_there ? "panorama.jpg" : "missing/panorama.jpg");
        const bool is_null = input_.byte() >= 250;
        if (is_null) {
            faults.insert(TARN_ERROR_BAD_ARGUMENT);
        } else if (!is_there) {
            faults.insert(TARN_ERROR_DISK);
        }
        judge(tarn_panorama_save(handle, is_null ? nullptr : path.c_str()), faults);
    }

    void words()
    {
        const int number = input_.integer(-2147483647, 2147483647) % 64;
        for (const char* text : {tarn_code_name(number), tarn_direction_name(number), tarn_pipeline_name(number),
                                 tarn_reason_name(number), tarn_result_name(number)}) {
            check(text != nullptr && *text != '\0', "every number has a name");
        }
        check(tarn_code_advice(number) != nullptr && tarn_reason_advice(number) != nullptr, "an advice is a text");
    }

    input_bytes& input_;
    std::vector<slot> slots_;
    std::size_t sweep_ = 0;
    int at_ = 0;
    bool is_to_end_ = false;  ///< a callback has cancelled the sweep
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    cv::setNumThreads(1);
    max_wait_seconds = longest_wait;
    setenv("TMPDIR", private_directory().c_str(), 1);
    std::ofstream(private_directory() + "file") << "below this there is no directory";
    load_sweeps();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    input_bytes input(data, size);
    host caller(input);
    for (int i = 0; i < most_calls && !input.at_end(); ++i) {
        caller.make_call();
    }
    caller.end();
    return 0;
}
