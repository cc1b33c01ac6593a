// SPDX-License-Identifier: Apache-2.0
//
// The native methods of org.tarnstitch.NativeCalls. Each one translates its arguments, calls the sweep, translates
// the answer; the Java classes say what they do.
#include <array>
#include <chrono>
#include <jni.h>
#include <memory>
#include <string>

#include "java_values.h"
#include "jni_support.h"
#include "sweep_names.h"
#include "tarn_sweep.h"

namespace {

using namespace tarn::binding;

constexpr jint jni_version = JNI_VERSION_1_6;

std::shared_ptr<tarn::sweep> existing(jlong name)
{
    std::shared_ptr<tarn::sweep> found = sweep_named(name);
    if (!found) {
        throw java_exception(illegal_state_exception,
                             "this sweep is over: it was ended, or another one was begun after it");
    }
    return found;
}

jlong begin(JNIEnv* env, jclass, jbyteArray directory, jbyteArray private_parent)
{
    return answer(env, jlong{0}, [&]() -> jlong {
        tarn::sweep_options options;
        options.directory = bytes_from(env, directory, "directory");
        options.private_parent = bytes_from(env, private_parent, "privateParent");
        return name_for(tarn::sweep::begin(options));
    });
}

void cancel(JNIEnv* env, jclass, jlong name)
{
    answer(env, 0, [&] {
        if (const auto sweep = sweep_named(name)) {
            sweep->cancel();
        }
        return 0;
    });
}

jobject feed(JNIEnv* env, jclass, jlong name, jobject pixels, jint width, jint height, jint row_stride, jint format,
             jint hint)
{
    return answer(env, jobject{nullptr}, [&] {
        const tarn::frame_view frame = frame_from(env, pixels, width, height, row_stride, format);
        return java_answer(env, existing(name)->feed(frame, static_cast<tarn::direction_code>(hint)));
    });
}

jobject finish(JNIEnv* env, jclass, jlong name, jobject pixels, jint width, jint height, jint row_stride, jint format,
               jint hint, jobject progress)
{
    return answer(env, jobject{nullptr}, [&] {
        tarn::finish_options options;
        tarn::frame_view last_frame;
        if (pixels != nullptr) {
            last_frame = frame_from(env, pixels, width, height, row_stride, format);
            options.last_frame = &last_frame;
        }
        options.hint = static_cast<tarn::direction_code>(hint);
        options.on_progress = [env, progress](int done, int key_frames) {
            return !is_interrupted(env) && (progress == nullptr || report_progress(env, progress, done, key_frames));
        };
        return java_panorama(env, existing(name)->finish(options), pixels != nullptr);
    });
}

jobject status(JNIEnv* env, jclass, jlong name)
{
    return answer(env, jobject{nullptr}, [&] { return java_status(env, existing(name)->status()); });
}

jboolean wait_for_room(JNIEnv* env, jclass, jlong name, jint key_frames)
{
    return answer(env, jboolean{JNI_FALSE}, [&]() -> jboolean {
        const auto go_on = [env](int) { return !is_interrupted(env); };
        return existing(name)->wait_for_room(key_frames, std::chrono::milliseconds::max(), go_on) ? JNI_TRUE
                                                                                                  : JNI_FALSE;
    });
}

jobject preview(JNIEnv* env, jclass, jlong name)
{
    return answer(env, jobject{nullptr}, [&] { return java_preview(env, existing(name)->preview()); });
}

jbyteArray directory(JNIEnv* env, jclass, jlong name)
{
    return answer(env, jbyteArray{nullptr}, [&] {
        const std::string path = existing(name)->directory();
        return java_bytes(env, path.data(), path.size());
    });
}

void write(JNIEnv* env, jclass, jbyteArray file, jbyteArray content)
{
    answer(env, 0, [&] {
        const std::string bytes = bytes_from(env, content, "content");
        tarn::save_bytes(bytes_from(env, file, "file"), {bytes.begin(), bytes.end()});
        return 0;
    });
}

// A word of the library's, by its number.
template <typename Number, const char* (*word)(Number)>
jstring text(JNIEnv* env, jclass, jint number)
{
    return answer(env, jstring{nullptr}, [&] { return java_string(env, word(static_cast<Number>(number))); });
}

// The interface was made for C, where a method's name is not const and a function pointer is a void*.
template <typename Function>
JNINativeMethod native(const char* name, const char* signature, Function* function)
{
    return {const_cast<char*>(name), const_cast<char*>(signature), reinterpret_cast<void*>(function)};
}

void register_natives(JNIEnv* env)
{
    using tarn::advice_for;
    using tarn::answer_code;
    using tarn::direction_code;
    using tarn::name_of;
    using tarn::reason;
    const std::array methods = {
        native("begin", "([B[B)J", begin),
        native("cancel", "(J)V", cancel),
        native("feed", "(JLjava/nio/ByteBuffer;IIIII)Lorg/tarnstitch/FrameAnswer;", feed),
        native("finish", "(JLjava/nio/ByteBuffer;IIIIILorg/tarnstitch/Progress;)Lorg/tarnstitch/Panorama;", finish),
        native("status", "(J)Lorg/tarnstitch/SweepStatus;", status),
        native("waitForRoom", "(JI)Z", wait_for_room),
        native("preview", "(J)Lorg/tarnstitch/Preview;", preview),
        native("directory", "(J)[B", directory),
        native("write", "([B[B)V", write),
        native("adviceForCode", "(I)Ljava/lang/String;", text<answer_code, advice_for>),
        native("nameOfDirection", "(I)Ljava/lang/String;", text<direction_code, name_of>),
        native("nameOfReason", "(I)Ljava/lang/String;", text<reason, name_of>),
        native("adviceForReason", "(I)Ljava/lang/String;", text<reason, advice_for>),
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
        look_classes_up(env);
        return jni_version;
    });
}
