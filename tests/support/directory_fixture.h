// SPDX-License-Identifier: Apache-2.0
//
// A private directory for each test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

namespace tarn::test {

/// Makes an empty directory of the test's own before it, and removes it with all that is in it.
class directory_fixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        namespace fs = std::filesystem;
        std::string pattern = (fs::temp_directory_path() / "tarnstitch_test_XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr) << pattern;
        directory_ = pattern;
    }

    void TearDown() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }

    /// A path below the directory; no trailing "/".
    std::string at(const std::string& name) const
    {
        return (directory_ / name).string();
    }

    std::filesystem::path directory_;
};

}  // namespace tarn::test
