// SPDX-License-Identifier: Apache-2.0
//
// The preview's limit as the live path meets it.
#pragma once

#include <opencv2/core.hpp>

namespace tarn {

/// Whether the preview may become so large; notes the answer for preview_is_frozen. The members must be locked.
bool let_preview_grow(const cv::Size& size);

/// A new task's preview is not frozen.
void forget_frozen_preview();

}  // namespace tarn
