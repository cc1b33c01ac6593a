// SPDX-License-Identifier: Apache-2.0
//
// Main of the link-order programs. The argument tells what the checks' static initialiser must have found:
// "library-first" that the library was ready before it, "host-first" that it was not, "either".
#include <iostream>
#include <string>

#include "global_state_checks.h"

int main(int argc, char* argv[])
{
    const std::string expected = argc == 2 ? argv[1] : "";
    const tarn::early_look before_main = tarn::look_before_main();
    const std::string found = before_main.library_was_ready ? "library-first" : "host-first";
    const int in_main = tarn::check_global_state();
    const int in_use = tarn::check_globals_are_usable();
    std::cout << "order: " << found << "; failures before main: " << before_main.failures << ", in main: " << in_main
              << ", in use: " << in_use << '\n';
    // What the globals hold now is freed at exit: a crash or a sanitizer's finding there fails the program.
    const bool in_order = found == expected || expected == "either";
    return in_order && before_main.failures + in_main + in_use == 0 ? 0 : 1;
}
