// SPDX-License-Identifier: Apache-2.0
//
// The finishing library (tarn_finishing.h) for the Python package, in C's terms: key frames in, one picture out. Where
// the native half is built without it, these functions are missing.
#pragma once

#include <cstddef>

extern "C" {

/// A key frame where it lies. Only read, until tarnpy_finish returns.
struct tarnpy_finishing_frame {
    const unsigned char* pixels;  ///< B,G,R
    std::size_t row_stride;       ///< bytes from row to row
    int width;                    ///< px
    int height;                   ///< px
    int placed;                   ///< whether there is a placement
    double placement[9];          ///< row by row: tarn::finishing::key_frame::placement
};

/// What was made. All that is given by address lies in `held`.
struct tarnpy_finished {
    int outcome;              ///< of enum tarn::finishing::status
    int failed_number;        ///< of the key frame that could not be had, from 0
    const char* explanation;  ///< of what went wrong; "" when nothing did
    const unsigned char* pixels;
    std::size_t row_stride;
    const unsigned char* mask;  ///< 255 where the picture shows something
    std::size_t mask_stride;
    int width;
    int height;
    const char* motion;      ///< names, as "turning"
    const char* projection;  ///< as "turned cylinder"
    double horizontal_field_of_view;
    double vertical_field_of_view;
    double scale;
    double residual;
    const int* left_out;  ///< of each key frame: 0, or a number of enum tarn::finishing::left_out
    void* held;           ///< for tarnpy_free_finished
};

/// Makes the picture, on the calling thread and OpenCV's.
/// @param frames            in the order of the sweep
/// @param count             how many, 0 or more
/// @param cropping          of enum tarn::finishing::crop
/// @param most_megapixels   more than 0
/// @param progress          called on the calling thread, with the name of the stage, and how much of it is done, 0 to
///                          1; 0 ends the call. Null: not called
/// @param finished          is given what was made, whatever the outcome
/// @returns 0 where memory is too short even for that, else 1
int tarnpy_finish(const tarnpy_finishing_frame* frames, int count, int cropping, double most_megapixels,
                  int (*progress)(const char* stage, double part), tarnpy_finished* finished);

/// The name of an outcome, as "no key frames". Static storage.
const char* tarnpy_finishing_outcome(int outcome);

/// Why a key frame was left out, as "adds nothing". Static storage.
const char* tarnpy_left_out(int why);

/// Frees what was made; null is nothing.
void tarnpy_free_finished(void* held);
}
