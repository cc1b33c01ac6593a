// SPDX-License-Identifier: Apache-2.0
//
// What the Python package needs beside tarn_c.h: pixels in whatever order an array has them, turned and packed in one
// pass, and pictures as JPEGs. C linkage, so that it is called as the rest is; every function may be called from any
// thread at any time.
#pragma once

#include <cstddef>

extern "C" {

/// Writes a picture without gaps, turned.
/// @param pixels          of the first row's first pixel the first channel; only read
/// @param width           px, 1 or more; of the picture as it lies in `pixels`
/// @param height          px, 1 or more
/// @param channels        1 to 4 bytes of a pixel
/// @param row_stride      bytes from row to row; may be negative, as the next two
/// @param pixel_stride    bytes from pixel to pixel
/// @param channel_stride  bytes from channel to channel
/// @param quarters        quarter turns, clockwise; of any number its rest by 4
/// @param to              room for width * height * channels bytes, which does not overlap `pixels`
void tarnpy_pack(const unsigned char* pixels, int width, int height, int channels, std::ptrdiff_t row_stride,
                 std::ptrdiff_t pixel_stride, std::ptrdiff_t channel_stride, int quarters, unsigned char* to);

/// A picture as a JPEG, encoded as the library encodes its panoramas.
/// @param pixels  3 bytes each, B,G,R, without gaps
/// @param width   px
/// @param height  px
/// @param bytes   is given the JPEG, to be freed by tarnpy_free_bytes; null where it fails
/// @returns how many bytes; 0 where it fails: more than 65500 px on a side, or memory is short
std::size_t tarnpy_jpeg(const unsigned char* pixels, int width, int height, unsigned char** bytes);

/// Frees what tarnpy_jpeg gave; null is nothing.
void tarnpy_free_bytes(unsigned char* bytes);
}
