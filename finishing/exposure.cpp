// SPDX-License-Identifier: Apache-2.0
//
// The logarithms of the gains are the unknowns of a sparse linear problem: cells that show the same want the same
// brightness, neighbouring cells want neighbouring gains, and each wants to stay as it is, a little. It is solved by
// conjugate gradients, for the three colours side by side, and again when it is known which overlaps do not fit: there
// something has moved.
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
    cv::Vec3d difference;  // of b's logarithm less a's
    double doubt = 1.0;    // factor on the weight
};

struct ratio_sum {
    double count = 0.0;
    cv::Vec3d sum;
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
    const auto columns_of = [&](int first) {
        std::vector<int> columns;
        columns.reserve(static_cast<std::size_t>(common.width));
        for (int x = 0; x < common.width; ++x) {
            columns.push_back(static_cast<int>((first + x) / cell));
        }
        return columns;
    };
    const std::vector<int> columns_a = columns_of(in_a.x);
    const std::vector<int> columns_b = columns_of(in_b.x);
    std::map<std::pair<int, int>, ratio_sum> sums;
    std::pair<int, int> cells(-1, -1);
    ratio_sum* sum = nullptr;  // of these cells
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
            const auto column = static_cast<std::size_t>(x);
            const std::pair<int, int> here(row_a + columns_a[column], row_b + columns_b[column]);
            if (here != cells) {
                cells = here;
                sum = &sums[cells];
            }
            sum->count += 1.0;
            for (int c = 0; c < colours; ++c) {
                sum->sum[c] += logarithm[image_a[x][c]] - logarithm[image_b[x][c]];
            }
        }
    }
    const double full = cell * cell / (step * step);
    for (const auto& [pair, ratios] : sums) {
        equations.push_back({pair.first, pair.second, ratios.count / full, ratios.sum * (1.0 / ratios.count)});
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

using values = std::vector<cv::Vec3d>;

/// Of each colour.
cv::Vec3d dot(const values& a, const values& b)
{
    cv::Vec3d sum;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += a[i].mul(b[i]);
    }
    return sum;
}

/// The matrix of the problem times a vector.
void multiply(const std::vector<equation>& equations, const values& x, values& result)
{
    for (std::size_t i = 0; i < x.size(); ++i) {
        result[i] = x[i] * weight_of_staying;
    }
    for (const equation& e : equations) {
        const auto a = static_cast<std::size_t>(e.a);
        const auto b = static_cast<std::size_t>(e.b);
        const cv::Vec3d flow = (x[b] - x[a]) * (e.weight * e.doubt);
        result[b] += flow;
        result[a] -= flow;
    }
}

/// The parts, and nought for a colour of which there is nothing left to do.
cv::Vec3d parts_of(const cv::Vec3d& numerator, const cv::Vec3d& denominator)
{
    cv::Vec3d result;
    for (int c = 0; c < colours; ++c) {
        result[c] = denominator[c] > 0.0 ? numerator[c] / denominator[c] : 0.0;
    }
    return result;
}

/// @param x  where to begin; changed to the solution
void solve(const std::vector<equation>& equations, const progress_meter& progress, values& x)
{
    constexpr int most_steps = 300;
    constexpr double exact_enough = 1e-8;  // of the right side's square
    values rest(x.size());
    values diagonal(x.size(), cv::Vec3d::all(weight_of_staying));
    values image(x.size());
    for (const equation& e : equations) {
        const double weight = e.weight * e.doubt;
        rest[static_cast<std::size_t>(e.b)] += e.difference * weight;
        rest[static_cast<std::size_t>(e.a)] -= e.difference * weight;
        diagonal[static_cast<std::size_t>(e.b)] += cv::Vec3d::all(weight);
        diagonal[static_cast<std::size_t>(e.a)] += cv::Vec3d::all(weight);
    }
    const auto goal = exact_enough * dot(rest, rest);
    multiply(equations, x, image);
    values eased(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        rest[i] -= image[i];
        eased[i] = cv::Vec3d(rest[i][0] / diagonal[i][0], rest[i][1] / diagonal[i][1], rest[i][2] / diagonal[i][2]);
    }
    values direction = eased;
    cv::Vec3d product = dot(rest, eased);
    const auto is_done = [&] {
        const cv::Vec3d square = dot(rest, rest);
        return square[0] <= goal[0] && square[1] <= goal[1] && square[2] <= goal[2];
    };
    for (int step = 0; step < most_steps && !is_done(); ++step) {
        if (step % 50 == 0) {
            progress.at(stage::exposure, 0.6);
        }
        multiply(equations, direction, image);
        const cv::Vec3d length = parts_of(product, dot(direction, image));
        for (std::size_t i = 0; i < x.size(); ++i) {
            x[i] += length.mul(direction[i]);
            rest[i] -= length.mul(image[i]);
            eased[i] = cv::Vec3d(rest[i][0] / diagonal[i][0], rest[i][1] / diagonal[i][1], rest[i][2] / diagonal[i][2]);
        }
        const cv::Vec3d next = dot(rest, eased);
        const cv::Vec3d turn = parts_of(next, product);
        for (std::size_t i = 0; i < x.size(); ++i) {
            direction[i] = eased[i] + turn.mul(direction[i]);
        }
        product = next;
    }
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
    values logarithms(static_cast<std::size_t>(unknowns));
    constexpr int rounds = 4;
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t k = smoothing; round > 0 && k < equations.size(); ++k) {
            equation& e = equations[k];
            const cv::Vec3d misfit =
                logarithms[static_cast<std::size_t>(e.b)] - logarithms[static_cast<std::size_t>(e.a)] - e.difference;
            const double worst = cv::norm(misfit, cv::NORM_INF);
            e.doubt = 1.0 / (1.0 + worst * worst / (tolerance * tolerance));
        }
        solve(equations, progress, logarithms);
    }

    std::vector<block_gains> result;
    for (const cell_grid& grid : grids) {
        block_gains gains;
        gains.grid.create(grid.rows, grid.columns, CV_32FC3);
        for (int row = 0; row < grid.rows; ++row) {
            for (int column = 0; column < grid.columns; ++column) {
                const int cell_number = grid.first + row * grid.columns + column;
                const auto own = static_cast<std::size_t>(cell_number);
                for (int c = 0; c < colours; ++c) {
                    gains.grid.at<cv::Vec3f>(row, column)[c] = static_cast<float>(
                        std::clamp(std::exp(logarithms[own][c]), 1.0 / greatest_gain, greatest_gain));
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
    const float brighter = value * gain;
    if (gain <= 1.0F || brighter <= shoulder) {
        return brighter;
    }
    const float begin = shoulder / gain;  // of what is bent
    return shoulder + (value - begin) * (brightest_value - shoulder) / (brightest_value - begin);
}

/// A place between two cells of a row or a column.
struct between {
    int cell;    ///< the first of both; the other one is the next, or the same at the end
    float part;  ///< of the way to the other one
};

between place_between(double at, int cells)
{
    const double inside = std::clamp(at, 0.0, cells - 1.0);
    const int cell = cvFloor(inside);
    return {cell, static_cast<float>(inside - cell)};
}

}  // namespace

void apply_gains(const block_gains& gains, cv::Mat& image, cv::Point2d first, double small_scale)
{
    // From a pixel of the image to one of the grid, whose values hold at the middles of its cells.
    const double factor = small_scale / gains.cell;
    const cv::Mat& grid = gains.grid;
    std::vector<between> columns;
    columns.reserve(static_cast<std::size_t>(image.cols));
    for (int x = 0; x < image.cols; ++x) {
        columns.push_back(place_between(factor * x + first.x / gains.cell - 0.5, grid.cols));
    }
    cv::parallel_for_(cv::Range(0, image.rows), [&](const cv::Range& rows) {
        std::vector<cv::Vec3f> row(static_cast<std::size_t>(grid.cols) + 1);
        for (int y = rows.start; y < rows.end; ++y) {
            const between down = place_between(factor * y + first.y / gains.cell - 0.5, grid.rows);
            const auto* const above = grid.ptr<cv::Vec3f>(down.cell);
            const auto* const below = grid.ptr<cv::Vec3f>(std::min(down.cell + 1, grid.rows - 1));
            for (int column = 0; column <= grid.cols; ++column) {
                const int own = std::min(column, grid.cols - 1);
                row[static_cast<std::size_t>(column)] = above[own] + (below[own] - above[own]) * down.part;
            }
            auto* const pixel = image.ptr<cv::Vec3b>(y);
            for (int x = 0; x < image.cols; ++x) {
                const between& across = columns[static_cast<std::size_t>(x)];
                const auto* const two = &row[static_cast<std::size_t>(across.cell)];
                for (int c = 0; c < colours; ++c) {
                    const float gain = two[0][c] + (two[1][c] - two[0][c]) * across.part;
                    pixel[x][c] = cv::saturate_cast<uchar>(with_gain(static_cast<float>(pixel[x][c]), gain));
                }
            }
        }
    });
}

}  // namespace tarn::finishing
