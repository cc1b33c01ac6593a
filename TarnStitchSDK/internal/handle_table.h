// SPDX-License-Identifier: Apache-2.0
//
// What a host in C holds: numbers in the guise of pointers, which are looked up and never followed. So a handle that
// was freed, or never was one, is found out.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace tarn {

/// What a handle stands for.
struct held_thing {
    held_thing() = default;
    virtual ~held_thing() = default;
    held_thing(const held_thing&) = delete;
    held_thing& operator=(const held_thing&) = delete;
};

/// Things by number. Any thread; a thing lives on while somebody who looked it up has hold of it. Its destructor runs
/// without the table's lock.
class handle_table {
public:
    /// Takes a thing in. @returns its handle, never null, and not given again before all others have been
    void* add(std::shared_ptr<held_thing> thing)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        do {
            ++newest_;
        } while (newest_ == 0 || things_.count(newest_) != 0);
        // In two steps: where memory is short the thing must not be destroyed in here.
        things_[newest_] = std::move(thing);
        return reinterpret_cast<void*>(newest_);
    }

    /// The thing behind a handle; null if there is none, or if it is of another kind.
    template <typename Thing>
    std::shared_ptr<Thing> find(const void* handle) const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const auto found = things_.find(reinterpret_cast<std::uintptr_t>(handle));
        return found == things_.end() ? nullptr : std::dynamic_pointer_cast<Thing>(found->second);
    }

    /// The same, and the handle is none from now on.
    template <typename Thing>
    std::shared_ptr<Thing> take(const void* handle)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const auto found = things_.find(reinterpret_cast<std::uintptr_t>(handle));
        if (found == things_.end()) {
            return nullptr;
        }
        std::shared_ptr<Thing> thing = std::dynamic_pointer_cast<Thing>(found->second);
        if (thing != nullptr) {
            things_.erase(found);
        }
        return thing;
    }

    // For the thread that forks, while it does.

    void lock()
    {
        mutex_.lock();
    }

    void unlock()
    {
        mutex_.unlock();
    }

private:
    mutable std::mutex mutex_;
    std::uintptr_t newest_ = 0;
    std::unordered_map<std::uintptr_t, std::shared_ptr<held_thing>> things_;
};

}  // namespace tarn
