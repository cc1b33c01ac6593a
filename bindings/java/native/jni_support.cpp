// SPDX-License-Identifier: Apache-2.0
#include "jni_support.h"

#include <algorithm>

namespace tarn::binding {

void throw_java(JNIEnv* env, const char* class_name, const std::string& message) noexcept
{
    try {
        const local_ref<jclass> type(env, env->FindClass(class_name));
        // The virtual machine takes its own kind of UTF-8 only, of which ASCII without zeros is a part.
        std::string text = message;
        std::replace_if(
            text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) <= 0; }, '?');
        env->ThrowNew(type.get(), text.c_str());
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
