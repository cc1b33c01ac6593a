// SPDX-License-Identifier: Apache-2.0
//
// Between C++ and the Java Native Interface: exceptions in both directions, references that release themselves.
#pragma once

#include <exception>
#include <jni.h>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "tarn_sweep.h"

namespace tarn::binding {

/// Names of the Java exceptions that the binding throws.
constexpr const char* null_pointer_exception = "java/lang/NullPointerException";
constexpr const char* illegal_argument_exception = "java/lang/IllegalArgumentException";
constexpr const char* illegal_state_exception = "java/lang/IllegalStateException";
constexpr const char* runtime_exception = "java/lang/RuntimeException";
constexpr const char* io_exception = "java/io/IOException";
constexpr const char* out_of_memory_error = "java/lang/OutOfMemoryError";

/// A Java exception on its way to the edge of the native half.
class java_exception : public std::runtime_error {
public:
    java_exception(const char* class_name, const std::string& message)
        : std::runtime_error(message), class_name_(class_name)
    {
    }

    const char* class_name() const
    {
        return class_name_;
    }

private:
    const char* class_name_;
};

/// Unwinds to the edge when a call of the virtual machine has failed and left its own Java exception pending.
struct java_exception_is_pending : std::exception {};

/// What the virtual machine takes for text: its own kind of UTF-8, of which ASCII without zeros is a part. Anything
/// else becomes "?".
std::string java_text(std::string bytes);

/// The Java exception that says what a sweep's error says.
const char* exception_for(sweep_problem problem) noexcept;

/// Makes a Java exception of that class pending. The message may be any bytes.
void throw_java(JNIEnv* env, const char* class_name, const std::string& message) noexcept;

/// Runs the body of a native method and answers the virtual machine: with the body's result, or with `if_failed`
/// and a Java exception pending. Nothing that the body throws gets past it.
template <typename Result, typename Body>
Result answer(JNIEnv* env, Result if_failed, Body body) noexcept
{
    try {
        return body();
    } catch (const java_exception_is_pending&) {
        // The virtual machine has its exception already.
    } catch (const java_exception& e) {
        throw_java(env, e.class_name(), e.what());
    } catch (const std::bad_alloc&) {
        throw_java(env, out_of_memory_error, "native memory is short");
    } catch (const sweep_error& e) {
        throw_java(env, exception_for(e.problem()), e.what());
    } catch (const std::exception& e) {
        throw_java(env, runtime_exception, e.what());
    } catch (...) {
        throw_java(env, runtime_exception, "unknown C++ exception");
    }
    return if_failed;
}

/// A local reference, deleted at the end of its scope unless it is handed on.
template <typename Reference>
class local_ref {
public:
    /// @throws java_exception_is_pending for null: the call that should have made it has failed
    local_ref(JNIEnv* env, Reference reference) : env_(env), reference_(reference)
    {
        if (reference_ == nullptr) {
            throw java_exception_is_pending();
        }
    }

    ~local_ref()
    {
        if (reference_ != nullptr) {
            env_->DeleteLocalRef(reference_);
        }
    }

    local_ref(const local_ref&) = delete;
    local_ref& operator=(const local_ref&) = delete;

    Reference get() const
    {
        return reference_;
    }

    /// Hands the reference on to the caller in Java.
    Reference release()
    {
        return std::exchange(reference_, nullptr);
    }

private:
    JNIEnv* env_;
    Reference reference_;
};

}  // namespace tarn::binding
