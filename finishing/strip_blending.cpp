// SPDX-License-Identifier: Apache-2.0
//
// A strip is blended with a margin around it. What lies farther away than the coarsest band reaches has no influence,
// and strips begin where that band's pixels do, so that they fit together as if there were one.
#include "strip_blending.h"

#include <algorithm>
#include <cmath>
#include <list>

#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/blenders.hpp>

namespace tarn::finishing {

namespace {

/// How wide the blending is, and what that makes of strips.
struct strip_measures {
    int bands;
    int coarsest;   ///< px of the picture for one of the coarsest band's
    int margin;     ///< px: what lies farther away has no influence
    double pixels;  ///< of a strip with its margins
};

/// The coarsest band is so fine that a frame has some of its pixels across: small frames have fewer bands, narrower
/// margins and smaller strips, and take less time and memory.
strip_measures measures_for(const picture_plan& plan)
{
    constexpr int most_bands = 5;
    constexpr int fewest_bands = 3;
    constexpr int pixels_across = 15;
    constexpr int reach = 3;  // as far as OpenCV's blender looks
    constexpr double frames_of_strip = 0.75;
    constexpr double fewest_pixels = 0.2e6;
    constexpr double most_pixels = 3e6;
    strip_measures result{fewest_bands, 0, 0, 0.0};
    while (result.bands < most_bands && pixels_across << (result.bands + 1) <= plan.frame_side) {
        ++result.bands;
    }
    result.coarsest = 1 << result.bands;
    result.margin = reach * result.coarsest;
    result.pixels = std::clamp(frames_of_strip * plan.frame_side * plan.frame_side, fewest_pixels, most_pixels);
    return result;
}

/// Bands are whole numbers, cut off towards nought: so they count in sixteenths, else the picture grows darker by two.
constexpr double finer = 16.0;
/// A drawing that is so much smaller than its frame is made from a smaller copy, so that fine detail does not flicker.
constexpr double noticeably_smaller = 0.8;

/// The key frames used last.
class image_cache {
public:
    image_cache(const std::function<cv::Mat(int)>& frame_image, double bytes, double factor)
        : frame_image_(frame_image), bytes_(bytes), factor_(factor)
    {
    }

    cv::Mat image(int index)
    {
        const auto found =
            std::find_if(kept_.begin(), kept_.end(), [&](const auto& entry) { return entry.first == index; });
        if (found != kept_.end()) {
            kept_.splice(kept_.begin(), kept_, found);
            return found->second;
        }
        cv::Mat read = frame_image_(index);
        if (factor_ < noticeably_smaller) {
            cv::Mat smaller;
            cv::resize(read, smaller, cv::Size(), factor_, factor_, cv::INTER_AREA);
            read = smaller;
        }
        kept_.emplace_front(index, read);
        double total = 0.0;
        for (auto entry = kept_.begin(); entry != kept_.end();) {
            total += static_cast<double>(entry->second.total() * entry->second.elemSize());
            entry = total > bytes_ && entry != kept_.begin() ? kept_.erase(entry) : std::next(entry);
        }
        return read;
    }

private:
    const std::function<cv::Mat(int)>& frame_image_;
    double bytes_;
    double factor_;
    std::list<std::pair<int, cv::Mat>> kept_;
};

/// Multiples of a step around a range.
cv::Range in_whole_steps(int begin, int end, int step)
{
    const auto down = [step](int value) { return cvFloor(static_cast<double>(value) / step) * step; };
    return {down(begin), down(end + step - 1)};
}

cv::Rect inflated(cv::Rect r, int by)
{
    return {r.x - by, r.y - by, r.width + 2 * by, r.height + 2 * by};
}

class strip_painter {
public:
    strip_painter(const picture_plan& plan, const strip_measures& measures, image_cache& images,
                  const progress_meter& progress)
        : plan_(plan), measures_(measures), images_(images), progress_(progress), owned_(boxes_of_owners(plan))
    {
    }

    /// Paints the part of the picture that lies in `strip`, which is a rectangle of the surface.
    void paint(cv::Rect strip, double part_done, cv::Mat& picture, cv::Mat& mask) const
    {
        const auto [bands, coarsest, margin, pixels] = measures_;
        const cv::Range columns = in_whole_steps(strip.x - margin, strip.br().x + margin, coarsest);
        const cv::Range rows = in_whole_steps(strip.y - margin, strip.br().y + margin, coarsest);
        const cv::Rect outer(columns.start, rows.start, columns.size(), rows.size());
        cv::detail::MultiBandBlender blender(false, bands, CV_32F);
        blender.prepare(outer);
        cv::Mat shown = cv::Mat::zeros(outer.size(), CV_8UC1);
        bool is_empty = true;
        for (std::size_t k = 0; k < plan_.drawings.size(); ++k) {
            const cv::Rect part = part_of(k, outer);
            if (!part.empty()) {
                progress_.at(stage::blending, part_done);
                feed(k, part, outer, part_done, blender, shown);
                is_empty = false;
            }
        }
        const cv::Rect target = strip - plan_.area.tl();
        cv::Mat target_mask = mask(target);
        if (is_empty) {
            picture(target).setTo(cv::Scalar::all(0));
            target_mask.setTo(0);
            return;
        }
        progress_.at(stage::blending, part_done);
        cv::Mat blended;
        cv::Mat blended_mask;
        blender.blend(blended, blended_mask);
        progress_.at(stage::blending, part_done);
        const cv::Rect inner = strip - outer.tl();
        blended(inner).convertTo(picture(target), CV_8U, 1.0 / finer);
        shown(inner).copyTo(target_mask);
        if (!plan_.fills_gaps) {
            picture(target).setTo(cv::Scalar::all(0), target_mask == 0);
        }
    }

private:
    /// What each drawing owns lies in such a box on the small surface.
    static std::vector<cv::Rect> boxes_of_owners(const picture_plan& plan)
    {
        std::vector<cv::Rect> boxes(plan.drawings.size());
        for (int y = 0; y < plan.owners.area.height; ++y) {
            const auto* const owner = plan.owners.owner.ptr<short>(y);
            for (int x = 0; x < plan.owners.area.width; ++x) {
                if (owner[x] >= 0) {
                    cv::Rect& box = boxes[static_cast<std::size_t>(owner[x])];
                    const cv::Rect pixel(plan.owners.area.x + x, plan.owners.area.y + y, 1, 1);
                    box = box.empty() ? pixel : box | pixel;
                }
            }
        }
        return boxes;
    }

    /// 255 for what a drawing owns of a rectangle of the small surface.
    cv::Mat owned_part(std::size_t k, cv::Rect small) const
    {
        return plan_.owners.owner(small - plan_.owners.area.tl()) == static_cast<double>(k);
    }

    /// The part of `outer` in which a drawing is needed: where it is shown, and as far around as the bands reach.
    cv::Rect part_of(std::size_t k, cv::Rect outer) const
    {
        const double scale = plan_.small_scale;
        const cv::Rect small = cv::Rect(cv::Point(cvFloor(outer.x * scale) - 1, cvFloor(outer.y * scale) - 1),
                                        cv::Point(cvCeil(outer.br().x * scale) + 2, cvCeil(outer.br().y * scale) + 2))
                               & owned_[k];
        if (small.empty()) {
            return {};
        }
        const cv::Rect box = cv::boundingRect(owned_part(k, small));
        if (box.empty()) {
            return {};
        }
        const cv::Rect owned = box + small.tl();
        const cv::Rect full(cv::Point(cvFloor((owned.x - 1) / scale), cvFloor((owned.y - 1) / scale)),
                            cv::Point(cvCeil((owned.br().x + 1) / scale), cvCeil((owned.br().y + 1) / scale)));
        return inflated(full, measures_.margin) & outer;
    }

    void feed(std::size_t k, cv::Rect part, cv::Rect outer, double part_done, cv::detail::MultiBandBlender& blender,
              cv::Mat& shown) const
    {
        const small_drawing& drawing = plan_.drawings[k];
        const cv::Mat source = images_.image(drawing.index);
        progress_.at(stage::blending, part_done);
        cv::Mat pixels;
        plan_.surface.pixels_of_frame(drawing.index, source.size(), part, pixels);
        const cv::Mat own = shown_part(pixels, source.size());
        cv::Mat image;
        cv::remap(source, image, pixels, cv::noArray(), cv::INTER_CUBIC, cv::BORDER_REFLECT);
        progress_.at(stage::blending, part_done);
        apply_gains(plan_.gains[k], image, cv::Point2d(part.tl()) * plan_.small_scale - cv::Point2d(drawing.place.tl()),
                    plan_.small_scale);

        // Two frames may both be there along a seam by parts of a small pixel; a gap must not be.
        constexpr double owned_from = 80.0;  // of 255
        const cv::Rect around = inflated(owned_[k], 1) & plan_.owners.area;
        const double scale = plan_.small_scale;
        const cv::Matx23d small_from_part(scale, 0, scale * part.x - around.x, 0, scale, scale * part.y - around.y);
        cv::Mat mask;
        cv::warpAffine(owned_part(k, around), mask, small_from_part, part.size(),
                       cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
        mask = mask >= owned_from;
        cv::Mat shown_here = shown(part - outer.tl());
        shown_here.setTo(255, own & mask);
        if (!plan_.fills_gaps) {
            mask &= own;
        }
        image.convertTo(image, CV_16S, finer);
        progress_.at(stage::blending, part_done);
        blender.feed(image, mask, part.tl());
    }

    const picture_plan& plan_;
    const strip_measures measures_;
    image_cache& images_;
    const progress_meter& progress_;
    std::vector<cv::Rect> owned_;
};

}  // namespace

void blend_strips(const picture_plan& plan, const std::function<cv::Mat(int index)>& frame_image, double cache_bytes,
                  const progress_meter& progress, cv::Mat& picture, cv::Mat& mask)
{
    // Each strip fills its own part: memory of this size, touched at once, takes longer than a cancel may.
    picture.create(plan.area.size(), CV_8UC3);
    mask.create(plan.area.size(), CV_8UC1);
    image_cache images(frame_image, cache_bytes, plan.frame_scale);
    const strip_measures measures = measures_for(plan);
    const strip_painter painter(plan, measures, images, progress);
    // Across the longer side, so that a strip shows few key frames.
    const bool upright = plan.area.width >= plan.area.height;
    const int length = upright ? plan.area.width : plan.area.height;
    const int across = upright ? plan.area.height : plan.area.width;
    const int margins = 2 * measures.margin;
    const int thickness = std::max(margins, static_cast<int>(measures.pixels / std::max(1, across + margins)) - margins)
                          / measures.coarsest * measures.coarsest;
    for (int begin = 0; begin < length; begin += thickness) {
        const int size = std::min(thickness, length - begin);
        const cv::Rect strip = upright ? cv::Rect(plan.area.x + begin, plan.area.y, size, across)
                                       : cv::Rect(plan.area.x, plan.area.y + begin, across, size);
        painter.paint(strip, static_cast<double>(begin) / length, picture, mask);
    }
}

}  // namespace tarn::finishing
