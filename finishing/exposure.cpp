// SPDX-License-Identifier: Apache-2.0
//
// The logarithms of the gains are the unknowns of a sparse linear problem: cells that show the same want the same
// brightness, neighbouring cells want neighbouring gains, and each wants to stay as it is, a little. It is solved by
// conjugate gradients, for each colour, and again when it is known which overlaps do not fit: there something has
// moved.
#include "exposure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <utility>

#include <opencv2/imgproc.hpp>

namespace tarn::finishing {

namespace {

constexpr int colours = 3;
constexpr double weight_of_smoothness = 0.5;  // of an overlap that fills a cell
constexpr double weight_of_staying = 0.03;    // the same
constexpr double greatest_gain = 3.0;

struct cell_grid {
    int columns;
    int rows;
    int first;  // number of the first cell among the unknowns
};

/// What two unknowns should differ by, and how much that counts.
struct equation {
    int a;
    int b;
    double weight;
    std::array<double, colours> difference;  // of b's logarithm less a's
    double doubt = 1.0;                      // factor on the weight
};

struct ratio_sum {
    double count = 0.0;
    std::array<double, colours> sum{};
};

int cells_along(int length, double cell)
{
    return std::max(1, cvCeil(length / cell));
}

/// Adds what two drawings say of each other.
void compare(const small_drawing& a, const small_drawing& b, const cell_grid& cells_a, const cell_grid& cells_b,
             double cell, std::vector<equation>& equations)
{
    constexpr int step = 2;     // px
    constexpr int darkest = 8;  // what is darker, or brighter, was cut off by the camera
    constexpr int brightest = 247;
    const cv::Rect common = a.place & b.place;
    const cv::Point in_a = common.tl() - a.place.tl();
    const cv::Point in_b = common.tl() - b.place.tl();
    static const std::array<double, 256> logarithm = [] {
        std::array<double, 256> table{};
        for (std::size_t value = 1; value < table.size(); ++value) {
            table[value] = std::log(static_cast<double>(value));
        }
        return table;
    }();
    const auto is_usable = [&](const cv::Vec3b& p) {
        return std::min({p[0], p[1], p[2]}) >= darkest && std::max({p[0], p[1], p[2]}) <= brightest;
    };
    std::map<std::pair<int, int>, ratio_sum> sums;
    for (int y = 0; y < common.height; y += step) {
        const auto* const mask_a = a.mask.ptr<uchar>(in_a.y + y) + in_a.x;
        const auto* const mask_b = b.mask.ptr<uchar>(in_b.y + y) + in_b.x;
        const auto* const image_a = a.image.ptr<cv::Vec3b>(in_a.y + y) + in_a.x;
        const auto* const image_b = b.image.ptr<cv::Vec3b>(in_b.y + y) + in_b.x;
        const int row_a = static_cast<int>((in_a.y + y) / cell) * cells_a.columns + cells_a.first;
        const int row_b = static_cast<int>((in_b.y + y) / cell) * cells_b.columns + cells_b.first;
        for (int x = 0; x < common.width; x += step) {
            if (mask_a[x] == 0 || mask_b[x] == 0 || !is_usable(image_a[x]) || !is_usable(image_b[x])) {
                continue;
            }
            ratio_sum& sum =
                sums[{row_a + static_cast<int>((in_a.x + x) / cell), row_b + static_cast<int>((in_b.x + x) / cell)}];
            sum.count += 1.0;
            for (int c = 0; c < colours; ++c) {
                sum.sum[static_cast<std::size_t>(c)] += logarithm[image_a[x][c]] - logarithm[image_b[x][c]];
            }
        }
    }
    const double full = cell * cell / (step * step);
    for (const auto& [pair, sum] : sums) {
        equation next{pair.first, pair.second, sum.count / full, {}};
        for (std::size_t c = 0; c < colours; ++c) {
            next.difference[c] = sum.sum[c] / sum.count;
        }
        equations.push_back(next);
    }
}

/// For each drawing its few that overlap most of those behind it.
std::vector<std::pair<std::size_t, std::size_t>> overlapping(const std::vector<small_drawing>& drawings)
{
    constexpr std::size_t most = 6;
    std::vector<std::pair<std::size_t, std::size_t>> pairs;
    for (std::size_t a = 0; a < drawings.size(); ++a) {
        std::vector<std::pair<int, std::size_t>> partners;
        for (std::size_t b = a + 1; b < drawings.size(); ++b) {
            const int area = (drawings[a].place & drawings[b].place).area();
            if (area > 0) {
                partners.emplace_back(-area, b);
            }
        }
        std::sort(partners.begin(), partners.end());
        partners.resize(std::min(partners.size(), most));
        for (const auto& [area, b] : partners) {
            pairs.emplace_back(a, b);
        }
    }
    return pairs;
}

using values = std::vector<double>;

double dot(const values& a, const values& b)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += a[i] * b[i];
    }
    return sum;
}

/// The matrix of the problem times a vector.
values times(const std::vector<equation>& equations, const values& x)
{
    values result(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        result[i] = weight_of_staying * x[i];
    }
    for (const equation& e : equations) {
        const auto a = static_cast<std::size_t>(e.a);
        const auto b = static_cast<std::size_t>(e.b);
        const double flow = e.weight * e.doubt * (x[b] - x[a]);
        result[b] += flow;
        result[a] -= flow;
    }
    return result;
}

values solve(const std::vector<equation>& equations, std::size_t unknowns, std::size_t colour,
             const progress_meter& progress)
{
    constexpr int most_steps = 300;
    constexpr double exact_enough = 1e-8;  // of the right side's square
    values x(unknowns);
    values rest(unknowns);
    for (const equation& e : equations) {
        const double flow = e.weight * e.doubt * e.difference[colour];
        rest[static_cast<std::size_t>(e.b)] += flow;
        rest[static_cast<std::size_t>(e.a)] -= flow;
    }
    values direction = rest;
    double square = dot(rest, rest);
    const double goal = exact_enough * square;
    for (int step = 0; step < most_steps && square > goal; ++step) {
        if (step % 50 == 0) {
            progress.at(stage::exposure, 0.6);
        }
        const values image = times(equations, direction);
        const double length = square / dot(direction, image);
        for (std::size_t i = 0; i < unknowns; ++i) {
            x[i] += length * direction[i];
            rest[i] -= length * image[i];
        }
        const double next = dot(rest, rest);
        for (std::size_t i = 0; i < unknowns; ++i) {
            direction[i] = rest[i] + next / square * direction[i];
        }
        square = next;
    }
    return x;
}

}  // namespace

double block_gains::mean() const
{
    const cv::Scalar sums = cv::mean(grid);
    return (sums[0] + sums[1] + sums[2]) / colours;
}

std::vector<block_gains> balance_exposure(const std::vector<small_drawing>& drawings, const progress_meter& progress)
{
    const double cell = block_gains().cell;
    std::vector<cell_grid> grids;
    std::vector<equation> equations;
    int unknowns = 0;
    for (const small_drawing& drawing : drawings) {
        const cell_grid grid{cells_along(drawing.place.width, cell), cells_along(drawing.place.height, cell), unknowns};
        for (int row = 0; row < grid.rows; ++row) {
            for (int column = 0; column < grid.columns; ++column) {
                const int own = grid.first + row * grid.columns + column;
                if (column + 1 < grid.columns) {
                    equations.push_back({own, own + 1, weight_of_smoothness, {}});
                }
                if (row + 1 < grid.rows) {
                    equations.push_back({own, own + grid.columns, weight_of_smoothness, {}});
                }
            }
        }
        unknowns += grid.columns * grid.rows;
        grids.push_back(grid);
    }
    const std::size_t smoothing = equations.size();
    const auto pairs = overlapping(drawings);
    for (std::size_t k = 0; k < pairs.size(); ++k) {
        progress.at(stage::exposure, 0.3 + 0.3 * static_cast<double>(k) / static_cast<double>(pairs.size()));
        const auto [a, b] = pairs[k];
        compare(drawings[a], drawings[b], grids[a], grids[b], cell, equations);
    }

    constexpr double tolerance = 0.08;  // of a logarithm: a twelfth brighter
    std::array<values, colours> logarithms;
    constexpr int rounds = 4;
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t k = smoothing; round > 0 && k < equations.size(); ++k) {
            equation& e = equations[k];
            double worst = 0.0;
            for (std::size_t c = 0; c < colours; ++c) {
                const values& x = logarithms[c];
                worst = std::max(worst, std::abs(x[static_cast<std::size_t>(e.b)] - x[static_cast<std::size_t>(e.a)]
                                                 - e.difference[c]));
            }
            e.doubt = 1.0 / (1.0 + worst * worst / (tolerance * tolerance));
        }
        for (std::size_t c = 0; c < colours; ++c) {
            logarithms[c] = solve(equations, static_cast<std::size_t>(unknowns), c, progress);
        }
    }

    std::vector<block_gains> result;
    for (const cell_grid& grid : grids) {
        block_gains gains;
        gains.grid.create(grid.rows, grid.columns, CV_32FC3);
        for (int row = 0; row < grid.rows; ++row) {
            for (int column = 0; column < grid.columns; ++column) {
                const int cell_number = grid.first + row * grid.columns + column;
                const auto own = static_cast<std::size_t>(cell_number);
                for (std::size_t c = 0; c < colours; ++c) {
                    gains.grid.at<cv::Vec3f>(row, column)[static_cast<int>(c)] = static_cast<float>(
                        std::clamp(std::exp(logarithms[c][own]), 1.0 / greatest_gain, greatest_gain));
                }
            }
        }
        result.push_back(gains);
    }
    return result;
}

namespace {

/// What is brightened must not be cut off: above this value there is less gain the brighter it is, none at the top.
constexpr float shoulder = 200.0F;
constexpr float brightest_value = 255.0F;

float with_gain(float value, float gain)
{
    const float begin = shoulder / gain;  // of what is bent
    if (gain <= 1.0F || value <= begin) {
        return value * gain;
    }
    return shoulder + (value - begin) * (brightest_value - shoulder) / (brightest_value - begin);
}

}  // namespace

void apply_gains(const block_gains& gains, cv::Mat& image, cv::Point2d first, double small_scale)
{
    // From a pixel of the image to one of the grid, whose values hold at the middles of its cells.
    const double factor = small_scale / gains.cell;
    const cv::Matx23d grid_from_image(factor, 0, first.x / gains.cell - 0.5, 0, factor, first.y / gains.cell - 0.5);
    cv::Mat smooth;
    cv::warpAffine(gains.grid, smooth, grid_from_image, image.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                   cv::BORDER_REPLICATE);
    cv::parallel_for_(cv::Range(0, image.rows), [&](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; ++y) {
            auto* const pixel = image.ptr<uchar>(y);
            const auto* const gain = smooth.ptr<float>(y);
            for (int x = 0; x < colours * image.cols; ++x) {
                pixel[x] = cv::saturate_cast<uchar>(with_gain(static_cast<float>(pixel[x]), gain[x]));
            }
        }
    });
}

}  // namespace tarn::finishing
