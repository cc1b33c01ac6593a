// SPDX-License-Identifier: Apache-2.0
//
// The native methods of org.tarnstitch.NativeCalls. Each one checks its arguments, calls, translates; the Java
// class says what they do.
#include <array>
#include <jni.h>
#include <limits>
#include <memory>
#include <string>

#include "argument_check.h"
#include "jni_support.h"
#include "sweep_guard.h"
#include "tarn_stitch_jni.h"

namespace {

using namespace tarn::binding;

constexpr jint jni_version = JNI_VERSION_1_6;

// An array of `length` elements can be had from the virtual machine.
jsize array_length(std::size_t length)
{
    if (length > static_cast<std::size_t>(std::numeric_limits<jsize>::max())) {
        throw java_exception(out_of_memory_error,
                             std::to_string(length) + " elements do not fit into an array");
    }
    return static_cast<jsize>(length);
}

jlong reset(JNIEnv* env, jclass, jbyteArray directory)
{
    return answer(env, jlong{0},
                  [&]() -> jlong { return begin_sweep(argument_check(env).directory(directory)); });
}

void close(JNIEnv* env, jclass, jlong sweep)
{
    answer(env, 0, [&] {
        end_sweep(sweep);
        return 0;
    });
}

jint stitch(JNIEnv* env, jclass, jlong sweep, jobject rgba, jint width, jint height, jint row_stride, jint hint,
            jboolean last)
{
    return answer(env, jint{0}, [&]() -> jint {
        const argument_check check(env);
        const int direction = check.direction(hint);
        const cv::Mat frame = check.frame(rgba, width, height, row_stride);
        return register_frame(sweep, frame, direction, last != JNI_FALSE);
    });
}

jintArray preview(JNIEnv* env, jclass, jlong sweep, jintArray size)
{
    return answer(env, jintArray{nullptr}, [&] {
        argument_check(env).size(size);
        const cv::Mat image = look_at_sweep(sweep).preview;
        const std::size_t n = image.total();
        const jsize length = array_length(n);
        const std::unique_ptr<int[]> pixels(matToBitmapArray(image));  // behind them, width and height
        static_assert(sizeof(int) == sizeof(jint));
        local_ref<jintArray> result(env, env->NewIntArray(length));
        env->SetIntArrayRegion(result.get(), 0, length, pixels.get());
        env->SetIntArrayRegion(size, 0, 2, pixels.get() + n);
        return result.release();
    });
}

jbyteArray panorama(JNIEnv* env, jclass, jlong sweep)
{
    return answer(env, jbyteArray{nullptr}, [&] {
        const std::string path = look_at_sweep(sweep).panorama;
        const jsize length = array_length(path.size());
        local_ref<jbyteArray> result(env, env->NewByteArray(length));
        env->SetByteArrayRegion(result.get(), 0, length, reinterpret_cast<const jbyte*>(path.data()));
        return result.release();
    });
}

jint pending_key_frames(JNIEnv* env, jclass, jlong sweep)
{
    return answer(env, jint{0}, [&]() -> jint { return look_at_sweep(sweep).pending_key_frames; });
}

// The interface was made for C, where a method's name is not const and a function pointer is a void*.
JNINativeMethod native(const char* name, const char* signature, void* function)
{
    return {const_cast<char*>(name), const_cast<char*>(signature), function};
}

template <typename Function>
void* address_of(Function* function)
{
    return reinterpret_cast<void*>(function);
}

void register_natives(JNIEnv* env)
{
    const std::array methods = {
        native("reset", "([B)J", address_of(reset)),
        native("close", "(J)V", address_of(close)),
        native("stitch", "(JLjava/nio/ByteBuffer;IIIIZ)I", address_of(stitch)),
        native("preview", "(J[I)[I", address_of(preview)),
        native("panorama", "(J)[B", address_of(panorama)),
        native("pendingKeyFrames", "(J)I", address_of(pending_key_frames)),
    };
    const local_ref<jclass> type(env, env->FindClass("org/tarnstitch/NativeCalls"));
    if (env->RegisterNatives(type.get(), methods.data(), static_cast<jint>(methods.size())) != JNI_OK) {
        throw java_exception_is_pending();
    }
}

}  // namespace

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void* /*reserved*/)
{
    JNIEnv* env = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&env), jni_version) != JNI_OK) {
        return JNI_ERR;
    }
    return answer(env, jint{JNI_ERR}, [&] {
        register_natives(env);
        return jni_version;
    });
}
