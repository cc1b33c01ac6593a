// SPDX-License-Identifier: Apache-2.0
//
// The C interface: every function, right and wrong; structures of older and newer hosts; handles that are none any
// more; callbacks; threads.
#include <atomic>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "support/rendered_sweep.h"
#include "support/stitcher_fixture.h"
#include "tarn_c.h"
#include "tarn_sweep.h"

namespace tarn::test {
namespace {

namespace fs = std::filesystem;

template <typename Structure>
Structure made()
{
    Structure structure;
    TARN_INIT(structure);
    return structure;
}

tarn_image image_of(const cv::Mat& pixels, int format = TARN_FORMAT_BGR)
{
    auto image = made<tarn_image>();
    image.pixels = pixels.data;
    image.width = pixels.cols;
    image.height = pixels.rows;
    image.row_stride = pixels.step;
    image.format = format;
    return image;
}

cv::Mat copy_of(const tarn_image& view)
{
    // A header of what is only read.
    return cv::Mat(view.height, view.width, CV_8UC3, const_cast<void*>(view.pixels), view.row_stride).clone();
}

cv::Mat copy_of(tarn_picture* picture)
{
    auto view = made<tarn_image>();
    EXPECT_EQ(tarn_picture_view(picture, &view), TARN_OK) << tarn_last_error();
    return copy_of(view);
}

bool same_bytes(const cv::Mat& one, const cv::Mat& other)
{
    return one.size() == other.size() && one.type() == other.type() && cv::norm(one, other, cv::NORM_INF) == 0;
}

std::string bytes_of(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A handle that was never given.
template <typename Handle>
Handle* nonsense()
{
    return reinterpret_cast<Handle*>(std::uintptr_t{0x5A5A5A5A});
}

/// A call that failed: with this result, and a text of one line that names what was wrong.
#define EXPECT_FAILURE(call, expected, part)                                                                           \
    do {                                                                                                               \
        EXPECT_EQ(call, expected) << tarn_last_error();                                                                \
        EXPECT_NE(std::string(tarn_last_error()).find(part), std::string::npos) << tarn_last_error();                  \
        EXPECT_EQ(std::string(tarn_last_error()).find('\n'), std::string::npos);                                       \
    } while (false)

class c_interface : public stitcher_fixture {
protected:
    void SetUp() override
    {
        stitcher_fixture::SetUp();
        for (int i = 0; i < camera_.length(); ++i) {
            frames_.push_back(camera_.frame(i));
        }
        options_.most_under_way = 2;
        options_.private_parent = root().c_str();
    }

    void TearDown() override
    {
        tarn_panorama_free(panorama_);
        tarn_sweep_free(sweep_);
        stitcher_fixture::TearDown();
    }

    void begin()
    {
        ASSERT_EQ(tarn_sweep_begin(&options_, &sweep_), TARN_OK) << tarn_last_error();
        ASSERT_NE(sweep_, nullptr);
    }

    tarn_answer feed(const tarn_image& frame)
    {
        auto answer = made<tarn_answer>();
        EXPECT_EQ(tarn_sweep_feed(sweep_, &frame, TARN_DIRECTION_UNDECIDED, &answer), TARN_OK) << tarn_last_error();
        return answer;
    }

    void feed_all()
    {
        for (const cv::Mat& frame : frames_) {
            EXPECT_EQ(feed(image_of(frame)).taken, 1);
        }
    }

    void finish()
    {
        ASSERT_EQ(tarn_sweep_finish(sweep_, nullptr, &panorama_), TARN_OK) << tarn_last_error();
        ASSERT_NE(panorama_, nullptr);
    }

    const rendered_sweep camera_ = slide(cv::Size(640, 480), moving_right, 40, 8);
    std::vector<cv::Mat> frames_;
    tarn_sweep_options options_ = made<tarn_sweep_options>();
    tarn_sweep* sweep_ = nullptr;
    tarn_panorama* panorama_ = nullptr;
};

// Words.

TEST(c_interface_words, are_those_of_the_vocabulary)
{
    for (int code = -2; code <= 8; ++code) {
        EXPECT_STREQ(tarn_code_name(code), name_of(static_cast<answer_code>(code)));
        EXPECT_STREQ(tarn_code_advice(code), advice_for(static_cast<answer_code>(code)));
    }
    for (int number = -1; number <= 24; ++number) {
        EXPECT_STREQ(tarn_direction_name(number), name_of(static_cast<direction_code>(number)));
        EXPECT_STREQ(tarn_pipeline_name(number), name_of(static_cast<pipeline_state>(number)));
        EXPECT_STREQ(tarn_reason_name(number), name_of(static_cast<reason>(number)));
        EXPECT_STREQ(tarn_reason_advice(number), advice_for(static_cast<reason>(number)));
    }
    EXPECT_STRNE(tarn_code_name(TARN_CODE_SKEWED), tarn_code_name(TARN_CODE_TOO_FAST));
    for (const int none : {std::numeric_limits<int>::min(), 1000, std::numeric_limits<int>::max()}) {
        EXPECT_STREQ(tarn_code_name(none), "unknown");
        EXPECT_STREQ(tarn_direction_name(none), "unknown");
        EXPECT_STREQ(tarn_pipeline_name(none), "unknown");
        EXPECT_STREQ(tarn_reason_name(none), "unknown");
        EXPECT_STREQ(tarn_result_name(none), "unknown");
    }
}

TEST(c_interface_words, every_result_has_a_name_of_its_own)
{
    std::set<std::string> names;
    for (const int result : {TARN_OK, TARN_ERROR_BAD_ARGUMENT, TARN_ERROR_OVER, TARN_ERROR_DIRECTORY_NOT_EMPTY,
                             TARN_ERROR_DIRECTORY_UNUSABLE, TARN_ERROR_NO_PANORAMA, TARN_ERROR_NO_MEMORY,
                             TARN_ERROR_DISK, TARN_ERROR_PROCESS_ENDS, TARN_ERROR_NO_SUCH_HANDLE,
                             TARN_ERROR_UNSUPPORTED, TARN_ERROR_IN_CALLBACK, TARN_ERROR_UNEXPECTED}) {
        EXPECT_STRNE(tarn_result_name(result), "unknown");
        names.insert(tarn_result_name(result));
    }
    EXPECT_EQ(names.size(), 13U);
}

TEST(c_interface_words, the_version_is_the_projects)
{
    EXPECT_STREQ(TARN_VERSION_STRING, TARN_PROJECT_VERSION);
    EXPECT_STREQ(tarn_version(), TARN_PROJECT_VERSION);
    EXPECT_EQ(tarn_version_number(), TARN_VERSION_NUMBER);
    EXPECT_EQ(std::to_string(TARN_VERSION_MAJOR) + "." + std::to_string(TARN_VERSION_MINOR) + "."
                  + std::to_string(TARN_VERSION_PATCH),
              TARN_VERSION_STRING);
}

TEST(c_interface_words, the_last_error_is_each_threads_own)
{
    EXPECT_EQ(tarn_sweep_cancel(nullptr), TARN_ERROR_NO_SUCH_HANDLE);
    const std::string here = tarn_last_error();
    EXPECT_EQ(here, "sweep is null");
    std::thread([] {
        EXPECT_STREQ(tarn_last_error(), "");
        EXPECT_EQ(tarn_picture_view(nullptr, nullptr), TARN_ERROR_NO_SUCH_HANDLE);
        EXPECT_STREQ(tarn_last_error(), "picture is null");
    }).join();
    EXPECT_EQ(tarn_last_error(), here);
}

// A sweep, from its first frame to its panorama.

TEST_F(c_interface, panorama_preview_and_answers_are_those_of_the_session)
{
    begin();
    std::vector<tarn_answer> answers;
    for (const cv::Mat& frame : frames_) {
        answers.push_back(feed(image_of(frame)));
    }
    tarn_picture* picture = nullptr;
    auto info = made<tarn_preview_info>();
    ASSERT_EQ(tarn_sweep_preview(sweep_, &picture, &info), TARN_OK) << tarn_last_error();
    const cv::Mat preview = copy_of(picture);
    tarn_picture_free(picture);
    finish();
    auto view = made<tarn_image>();
    ASSERT_EQ(tarn_panorama_view(panorama_, &view), TARN_OK) << tarn_last_error();
    EXPECT_EQ(view.format, TARN_FORMAT_BGR);
    EXPECT_EQ(view.row_stride, static_cast<std::size_t>(view.width) * 3);
    auto facts = made<tarn_panorama_info>();
    ASSERT_EQ(tarn_panorama_get_info(panorama_, &facts), TARN_OK);
    const unsigned char* bytes = nullptr;
    std::size_t count = 0;
    ASSERT_EQ(tarn_panorama_jpeg(panorama_, &bytes, &count), TARN_OK) << tarn_last_error();
    ASSERT_EQ(tarn_panorama_save(panorama_, (root() + "panorama.jpg").c_str()), TARN_OK) << tarn_last_error();

    sweep_options options;
    options.most_under_way = 2;
    options.private_parent = root();
    sweep session = sweep::begin(options);
    for (std::size_t i = 0; i < frames_.size(); ++i) {
        const frame_answer expected = session.feed(view_of(frames_[i]));
        const tarn_answer& answer = answers[i];
        SCOPED_TRACE(i);
        EXPECT_EQ(answer.size, sizeof(tarn_answer));
        EXPECT_EQ(answer.code, expected.code);
        EXPECT_EQ(answer.why, static_cast<int>(expected.why));
        EXPECT_EQ(answer.taken != 0, expected.taken);
        EXPECT_EQ(answer.key_frame, expected.key_frame);
        EXPECT_EQ(answer.key_frames, expected.key_frames);
        EXPECT_EQ(answer.registered != 0, expected.registered);
        EXPECT_EQ(answer.direction, expected.direction);
        EXPECT_EQ(answer.move_distance, expected.move_distance);
        EXPECT_EQ(answer.corners_found, expected.corners_found);
        EXPECT_EQ(answer.corners_tracked, expected.corners_tracked);
        EXPECT_EQ(answer.inliers, expected.inliers);
        EXPECT_EQ(answer.overlap, expected.overlap);
        EXPECT_EQ(answer.placed != 0, expected.placed);
        EXPECT_EQ(std::memcmp(answer.outline, expected.outline.data(), sizeof answer.outline), 0);
        EXPECT_EQ(std::memcmp(answer.angles, expected.angles.data(), sizeof answer.angles), 0);
        EXPECT_EQ(std::memcmp(answer.scales, expected.scales.data(), sizeof answer.scales), 0);
        EXPECT_GE(answer.milliseconds, 0.0);
        EXPECT_STREQ(answer.detail, expected.detail.c_str());
    }
    EXPECT_GT(answers.back().key_frames, 1);
    EXPECT_TRUE(same_bytes(preview, session.preview().pixels));
    EXPECT_EQ(info.has_outline, 1);
    EXPECT_EQ(info.frozen, 0);
    EXPECT_EQ(std::memcmp(info.outline, session.preview().outline.data(), sizeof info.outline), 0);
    const panorama expected = session.finish();
    EXPECT_EQ(facts.extent, TARN_EXTENT_WHOLE);
    EXPECT_EQ(facts.why, TARN_REASON_NONE);
    EXPECT_EQ(facts.first_failed_key_frame, 0);
    EXPECT_EQ(facts.key_frames, expected.key_frames);
    EXPECT_TRUE(same_bytes(copy_of(view), expected.image));
    const std::vector<unsigned char> jpeg = expected.jpeg();
    EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + count), jpeg);
    EXPECT_EQ(bytes_of(root() + "panorama.jpg"), std::string(jpeg.begin(), jpeg.end()));
}

TEST_F(c_interface, frames_of_every_format_and_stride_give_the_same_panorama)
{
    const auto panorama_of = [&](int format) {
        begin();
        for (const cv::Mat& frame : frames_) {
            cv::Mat gray, converted;
            cv::cvtColor(frame, gray, cv::COLOR_BGR2GRAY);
            switch (format) {
            case TARN_FORMAT_RGBA:
                cv::cvtColor(gray, converted, cv::COLOR_GRAY2RGBA);
                break;
            case TARN_FORMAT_BGRA:
                cv::cvtColor(gray, converted, cv::COLOR_GRAY2BGRA);
                break;
            case TARN_FORMAT_BGR:
                cv::cvtColor(gray, converted, cv::COLOR_GRAY2BGR);
                break;
            default:
                converted = gray;
                break;
            }
            if (format == TARN_FORMAT_BGR) {
                tarn_image image = image_of(converted, format);
                image.row_stride = 0;  // no padding
                feed(image);
                continue;
            }
            cv::Mat wide(converted.rows, converted.cols + 7, converted.type(), cv::Scalar::all(77));
            const cv::Mat within = wide(cv::Rect(0, 0, converted.cols, converted.rows));
            converted.copyTo(within);
            feed(image_of(within, format));
        }
        finish();
        auto view = made<tarn_image>();
        EXPECT_EQ(tarn_panorama_view(panorama_, &view), TARN_OK) << tarn_last_error();
        cv::Mat copy = copy_of(view);
        tarn_panorama_free(std::exchange(panorama_, nullptr));
        tarn_sweep_free(std::exchange(sweep_, nullptr));
        return copy;
    };
    const cv::Mat expected = panorama_of(TARN_FORMAT_GRAY);
    for (const int format : {TARN_FORMAT_RGBA, TARN_FORMAT_BGRA, TARN_FORMAT_BGR}) {
        EXPECT_TRUE(same_bytes(panorama_of(format), expected)) << format;
    }
}

TEST_F(c_interface, last_frame_is_composed_and_answered)
{
    begin();
    for (std::size_t i = 0; i + 1 < frames_.size(); ++i) {
        feed(image_of(frames_[i]));
    }
    const tarn_image last = image_of(frames_.back());
    auto options = made<tarn_finish_options>();
    options.last_frame = &last;
    options.hint = TARN_DIRECTION_RIGHT;
    int calls = 0;
    options.user = &calls;
    options.on_progress = [](void* user, int done, int key_frames) {
        EXPECT_LE(done, key_frames);
        ++*static_cast<int*>(user);
        return 1;
    };
    ASSERT_EQ(tarn_sweep_finish(sweep_, &options, &panorama_), TARN_OK) << tarn_last_error();
    auto answer = made<tarn_answer>();
    ASSERT_EQ(tarn_panorama_last_answer(panorama_, &answer), TARN_OK) << tarn_last_error();
    EXPECT_EQ(answer.taken, 1);
    EXPECT_EQ(answer.key_frame, answer.key_frames);
    EXPECT_GT(calls, 0);
}

TEST_F(c_interface, nothing_fed_gives_no_panorama_and_says_why)
{
    begin();
    tarn_picture* picture = nonsense<tarn_picture>();
    auto preview = made<tarn_preview_info>();
    EXPECT_EQ(tarn_sweep_preview(sweep_, &picture, &preview), TARN_OK);
    EXPECT_EQ(picture, nullptr);
    EXPECT_EQ(preview.has_outline, 0);
    finish();
    auto info = made<tarn_panorama_info>();
    EXPECT_EQ(tarn_panorama_get_info(panorama_, &info), TARN_OK);
    EXPECT_EQ(info.extent, TARN_EXTENT_MISSING);
    EXPECT_EQ(info.why, TARN_REASON_NO_FRAMES);
    EXPECT_EQ(info.key_frames, 0);
    auto view = made<tarn_image>();
    const unsigned char* bytes = nullptr;
    std::size_t count = 1;
    const std::string path = root() + "none.jpg";
    EXPECT_FAILURE(tarn_panorama_view(panorama_, &view), TARN_ERROR_NO_PANORAMA, tarn_reason_name(info.why));
    EXPECT_FAILURE(tarn_panorama_jpeg(panorama_, &bytes, &count), TARN_ERROR_NO_PANORAMA, "no panorama");
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(count, 0U);
    EXPECT_FAILURE(tarn_panorama_save(panorama_, path.c_str()), TARN_ERROR_NO_PANORAMA, "no panorama");
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(c_interface, status_room_and_directory)
{
    begin();
    EXPECT_EQ(tarn_sweep_is_current(sweep_), 1);
    const char* path = nullptr;
    ASSERT_EQ(tarn_sweep_directory(sweep_, &path), TARN_OK);
    EXPECT_EQ(std::string(path).rfind(root(), 0), 0U);
    EXPECT_EQ(std::string(path).back(), '/');
    EXPECT_TRUE(fs::is_directory(path));
    const std::string directory = path;
    feed_all();
    int has_room = -1;
    ASSERT_EQ(tarn_sweep_wait_for_room(sweep_, 0, -1, &has_room), TARN_OK) << tarn_last_error();
    EXPECT_EQ(has_room, 1);
    auto status = made<tarn_status>();
    ASSERT_EQ(tarn_sweep_get_status(sweep_, &status), TARN_OK);
    EXPECT_GT(status.key_frames, 1);
    EXPECT_EQ(status.under_way, 0);
    EXPECT_EQ(status.pipeline, TARN_PIPELINE_READY);
    EXPECT_EQ(status.first_failed_key_frame, 0);
    EXPECT_EQ(status.why, TARN_REASON_NONE);
    tarn_sweep_free(std::exchange(sweep_, nullptr));
    EXPECT_FALSE(fs::exists(directory));
}

TEST_F(c_interface, waiting_for_room_is_bounded)
{
    hold_workers();
    begin();
    feed(image_of(frames_[0]));
    int has_room = -1;
    EXPECT_EQ(tarn_sweep_wait_for_room(sweep_, 0, 1, &has_room), TARN_OK) << tarn_last_error();
    EXPECT_EQ(has_room, 0);
    EXPECT_EQ(tarn_sweep_wait_for_room(sweep_, 1, 0, &has_room), TARN_OK);
    EXPECT_EQ(has_room, 1);
    EXPECT_FAILURE(tarn_sweep_wait_for_room(sweep_, -1, 0, &has_room), TARN_ERROR_BAD_ARGUMENT, "-1");
}

TEST_F(c_interface, directory_of_the_hosts_choice_must_be_empty)
{
    const std::string full = root() + "full";
    fs::create_directory(full);
    std::ofstream(full + "/holiday.jpg") << "precious";
    options_.directory = full.c_str();
    sweep_ = nonsense<tarn_sweep>();
    EXPECT_FAILURE(tarn_sweep_begin(&options_, &sweep_), TARN_ERROR_DIRECTORY_NOT_EMPTY, full);
    EXPECT_EQ(sweep_, nullptr);
    EXPECT_EQ(bytes_of(full + "/holiday.jpg"), "precious");
    const std::string missing = root() + "some/where/new";
    options_.directory = missing.c_str();
    begin();
    const char* path = nullptr;
    ASSERT_EQ(tarn_sweep_directory(sweep_, &path), TARN_OK);
    EXPECT_EQ(path, missing + "/");
    const std::string file = full + "/holiday.jpg/below";
    options_.directory = file.c_str();
    tarn_sweep* other = nullptr;
    EXPECT_FAILURE(tarn_sweep_begin(&options_, &other), TARN_ERROR_DIRECTORY_UNUSABLE, file);
    EXPECT_EQ(tarn_sweep_is_current(sweep_), 1);
}

TEST_F(c_interface, panorama_is_saved_whole_or_not_at_all)
{
    begin();
    feed_all();
    finish();
    const std::string path = root() + "missing/panorama.jpg";
    EXPECT_FAILURE(tarn_panorama_save(panorama_, path.c_str()), TARN_ERROR_DISK, path);
    EXPECT_FALSE(fs::exists(root() + "missing"));
}

// Ownership.

TEST_F(c_interface, pictures_and_panoramas_outlive_their_sweep)
{
    begin();
    feed_all();
    tarn_picture* picture = nullptr;
    ASSERT_EQ(tarn_sweep_preview(sweep_, &picture, nullptr), TARN_OK);
    const cv::Mat before = copy_of(picture);
    tarn_picture* own = nullptr;
    ASSERT_EQ(tarn_picture_keep(picture, &own), TARN_OK);
    EXPECT_NE(own, picture);
    finish();
    auto view = made<tarn_image>();
    ASSERT_EQ(tarn_panorama_view(panorama_, &view), TARN_OK);
    const cv::Mat panorama_before = copy_of(view);
    tarn_sweep_free(sweep_);
    begin();
    feed(image_of(frames_[3]));
    tarn_picture_free(picture);
    EXPECT_TRUE(same_bytes(copy_of(own), before));
    EXPECT_TRUE(same_bytes(copy_of(view), panorama_before));
    tarn_picture_free(own);
}

TEST_F(c_interface, what_was_freed_is_found_out)
{
    begin();
    feed_all();
    tarn_picture* picture = nullptr;
    ASSERT_EQ(tarn_sweep_preview(sweep_, &picture, nullptr), TARN_OK);
    finish();
    const std::set<void*> handles = {sweep_, picture, panorama_};
    EXPECT_EQ(handles.size(), 3U);
    for (int times = 0; times < 2; ++times) {
        tarn_picture_free(picture);
        tarn_sweep_free(sweep_);
        tarn_panorama_free(panorama_);
        tarn_picture_free(nullptr);
        tarn_sweep_free(nullptr);
        tarn_panorama_free(nullptr);
    }
    const tarn_image frame = image_of(frames_[0]);
    auto answer = made<tarn_answer>();
    auto status = made<tarn_status>();
    auto view = made<tarn_image>();
    auto info = made<tarn_panorama_info>();
    const std::string path = root() + "panorama.jpg";
    for (tarn_sweep* none : {sweep_, static_cast<tarn_sweep*>(nullptr), nonsense<tarn_sweep>(),
                             reinterpret_cast<tarn_sweep*>(panorama_)}) {
        tarn_panorama* made_panorama = nonsense<tarn_panorama>();
        tarn_picture* made_picture = nonsense<tarn_picture>();
        const char* directory = "";
        int has_room = 7;
        EXPECT_FAILURE(tarn_sweep_feed(none, &frame, 0, &answer), TARN_ERROR_NO_SUCH_HANDLE, "sweep");
        EXPECT_FAILURE(tarn_sweep_finish(none, nullptr, &made_panorama), TARN_ERROR_NO_SUCH_HANDLE, "sweep");
        EXPECT_EQ(made_panorama, nullptr);
        EXPECT_FAILURE(tarn_sweep_cancel(none), TARN_ERROR_NO_SUCH_HANDLE, "sweep");
        EXPECT_EQ(tarn_sweep_is_current(none), 0);
        EXPECT_FAILURE(tarn_sweep_get_status(none, &status), TARN_ERROR_NO_SUCH_HANDLE, "sweep");
        EXPECT_FAILURE(tarn_sweep_wait_for_room(none, 0, 0, &has_room), TARN_ERROR_NO_SUCH_HANDLE, "sweep");
        EXPECT_EQ(has_room, 7);
        EXPECT_FAILURE(tarn_sweep_preview(none, &made_picture, nullptr), TARN_ERROR_NO_SUCH_HANDLE, "sweep");
        EXPECT_EQ(made_picture, nullptr);
        EXPECT_FAILURE(tarn_sweep_directory(none, &directory), TARN_ERROR_NO_SUCH_HANDLE, "sweep");
        EXPECT_EQ(directory, nullptr);
        tarn_sweep_free(none);
    }
    for (tarn_picture* none : {picture, static_cast<tarn_picture*>(nullptr), nonsense<tarn_picture>()}) {
        tarn_picture* own = nonsense<tarn_picture>();
        EXPECT_FAILURE(tarn_picture_view(none, &view), TARN_ERROR_NO_SUCH_HANDLE, "picture");
        EXPECT_FAILURE(tarn_picture_keep(none, &own), TARN_ERROR_NO_SUCH_HANDLE, "picture");
        EXPECT_EQ(own, nullptr);
    }
    for (tarn_panorama* none : {panorama_, static_cast<tarn_panorama*>(nullptr), nonsense<tarn_panorama>()}) {
        const unsigned char* bytes = nullptr;
        std::size_t count = 0;
        EXPECT_FAILURE(tarn_panorama_get_info(none, &info), TARN_ERROR_NO_SUCH_HANDLE, "panorama");
        EXPECT_FAILURE(tarn_panorama_last_answer(none, &answer), TARN_ERROR_NO_SUCH_HANDLE, "panorama");
        EXPECT_FAILURE(tarn_panorama_view(none, &view), TARN_ERROR_NO_SUCH_HANDLE, "panorama");
        EXPECT_FAILURE(tarn_panorama_jpeg(none, &bytes, &count), TARN_ERROR_NO_SUCH_HANDLE, "panorama");
        EXPECT_FAILURE(tarn_panorama_save(none, path.c_str()), TARN_ERROR_NO_SUCH_HANDLE, "panorama");
    }
}

TEST_F(c_interface, a_handle_of_another_kind_is_none_and_is_not_freed)
{
    begin();
    finish();
    tarn_panorama_free(reinterpret_cast<tarn_panorama*>(sweep_));
    tarn_picture_free(reinterpret_cast<tarn_picture*>(sweep_));
    tarn_sweep_free(reinterpret_cast<tarn_sweep*>(panorama_));
    EXPECT_EQ(tarn_sweep_is_current(sweep_), 1);
    auto info = made<tarn_panorama_info>();
    EXPECT_EQ(tarn_panorama_get_info(panorama_, &info), TARN_OK);
    EXPECT_FAILURE(tarn_panorama_get_info(reinterpret_cast<tarn_panorama*>(sweep_), &info), TARN_ERROR_NO_SUCH_HANDLE,
                   "something else");
}

TEST_F(c_interface, a_sweep_that_another_one_has_ended_says_so)
{
    begin();
    feed(image_of(frames_[0]));
    tarn_sweep* const first = sweep_;
    begin();
    EXPECT_EQ(tarn_sweep_is_current(first), 0);
    EXPECT_EQ(tarn_sweep_is_current(sweep_), 1);
    const tarn_image frame = image_of(frames_[0]);
    auto status = made<tarn_status>();
    const char* path = nullptr;
    int has_room = 0;
    tarn_picture* picture = nullptr;
    EXPECT_FAILURE(tarn_sweep_feed(first, &frame, 0, nullptr), TARN_ERROR_OVER, "");
    EXPECT_FAILURE(tarn_sweep_finish(first, nullptr, &panorama_), TARN_ERROR_OVER, "");
    EXPECT_FAILURE(tarn_sweep_get_status(first, &status), TARN_ERROR_OVER, "");
    EXPECT_FAILURE(tarn_sweep_wait_for_room(first, 0, 0, &has_room), TARN_ERROR_OVER, "");
    EXPECT_FAILURE(tarn_sweep_preview(first, &picture, nullptr), TARN_ERROR_OVER, "");
    EXPECT_FAILURE(tarn_sweep_directory(first, &path), TARN_ERROR_OVER, "");
    EXPECT_EQ(tarn_sweep_cancel(first), TARN_OK);
    tarn_sweep_free(first);
    EXPECT_EQ(tarn_sweep_is_current(sweep_), 1);
    EXPECT_EQ(tarn_sweep_cancel(sweep_), TARN_OK);
    EXPECT_EQ(tarn_sweep_cancel(sweep_), TARN_OK);
    EXPECT_FAILURE(tarn_sweep_get_status(sweep_, &status), TARN_ERROR_OVER, "");
}

// Wrong arguments.

TEST_F(c_interface, null_where_a_pointer_is_needed)
{
    EXPECT_FAILURE(tarn_sweep_begin(&options_, nullptr), TARN_ERROR_BAD_ARGUMENT, "sweep is null");
    begin();
    finish();
    EXPECT_FAILURE(tarn_sweep_feed(sweep_, nullptr, 0, nullptr), TARN_ERROR_BAD_ARGUMENT, "frame is null");
    EXPECT_FAILURE(tarn_sweep_finish(sweep_, nullptr, nullptr), TARN_ERROR_BAD_ARGUMENT, "panorama is null");
    EXPECT_FAILURE(tarn_sweep_get_status(sweep_, nullptr), TARN_ERROR_BAD_ARGUMENT, "status is null");
    EXPECT_FAILURE(tarn_sweep_wait_for_room(sweep_, 0, 0, nullptr), TARN_ERROR_BAD_ARGUMENT, "has_room is null");
    EXPECT_FAILURE(tarn_sweep_preview(sweep_, nullptr, nullptr), TARN_ERROR_BAD_ARGUMENT, "picture is null");
    EXPECT_FAILURE(tarn_sweep_directory(sweep_, nullptr), TARN_ERROR_BAD_ARGUMENT, "path is null");
    EXPECT_FAILURE(tarn_panorama_get_info(panorama_, nullptr), TARN_ERROR_BAD_ARGUMENT, "info is null");
    EXPECT_FAILURE(tarn_panorama_last_answer(panorama_, nullptr), TARN_ERROR_BAD_ARGUMENT, "answer is null");
    EXPECT_FAILURE(tarn_panorama_save(panorama_, nullptr), TARN_ERROR_BAD_ARGUMENT, "path is null");
    const unsigned char* bytes = nullptr;
    std::size_t count = 0;
    EXPECT_FAILURE(tarn_panorama_jpeg(panorama_, nullptr, &count), TARN_ERROR_BAD_ARGUMENT, "bytes is null");
    EXPECT_FAILURE(tarn_panorama_jpeg(panorama_, &bytes, nullptr), TARN_ERROR_BAD_ARGUMENT, "count is null");
    feed(image_of(frames_[0]));
    tarn_picture* picture = nullptr;
    ASSERT_EQ(tarn_sweep_preview(sweep_, &picture, nullptr), TARN_OK);
    EXPECT_FAILURE(tarn_picture_view(picture, nullptr), TARN_ERROR_BAD_ARGUMENT, "view is null");
    EXPECT_FAILURE(tarn_picture_keep(picture, nullptr), TARN_ERROR_BAD_ARGUMENT, "own is null");
    tarn_picture_free(picture);
}

TEST_F(c_interface, frames_that_are_none_are_refused_and_change_nothing)
{
    begin();
    const auto refuses = [&](void (*spoil)(tarn_image&), const char* part) {
        tarn_image frame = image_of(frames_[0]);
        spoil(frame);
        auto answer = made<tarn_answer>();
        answer.code = 99;
        EXPECT_FAILURE(tarn_sweep_feed(sweep_, &frame, 0, &answer), TARN_ERROR_BAD_ARGUMENT, part);
        EXPECT_EQ(answer.code, 99);
        auto options = made<tarn_finish_options>();
        options.last_frame = &frame;
        EXPECT_FAILURE(tarn_sweep_finish(sweep_, &options, &panorama_), TARN_ERROR_BAD_ARGUMENT, part);
        EXPECT_EQ(panorama_, nullptr);
    };
    refuses([](tarn_image& frame) { frame.pixels = nullptr; }, "pixels");
    refuses([](tarn_image& frame) { frame.width = 0; }, "width");
    refuses([](tarn_image& frame) { frame.width = -640; }, "-640");
    refuses([](tarn_image& frame) { frame.width = 16385; }, "16385");
    refuses([](tarn_image& frame) { frame.height = 0; }, "height");
    refuses([](tarn_image& frame) { frame.height = std::numeric_limits<int>::min(); }, "-2147483648");
    refuses([](tarn_image& frame) { frame.height = std::numeric_limits<int>::max(); }, "2147483647");
    refuses([](tarn_image& frame) { frame.row_stride = 640 * 3 - 1; }, "1919");
    refuses([](tarn_image& frame) { frame.row_stride = 1; }, "stride");
    refuses([](tarn_image& frame) { frame.row_stride = std::numeric_limits<std::size_t>::max(); }, "stride");
    refuses([](tarn_image& frame) { frame.format = 0; }, "format");
    refuses([](tarn_image& frame) { frame.format = 5; }, "5");
    refuses([](tarn_image& frame) { frame.format = -1; }, "-1");
    refuses([](tarn_image& frame) { frame.size = 0; }, "size is 0");
    refuses([](tarn_image& frame) { frame.size = 7; }, "size is 7");
    refuses([](tarn_image& frame) { frame.size = 4097; }, "size is 4097");
    refuses([](tarn_image& frame) { frame.size = std::numeric_limits<std::size_t>::max(); }, "size");
    const tarn_image frame = image_of(frames_[0]);
    for (const int hint : {-1, 5, std::numeric_limits<int>::max()}) {
        EXPECT_FAILURE(tarn_sweep_feed(sweep_, &frame, hint, nullptr), TARN_ERROR_BAD_ARGUMENT, std::to_string(hint));
        auto options = made<tarn_finish_options>();
        options.hint = hint;
        EXPECT_FAILURE(tarn_sweep_finish(sweep_, &options, &panorama_), TARN_ERROR_BAD_ARGUMENT, std::to_string(hint));
    }
    tarn_answer answer;
    answer.size = 0;
    EXPECT_FAILURE(tarn_sweep_feed(sweep_, &frame, 0, &answer), TARN_ERROR_BAD_ARGUMENT, "answer.size is 0");
    auto status = made<tarn_status>();
    EXPECT_EQ(tarn_sweep_get_status(sweep_, &status), TARN_OK);
    EXPECT_EQ(status.key_frames, 0);
}

TEST_F(c_interface, most_under_way_must_be_a_number_of_frames)
{
    options_.most_under_way = -1;
    EXPECT_FAILURE(tarn_sweep_begin(&options_, &sweep_), TARN_ERROR_BAD_ARGUMENT, "-1");
}

TEST_F(c_interface, long_texts_are_cut_between_characters)
{
    std::string path = root();
    for (int i = 0; i < 700; ++i) {
        path += "ä";
    }
    path += "/x";
    options_.directory = path.c_str();
    EXPECT_NE(tarn_sweep_begin(&options_, &sweep_), TARN_OK);
    const std::string text = tarn_last_error();
    EXPECT_LT(text.size(), 1024U);
    // Of a cut character its first byte would be last.
    EXPECT_NE(static_cast<unsigned char>(text.back()), 0xC3);
}

// Structures of other versions.

TEST_F(c_interface, an_older_host_is_told_what_it_has_members_for)
{
    begin();

    struct {
        tarn_answer answer;
    } filled;

    for (const std::size_t size :
         {sizeof(std::size_t), 2 * sizeof(std::size_t), 4 * sizeof(std::size_t), offsetof(tarn_answer, detail)}) {
        std::memset(&filled, 0x5A, sizeof filled);
        filled.answer.size = size;
        const tarn_image frame = image_of(frames_[0]);
        ASSERT_EQ(tarn_sweep_feed(sweep_, &frame, 0, &filled.answer), TARN_OK) << tarn_last_error();
        EXPECT_EQ(filled.answer.size, size);
        if (size > offsetof(tarn_answer, code)) {
            EXPECT_EQ(filled.answer.code, TARN_CODE_NORMAL);
        }
        const auto* bytes = reinterpret_cast<const unsigned char*>(&filled);
        EXPECT_TRUE(std::all_of(bytes + size, bytes + sizeof filled, [](unsigned char byte) { return byte == 0x5A; }));
    }
}

TEST_F(c_interface, a_newer_host_is_told_zeros_where_the_library_knows_nothing)
{
    begin();

    struct newer_status {
        tarn_status known;
        double more[4];
    } status;

    std::memset(&status, 0x5A, sizeof status);
    status.known.size = sizeof status;
    ASSERT_EQ(tarn_sweep_get_status(sweep_, &status.known), TARN_OK) << tarn_last_error();
    EXPECT_EQ(status.known.size, sizeof status);
    EXPECT_EQ(status.known.pipeline, TARN_PIPELINE_EMPTY);
    for (const double member : status.more) {
        EXPECT_EQ(member, 0.0);
    }
    for (const std::size_t none : {std::size_t{0}, sizeof(std::size_t) - 1, std::size_t{4097}}) {
        status.known.size = none;
        EXPECT_FAILURE(tarn_sweep_get_status(sweep_, &status.known), TARN_ERROR_BAD_ARGUMENT,
                       "status.size is " + std::to_string(none));
    }
}

TEST_F(c_interface, what_an_older_host_cannot_ask_for_takes_its_default)
{
    // Ends behind its directory: neither callback nor limit is read.
    const std::string directory = root() + "chosen";
    tarn_sweep_options options;
    std::memset(&options, 0x5A, sizeof options);
    options.size = offsetof(tarn_sweep_options, private_parent);
    options.directory = directory.c_str();
    ASSERT_EQ(tarn_sweep_begin(&options, &sweep_), TARN_OK) << tarn_last_error();
    const char* path = nullptr;
    ASSERT_EQ(tarn_sweep_directory(sweep_, &path), TARN_OK);
    EXPECT_EQ(path, directory + "/");
    tarn_sweep_free(std::exchange(sweep_, nullptr));
    // No version ends in the midst of a member.
    options.size += 3;
    EXPECT_FAILURE(tarn_sweep_begin(&options, &sweep_), TARN_ERROR_BAD_ARGUMENT, "options.size is 19");
    // A frame without a format has the default one, which is none.
    begin();
    tarn_image frame = image_of(frames_[0]);
    frame.size = offsetof(tarn_image, format);
    EXPECT_FAILURE(tarn_sweep_feed(sweep_, &frame, 0, nullptr), TARN_ERROR_BAD_ARGUMENT, "format");
}

TEST_F(c_interface, what_a_newer_host_asks_for_in_vain_is_refused)
{
    struct newer_options {
        tarn_sweep_options known;
        int more[6];
    } options{};

    options.known.size = sizeof options;
    options.known.private_parent = root().c_str();
    ASSERT_EQ(tarn_sweep_begin(&options.known, &sweep_), TARN_OK) << tarn_last_error();
    tarn_sweep* other = nullptr;
    options.more[5] = 1;
    EXPECT_FAILURE(tarn_sweep_begin(&options.known, &other), TARN_ERROR_UNSUPPORTED, "1.0.0");
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(tarn_sweep_is_current(sweep_), 1);
}

// Callbacks.

struct seen_key_frames {
    std::vector<tarn_picture*> kept;
    std::vector<tarn_key_frame> told;
};

TEST_F(c_interface, key_frames_are_handed_out_and_can_be_kept)
{
    seen_key_frames seen;
    options_.user = &seen;
    options_.on_key_frame = [](void* user, const tarn_key_frame* frame) {
        auto& all = *static_cast<seen_key_frames*>(user);
        EXPECT_EQ(frame->size, sizeof(tarn_key_frame));
        all.told.push_back(*frame);
        all.kept.emplace_back();
        EXPECT_EQ(tarn_picture_keep(frame->picture, &all.kept.back()), TARN_OK) << tarn_last_error();
    };
    begin();
    int expected = 0;
    for (const cv::Mat& frame : frames_) {
        const tarn_answer answer = feed(image_of(frame));
        if (answer.key_frame == 0) {
            continue;
        }
        ++expected;
        ASSERT_EQ(seen.told.size(), static_cast<std::size_t>(expected));
        const tarn_key_frame& told = seen.told.back();
        EXPECT_EQ(told.number, answer.key_frame);
        EXPECT_EQ(told.placed, 1);
        EXPECT_EQ(told.working_width, 300);
        EXPECT_TRUE(same_bytes(copy_of(seen.kept.back()), frame));
    }
    EXPECT_GT(expected, 1);
    EXPECT_EQ(seen.told[0].plane_from_frame[2], 0.0);
    // The camera goes right by 40 of 640 px a frame.
    EXPECT_GT(seen.told[1].plane_from_frame[2], 10.0);
    auto view = made<tarn_image>();
    for (std::size_t i = 0; i < seen.kept.size(); ++i) {
        EXPECT_FAILURE(tarn_picture_view(seen.told[i].picture, &view), TARN_ERROR_NO_SUCH_HANDLE, "freed");
        tarn_picture_free(seen.kept[i]);
    }
}

TEST_F(c_interface, the_log_goes_to_the_host_and_standard_output_stays_untouched)
{
    std::string log;
    options_.user = &log;
    options_.on_log = [](void* user, const char* text) { *static_cast<std::string*>(user) += text; };
    take_output();
    begin();
    feed_all();
    finish();
    EXPECT_FALSE(log.empty());
    EXPECT_EQ(take_output(), "");
}

TEST_F(c_interface, a_wait_is_ended_by_the_callback)
{
    hold_workers();
    int asked = 0;
    options_.most_under_way = 1;
    options_.user = &asked;
    options_.while_waiting = [](void* user, int under_way) {
        EXPECT_EQ(under_way, 1);
        return ++*static_cast<int*>(user) < 3 ? 1 : 0;
    };
    begin();
    tarn_answer answer = feed(image_of(frames_[0]));
    EXPECT_EQ(answer.key_frame, 1);
    for (std::size_t i = 1; i < frames_.size() && asked == 0; ++i) {
        answer = feed(image_of(frames_[i]));
    }
    // How often it is asked before the callback's patience is the session's affair; what follows is not.
    EXPECT_GE(asked, 3);
    EXPECT_EQ(answer.taken, 0);
    EXPECT_EQ(answer.why, TARN_REASON_CANCELLED);
}

struct from_within {
    tarn_sweep* sweep = nullptr;
    const cv::Mat* frame = nullptr;
    bool frees = false;
    int calls = 0;
};

/// Everything that a callback may and may not do.
void call_from_within(void* user, const tarn_key_frame* /*key_frame*/)
{
    auto& within = *static_cast<from_within*>(user);
    ++within.calls;
    tarn_sweep* other = nullptr;
    tarn_panorama* panorama = nullptr;
    tarn_picture* picture = nullptr;
    const char* path = nullptr;
    int has_room = 0;
    auto status = made<tarn_status>();
    const tarn_image frame = image_of(*within.frame);
    EXPECT_FAILURE(tarn_sweep_begin(nullptr, &other), TARN_ERROR_IN_CALLBACK, "callback");
    EXPECT_FAILURE(tarn_sweep_feed(within.sweep, &frame, 0, nullptr), TARN_ERROR_IN_CALLBACK, "callback");
    EXPECT_FAILURE(tarn_sweep_finish(within.sweep, nullptr, &panorama), TARN_ERROR_IN_CALLBACK, "callback");
    EXPECT_EQ(tarn_sweep_get_status(within.sweep, &status), TARN_OK) << tarn_last_error();
    EXPECT_EQ(tarn_sweep_preview(within.sweep, &picture, nullptr), TARN_OK) << tarn_last_error();
    tarn_picture_free(picture);
    EXPECT_EQ(tarn_sweep_directory(within.sweep, &path), TARN_OK) << tarn_last_error();
    EXPECT_EQ(tarn_sweep_wait_for_room(within.sweep, 100, 0, &has_room), TARN_OK) << tarn_last_error();
    EXPECT_EQ(tarn_sweep_is_current(within.sweep), 1);
    if (within.frees) {
        tarn_sweep_free(within.sweep);
    }
}

TEST_F(c_interface, a_callback_may_call_what_does_not_wait_for_it)
{
    from_within within;
    options_.user = &within;
    options_.on_key_frame = call_from_within;
    begin();
    within.sweep = sweep_;
    within.frame = &frames_[0];
    EXPECT_EQ(feed(image_of(frames_[0])).taken, 1);
    EXPECT_EQ(within.calls, 1);
    // Once it has returned, everything is allowed again.
    EXPECT_EQ(feed(image_of(frames_[1])).taken, 1);
}

TEST_F(c_interface, a_sweep_that_its_callback_frees_ends_when_the_call_does)
{
    from_within within;
    within.frees = true;
    options_.user = &within;
    options_.on_key_frame = call_from_within;
    begin();
    within.sweep = sweep_;
    within.frame = &frames_[0];
    const char* path = nullptr;
    ASSERT_EQ(tarn_sweep_directory(sweep_, &path), TARN_OK);
    const std::string directory = path;
    const tarn_image frame = image_of(frames_[0]);
    EXPECT_EQ(tarn_sweep_feed(sweep_, &frame, 0, nullptr), TARN_OK) << tarn_last_error();
    EXPECT_EQ(within.calls, 1);
    EXPECT_FAILURE(tarn_sweep_feed(sweep_, &frame, 0, nullptr), TARN_ERROR_NO_SUCH_HANDLE, "sweep");
    EXPECT_FALSE(fs::exists(directory));
}

TEST_F(c_interface, what_a_callback_in_another_language_throws_becomes_an_error)
{
    options_.on_key_frame = [](void* /*user*/, const tarn_key_frame* /*frame*/) {
        throw std::runtime_error("the host's own\nmistake");
    };
    begin();
    const tarn_image frame = image_of(frames_[0]);
    EXPECT_FAILURE(tarn_sweep_feed(sweep_, &frame, 0, nullptr), TARN_ERROR_UNEXPECTED, "the host's own mistake");
    EXPECT_EQ(tarn_sweep_is_current(sweep_), 1);
    EXPECT_EQ(feed(image_of(frames_[1])).taken, 1);
}

// Threads.

TEST_F(c_interface, two_threads_feed)
{
    begin();
    std::atomic<int> taken{0}, busy{0}, other{0};
    const auto feed_from_a_thread = [&] {
        for (const cv::Mat& frame : frames_) {
            const tarn_image image = image_of(frame);
            auto answer = made<tarn_answer>();
            EXPECT_EQ(tarn_sweep_feed(sweep_, &image, 0, &answer), TARN_OK) << tarn_last_error();
            if (answer.why == TARN_REASON_BUSY) {
                EXPECT_EQ(answer.code, TARN_CODE_LOST);
                EXPECT_EQ(answer.taken, 0);
                ++busy;
            } else {
                ++(answer.taken != 0 ? taken : other);
            }
            tarn_picture* picture = nullptr;
            EXPECT_EQ(tarn_sweep_preview(sweep_, &picture, nullptr), TARN_OK) << tarn_last_error();
            tarn_picture_free(picture);
        }
    };
    std::thread first(feed_from_a_thread), second(feed_from_a_thread);
    first.join();
    second.join();
    EXPECT_EQ(taken + busy + other, 2 * static_cast<int>(frames_.size()));
    EXPECT_GE(taken, 1);
    finish();
}

TEST_F(c_interface, a_sweep_is_freed_under_the_feet_of_those_that_use_it)
{
    hold_workers();
    options_.most_under_way = 1;
    std::atomic<bool> waits{false};
    options_.user = &waits;
    options_.while_waiting = [](void* user, int /*under_way*/) {
        *static_cast<std::atomic<bool>*>(user) = true;
        return 1;
    };
    begin();
    feed(image_of(frames_[0]));
    std::thread feeder([&] {
        // One of these waits for room that will not come.
        for (const cv::Mat& frame : frames_) {
            const tarn_image image = image_of(frame);
            auto answer = made<tarn_answer>();
            const tarn_result result = tarn_sweep_feed(sweep_, &image, 0, &answer);
            if (result != TARN_OK) {
                EXPECT_TRUE(result == TARN_ERROR_NO_SUCH_HANDLE || result == TARN_ERROR_OVER) << tarn_last_error();
                return;
            }
            if (answer.why == TARN_REASON_CANCELLED) {
                EXPECT_EQ(answer.taken, 0);
            }
        }
        ADD_FAILURE() << "the sweep went on";
    });
    while (!waits) {
        std::this_thread::yield();
    }
    tarn_sweep_free(sweep_);
    feeder.join();
    EXPECT_EQ(tarn_sweep_is_current(sweep_), 0);
}

TEST_F(c_interface, a_finish_is_cancelled_from_another_thread)
{
    hold_workers();
    begin();
    feed(image_of(frames_[0]));
    std::atomic<bool> waits{false};
    auto options = made<tarn_finish_options>();
    options.user = &waits;
    options.on_progress = [](void* user, int /*done*/, int /*key_frames*/) {
        *static_cast<std::atomic<bool>*>(user) = true;
        return 1;
    };
    std::thread canceller([&] {
        while (!waits) {
            std::this_thread::yield();
        }
        EXPECT_EQ(tarn_sweep_cancel(sweep_), TARN_OK);
    });
    ASSERT_EQ(tarn_sweep_finish(sweep_, &options, &panorama_), TARN_OK) << tarn_last_error();
    canceller.join();
    auto info = made<tarn_panorama_info>();
    ASSERT_EQ(tarn_panorama_get_info(panorama_, &info), TARN_OK);
    EXPECT_NE(info.extent, TARN_EXTENT_WHOLE);
    EXPECT_EQ(info.why, TARN_REASON_CANCELLED);
}

TEST_F(c_interface, threads_encode_one_panorama_once)
{
    begin();
    feed_all();
    finish();
    std::vector<const unsigned char*> found(4, nullptr);
    std::vector<std::thread> threads;
    for (const unsigned char*& bytes : found) {
        threads.emplace_back([&bytes, this] {
            std::size_t count = 0;
            EXPECT_EQ(tarn_panorama_jpeg(panorama_, &bytes, &count), TARN_OK) << tarn_last_error();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::set<const unsigned char*>(found.begin(), found.end()).size(), 1U);
    EXPECT_NE(found[0], nullptr);
}

}  // namespace
}  // namespace tarn::test
