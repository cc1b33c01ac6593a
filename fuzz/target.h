// SPDX-License-Identifier: Apache-2.0
//
// What every fuzz target has: the two entry points that libFuzzer calls, and the way to report a finding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// Called once, before the first input.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

/// Runs the target on one input. Ends the process when something that must hold does not.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tarn::fuzz {

/// Ends the process with the text unless `holds`.
inline void check(bool holds, const char* text)
{
    if (!holds) {
        std::fprintf(stderr, "the oracle: %s\n", text);
        std::abort();
    }
}

}  // namespace tarn::fuzz
