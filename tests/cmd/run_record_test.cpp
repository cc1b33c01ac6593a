// SPDX-License-Identifier: Apache-2.0
//
// What is noted of input files while a sweep goes on: the content that was read, and nothing of one that was not.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

#include "interruption.h"
#include "run_record.h"
#include "support/directory_fixture.h"

using namespace tarn::host;
namespace fs = std::filesystem;

namespace {

// Of "abc", as the standard has it, and of nothing.
constexpr const char* digest_of_abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr const char* digest_of_nothing = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr std::uintmax_t takes_an_hour = std::uintmax_t{1} << 40;  // bytes, none of which takes room on the disk

class InputIdentities : public tarn::test::directory_fixture {
protected:
    std::string file_of(const std::string& name, const std::string& content) const
    {
        std::ofstream(at(name), std::ios::binary) << content;
        return at(name);
    }

    /// @returns "" where the file system has none that large
    std::string endless_file() const
    {
        const std::string file = file_of("endless", "");
        std::error_code error;
        fs::resize_file(file, takes_an_hour, error);
        return error ? "" : file;
    }
};

using InputIdentitiesDeathTest = InputIdentities;

}  // namespace

TEST_F(InputIdentities, AreSizeAndDigestHoweverTheyAreRead)
{
    const std::vector<std::string> files = {file_of("a", "abc"), file_of("b", ""), at("none"), at("")};
    for (const bool beside : {false, true}) {
        input_identities identities;
        identities.look_at({files[0], "camera:0"});
        identities.begin(files, beside);
        std::vector<std::string> changed;
        const std::vector<file_identity> taken = identities.take(changed);
        ASSERT_EQ(taken.size(), files.size());
        EXPECT_EQ(taken[0].bytes, 3);
        EXPECT_EQ(taken[0].sha256, digest_of_abc);
        EXPECT_GT(taken[0].modified, 0);
        EXPECT_EQ(taken[1].bytes, 0);
        EXPECT_EQ(taken[1].sha256, digest_of_nothing);
        for (const std::size_t without : {2U, 3U}) {
            EXPECT_EQ(taken[without].file, files[without]);
            EXPECT_LT(taken[without].bytes, 0);
            EXPECT_EQ(taken[without].sha256, "");
        }
        EXPECT_TRUE(changed.empty());
    }
}

TEST_F(InputIdentities, TellOfAFileThatWasChangedMeanwhile)
{
    for (const bool beside : {false, true}) {
        for (const bool before_it_is_opened : {false, true}) {
            const std::string changing = file_of("changing", "abc");
            const std::string steady = file_of("steady", "abc");
            input_identities identities;
            identities.look_at({changing, steady});
            if (before_it_is_opened) {
                file_of("changing", "another");
            }
            identities.begin({changing, steady}, beside);
            if (!before_it_is_opened) {
                file_of("changing", "another");
            }
            std::vector<std::string> changed;
            const std::vector<file_identity> taken = identities.take(changed);
            EXPECT_EQ(changed, std::vector<std::string>{changing});
            EXPECT_EQ(taken[0].bytes, 3);
            EXPECT_EQ(taken[0].sha256, "");
            EXPECT_EQ(taken[1].sha256, digest_of_abc);
        }
    }
}

TEST_F(InputIdentities, AreLeftAtOnceWhenNobodyAsksForThem)
{
    const std::string file = endless_file();
    if (file.empty()) {
        GTEST_SKIP() << "there are no files as large";
    }
    input_identities identities;
    identities.begin({file}, true);
}

TEST_F(InputIdentitiesDeathTest, AreCutShortByAStop)
{
    const std::string file = endless_file();
    if (file.empty()) {
        GTEST_SKIP() << "there are no files as large";
    }
    const std::string small = file_of("small", "abc");
    for (const bool beside : {false, true}) {
        EXPECT_EXIT(
            {
                input_identities identities;
                identities.begin({file, small}, beside);
                ask_to_stop(stop_kind::interrupted);
                std::vector<std::string> changed;
                const std::vector<file_identity> taken = identities.take(changed);
                const bool ended = taken[0].sha256.empty() && taken[0].bytes > 0 && taken[1].sha256.empty();
                std::_Exit(ended && changed.empty() ? 0 : 1);
            },
            testing::ExitedWithCode(0), "");
    }
}
