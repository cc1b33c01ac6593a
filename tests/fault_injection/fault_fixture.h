// SPDX-License-Identifier: Apache-2.0
//
// The fixture of the fault tests: a sweep whose undisturbed result is known, and processes in which things may be
// taken away for good.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <streambuf>
#include <string>
#include <vector>

#include "support/rendered_sweep.h"
#include "support/worker_stepper.h"

namespace tarn::test {

/// A stream buffer that drops everything, from any thread.
class no_output : public std::streambuf {
    int overflow(int character) override
    {
        return character;
    }

    std::streamsize xsputn(const char* /*text*/, std::streamsize length) override
    {
        return length;
    }
};

class fault_fixture : public worker_fixture {
protected:
    static const std::vector<cv::Mat>& frames()
    {
        static const std::vector<cv::Mat> rendered = [] {
            const rendered_sweep sweep = slide(cv::Size(320, 240), moving_right, 24.0, 15);
            std::vector<cv::Mat> result;
            for (int i = 0; i < sweep.length(); ++i) {
                result.push_back(sweep.host_frame(i));
            }
            return result;
        }();
        return rendered;
    }

    /// Frame `i`; the last one ends the sweep. Answers the code.
    static int feed(std::size_t i)
    {
        return videoStitch(frames()[i], moving_right, i + 1 == frames().size() ? 1 : 0)[0];
    }

    /// Resets to `path` and runs a whole sweep there: the bytes of its panorama, none when it fails.
    std::vector<unsigned char> whole_sweep(const std::string& path)
    {
        resetStitch(path.c_str());
        bool accepted = true;
        for (std::size_t i = 0; i < frames().size(); ++i) {
            accepted = feed(i) > 0 && accepted;
        }
        wait_for_workers();
        take_output();
        const std::string panorama = getCurrentPanoramaShow();
        return accepted && !panorama.empty() ? bytes_of(panorama) : std::vector<unsigned char>();
    }
};

/// For code in a process of its own: ends it with a message unless `holds`. What it has in the temporary directory
/// stays, to be looked at.
inline void require(bool holds, const std::string& what)
{
    if (!holds) {
        std::fprintf(stderr, "not so: %s\n", what.c_str());
        std::_Exit(1);
    }
}

}  // namespace tarn::test

/// Runs `body` (a callable) in a fresh process, which is this test started again up to here, and fails unless it comes
/// to its end. What the body changes in its process ends with it. For tests of this fixture, whose TearDown it calls.
#define TARN_EXPECT_IN_OWN_PROCESS(body)                                                                               \
    GTEST_FLAG_SET(death_test_style, "threadsafe");                                                                    \
    EXPECT_EXIT(                                                                                                       \
        {                                                                                                              \
            (body)();                                                                                                  \
            TearDown();                                                                                                \
            std::_Exit(0);                                                                                             \
        },                                                                                                             \
        ::testing::ExitedWithCode(0), "")
