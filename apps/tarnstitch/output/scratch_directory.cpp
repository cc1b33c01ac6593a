// SPDX-License-Identifier: Apache-2.0
//
// The private temporary directory: made with mkdtemp, removed with all that is in it.
#include "scratch_directory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "host_error.h"
#include "interruption.h"

namespace tarn::host {

std::string temporary_parent()
{
    const char* const named = std::getenv("TMPDIR");
    return (named != nullptr && *named != '\0') ? named : "/tmp";
}

scratch_directory::scratch_directory()
{
    const std::string parent = temporary_parent();
    std::error_code absolute_error;
    std::string made = (std::filesystem::absolute(parent, absolute_error) / "tarnstitch-XXXXXX").string();

    interruption_hold hold;
    if (absolute_error || mkdtemp(made.data()) == nullptr) {
        throw host_error(exit_code::output_failed, "cannot make a temporary directory in " + parent + ": "
                                                       + std::generic_category().message(errno));
    }
    path_ = made + "/";
    hold.remove_when_interrupted(made);
}

scratch_directory::~scratch_directory()
{
    const std::string made = path_.substr(0, path_.size() - 1);
    interruption_hold hold;
    std::error_code ignored;
    std::filesystem::remove_all(made, ignored);
    hold.keep_when_interrupted(made);
}

std::vector<std::filesystem::path> entries_of(const std::filesystem::path& directory)
{
    std::vector<std::filesystem::path> paths;
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        paths.push_back(entry->path());
    }
    return paths;
}

}  // namespace tarn::host
