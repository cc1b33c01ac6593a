// SPDX-License-Identifier: Apache-2.0
//
// Structures that begin with their size, so that host and library may be of different versions. A new member is put
// behind all others, and so that it does not fill what was padding: an older size then never reaches it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

#include "../tarn_c.h"

namespace tarn {

/// What leaves a function of tarn_c.h as its result and tarn_last_error().
struct c_failure {
    tarn_result result = TARN_ERROR_UNEXPECTED;
    std::string text;
};

/// More than any version will have: a size that was never set is told from one by it.
constexpr std::size_t greatest_structure = 4096;

/// The size that a host gives for a structure. @throws c_failure if it cannot be one
inline std::size_t size_of_host(const void* structure, const char* name)
{
    if (structure == nullptr) {
        throw c_failure{TARN_ERROR_BAD_ARGUMENT, std::string(name) + " is null"};
    }
    std::size_t size = 0;
    std::memcpy(&size, structure, sizeof size);
    // Any version's is a multiple of its first member's, so that no size cuts a pointer or a number in two.
    if (size == 0 || size % sizeof size != 0 || size > greatest_structure) {
        throw c_failure{TARN_ERROR_BAD_ARGUMENT,
                        std::string(name) + ".size is " + std::to_string(size) + ", which is no size of it"};
    }
    return size;
}

/// Reads what a host hands in: members that its version lacks are 0.
/// @throws c_failure for a size that cannot be one, and for members of a newer version that are not 0
template <typename Structure>
Structure from_host(const Structure* given, const char* name)
{
    static_assert(std::is_trivially_copyable_v<Structure> && alignof(Structure) >= alignof(std::size_t));
    const std::size_t size = size_of_host(given, name);
    Structure own{};
    std::memcpy(&own, given, std::min(size, sizeof own));
    own.size = sizeof(Structure);
    const auto* bytes = reinterpret_cast<const unsigned char*>(given);
    if (size > sizeof(Structure)
        && std::any_of(bytes + sizeof(Structure), bytes + size, [](unsigned char byte) { return byte != 0; })) {
        throw c_failure{TARN_ERROR_UNSUPPORTED,
                        std::string(name) + " asks for something that this version does not have: " + tarn_version()};
    }
    return own;
}

/// Fills what a host wants to be told, as far as it reaches; what lies beyond the library's version becomes 0.
/// @throws c_failure for a size that cannot be one
template <typename Structure>
void to_host(Structure* wanted, const char* name, Structure told)
{
    static_assert(std::is_trivially_copyable_v<Structure>);
    const std::size_t size = size_of_host(wanted, name);
    told.size = size;
    std::memcpy(static_cast<void*>(wanted), &told, std::min(size, sizeof told));
    if (size > sizeof told) {
        std::memset(reinterpret_cast<unsigned char*>(wanted) + sizeof told, 0, size - sizeof told);
    }
}

}  // namespace tarn
