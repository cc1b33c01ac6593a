// SPDX-License-Identifier: Apache-2.0
//
// Stands in for the run-time library's registration of destructors: notes the object, then hands it on.
#include "destructor_recorder.h"

#include <cstdlib>
#include <dlfcn.h>

namespace {

// Plain arrays: they need no construction, so they are ready before the first registration.
constexpr std::size_t capacity = 100000;
const void* registered[capacity];
std::size_t count = 0;

}  // namespace

std::size_t tarn::construction_position(const void* object)
{
    for (std::size_t i = 0; i < count; ++i) {
        if (registered[i] == object) {
            return i;
        }
    }
    return not_registered;
}

// The name and the signature are those of the Itanium C++ ABI, section 3.3.6.3.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __cxa_atexit(void (*destroy)(void*), void* object, void* library)
{
    using registration = int (*)(void (*)(void*), void*, void*);
    static const auto hand_on = reinterpret_cast<registration>(dlsym(RTLD_NEXT, "__cxa_atexit"));
    if (hand_on == nullptr || count == capacity) {
        std::abort();
    }
    registered[count++] = object;
    return hand_on(destroy, object, library);
}
