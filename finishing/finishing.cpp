// SPDX-License-Identifier: Apache-2.0
//
// The story of finishing: read, pair, place, balance, cut, blend. The steps are functions of their own files; here they
// meet, and here ends whatever is thrown.
#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include <opencv2/core/ocl.hpp>

#include "adjustment.h"
#include "camera_model.h"
#include "crop_choice.h"
#include "crop_loss.h"
#include "exposure.h"
#include "frame_matching.h"
#include "pair_graph.h"
#include "progress.h"
#include "refused_memory.h"
#include "seams.h"
#include "small_canvas.h"
#include "strip_blending.h"
#include "surface.h"
#include "tarn_finishing.h"
#include "working_frames.h"

namespace tarn::finishing {

namespace {

/// OpenCL devices calculate differently from each other: the picture is made without them.
class without_opencl {
public:
    without_opencl() : before_(cv::ocl::useOpenCL())
    {
        cv::ocl::setUseOpenCL(false);
    }

    ~without_opencl()
    {
        cv::ocl::setUseOpenCL(before_);
    }

    without_opencl(const without_opencl&) = delete;
    without_opencl& operator=(const without_opencl&) = delete;

private:
    bool before_;
};

class finishing_task {
public:
    finishing_task(const std::vector<key_frame>& key_frames, const finishing_options& options)
        : key_frames_(key_frames), options_(options), progress_(options.progress)
    {
    }

    finishing_result run()
    {
        result_.frames.resize(key_frames_.size());
        for (std::size_t i = 0; i < key_frames_.size(); ++i) {
            result_.frames[i].number = key_frames_[i].number;
        }
        if (key_frames_.empty()) {
            result_.outcome = status::no_key_frames;
            result_.explanation = "There is no key frame.";
            return result_;
        }
        frames_ = read_working_frames(key_frames_, progress_);
        for (const working_frame& frame : frames_) {
            sizes_.push_back(frame.full_size);
        }
        link_frames();
        place_cameras();
        draw();
        describe();
        result_.outcome = status::ok;
        return result_;
    }

private:
    std::optional<cv::Matx33d> live_motion(int i, int j) const
    {
        const working_frame& frame_i = frames_[static_cast<std::size_t>(i)];
        const working_frame& frame_j = frames_[static_cast<std::size_t>(j)];
        if (!frame_i.has_placement || !frame_j.has_placement) {
            return std::nullopt;
        }
        return frame_j.placement.inv() * frame_i.placement;
    }

    /// Adds the links of the pairs that have something in common.
    template <typename Prediction>
    void compare(const std::vector<index_pair>& pairs, const Prediction& predicted, double from, double to)
    {
        std::vector<std::optional<frame_link>> found(pairs.size());
        progress_.for_each(stage::pairing, from, to, pairs.size(), [&](std::size_t k) {
            const auto [i, j] = pairs[k];
            found[k] = match_frames(frames_[static_cast<std::size_t>(i)], frames_[static_cast<std::size_t>(j)],
                                    predicted(i, j));
            if (found[k]) {
                found[k]->i = i;
                found[k]->j = j;
            }
        });
        for (const std::optional<frame_link>& link : found) {
            if (link) {
                links_.push_back(*link);
            }
        }
        compared_.insert(compared_.end(), pairs.begin(), pairs.end());
    }

    void link_frames()
    {
        const auto by_live_motion = [this](int i, int j) { return live_motion(i, j); };
        compare(pairs_of_neighbours(frames_), by_live_motion, 0.0, 0.6);
        compare(pairs_that_overlap(frames_, compared_, by_live_motion), by_live_motion, 0.6, 0.8);
        join_by_live_motion();
    }

    /// Neighbours that nothing joins, by however many others, are joined by the live motion.
    void join_by_live_motion()
    {
        const int count = static_cast<int>(frames_.size());
        for (int j = 1; j < count; ++j) {
            progress_.at(stage::pairing, 0.8 + 0.1 * j / count);
            const std::vector<int> parts = joined_parts(links_, count);
            const int i = j - 1;
            const std::optional<cv::Matx33d> motion = live_motion(i, j);
            if (parts[static_cast<std::size_t>(i)] != parts[static_cast<std::size_t>(j)] && motion) {
                links_.push_back(
                    align_frames(frames_[static_cast<std::size_t>(i)], frames_[static_cast<std::size_t>(j)], *motion));
                links_.back().i = i;
                links_.back().j = j;
            }
        }
    }

    void place_cameras()
    {
        const int count = static_cast<int>(frames_.size());
        if (count == 1) {
            cameras_.places = {cv::Matx33d::eye()};
            cameras_.placed = {true};
            cameras_.motion = camera_motion::none;
            return;
        }
        int steps = 0;
        const auto each_step = [&] { progress_.at(stage::placing, 1.0 - 1.0 / (1.0 + 0.02 * ++steps)); };
        cameras_ = find_cameras(links_, count, each_step);
        close_loops(each_step);
    }

    /// What the cameras say overlaps, and the live motion did not know of: mostly a turn that closes.
    void close_loops(const std::function<void()>& each_step)
    {
        const auto by_cameras = [this](int i, int j) -> std::optional<cv::Matx33d> {
            if (!cameras_.placed[static_cast<std::size_t>(i)] || !cameras_.placed[static_cast<std::size_t>(j)]) {
                return std::nullopt;
            }
            return cameras_.j_from_i(i, j);
        };
        const std::size_t before = links_.size();
        compare(pairs_that_overlap(frames_, compared_, by_cameras), by_cameras, 0.9, 1.0);
        if (links_.size() > before) {
            cameras_ = find_cameras(links_, static_cast<int>(frames_.size()), each_step);
        }
    }

    /// One key frame is the picture.
    void show_single()
    {
        result_.picture = picture_of(key_frames_[0]).clone();
        result_.mask = cv::Mat(result_.picture.size(), CV_8UC1, cv::Scalar(255));
        result_.frames[0].omitted = left_out::no;
        result_.frames[0].part_in_picture = 1.0;
        const cv::Size size = result_.picture.size();
        surface_.cameras = cameras_;
        surface_.headings = {0.0};
        surface_.scale = std::max(size.width, size.height);
        area_ = cv::Rect(cv::Point(), size);
        result_.lost.seen = area_;
    }

    void draw()
    {
        if (cameras_.motion == camera_motion::none) {
            show_single();
            return;
        }
        picture_plan plan;
        drawing_surface surface = choose_surface(cameras_, sizes_);
        progress_.at(stage::exposure, 0.0);
        drawing_surface small_surface = small_surface_for(surface, frames_);
        plan.drawings = draw_small(small_surface, frames_, result_.frames, progress_);
        if (plan.drawings.empty()) {
            throw std::runtime_error("No key frame can be drawn.");
        }
        std::vector<small_drawing> drawn = plan.drawings;
        for (small_drawing& drawing : drawn) {
            drawing.image.release();
        }
        leave_out_superfluous(plan.drawings, cameras_, frames_, result_.frames);
        plan.gains = balance_exposure(plan.drawings, progress_);
        for (std::size_t k = 0; k < plan.drawings.size(); ++k) {
            result_.frames[static_cast<std::size_t>(plan.drawings[k].index)].gain = plan.gains[k].mean();
        }
        constexpr int around = 3;  // px
        plan.fills_gaps = options_.cropping == crop::automatic;
        plan.owners = find_seams(plan.drawings, plan.gains, plan.fills_gaps ? std::numeric_limits<int>::max() : around,
                                 progress_);
        const cv::Rect small_area = chosen_area(plan.owners);
        const double enlargement = surface.scale / small_surface.scale;
        const double pixels = enlargement * enlargement * small_area.area();
        plan.frame_scale = std::min(1.0, std::sqrt(options_.most_megapixels * 1e6 / std::max(1.0, pixels)));
        plan.surface = surface.scaled(plan.frame_scale);
        plan.frame_side = plan.frame_scale * shorter_side();
        plan.small_scale = small_surface.scale / plan.surface.scale;
        plan.area = at_full_size(small_area, plan);
        if (plan.area.empty()) {
            throw std::runtime_error("No rectangle is full.");
        }
        const auto image = [this](int index) { return picture_of(key_frames_[static_cast<std::size_t>(index)]); };
        blend_strips(plan, image, options_.image_cache_megabytes * 1e6, progress_, result_.picture, result_.mask);
        surface_ = plan.surface;
        area_ = plan.area;
        result_.scale = plan.frame_scale;
        trim();
        result_.lost = measure_cut(drawn, plan.owners, plan.small_scale, plan.surface, area_, result_.frames);
    }

    /// Of the largest key frame.
    int shorter_side() const
    {
        int most = 0;
        for (const cv::Size& size : sizes_) {
            most = std::max(most, std::min(size.width, size.height));
        }
        return most;
    }

    /// On the small surface.
    cv::Rect chosen_area(const ownership& owners) const
    {
        cv::Rect chosen(cv::Point(), owners.area.size());
        if (options_.cropping != crop::none) {
            chosen = largest_full_rectangle(owners.covered);
        }
        if (options_.cropping == crop::automatic) {
            chosen = nearly_full_rectangle(owners.covered, chosen);
        }
        return chosen + owners.area.tl();
    }

    cv::Rect at_full_size(cv::Rect small, const picture_plan& plan) const
    {
        const double factor = 1.0 / plan.small_scale;
        cv::Rect area = enlarged(small, factor);
        if (options_.cropping == crop::full) {
            std::vector<int> shown;
            for (const small_drawing& drawing : plan.drawings) {
                shown.push_back(drawing.index);
            }
            area = exact_full_rectangle(area, plan.surface, shown, sizes_, cvCeil(2 * factor),
                                        [this] { progress_.at(stage::seams, 1.0); });
        }
        const cv::Size turn = turn_of(plan.surface);
        if (turn.width > 0 && area.width > turn.width) {
            area = cv::Rect(-turn.width / 2, area.y, turn.width, area.height) & cv::Rect(area);
        } else if (turn.height > 0 && area.height > turn.height) {
            area = cv::Rect(area.x, -turn.height / 2, area.width, turn.height) & cv::Rect(area);
        }
        return area;
    }

    /// Takes off rows and columns in which the seams have left a pixel empty after all.
    void trim()
    {
        if (options_.cropping != crop::full) {
            return;
        }
        const cv::Rect full = sides_moved_in(result_.mask);
        if (full.size() != result_.mask.size()) {
            // No copies: the picture may be most of what there is memory for.
            result_.picture = result_.picture(full);
            result_.mask = result_.mask(full);
            area_ = full + area_.tl();
        }
    }

    void describe()
    {
        result_.motion = cameras_.motion;
        result_.drawn_on = surface_.kind;
        const bool turning = cameras_.motion == camera_motion::turning;
        result_.focal_length = turning ? cameras_.focal : 0.0;
        result_.origin = cv::Point2d(area_.tl());
        if (cameras_.motion == camera_motion::none) {
            // A frame's coordinates are counted from its centre.
            result_.origin = -0.5 * cv::Point2d(area_.width - 1, area_.height - 1);
        }
        result_.surface_scale = surface_.scale;
        result_.headings = surface_.headings;
        if (turning) {
            describe_field_of_view();
        }
        if (!links_.empty()) {
            result_.residual = 100.0 * median_residual(cameras_, links_);
        }
        result_.pairs_compared = static_cast<int>(compared_.size());
        for (std::size_t i = 0; i < frames_.size(); ++i) {
            describe_frame(static_cast<int>(i));
        }
    }

    void describe_field_of_view()
    {
        constexpr double degrees = 180.0 / CV_PI;
        const auto flat = [&](int begin, int length) {
            return degrees * (std::atan((begin + length) / surface_.scale) - std::atan(begin / surface_.scale));
        };
        const auto round = [&](int length) { return degrees * length / surface_.scale; };
        const projection kind = surface_.kind;
        const bool columns_round = kind == projection::cylinder || kind == projection::sphere;
        const bool rows_round = kind == projection::turned_cylinder || kind == projection::sphere;
        result_.horizontal_field_of_view = columns_round ? round(area_.width) : flat(area_.x, area_.width);
        result_.vertical_field_of_view = rows_round ? round(area_.height) : flat(area_.y, area_.height);
        if (!columns_round) {
            return;
        }
        viewer_description& viewers = result_.viewers;
        viewers.known = true;
        viewers.projection_type = kind == projection::sphere ? "equirectangular" : "cylindrical";
        const int turn = std::max(area_.width, cvRound(2 * CV_PI * surface_.scale));
        // The horizon lies in the middle of the whole.
        const int half = kind == projection::sphere
                             ? std::max({cvRound(CV_PI / 2 * surface_.scale), -area_.y, area_.br().y})
                             : std::max(-area_.y, area_.br().y);
        viewers.full_size = cv::Size(turn, 2 * half);
        const int left = std::clamp(turn / 2 + area_.x, 0, turn - area_.width);
        viewers.cropped_area = cv::Rect(left, half + area_.y, area_.width, area_.height);
    }

    void describe_frame(int index)
    {
        frame_report& report = result_.frames[static_cast<std::size_t>(index)];
        if (!cameras_.placed[static_cast<std::size_t>(index)]) {
            return;
        }
        report.camera = surface_.cameras.places[static_cast<std::size_t>(index)];
        report.placement = frames_.size() == 1 ? placed_by::features : placed_by::live_motion;
        std::vector<double> distances;
        for (const frame_link& link : links_) {
            if (link.i != index && link.j != index) {
                continue;
            }
            if (link.source == placed_by::features) {
                report.placement = placed_by::features;
                const std::vector<double> own = residuals_of(cameras_, link);
                distances.insert(distances.end(), own.begin(), own.end());
            } else if (link.source == placed_by::alignment && report.placement == placed_by::live_motion) {
                report.placement = placed_by::alignment;
            }
        }
        if (!distances.empty()) {
            const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
            std::nth_element(distances.begin(), middle, distances.end());
            report.residual = 100.0 * *middle;
        }
        result_.joined_by_alignment += report.placement == placed_by::alignment ? 1 : 0;
        result_.joined_by_live_motion += report.placement == placed_by::live_motion ? 1 : 0;
    }

    const std::vector<key_frame>& key_frames_;
    const finishing_options& options_;
    progress_meter progress_;
    finishing_result result_;
    std::vector<working_frame> frames_;
    std::vector<cv::Size> sizes_;
    std::vector<index_pair> compared_;
    std::vector<frame_link> links_;
    camera_set cameras_;
    drawing_surface surface_;
    cv::Rect area_;
};

finishing_result ended(const std::vector<key_frame>& key_frames, status outcome, const std::string& explanation)
{
    finishing_result result;
    result.outcome = outcome;
    result.explanation = explanation;
    for (const key_frame& frame : key_frames) {
        result.frames.emplace_back();
        result.frames.back().number = frame.number;
    }
    return result;
}

/// Memory that was refused may be refused to the words about it, too.
finishing_result ended_without_memory(const std::vector<key_frame>& key_frames)
{
    try {
        return ended(key_frames, status::out_of_memory, "There is not enough memory.");
    } catch (const std::bad_alloc&) {
        finishing_result result;
        result.outcome = status::out_of_memory;
        return result;
    }
}

}  // namespace

finishing_result finish(const std::vector<key_frame>& key_frames, const finishing_options& options)
{
    const without_opencl everywhere_alike;
    try {
        return finishing_task(key_frames, options).run();
    } catch (const cancelled_by_host&) {
        return ended(key_frames, status::cancelled, "Cancelled.");
    } catch (const unreadable_frame& frame) {
        finishing_result result =
            ended(key_frames, status::unreadable, "Key frame " + std::to_string(frame.number) + " cannot be read.");
        result.failed_number = frame.number;
        return result;
    } catch (const std::bad_alloc&) {
        return ended_without_memory(key_frames);
    } catch (const cv::Exception& error) {
        if (is_about_memory(error)) {
            return ended_without_memory(key_frames);
        }
        return ended(key_frames, status::failed, error.what());
    } catch (const std::exception& error) {
        return ended(key_frames, status::failed, error.what());
    }
}

cv::Point2d finishing_result::picture_from_frame(int index, cv::Point2d pixel, cv::Size frame_size) const
{
    drawing_surface surface;
    surface.kind = drawn_on;
    surface.scale = surface_scale;
    surface.cameras.motion = motion;
    surface.cameras.focal = motion == camera_motion::turning ? focal_length : 1.0;
    for (const frame_report& frame : frames) {
        surface.cameras.places.push_back(frame.camera);
    }
    surface.headings = headings;
    const cv::Matx33d centred = centred_from_pixel(frame_size);
    return surface.from_frame(index, {centred(0, 0) * pixel.x + centred(0, 2), centred(1, 1) * pixel.y + centred(1, 2)})
           - origin;
}

}  // namespace tarn::finishing
