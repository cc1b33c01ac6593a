// SPDX-License-Identifier: Apache-2.0
//
// Values in both directions: the library's structures as objects of the package org.tarnstitch, Java's arguments as
// what the library takes. Whatever fails throws, as jni_support.h says.
#pragma once

#include <cstddef>
#include <jni.h>
#include <string>
#include <vector>

#include "tarn_sweep.h"

namespace tarn::binding {

/// Looks the classes up, for good. To be called once, before all else here, while the binding is loaded.
void look_classes_up(JNIEnv* env);

/// A frame in a direct buffer. It is valid as long as the native method runs.
/// @throws java_exception if the buffer is null, not direct or too small; sweep_error for what the library would
///         refuse
frame_view frame_from(JNIEnv* env, jobject pixels, jint width, jint height, jint row_stride, jint format);

/// The bytes of an array that is not null.
std::string bytes_from(JNIEnv* env, jbyteArray bytes, const char* name);

jbyteArray java_bytes(JNIEnv* env, const void* bytes, std::size_t size);
jstring java_string(JNIEnv* env, const std::string& text);
jobject java_answer(JNIEnv* env, const frame_answer& answer);
jobject java_panorama(JNIEnv* env, const panorama& result, bool had_last_frame);
jobject java_status(JNIEnv* env, const sweep_status& status);
jobject java_preview(JNIEnv* env, const preview_view& preview);

/// Asks a Progress whether to go on.
bool report_progress(JNIEnv* env, jobject progress, int done, int key_frames);

/// Whether the calling thread, which is one of the virtual machine's, is interrupted.
bool is_interrupted(JNIEnv* env);

}  // namespace tarn::binding
