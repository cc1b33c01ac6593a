// SPDX-License-Identifier: Apache-2.0
//
// Curves for a page: many points made few, and few points a path. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tarn::host {

/// A point of a curve.
struct curve_point {
    double x = 0.0;
    double y = 0.0;
    bool begins = false;  ///< nothing joins it with the point before
};

/// No more points than are wanted, in their order: the first and the last one, and of each stretch between them the
/// lowest and the highest. A point behind a gap that was left out begins anew.
/// @param most  4 or more
std::vector<curve_point> thinned(const std::vector<curve_point>& points, std::size_t most);

/// A number with at most so many digits behind the point, and none that says nothing: "12.5", "3". The same in every
/// locale.
std::string short_number(double value, int digits);

/// What an SVG path's "d" is for the points, shifted and scaled. A point by itself becomes a dot.
std::string path_of(const std::vector<curve_point>& points, double from_x, double scale_x, double from_y,
                    double scale_y);

/// The least of 1, 2, 2.5, 5 times a power of ten that is not below the value, for the end of an axis; 1 for 0.
double round_above(double value);

}  // namespace tarn::host
