// SPDX-License-Identifier: Apache-2.0
//
// The log: lines on standard output, or where a caller wants those of its calls. Everything that the library writes
// goes through here.
#pragma once

#include <ostream>

namespace tarn {

/// Where the calling thread's log goes: std::cout, unless a log_redirection says otherwise.
std::ostream& log_stream();

/// While one lives, the log of the thread that made it goes to another stream. Must end on the same thread; the
/// innermost one counts.
class log_redirection {
public:
    /// @param stream  must live as long as this
    explicit log_redirection(std::ostream& stream);
    ~log_redirection();
    log_redirection(const log_redirection&) = delete;
    log_redirection& operator=(const log_redirection&) = delete;

private:
    std::ostream* before_;
};

/// Writes the parts one behind the other. What the stream may throw stays here: no line is worth a frame.
template <typename... Part>
void log(const Part&... parts) noexcept
{
    try {
        (log_stream() << ... << parts);
    } catch (...) {  // NOLINT(bugprone-empty-catch): there is nowhere to report it to
    }
}

/// The same, ends the line and flushes.
template <typename... Part>
void log_line(const Part&... parts) noexcept
{
    log(parts...);
    try {
        log_stream() << std::endl;
    } catch (...) {  // NOLINT(bugprone-empty-catch)
    }
}

}  // namespace tarn
