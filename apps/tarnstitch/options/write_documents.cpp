// SPDX-License-Identifier: Apache-2.0
//
// Writes the manual page and the completions that are made from the table of options, for the build.
// usage: tarnstitch_documents DIRECTORY
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include "option_documents.h"

namespace {

bool write(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    file << text << std::flush;
    return static_cast<bool>(file);
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string directory = argc == 2 ? argv[1] : "";
    if (directory.empty() || !write(directory + "/tarnstitch.1", tarn::host::manual_page())
        || !write(directory + "/tarnstitch.bash", tarn::host::bash_completion())
        || !write(directory + "/_tarnstitch", tarn::host::zsh_completion())) {
        std::cerr << "tarnstitch_documents: cannot write to the directory \"" << directory << "\"\n";
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
