// SPDX-License-Identifier: Apache-2.0
#include "jni_support.h"

#include <algorithm>

namespace tarn::binding {

std::string java_text(std::string bytes)
{
    std::replace_if(
        bytes.begin(), bytes.end(), [](char c) { return static_cast<signed char>(c) <= 0; }, '?');
    return bytes;
}

const char* exception_for(sweep_problem problem) noexcept
{
    switch (problem) {
    case sweep_problem::bad_argument:
        return illegal_argument_exception;
    case sweep_problem::directory_not_empty:
    case sweep_problem::directory_unusable:
    case sweep_problem::disk:
        return io_exception;
    case sweep_problem::no_memory:
        return out_of_memory_error;
    case sweep_problem::over:
    case sweep_problem::no_panorama:
    case sweep_problem::process_ends:
        break;
    }
    return illegal_state_exception;
}

void throw_java(JNIEnv* env, const char* class_name, const std::string& message) noexcept
{
    try {
        const local_ref<jclass> type(env, env->FindClass(class_name));
        env->ThrowNew(type.get(), java_text(message).c_str());
    } catch (const java_exception_is_pending&) {
        // No such class, or no memory for it: then that is the exception.
    } catch (const std::bad_alloc&) {
        const jclass type = env->FindClass(out_of_memory_error);
        if (type != nullptr) {
            env->ThrowNew(type, class_name);
            env->DeleteLocalRef(type);
        }
    }
}

}  // namespace tarn::binding
