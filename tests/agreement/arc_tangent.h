// SPDX-License-Identifier: Apache-2.0
//
// The arc tangent in single precision, of which this program has two: the C library's, which on some processors is
// off by the last bit where it is not on others, and a properly rounded one, which is the same everywhere. With the
// second, what remains is the library's own arithmetic.
#pragma once

namespace tarn::test {

/// Chooses for all calls of atanf and atan2f in the program, the library's included (the linker redirects them).
void round_arc_tangents(bool properly);

}  // namespace tarn::test
