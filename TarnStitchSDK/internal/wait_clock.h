// SPDX-License-Identifier: Apache-2.0
//
// The waits of the workers' protocol: how long they last, how often they look.
#pragma once

#include <cstdint>

namespace tarn {

constexpr int poll_interval = 10000;  ///< µs

/// Measures one wait against max_wait_seconds.
class wait_clock {
public:
    wait_clock();
    bool has_run_out() const;

private:
    std::int64_t start_;
};

}  // namespace tarn
