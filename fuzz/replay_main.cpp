// SPDX-License-Identifier: Apache-2.0
//
// Runs a fuzz target once on each file that the arguments name, or that lies in a directory that they name, in the
// order of the names. For compilers without libFuzzer, and for the ordinary tests. With --changes=N each file is run N
// times more, each time changed in some places: a short fuzzing, of the same inputs on each machine unless TARN_TEST_SEED
// is another. N is multiplied by TARN_TEST_SCALE.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/stitcher_fixture.h"
#include "target.h"

namespace fs = std::filesystem;

namespace {

using byte_vector = std::vector<char>;

/// Changes bytes, or a stretch of them: to others, to what numbers tend to break at, to a copy of another stretch; or
/// takes it out, or all behind it.
void change(byte_vector& bytes, std::mt19937& random)
{
    const auto below = [&random](std::size_t limit) { return limit == 0 ? 0 : random() % limit; };
    constexpr std::size_t most_changes = 6;
    for (std::size_t left = 1 + below(most_changes); left > 0 && !bytes.empty(); --left) {
        const std::size_t at = below(bytes.size());
        const std::size_t length = std::min(1 + below(std::size_t{1} << below(7)), bytes.size() - at);
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        const auto last = first + static_cast<std::ptrdiff_t>(length);
        switch (below(16)) {
        case 0:
            bytes.erase(first, last);
            break;
        case 1:
            bytes.erase(last, bytes.end());
            break;
        case 2:
        case 3: {
            const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(below(bytes.size() - length + 1));
            const byte_vector copy(from, from + static_cast<std::ptrdiff_t>(length));
            std::copy(copy.begin(), copy.end(), first);
            break;
        }
        case 4:
        case 5:
        case 6: {
            constexpr std::string_view edges("\x00\x01\x7f\x80\xfe\xff", 6);
            std::fill(first, last, edges[below(edges.size())]);
            break;
        }
        case 7:
        case 8:
            std::generate(first, last, [&random] { return static_cast<char>(random()); });
            break;
        default:
            *first = static_cast<char>(*first ^ (1 << below(8)));
        }
    }
}

void run(const byte_vector& bytes)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    constexpr std::string_view changes_option = "--changes=";
    int changes = 0;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]).substr(0, changes_option.size()) == changes_option) {
            changes = tarn::test::scaled_count(std::atoi(argv[i] + changes_option.size()), 0);
        } else if (!fs::is_directory(argv[i])) {
            files.emplace_back(argv[i]);
        } else {
            for (const auto& entry : fs::directory_iterator(argv[i])) {
                files.push_back(entry.path().string());
            }
        }
    }
    std::sort(files.begin(), files.end());
    const char* const asked = std::getenv("TARN_TEST_SEED");
    const auto seed = static_cast<std::mt19937::result_type>(asked == nullptr ? 1 : std::atoll(asked));
    for (const std::string& file : files) {
        std::ifstream stream(file, std::ios::binary);
        if (!stream) {
            std::cerr << "cannot read " << file << "\n";
            return 1;
        }
        const byte_vector bytes{std::istreambuf_iterator<char>(stream), {}};
        std::cerr << file << ": " << bytes.size() << " bytes\n";
        run(bytes);
        std::mt19937 random(seed);
        for (int i = 1; i <= changes; ++i) {
            byte_vector changed = bytes;
            change(changed, random);
            std::cerr << "  change " << i << " with TARN_TEST_SEED=" << seed << "\n";
            run(changed);
        }
    }
    std::cerr << files.size() << " inputs replayed, each changed " << changes << " times\n";
    return files.empty() ? 1 : 0;
}
