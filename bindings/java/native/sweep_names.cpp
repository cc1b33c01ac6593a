// SPDX-License-Identifier: Apache-2.0
#include "sweep_names.h"

#include <mutex>
#include <utility>

namespace tarn::binding {

namespace {

// One sweep is current, so one is remembered.
struct named_sweep {
    std::mutex mutex;  ///< for moments only: all that follows
    std::int64_t newest = 0;
    std::int64_t name = 0;
    std::shared_ptr<tarn::sweep> sweep;
};

// Never destroyed: threads of the virtual machine may still be here when the process ends.
named_sweep& the_sweep()
{
    static auto& one = *new named_sweep;
    return one;
}

}  // namespace

std::int64_t name_for(tarn::sweep begun)
{
    auto next = std::make_shared<tarn::sweep>(std::move(begun));
    named_sweep& known = the_sweep();
    const std::lock_guard<std::mutex> lock(known.mutex);
    const std::int64_t name = ++known.newest;
    // Another thread may have begun a later one already.
    if (!known.sweep || !known.sweep->is_current()) {
        known.sweep.swap(next);
        known.name = name;
    }
    return name;
}

std::shared_ptr<tarn::sweep> sweep_named(std::int64_t name)
{
    named_sweep& known = the_sweep();
    const std::lock_guard<std::mutex> lock(known.mutex);
    return name == known.name ? known.sweep : nullptr;
}

}  // namespace tarn::binding
