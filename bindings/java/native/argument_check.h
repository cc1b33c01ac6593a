// SPDX-License-Identifier: Apache-2.0
//
// The one place where arguments from Java are checked. What passes is safe to use; what does not is answered by
// a Java exception that names the values.
#pragma once

#include <cstdint>
#include <jni.h>
#include <string>

#include <opencv2/core.hpp>

namespace tarn::binding {

/// Where a frame lies in its buffer. Wide enough for the product of any two arguments.
struct frame_layout {
    std::int64_t capacity = 0;    ///< bytes
    std::int64_t width = 0;       ///< px
    std::int64_t height = 0;      ///< px
    std::int64_t row_stride = 0;  ///< bytes from the start of a row to the start of the next one
};

/// What is wrong with the layout, or "". The last row need not be followed by padding.
std::string fault_of(const frame_layout& layout);

/// Checks the arguments of one native method. Every function throws java_exception for a bad argument.
class argument_check {
public:
    explicit argument_check(JNIEnv* env) : env_(env)
    {
    }

    /// The bytes of a directory's path: not null; empty for none, else ending in "/"; without a zero among them.
    std::string directory(jbyteArray path) const;

    /// A header for the frame in a direct buffer, CV_8UC4, which shares the buffer's memory and is valid as long
    /// as the native method runs.
    cv::Mat frame(jobject rgba, jint width, jint height, jint row_stride) const;

    /// A direction hint, 0 to 4.
    int direction(jint hint) const;

    /// An array for width and height: not null, two ints long.
    jintArray size(jintArray size) const;

private:
    JNIEnv* env_;
};

}  // namespace tarn::binding
