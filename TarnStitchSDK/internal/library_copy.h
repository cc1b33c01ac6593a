// SPDX-License-Identifier: Apache-2.0
//
// Several copies of the library in one process. Copies that are loaded locally have nothing in common. Those that are
// loaded globally share the names that the library shows, and with them the task and the variables of module_globals.h,
// but not the locks, which it does not show: only one of them may use the task.
#pragma once

namespace tarn {

/// Whether this copy of the library has the task: the first one of those that share it that asks. Any thread.
bool has_the_task();

}  // namespace tarn
