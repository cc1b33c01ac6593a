// SPDX-License-Identifier: Apache-2.0
//
// Work that is done when it is needed, or ahead of that, side by side with other work, when there are threads for
// it. Where it is done changes nothing else: what it throws is thrown where it is needed, and nowhere if it never
// is.
#pragma once

#include <exception>
#include <functional>
#include <vector>

namespace tarn {

/// One piece of work, done once at most.
class deferred_work {
public:
    /// What `work` refers to must live as long as this.
    explicit deferred_work(std::function<void()> work);

    /// Does the work unless it is done; keeps what it throws.
    void run_ahead() noexcept;

    /// Does the work unless it is done; throws what it threw.
    void finish();

private:
    std::function<void()> work_;  // null once it is done
    std::exception_ptr failure_;
};

/// Does all of the work ahead, on as many threads as OpenCV may use, each piece on one thread; pieces
/// are begun in their order. Does nothing where that is one thread: there is no gain in doing early what may not
/// be needed.
///
/// One thread at a time may call this, the host's.
void run_side_by_side(const std::vector<deferred_work*>& pieces);

}  // namespace tarn
