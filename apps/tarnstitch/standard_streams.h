// SPDX-License-Identifier: Apache-2.0
//
// The program's standard streams, and keeping what libraries print away from them.
#pragma once

#include <string>

namespace tarn::host {

/// Opens /dev/null on each of the descriptors 0, 1 and 2 that is closed. Without it the next file opened,
/// an output perhaps, would take the number and receive what libraries print. Call it first of all.
void open_standard_descriptors();

/// Writes "tarnstitch: " and `text` as one line on standard error. Control characters, which a file name may
/// hold, are shown as "?", so that it stays one line.
void say(const std::string& text);

/// While one lives, what is written to a descriptor goes to /dev/null. It works below the streams, so it takes
/// in whatever a library uses to print.
///
/// The stitching library and its dependencies print log lines on standard output, which belongs to the
/// program's own results; image decoders print warnings on standard error, where they would stand beside the
/// program's own clear line.
class silenced_descriptor {
public:
    /// @param descriptor  1 (standard output) or 2 (standard error)
    explicit silenced_descriptor(int descriptor);
    ~silenced_descriptor();
    silenced_descriptor(const silenced_descriptor&) = delete;
    silenced_descriptor& operator=(const silenced_descriptor&) = delete;

private:
    int descriptor_;
    int saved_;  ///< a duplicate of what the descriptor was; -1 when there is nothing to put back
};

}  // namespace tarn::host
