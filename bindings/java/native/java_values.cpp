// SPDX-License-Identifier: Apache-2.0
#include "java_values.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <memory>

#include "jni_support.h"
#include "tarn_stitch_jni.h"

namespace tarn::binding {

namespace {

struct java_class {
    jclass type = nullptr;
    jmethodID constructor = nullptr;
};

struct java_classes {
    java_class answer;
    java_class panorama;
    java_class status;
    java_class preview;
    jmethodID on_progress = nullptr;
    jclass thread = nullptr;
    jmethodID current_thread = nullptr;
    jmethodID is_interrupted = nullptr;
};

// Never destroyed, as what refers to it.
java_classes& known()
{
    static auto& classes = *new java_classes;
    return classes;
}

template <typename Value>
Value checked(Value value)
{
    if (value == nullptr) {
        throw java_exception_is_pending();
    }
    return value;
}

void check_that_java_threw_nothing(JNIEnv* env)
{
    if (env->ExceptionCheck() != JNI_FALSE) {
        throw java_exception_is_pending();
    }
}

jclass class_named(JNIEnv* env, const char* name)
{
    const local_ref<jclass> local(env, env->FindClass(name));
    return static_cast<jclass>(checked(env->NewGlobalRef(local.get())));
}

java_class constructed(JNIEnv* env, const char* name, const char* signature)
{
    const jclass type = class_named(env, name);
    return {type, checked(env->GetMethodID(type, "<init>", signature))};
}

// An array of `length` elements can be had from the virtual machine.
jsize array_length(std::size_t length)
{
    if (length > static_cast<std::size_t>(std::numeric_limits<jsize>::max())) {
        throw java_exception(out_of_memory_error, std::to_string(length) + " elements do not fit into an array");
    }
    return static_cast<jsize>(length);
}

jfloatArray java_floats(JNIEnv* env, const float* values, std::size_t count)
{
    const jsize length = array_length(count);
    local_ref<jfloatArray> result(env, env->NewFloatArray(length));
    env->SetFloatArrayRegion(result.get(), 0, length, values);
    return result.release();
}

jfloatArray java_outline(JNIEnv* env, bool there, const corners& outline)
{
    std::array<float, 8> numbers{};
    std::size_t n = 0;
    for (const cv::Point2f& corner : outline) {
        numbers[n++] = corner.x;
        numbers[n++] = corner.y;
    }
    return java_floats(env, numbers.data(), there ? n : 0);
}

jboolean java_bool(bool value)
{
    return value ? JNI_TRUE : JNI_FALSE;
}

}  // namespace

void look_classes_up(JNIEnv* env)
{
    java_classes& classes = known();
    classes.answer = constructed(env, "org/tarnstitch/FrameAnswer", "(IILjava/lang/String;ZIIZIFIIIF[F[F[FD)V");
    classes.panorama = constructed(env, "org/tarnstitch/Panorama", "(IIIILorg/tarnstitch/FrameAnswer;[BII[B)V");
    classes.status = constructed(env, "org/tarnstitch/SweepStatus", "(IIZII)V");
    classes.preview = constructed(env, "org/tarnstitch/Preview", "([III[FZ)V");
    const local_ref<jclass> progress(env, env->FindClass("org/tarnstitch/Progress"));
    classes.on_progress = checked(env->GetMethodID(progress.get(), "onProgress", "(II)Z"));
    classes.thread = class_named(env, "java/lang/Thread");
    classes.current_thread = checked(env->GetStaticMethodID(classes.thread, "currentThread", "()Ljava/lang/Thread;"));
    classes.is_interrupted = checked(env->GetMethodID(classes.thread, "isInterrupted", "()Z"));
}

frame_view frame_from(JNIEnv* env, jobject pixels, jint width, jint height, jint row_stride, jint format)
{
    if (row_stride < 0) {
        throw java_exception(illegal_argument_exception,
                             "the frame's row_stride is " + std::to_string(row_stride) + "; it must be at least 0");
    }
    const jlong capacity = env->GetDirectBufferCapacity(pixels);
    if (capacity < 0) {
        throw java_exception(illegal_argument_exception,
                             "the frame's buffer is not direct; ByteBuffer.allocateDirect makes one");
    }
    const frame_view frame{env->GetDirectBufferAddress(pixels), width, height, static_cast<std::size_t>(row_stride),
                           static_cast<pixel_format>(format)};
    const std::size_t needed = size_in_bytes(frame);
    if (static_cast<std::uint64_t>(capacity) < needed) {
        throw java_exception(illegal_argument_exception, "the frame's buffer has a capacity of "
                                                             + std::to_string(capacity) + " bytes; the frame has "
                                                             + std::to_string(needed));
    }
    return frame;
}

std::string bytes_from(JNIEnv* env, jbyteArray bytes, const char* name)
{
    if (bytes == nullptr) {
        throw java_exception(null_pointer_exception, std::string(name) + " is null");
    }
    const jsize length = env->GetArrayLength(bytes);
    std::string result(static_cast<std::size_t>(length), '\0');
    env->GetByteArrayRegion(bytes, 0, length, reinterpret_cast<jbyte*>(result.data()));
    return result;
}

jbyteArray java_bytes(JNIEnv* env, const void* bytes, std::size_t size)
{
    const jsize length = array_length(size);
    local_ref<jbyteArray> result(env, env->NewByteArray(length));
    env->SetByteArrayRegion(result.get(), 0, length, static_cast<const jbyte*>(bytes));
    return result.release();
}

jstring java_string(JNIEnv* env, const std::string& text)
{
    return checked(env->NewStringUTF(java_text(text).c_str()));
}

jobject java_answer(JNIEnv* env, const frame_answer& answer)
{
    const local_ref<jstring> detail(env, java_string(env, answer.detail));
    const local_ref<jfloatArray> outline(env, java_outline(env, answer.placed, answer.outline));
    const local_ref<jfloatArray> angles(env, java_floats(env, answer.angles.data(), answer.angles.size()));
    const local_ref<jfloatArray> scales(env, java_floats(env, answer.scales.data(), answer.scales.size()));
    const java_class& type = known().answer;
    return checked(env->NewObject(
        type.type, type.constructor, static_cast<jint>(answer.code), static_cast<jint>(answer.why), detail.get(),
        java_bool(answer.taken), answer.key_frame, answer.key_frames, java_bool(answer.registered),
        static_cast<jint>(answer.direction), answer.move_distance, answer.corners_found, answer.corners_tracked,
        answer.inliers, answer.overlap, outline.get(), angles.get(), scales.get(), answer.milliseconds));
}

jobject java_panorama(JNIEnv* env, const panorama& result, bool had_last_frame)
{
    std::vector<unsigned char> encoded;
    if (result.extent != panorama_extent::missing) {
        encoded = result.jpeg();
    }
    const local_ref<jbyteArray> jpeg(env, java_bytes(env, encoded.data(), encoded.size()));
    const local_ref<jbyteArray> file(env, java_bytes(env, result.file.data(), result.file.size()));
    // Deleted by the virtual machine when the native method returns; null is allowed here.
    const jobject last_frame = had_last_frame ? java_answer(env, result.last_frame) : nullptr;
    const java_class& type = known().panorama;
    return checked(env->NewObject(type.type, type.constructor, static_cast<jint>(result.extent),
                                  static_cast<jint>(result.why), result.first_failed_key_frame, result.key_frames,
                                  last_frame, jpeg.get(), result.image.cols, result.image.rows, file.get()));
}

jobject java_status(JNIEnv* env, const sweep_status& status)
{
    const java_class& type = known().status;
    return checked(env->NewObject(type.type, type.constructor, status.key_frames, status.under_way,
                                  java_bool(status.pipeline == pipeline_failed), status.first_failed_key_frame,
                                  static_cast<jint>(status.why)));
}

jobject java_preview(JNIEnv* env, const preview_view& preview)
{
    static_assert(sizeof(int) == sizeof(jint));
    const jsize length = array_length(preview.pixels.total());
    const std::unique_ptr<int[]> packed(matToBitmapArray(preview.pixels));
    const local_ref<jintArray> pixels(env, env->NewIntArray(length));
    env->SetIntArrayRegion(pixels.get(), 0, length, packed.get());
    const local_ref<jfloatArray> outline(env, java_outline(env, preview.has_outline, preview.outline));
    const java_class& type = known().preview;
    return checked(env->NewObject(type.type, type.constructor, pixels.get(), preview.pixels.cols, preview.pixels.rows,
                                  outline.get(), java_bool(preview.frozen)));
}

bool report_progress(JNIEnv* env, jobject progress, int done, int key_frames)
{
    const jboolean go_on = env->CallBooleanMethod(progress, known().on_progress, done, key_frames);
    check_that_java_threw_nothing(env);
    return go_on != JNI_FALSE;
}

bool is_interrupted(JNIEnv* env)
{
    const jobject current = env->CallStaticObjectMethod(known().thread, known().current_thread);
    check_that_java_threw_nothing(env);
    const local_ref<jobject> thread(env, current);
    const jboolean interrupted = env->CallBooleanMethod(thread.get(), known().is_interrupted);
    check_that_java_threw_nothing(env);
    return interrupted != JNI_FALSE;
}

}  // namespace tarn::binding
