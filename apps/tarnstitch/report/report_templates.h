// SPDX-License-Identifier: Apache-2.0
//
// The files in templates/, which the build puts into the program (embed_templates.cmake).
#pragma once

#include <map>
#include <string>

namespace tarn::host {

/// The templates' texts by the names of their files.
const std::map<std::string, std::string>& report_templates();

}  // namespace tarn::host
