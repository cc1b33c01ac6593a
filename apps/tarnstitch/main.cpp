// SPDX-License-Identifier: Apache-2.0
//
// tarnstitch: stitches a recorded sweep with the library, as a camera application would live.
#include <cerrno>
#include <exception>
#include <iostream>
#include <string>

#include "host_error.h"
#include "interruption.h"
#include "option_documents.h"
#include "options.h"
#include "standard_streams.h"
#include "stitching.h"

using namespace tarn::host;

namespace {

exit_code run(int argc, char** argv)
{
    const options asked = parse_options(argc, argv);
    if (asked.help || asked.version) {
        if (!has_standard_output()) {
            throw host_error(exit_code::output_failed, "cannot write to standard output: it is closed");
        }
        std::cout << (asked.help ? help_text() : version_text()) << std::flush;
        // A reader that has seen enough, as head(1), is none.
        if (!std::cout && errno != EPIPE) {
            throw host_error(exit_code::output_failed, "cannot write to standard output");
        }
        return exit_code::done;
    }
    return stitch(asked);
}

}  // namespace

int main(int argc, char** argv)
{
    exit_code code = exit_code::not_stitched;
    try {
        open_standard_descriptors();
        watch_for_interruption();
        code = run(argc, argv);
    } catch (const host_error& error) {
        say(error.what());
        code = error.code();
    } catch (const std::exception& error) {
        say(std::string("unexpected error: ") + error.what());
    }
    return static_cast<int>(code);
}
