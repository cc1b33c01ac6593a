// SPDX-License-Identifier: Apache-2.0
//
// Keeping what decoders print of their own accord away from the user, for whom the program has a line itself.
#pragma once

#include <optional>

#include "standard_streams.h"

namespace tarn::host {

/// Keeps the media libraries from printing on standard error, unless OPENCV_LOG_LEVEL in the
/// environment asks them to. Call it before the first input is opened.
void silence_media_logs();

/// Silences standard error around a decoder that prints without being asked, as those of still images do.
class quiet_decoder {
public:
    quiet_decoder();

private:
    std::optional<silenced_descriptor> silence_;
};

}  // namespace tarn::host
