// SPDX-License-Identifier: Apache-2.0
//
// The numbers by which Java names sweeps. An object of Java's may outlive its sweep, so it has no pointer: a number
// never comes again, and one that is not known any more is a sweep that is over.
#pragma once

#include <cstdint>
#include <memory>

#include "tarn_sweep.h"

namespace tarn::binding {

/// Names a sweep for as long as the process lives; never 0. Any thread.
std::int64_t name_for(tarn::sweep begun);

/// The sweep of that name, for the length of a call; null if it is over and forgotten. Any thread.
std::shared_ptr<tarn::sweep> sweep_named(std::int64_t name);

}  // namespace tarn::binding
