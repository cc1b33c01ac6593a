// SPDX-License-Identifier: Apache-2.0
#include "resources.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <unistd.h>

namespace tarn::test {

namespace {

int entries_of(const char* directory)
{
    std::error_code error;
    int count = 0;
    for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        ++count;
    }
    return count;
}

}  // namespace

resources resources_now()
{
    constexpr double mebibyte = 1048576.0;
    resources now;
    unsigned long all_pages = 0;
    unsigned long resident_pages = 0;
    std::ifstream("/proc/self/statm") >> all_pages >> resident_pages;
    now.resident = static_cast<double>(resident_pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / mebibyte;
    now.threads = entries_of("/proc/self/task");
    now.descriptors = entries_of("/proc/self/fd");
    return now;
}

std::string text_of(const resources& held)
{
    char text[80];
    std::snprintf(text, sizeof text, "%.1f MiB, %d threads, %d descriptors", held.resident, held.threads,
                  held.descriptors);
    return text;
}

}  // namespace tarn::test
