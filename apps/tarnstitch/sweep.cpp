// SPDX-License-Identifier: Apache-2.0
//
// The input's frames into the library's session, its answers into the program's terms.
#include "sweep.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <system_error>
#include <utility>

#include "host_error.h"
#include "interruption.h"
#include "scratch_directory.h"
#include "working_copy.h"

namespace tarn::host {

namespace {

bool user_gives_up()
{
    return stop_asked_for() == stop_kind::give_up;
}

/// A session whose files do not outlive the program, even where a signal ends it.
class guarded_session {
public:
    explicit guarded_session(sweep_options options) : session_(begin(std::move(options)))
    {
    }

    ~guarded_session()
    {
        session_.cancel();
        interruption_hold().keep_when_interrupted(directory_);
    }

    guarded_session(const guarded_session&) = delete;
    guarded_session& operator=(const guarded_session&) = delete;

    sweep* operator->()
    {
        return &session_;
    }

private:
    sweep begin(sweep_options options)
    {
        interruption_hold hold;
        try {
            sweep begun = sweep::begin(std::move(options));
            directory_ = begun.directory();
            hold.remove_when_interrupted(directory_);
            return begun;
        } catch (const sweep_error& error) {
            const bool is_about_directory = error.problem() == sweep_problem::directory_unusable;
            const bool is_about_memory = error.problem() == sweep_problem::no_memory;
            throw host_error(is_about_memory ? exit_code::short_of_means : exit_code::output_failed,
                             (is_about_directory ? "cannot make a temporary directory: " : "")
                                 + std::string(error.what()));
        }
    }

    std::string directory_;
    sweep session_;
};

/// What becomes of a frame's size, as the library gets it, before it is laid into the panorama.
cv::Size size_in_panorama(cv::Size frame)
{
    const double scale = std::min(1.0, static_cast<double>(greatest_frame_width) / frame.width);
    return {cvRound(frame.height * scale), cvRound(frame.width * scale)};  // turned
}

/// The panorama's file as the library has written it, which spares encoding it once more.
std::vector<unsigned char> jpeg_of(const panorama& made)
{
    std::ifstream file(made.file, std::ios::binary);
    std::vector<unsigned char> bytes(std::istreambuf_iterator<char>(file), {});
    return bytes.empty() || file.bad() ? made.jpeg() : bytes;
}

/// The sweep as it goes: what run_sweep tells in steps.
class running_sweep {
public:
    running_sweep(sweep_input& input, const sweep_settings& settings)
        : input_(input), settings_(settings), session_(session_options())
    {
    }

    sweep_result run()
    {
        try {
            feed_frame frame;
            bool goes_on = true;
            while (goes_on && input_.next(frame)) {
                const bool input_ends = frame.last;
                // The input is asked once more after its last frame: an error may have made it the last one.
                goes_on = hand_over(frame) && (input_ends || !frame.last);
            }
        } catch (const host_error& error) {
            result_.outcome = sweep_outcome::input_failed;
            result_.input_error = error.what();
        }
        if (result_.outcome != sweep_outcome::given_up) {
            collect_panorama();
            collect_preview();
        }
        result_.key_frames = session_->status().key_frames;
        result_.turns = session_->worker_turns();
        keep_working_files();
        return result_;
    }

private:
    sweep_options session_options()
    {
        sweep_options options;
        options.private_parent = temporary_parent();
        options.most_under_way = settings_.workers;
        options.while_waiting = [this](int under_way) {
            for (sweep_observer* const observer : settings_.observers) {
                observer->waiting(under_way);
            }
            return goes_on_waiting();
        };
        options.on_log = settings_.on_log;
        options.key_frame_overlap = settings_.key_frame_overlap;
        options.on_key_frame = [this](const tarn::key_frame& frame) {
            if (frame.placed) {
                result_.places.push_back({frame.working_size, frame.plane_from_frame});
            }
            if (settings_.collector != nullptr) {
                settings_.collector->key_frame(frame, handed_over_);
            }
            key_frame_ = frame;
        };
        return options;
    }

    /// Before a frame a stop ends the wait, so that it becomes the last one; the panorama is waited for unless there is
    /// nothing to wait for.
    bool goes_on_waiting() const
    {
        if (!finishing_) {
            return stop_asked_for() == stop_kind::none;
        }
        return !user_gives_up() && result_.outcome != sweep_outcome::pipeline_failed;
    }

    /// Hands one frame over, the last one until its panorama is there. Makes it the last one when the user wants
    /// the sweep to end.
    /// @returns false when nothing may follow: the pipeline has failed for good, or the user has given up
    bool hand_over(feed_frame& frame)
    {
        handed_over_ = frame.stamp;
        frame_answer answer;
        frame.last = frame.last || stop_asked_for() != stop_kind::none;
        if (!frame.last) {
            answer = feed(frame);
            frame.last = stop_asked_for() != stop_kind::none
                         && (answer.why == reason::cancelled || answer.why == reason::pipeline_failed);
        }
        bool works = !frame.last && answer.code != code_pipeline_failed;
        reason why = answer.why;
        if (frame.last && !user_gives_up()) {
            made_ = finish(&frame);
            answer = made_->last_frame;
            works = made_->extent == panorama_extent::whole;
            answer.taken = answer.taken && works;
            why = made_->why;
        }
        if (!works && user_gives_up()) {
            result_.outcome = sweep_outcome::given_up;
            return false;
        }
        last_frame_ = frame.bgr;
        result_.frame = size_in_panorama(frame.bgr.size());
        if (answer.why != reason::timed_out) {  // or it was not handed over
            count(frame, answer);
        }
        key_frame_.reset();  // its pixels are the library's to use again
        if (!works) {
            result_.outcome = sweep_outcome::pipeline_failed;
            result_.broken_at_frame = frame.stamp.number;
            result_.refused = frame;
            result_.why = why;
        }
        return works;
    }

    frame_answer feed(const feed_frame& frame)
    {
        try {
            return session_->feed(view_of(frame.bgr), settings_.direction_hint);
        } catch (const sweep_error& error) {
            throw unusable(frame, error);
        }
    }

    /// The panorama, with a last frame or with what there is.
    panorama finish(const feed_frame* last)
    {
        finishing_ = true;
        finish_options options;
        options.hint = settings_.direction_hint;
        if (last == nullptr) {
            return session_->finish(options);
        }
        try {
            const frame_view view = view_of(last->bgr);
            options.last_frame = &view;
            return session_->finish(options);
        } catch (const sweep_error& error) {
            throw unusable(*last, error);
        }
    }

    static host_error unusable(const feed_frame& frame, const sweep_error& error)
    {
        return {exit_code::input_failed,
                "picture " + std::to_string(frame.stamp.number) + " cannot be stitched: " + error.what()};
    }

    /// Counts a frame and tells the observers of it.
    void count(const feed_frame& frame, const frame_answer& answer)
    {
        ++result_.frames;
        result_.last_frame = frame.stamp.number;
        ++result_.by_code[answer.code];
        result_.taken += answer.taken ? 1 : 0;
        if (!after_fitted_) {
            after_fitted_ = frame.stamp;
        }
        if (answer.key_frame > 0) {
            key_stamps_.push_back({frame.stamp, last_fitted_, *after_fitted_});
        }
        if (answer.taken) {
            last_fitted_ = frame.stamp;
            after_fitted_.reset();
        }
        if (settings_.collector != nullptr && answer.taken) {
            settings_.collector->frame_taken(frame, answer);
        }
        if (!settings_.observers.empty()) {
            frame_record record = {frame.stamp, frame.place, answer, session_->preview(), &frame.bgr};
            record.key_frame = key_frame_ ? &*key_frame_ : nullptr;
            for (sweep_observer* const observer : settings_.observers) {
                observer->frame_done(record);
            }
        }
    }

    void collect_panorama()
    {
        const panorama made = made_ ? *made_ : finish(nullptr);
        const sweep_status status = session_->status();
        result_.failed_key_frame = status.first_failed_key_frame;
        if (status.why != reason::none) {
            result_.why = status.why;
        }
        if (status.first_failed_key_frame > 0
            && static_cast<std::size_t>(result_.failed_key_frame) <= key_stamps_.size()) {
            const key_frame_stamps& failed = key_stamps_[static_cast<std::size_t>(result_.failed_key_frame) - 1];
            result_.failed_frame = failed.own.number;
            result_.failed_seconds = failed.own.seconds;
            result_.fitted_seconds = failed.last_fitted.seconds;
            result_.misfit_seconds = failed.after_fitted.seconds;
        }
        result_.panorama = made.image;
        result_.composed = made.composed;
        if (made.extent != panorama_extent::missing) {
            result_.panorama_file = jpeg_of(made);
        }
    }

    /// The library starts a preview with the first frame that it can track. When only the last frame is left
    /// for the panorama (a single picture, a blank wall before it) there is none, and the panorama is that
    /// frame. So is the preview then, in the size in which it would have started.
    void collect_preview()
    {
        result_.preview = session_->preview().pixels;
        if (!result_.preview.empty() || last_frame_.empty()) {
            return;
        }
        image_resize(last_frame_, result_.preview, working_width, 1);
    }

    /// Moves the working files out before the session removes them with their directory. What cannot be moved shows
    /// when it is looked for.
    void keep_working_files()
    {
        namespace fs = std::filesystem;
        if (settings_.kept_files.empty()) {
            return;
        }
        std::error_code error;
        for (const fs::path& file : entries_of(session_->directory())) {
            fs::rename(file, fs::path(settings_.kept_files) / file.filename(), error);
        }
    }

    /// The frame that a key frame was, and where the sweep had come apart before it, if it had.
    struct key_frame_stamps {
        frame_stamp own;
        frame_stamp last_fitted;   ///< the last frame before that was taken
        frame_stamp after_fitted;  ///< the first frame after that
    };

    sweep_input& input_;
    const sweep_settings& settings_;
    guarded_session session_;
    sweep_result result_;
    std::optional<panorama> made_;  ///< with the last frame
    bool finishing_ = false;
    frame_stamp handed_over_;                   ///< of the frame at hand
    std::optional<tarn::key_frame> key_frame_;  ///< that this frame has become
    cv::Mat last_frame_;
    std::vector<key_frame_stamps> key_stamps_;
    frame_stamp last_fitted_;                  ///< the last frame that was taken
    std::optional<frame_stamp> after_fitted_;  ///< the first frame after that
};

}  // namespace

sweep_result run_sweep(sweep_input& input, const sweep_settings& settings)
{
    return running_sweep(input, settings).run();
}

}  // namespace tarn::host
