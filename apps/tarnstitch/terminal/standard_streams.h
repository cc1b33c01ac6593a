// SPDX-License-Identifier: Apache-2.0
//
// The program's standard streams, and keeping what libraries print away from them.
#pragma once

#include <string>

namespace tarn::host {

/// Opens /dev/null on each of the descriptors 0, 1 and 2 that is closed. Without it the next file opened,
/// an output perhaps, would take the number and receive what libraries print. Call it first of all.
void open_standard_descriptors();

/// Whether there was a standard output when the program was started.
bool has_standard_output();

/// Whether a path leads to where standard output goes. Not asked while one is silenced.
bool is_standard_output(const std::string& file);

/// Writes "tarnstitch: " and `text` as one line on standard error, made printable (terminal/printable_text.h), so that
/// it stays one line whatever a file's name holds. Any thread.
void say(const std::string& text);

/// The same for what is no error: nothing once the program is to be quiet. Any thread.
void note(const std::string& text);

/// Turns note() and the status line off.
void be_quiet();

/// Whether messages go to a terminal, where a status line can be shown.
bool messages_go_to_a_terminal();

/// Columns of that terminal; 80 when it does not say.
int terminal_width();

/// Shows a line that stays at the bottom of the terminal, below what say() writes, until it is replaced; "" takes
/// it away. The text must fit the terminal's width.
void show_status_line(const std::string& text);

/// Ends the line in which the status line stands, for a program that is about to end. Never waits.
void leave_status_line();

/// While one lives, what is written to a descriptor goes elsewhere: to /dev/null, or to a file. It works below the
/// streams, so it takes in whatever a library uses to print. Lines by say() are not affected.
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

    /// Lets what is written from now on go to a file instead of /dev/null.
    /// @param file  made, or emptied
    /// @throws host_error (output_failed) when the file cannot be opened
    void send_to(const std::string& file);

private:
    int descriptor_;
    int saved_;  ///< a duplicate of what the descriptor was; -1 when there is nothing to put back
};

}  // namespace tarn::host
