// SPDX-License-Identifier: Apache-2.0
//
// The cross-fade along an outline: which points of the outline count, where each of their fades leads, and the
// fades themselves, of neighbouring points together where they lead to the same side.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <opencv2/core/hal/intrin.hpp>
#include <opencv2/imgproc.hpp>

#include "internal/parallel_loop.h"
#include "seam.h"

namespace {

// Gray values above this one count as content, and only content is blended.
constexpr double content_above = 1.0;

// Length of the cross-fade. The last step is one short of it, by design.
constexpr int fade_range = 50;  // px
constexpr int fade_steps = fade_range - 1;

using contour_t = std::vector<cv::Point>;

// Begins to load some pixels of a row. Outlines run across rows, which lie far apart in memory, so that no
// processor guesses by itself what is needed next. Inline for a reason: a call has no effect that the compiler
// knows of, and would be left out.
[[gnu::always_inline]] inline void begin_to_load(const cv::Mat& image, int y, const cv::Range& columns)
{
    constexpr int bytes_together = 64;
    const uchar* const end = image.ptr(y) + 3 * columns.end;
    for (const uchar* bytes = image.ptr(y) + 3 * columns.start; bytes < end; bytes += bytes_together) {
        __builtin_prefetch(bytes);
    }
}

// 255 where an image has content, 0 elsewhere. By strips that stay in the cache between the two steps.
cv::Mat content_of(const cv::Mat& image)
{
    constexpr int height = 32;  // rows
    cv::Mat content(image.size(), CV_8UC1);
    tarn::for_side_by_side(cv::Range(0, (image.rows + height - 1) / height), [&](const cv::Range& strips) {
        for (int i = strips.start; i < strips.end; ++i) {
            const cv::Range rows(i * height, std::min((i + 1) * height, image.rows));
            cv::Mat strip = content.rowRange(rows);
            cv::cvtColor(image.rowRange(rows), strip, cv::COLOR_BGR2GRAY);
            cv::threshold(strip, strip, content_above, 255.0, cv::THRESH_BINARY);
        }
    });
    return content;
}

// An outline without the points inside its straight runs, be they level, upright or diagonal: it fills the same
// pixels.
contour_t without_inner_points(const contour_t& outline)
{
    contour_t corners;
    for (size_t i = 0; i < outline.size(); ++i) {
        const cv::Point& before = outline[i == 0 ? outline.size() - 1 : i - 1];
        const cv::Point& after = outline[i + 1 == outline.size() ? 0 : i + 1];
        if (outline[i] - before != after - outline[i]) {
            corners.push_back(outline[i]);
        }
    }
    return corners.empty() ? outline : corners;  // empty for a single point
}

// Tells what lies inside the largest outer contour of some content.
class largest_contour {
public:
    explicit largest_contour(const cv::Mat& content) : content_(content)
    {
        cv::findContours(content, contours_, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    }

    bool contains(const cv::Point& place)
    {
        if (contours_.size() == 1) {
            if (content_.at<uchar>(place) != 0) {
                return true;
            }
            if (is_open(place)) {
                return false;
            }
        }
        if (mask_.empty()) {
            fill_mask();
        }
        return mask_.at<uchar>(place) != 0;
    }

private:
    // Whether a pixel without content has a straight way to the image's nearest edge that meets none.
    bool is_open(const cv::Point& place) const
    {
        const std::array<std::pair<int, cv::Point>, 4> ways = {{{place.x, {-1, 0}},
                                                                {content_.cols - 1 - place.x, {1, 0}},
                                                                {place.y, {0, -1}},
                                                                {content_.rows - 1 - place.y, {0, 1}}}};
        const auto [length, step] =
            *std::min_element(ways.begin(), ways.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        for (int i = 1; i <= length; ++i) {
            if (content_.at<uchar>(place + i * step) != 0) {
                return false;
            }
        }
        return true;
    }

    void fill_mask()
    {
        mask_ = cv::Mat::zeros(content_.size(), CV_8UC1);
        // The first of contours with equally many points wins.
        const auto largest =
            std::max_element(contours_.begin(), contours_.end(),
                             [](const contour_t& a, const contour_t& b) { return a.size() < b.size(); });
        if (largest != contours_.end()) {
            cv::fillPoly(mask_, std::vector<contour_t>{without_inner_points(*largest)}, cv::Scalar(1), cv::LINE_8, 0);
        }
    }

    const cv::Mat& content_;
    std::vector<contour_t> contours_;
    cv::Mat mask_;  // 1 inside, 0 elsewhere; made when it is first needed
};

enum class side { undecided, right, left, below, above };

// A point of the outline that takes the source's pixel.
struct outline_point {
    cv::Point place;
    bool is_level;  // the outline runs more level than upright here
    side fade = side::undecided;
};

// Whether the outline is level at contour[j]; `before` where as many columns as rows are passed.
bool is_level_at(const contour_t& contour, int j, bool before)
{
    const int n = static_cast<int>(contour.size());
    const cv::Point here = contour[static_cast<size_t>(j)];
    std::int64_t sum_dx = 0;  // neighbours may lie anywhere outside the image
    std::int64_t sum_dy = 0;
    for (int k = std::max(j - 2, 0); k <= std::min(j + 2, n - 1); ++k) {
        const cv::Point& neighbour = contour[static_cast<size_t>(k)];
        sum_dx += std::abs(std::int64_t{here.x} - neighbour.x);
        sum_dy += std::abs(std::int64_t{here.y} - neighbour.y);
    }
    return sum_dx == sum_dy ? before : sum_dx > sum_dy;
}

// The points inside the content's largest contour and not on the image's border; the others decide nothing.
std::vector<outline_point> points_inside(const contour_t& contour, const cv::Mat& content)
{
    largest_contour area(content);
    std::vector<outline_point> points;
    points.reserve(contour.size());
    bool is_level = false;
    for (int j = 0; j < static_cast<int>(contour.size()); ++j) {
        const cv::Point here = contour[static_cast<size_t>(j)];
        if (here.y > 0 && here.y < content.rows - 1 && here.x > 0 && here.x < content.cols - 1 && area.contains(here)) {
            is_level = is_level_at(contour, j, is_level);
            points.push_back({here, is_level});
        }
    }
    return points;
}

// Begins to load the pixels on both sides of a point, or some near them.
[[gnu::always_inline]] inline void begin_to_load_sides(const cv::Mat& image, const outline_point& point)
{
    const cv::Range columns(point.place.x - 1, point.place.x + 2);
    begin_to_load(image, point.place.y + (point.is_level ? 1 : 0), columns);
    begin_to_load(image, point.place.y - (point.is_level ? 1 : 0), columns);
}

// Lets each fade lead across the outline to the side on which the two images' gray values differ more over two
// pixels. Where they differ equally on both sides, it leads where the one before does. Gray values are made for
// these pixels alone.
void decide_sides(std::vector<outline_point>& points, const cv::Mat& source, const cv::Mat& target)
{
    constexpr std::array<int, 4> offsets = {1, 2, -1, -2};
    const int count = static_cast<int>(points.size() * offsets.size());
    cv::Mat source_pixels = cv::Mat::zeros(1, count, CV_8UC3);  // equal outside the image
    cv::Mat target_pixels = cv::Mat::zeros(1, count, CV_8UC3);
    const cv::Rect image(cv::Point(), source.size());
    int next = 0;
    constexpr size_t points_ahead = 32;
    for (size_t i = 0; i < points.size(); ++i) {
        if (i + points_ahead < points.size()) {
            begin_to_load_sides(source, points[i + points_ahead]);
            begin_to_load_sides(target, points[i + points_ahead]);
        }
        const outline_point& point = points[i];
        for (const int offset : offsets) {
            const cv::Point place = point.place + (point.is_level ? cv::Point(0, offset) : cv::Point(offset, 0));
            if (image.contains(place)) {
                source_pixels.at<cv::Vec3b>(next) = source.at<cv::Vec3b>(place);
                target_pixels.at<cv::Vec3b>(next) = target.at<cv::Vec3b>(place);
            }
            ++next;
        }
    }
    if (points.empty()) {
        return;
    }
    cv::Mat source_gray;
    cv::Mat target_gray;
    cv::Mat differences;
    cv::cvtColor(source_pixels, source_gray, cv::COLOR_BGR2GRAY);
    cv::cvtColor(target_pixels, target_gray, cv::COLOR_BGR2GRAY);
    cv::absdiff(source_gray, target_gray, differences);

    const uchar* d = differences.ptr();
    side fade = side::undecided;
    for (outline_point& point : points) {
        const int forward = d[0] + d[1];
        const int backward = d[2] + d[3];
        if (forward > backward) {
            fade = point.is_level ? side::below : side::right;
        } else if (backward > forward) {
            fade = point.is_level ? side::above : side::left;
        }
        point.fade = fade;
        d += offsets.size();
    }
}

// The target's weight at each step of a fade.
float weight_of_step(int i)
{
    return static_cast<float>(i / static_cast<double>(fade_range));
}

// The same weight for all bytes.
struct even_weight {
    float a;

    float at(int) const
    {
        return a;
    }

    cv::v_float32x4 four_at(int) const
    {
        return cv::v_setall_f32(a);
    }
};

// A weight for each byte, from byte `first` of the row on.
struct weight_per_byte {
    const float* a;
    int first;

    float at(int i) const
    {
        return a[i - first];
    }

    cv::v_float32x4 four_at(int i) const
    {
        return cv::v_load(a + (i - first));
    }
};

using four_words = std::array<cv::v_uint32x4, 4>;

four_words widened(const cv::v_uint8x16& bytes)
{
    four_words words;
    cv::v_uint16x8 low;
    cv::v_uint16x8 high;
    cv::v_expand(bytes, low, high);
    cv::v_expand(low, words[0], words[1]);
    cv::v_expand(high, words[2], words[3]);
    return words;
}

// (1 - a) source + a target, in single precision, truncated, for the bytes from `begin` to `end` of a row.
template <typename Weight>
void blend(const uchar* source, uchar* target, int begin, int end, Weight a)
{
    constexpr int step = cv::v_uint8x16::nlanes;
    const cv::v_float32x4 one = cv::v_setall_f32(1.0f);
    int i = begin;
    for (; i + step <= end; i += step) {
        const four_words s = widened(cv::v_load(source + i));
        const four_words t = widened(cv::v_load(target + i));
        const auto blended = [&](int part) {
            const auto n = static_cast<size_t>(part);
            const cv::v_float32x4 weight = a.four_at(i + 4 * part);
            return cv::v_trunc((one - weight) * cv::v_cvt_f32(cv::v_reinterpret_as_s32(s[n]))
                               + weight * cv::v_cvt_f32(cv::v_reinterpret_as_s32(t[n])));
        };
        cv::v_store(target + i, cv::v_pack_u(cv::v_pack(blended(0), blended(1)), cv::v_pack(blended(2), blended(3))));
    }
    for (; i < end; ++i) {
        const float value = (1.0f - a.at(i)) * static_cast<float>(source[i]) + a.at(i) * static_cast<float>(target[i]);
        target[i] = static_cast<uchar>(value);
    }
}

class fader {
public:
    fader(const cv::Mat& source, const cv::Mat& content, cv::Mat& target)
        : source_(source), content_(content), target_(target)
    {
        for (int i = 1; i <= fade_steps; ++i) {
            std::fill_n(rising_.begin() + 3 * (i - 1), 3, weight_of_step(i));
        }
        std::reverse_copy(rising_.begin(), rising_.end(), falling_.begin());
    }

    // Begins to load what a fade along a row needs.
    [[gnu::always_inline]] void begin_to_fade(const outline_point& point) const
    {
        const int x = point.place.x;
        if (point.fade == side::right || point.fade == side::left) {
            const cv::Range columns = point.fade == side::right
                                          ? cv::Range(x, std::min(x + 1 + fade_steps, target_.cols))
                                          : cv::Range(std::max(x - fade_steps, 0), x + 1);
            begin_to_load(source_, point.place.y, columns);
            begin_to_load(target_, point.place.y, columns);
        }
    }

    // Takes the source's pixels of neighbours in one row whose fades lead to the same side, and makes these
    // fades. Only fades that lead up or down may be made together: others cross.
    void fade(const cv::Rect& points, side to)
    {
        const cv::Range columns(points.x, points.x + points.width);
        std::copy(source_.ptr(points.y, columns.start), source_.ptr(points.y) + 3 * columns.end,
                  target_.ptr(points.y, columns.start));
        switch (to) {
        case side::undecided:
            break;
        case side::right:
            blend_content(points.y, {columns.end, std::min(columns.end + fade_steps, target_.cols)},
                          weight_per_byte{rising_.data(), 3 * columns.end});
            break;
        case side::left:
            blend_content(points.y, {std::max(columns.start - fade_steps, 0), columns.start},
                          weight_per_byte{falling_.data(), 3 * (columns.start - fade_steps)});
            break;
        case side::below:
            for (int i = 1; i <= fade_steps && points.y + i < target_.rows; ++i) {
                blend_content(points.y + i, columns, even_weight{weight_of_step(i)});
            }
            break;
        case side::above:
            for (int i = 1; i <= fade_steps && points.y - i >= 0; ++i) {
                blend_content(points.y - i, columns, even_weight{weight_of_step(i)});
            }
            break;
        }
    }

private:
    // Blends what is content in some columns of a row.
    template <typename Weight>
    void blend_content(int y, cv::Range columns, Weight weight)
    {
        const uchar* content = content_.ptr(y);
        const uchar* end = content + columns.end;
        const uchar* run = content + columns.start;
        while (run < end) {
            const void* gap = std::memchr(run, 0, static_cast<size_t>(end - run));
            const uchar* run_end = gap == nullptr ? end : static_cast<const uchar*>(gap);
            blend(source_.ptr(y), target_.ptr(y), 3 * static_cast<int>(run - content),
                  3 * static_cast<int>(run_end - content), weight);
            run = std::find_if(run_end, end, [](uchar value) { return value != 0; });
        }
    }

    const cv::Mat& source_;
    const cv::Mat& content_;
    cv::Mat& target_;
    std::array<float, 3 * fade_steps> rising_;   // the weights of a fade to the right, byte by byte
    std::array<float, 3 * fade_steps> falling_;  // and to the left
};

// The number of points from `first` on whose fades can be made together: neighbours in one row, passed in one
// direction, with the same side above or below.
size_t points_together(const std::vector<outline_point>& points, size_t first)
{
    size_t end = first + 1;
    if (points[first].fade != side::below && points[first].fade != side::above) {
        return 1;
    }
    cv::Point step;
    while (end < points.size() && points[end].fade == points[first].fade) {
        const cv::Point next_step = points[end].place - points[end - 1].place;
        if (next_step.y != 0 || std::abs(next_step.x) != 1 || (end - first > 1 && next_step != step)) {
            break;
        }
        step = next_step;
        ++end;
    }
    return end - first;
}

}  // namespace

void fill_contours(std::vector<std::vector<cv::Point>> target_contours, cv::Mat& source_image, cv::Mat& target_image)
{
    CV_Assert(!source_image.empty() && source_image.type() == CV_8UC3 && target_image.type() == CV_8UC3);
    CV_Assert(source_image.size() == target_image.size());
    if (target_contours.empty()) {
        return;
    }
    const cv::Mat content = content_of(source_image);
    std::vector<outline_point> points = points_inside(target_contours[0], content);
    decide_sides(points, source_image, target_image);
    fader fades(source_image, content, target_image);
    constexpr size_t points_ahead = 16;
    for (size_t first = 0; first < points.size();) {
        if (first + points_ahead < points.size()) {
            fades.begin_to_fade(points[first + points_ahead]);
        }
        const size_t count = points_together(points, first);
        const cv::Point& a = points[first].place;
        const cv::Point& b = points[first + count - 1].place;
        fades.fade({std::min(a.x, b.x), a.y, static_cast<int>(count), 1}, points[first].fade);
        first += count;
    }
}
