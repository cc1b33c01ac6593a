// SPDX-License-Identifier: Apache-2.0
//
// TARN_SANITIZED is defined where AddressSanitizer or ThreadSanitizer watches the program: it then takes memory of its
// own, by which a test of memory would be misled.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TARN_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TARN_SANITIZED 1
#endif
#endif
