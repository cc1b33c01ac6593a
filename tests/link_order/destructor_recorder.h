// SPDX-License-Identifier: Apache-2.0
//
// A record of the order in which the program's static objects come to life. Each object with a destructor
// registers it right after its construction; the recorder sees these registrations.
#pragma once

#include <cstddef>

namespace tarn {

constexpr std::size_t not_registered = static_cast<std::size_t>(-1);

/// Position of the object among all objects registered so far, counted from 0; not_registered if it is none of
/// them. May be called at any time, from static initialisers too.
std::size_t construction_position(const void* object);

}  // namespace tarn
