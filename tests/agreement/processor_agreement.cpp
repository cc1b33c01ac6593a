// SPDX-License-Identifier: Apache-2.0
//
// processor_agreement frames DIRECTORY           writes the frames that both processors are to work on
// processor_agreement record DIRECTORY           writes what this processor computes, on those frames and others
// processor_agreement compare RECORD RECORD      compares two such texts; fails unless all exact lines agree
// processor_agreement images IMAGE IMAGE [N]     compares two pictures; fails unless their sizes agree to N pixels
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "record.h"

int main(int argc, char* argv[])
{
    using namespace tarn::test;
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 2 && words[0] == "frames") {
        return write_frames(words[1]) ? 0 : 1;
    }
    if (words.size() == 2 && words[0] == "record") {
        write_kernel_digests();
        return write_library_stages(words[1]) ? 0 : 1;
    }
    if (words.size() == 3 && words[0] == "compare") {
        return compare_records(words[1], words[2]) ? 0 : 1;
    }
    if (words.size() >= 3 && words.size() <= 4 && words[0] == "images") {
        const int tolerance = words.size() == 4 ? std::atoi(words[3].c_str()) : 0;
        return compare_images(words[1], words[2], tolerance) ? 0 : 1;
    }
    std::cerr << "usage: processor_agreement frames DIRECTORY | record DIRECTORY | compare RECORD RECORD | "
                 "images IMAGE IMAGE [PIXELS]\n";
    return 2;
}
