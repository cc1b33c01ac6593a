// SPDX-License-Identifier: Apache-2.0
//
// Runs a fuzz target once on each file that the arguments name, or that lies in a directory that they name, in the
// order of the names. For compilers without libFuzzer, and for the ordinary tests.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "target.h"

namespace fs = std::filesystem;

int main(int argc, char** argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) {
            files.emplace_back(argv[i]);
            continue;
        }
        for (const auto& entry : fs::directory_iterator(argv[i])) {
            files.push_back(entry.path().string());
        }
    }
    std::sort(files.begin(), files.end());
    for (const std::string& file : files) {
        std::ifstream stream(file, std::ios::binary);
        if (!stream) {
            std::cerr << "cannot read " << file << "\n";
            return 1;
        }
        const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
        std::cerr << file << ": " << bytes.size() << " bytes\n";
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::cerr << files.size() << " inputs replayed\n";
    return files.empty() ? 1 : 0;
}
