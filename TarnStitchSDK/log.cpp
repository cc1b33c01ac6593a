// SPDX-License-Identifier: Apache-2.0
#include "internal/log.h"

#include <iostream>
#include <utility>

namespace tarn {

namespace {

thread_local std::ostream* redirected_to = nullptr;

}  // namespace

std::ostream& log_stream()
{
    return redirected_to != nullptr ? *redirected_to : std::cout;
}

log_redirection::log_redirection(std::ostream& stream) : before_(std::exchange(redirected_to, &stream))
{
}

log_redirection::~log_redirection()
{
    redirected_to = before_;
}

}  // namespace tarn
