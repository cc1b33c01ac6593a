// SPDX-License-Identifier: Apache-2.0
//
// Becomes OpenCV's custom_hal.hpp: what its kernels are replaced with where they give other bits than natively, or are
// slow.
#ifndef _CUSTOM_HAL_INCLUDED_
#define _CUSTOM_HAL_INCLUDED_

#include <wasm_simd128.h>

/// dst = alpha * src1^T * src2, each element summed from the first row to the last; anything else is left to OpenCV.
/// Debian's OpenCV leaves products of large matrices to BLAS, whose sums have another order than OpenCV's own. The one
/// such product on the library's way is the gradient in cv::findHomography's refinement, from 50 pairs of points on.
/// @param src1  m_a x n_a, of which OpenCV hands over those with 100 rows or more to BLAS
/// @param src2  m_a x n_d
/// @param dst   n_a x n_d
inline int tarn_gemm64f(const double* src1, size_t src1_step, const double* src2, size_t src2_step, double alpha,
                        const double* /*src3*/, size_t /*src3_step*/, double beta, double* dst, size_t dst_step,
                        int m_a, int n_a, int n_d, int flags)
{
    constexpr int least_rows = 100;
    if (m_a < least_rows || flags != CV_HAL_GEMM_1_T || beta != 0.0) {
        return CV_HAL_ERROR_NOT_IMPLEMENTED;
    }
    for (int i = 0; i < n_a; ++i) {
        double* const result = dst + i * (dst_step / sizeof(double));
        for (int j = 0; j < n_d; ++j) {
            result[j] = 0.0;
        }
        for (int row = 0; row < m_a; ++row) {
            const double factor = alpha * src1[row * (src1_step / sizeof(double)) + i];
            const double* const addend = src2 + row * (src2_step / sizeof(double));
            for (int j = 0; j < n_d; ++j) {
                result[j] += factor * addend[j];
            }
        }
    }
    return CV_HAL_ERROR_OK;
}

/// Frames of four channels to B,G,R: four pixels by one shuffle, where OpenCV takes its channels apart and together again.
/// Other conversions are left to OpenCV.
/// @param swap_blue  whether the first and the third channel change places
inline int tarn_bgr_to_bgr(const unsigned char* source, size_t source_step, unsigned char* target, size_t target_step,
                           int width, int height, int depth, int source_channels, int target_channels, bool swap_blue)
{
    if (depth != CV_8U || source_channels != 4 || target_channels != 3) {
        return CV_HAL_ERROR_NOT_IMPLEMENTED;
    }
    const int first = swap_blue ? 2 : 0;
    for (int y = 0; y < height; ++y) {
        const unsigned char* from = source + y * source_step;
        unsigned char* to = target + y * target_step;
        int x = 0;
        // 12 bytes are made and 16 stored, the last four of which the next pixels overwrite.
        for (; x + 6 <= width; x += 4, from += 16, to += 12) {
            const v128_t pixels = wasm_v128_load(from);
            wasm_v128_store(
                to, swap_blue ? wasm_i8x16_shuffle(pixels, pixels, 2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, 0, 0, 0, 0)
                              : wasm_i8x16_shuffle(pixels, pixels, 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 0, 0, 0, 0));
        }
        for (; x < width; ++x, from += 4, to += 3) {
            to[0] = from[first];
            to[1] = from[1];
            to[2] = from[2 - first];
        }
    }
    return CV_HAL_ERROR_OK;
}

#undef cv_hal_gemm64f
#define cv_hal_gemm64f tarn_gemm64f
#undef cv_hal_cvtBGRtoBGR
#define cv_hal_cvtBGRtoBGR tarn_bgr_to_bgr

#endif
