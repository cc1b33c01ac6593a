// SPDX-License-Identifier: Apache-2.0
//
// The one pair of helpers through which the host's thread and the workers meet on a plain variable.
//
// The sweep's shared variables keep plain types (int, bool, float): they are part of the interface. Read and
// written plainly by two threads they would be data races, and a compiler could lift a poll out of its loop.
#pragma once

namespace tarn {

/// Reads a variable that another thread may be writing. What that thread wrote before the matching
/// store_release is visible after this returns.
template <typename T>
T load_acquire(const T& variable)
{
    T value{};
    __atomic_load(&variable, &value, __ATOMIC_ACQUIRE);
    return value;
}

/// Writes a variable that another thread may be reading; publishes everything written before.
template <typename T, typename Value>
void store_release(T& variable, Value value)
{
    T converted = value;
    __atomic_store(&variable, &converted, __ATOMIC_RELEASE);
}

}  // namespace tarn
