// SPDX-License-Identifier: Apache-2.0
#include "internal/library_copy.h"

#include <atomic>

// Names the copy that has the task, by an address inside it. One for all copies that share the interface's names, which
// is why the library shows it.
#pragma GCC visibility push(default)

namespace tarn {

std::atomic<const void*> copy_with_the_task{nullptr};

}  // namespace tarn

#pragma GCC visibility pop

bool tarn::has_the_task()
{
    static const char this_copy = 0;  // its address is what counts, and each copy has one of its own
    const void* owner = nullptr;
    return copy_with_the_task.compare_exchange_strong(owner, &this_copy) || owner == &this_copy;
}
