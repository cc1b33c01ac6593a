// SPDX-License-Identifier: Apache-2.0
//
// Files by their digests, and the comparison of what is with what a record says.
#include "run_record.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <new>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/sha.h>
}

#include "interruption.h"
#include "output_names.h"
#include "scratch_directory.h"
#include "summary.h"

namespace fs = std::filesystem;

namespace tarn::host {

namespace {

using nlohmann::ordered_json;

constexpr int digest_bits = 256;

/// The SHA-256 of a file's content; "" if it is no regular file, cannot be read to its end, or is not to be.
std::string digest_of(
    const std::string& path, const std::function<bool()>& goes_on = [] { return true; })
{
    const std::unique_ptr<AVSHA, void (*)(void*)> state(av_sha_alloc(), av_free);
    if (!state) {
        throw std::bad_alloc();
    }
    av_sha_init(state.get(), digest_bits);
    constexpr std::size_t block_size = 1 << 16;
    std::vector<std::uint8_t> block(block_size);
    // Without waiting for a pipe that has taken the file's place.
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status = {};
    ssize_t size = descriptor != -1 && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? 1 : -1;
    while (size > 0 && goes_on()) {
        size = read(descriptor, block.data(), block.size());
        if (size > 0) {
            av_sha_update(state.get(), block.data(), static_cast<std::size_t>(size));
        }
    }
    if (descriptor != -1) {
        close(descriptor);
    }
    if (size != 0) {
        return "";
    }
    std::array<std::uint8_t, digest_bits / 8> digest{};
    av_sha_final(state.get(), digest.data());
    std::string text;
    for (const std::uint8_t byte : digest) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned>(byte));
        text += digits.data();
    }
    return text;
}

/// All but the digest.
file_identity seen(const std::string& what, const std::string& file)
{
    file_identity identity = {what, file};
    struct stat status = {};
    if (stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
        constexpr std::int64_t nanoseconds = 1'000'000'000;
        identity.bytes = status.st_size;
#ifdef __APPLE__
        const timespec& modified = status.st_mtimespec;
        const timespec& changed = status.st_ctimespec;
#else
        const timespec& modified = status.st_mtim;
        const timespec& changed = status.st_ctim;
#endif
        identity.modified = modified.tv_sec * nanoseconds + modified.tv_nsec;
        identity.changed = changed.tv_sec * nanoseconds + changed.tv_nsec;
    }
    return identity;
}

file_identity read_through(const std::string& what, const std::string& file)
{
    file_identity identity = seen(what, file);
    identity.sha256 = identity.bytes < 0 ? "" : digest_of(file);
    return identity;
}

bool is_as_it_was(const file_identity& before)
{
    const file_identity now = seen("", before.file);
    return now.bytes == before.bytes && now.modified == before.modified;
}

bool is_same_input(const ordered_json& recorded, const std::vector<std::string>& files)
{
    if (recorded.size() != files.size()) {
        return false;
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        const file_identity now = seen("", files[i]);
        const ordered_json& then = recorded[i];
        if (now.bytes < 0 || then.at("sha256").is_null() || now.bytes != then.at("bytes")) {
            return false;
        }
        // Under another name size and time prove nothing: archives and memory cards give many files the same.
        const bool is_untouched =
            then.at("file") == files[i] && now.modified == then.at("modified") && now.changed == then.at("changed");
        if (!is_untouched && digest_of(files[i]) != then.at("sha256")) {
            return false;
        }
    }
    return true;
}

/// Outputs may have been moved together with their record: it is their content that counts.
bool is_same(const ordered_json& then, const file_identity& now)
{
    return !now.sha256.empty() && then.at("what") == now.what && then.at("sha256") == now.sha256;
}

bool are_same_outputs(const ordered_json& recorded, const std::vector<file_identity>& outputs)
{
    return recorded.size() == outputs.size() && std::equal(recorded.begin(), recorded.end(), outputs.begin(), is_same);
}

/// The record beside a panorama; null if there is none. @throws ordered_json::exception for one that cannot be read
ordered_json record_of(const std::string& panorama)
{
    const std::string place = record_place(panorama);
    if (seen("", place).bytes < 0) {
        return nullptr;
    }
    std::ifstream file(place, std::ios::binary);
    return ordered_json::parse(file);
}

/// The outputs that a run to the end leaves.
std::vector<file_identity> all_outputs(const options& asked, const std::string& panorama)
{
    std::vector<file_identity> outputs =
        outputs_of(asked, panorama, asked.preview, asked.finish ? name_of_finished_picture(asked) : "");
    if (!asked.report.empty()) {
        outputs.push_back(identity_of_report(asked.report));
    }
    return outputs;
}

}  // namespace

input_identities::~input_identities()
{
    left_ = true;
    if (reader_.joinable()) {
        reader_.join();
    }
}

void input_identities::look_at(const std::vector<std::string>& names)
{
    for (const std::string& name : names) {
        looked_at_.push_back(seen("", name));
    }
}

void input_identities::begin(const std::vector<std::string>& files, bool beside)
{
    for (const std::string& file : files) {
        const auto before = std::find_if(looked_at_.begin(), looked_at_.end(),
                                         [&file](const file_identity& one) { return one.file == file; });
        files_.push_back(before != looked_at_.end() ? *before : seen("", file));
    }
    if (beside) {
        try {
            reader_ = std::thread([this] { read(); });
        } catch (const std::system_error&) {
            // There is none to be had: they are read when they are asked for.
        }
    }
}

void input_identities::read()
{
    const auto goes_on = [this] { return !left_ && stop_asked_for() == stop_kind::none; };
    for (file_identity& file : files_) {
        try {
            const bool is_there = file.bytes >= 0 && is_as_it_was(file);
            file.sha256 = is_there && goes_on() ? digest_of(file.file, goes_on) : "";
        } catch (const std::bad_alloc&) {
            file.sha256.clear();  // the sweep is worth more
        }
    }
}

std::vector<file_identity> input_identities::take(std::vector<std::string>& changed)
{
    if (reader_.joinable()) {
        reader_.join();
    } else {
        read();
    }
    for (file_identity& file : files_) {
        if (!is_as_it_was(file)) {
            file.sha256.clear();
            changed.push_back(file.file);
        }
    }
    return files_;
}

std::vector<file_identity> outputs_of(const options& asked, const std::string& panorama, const std::string& preview,
                                      const std::string& finished)
{
    std::vector<file_identity> outputs;
    const std::array<std::array<std::string, 2>, 5> named = {{{"panorama", panorama},
                                                              {"preview", preview},
                                                              {"finished", finished},
                                                              {"frames", asked.frames},
                                                              {"log", asked.log}}};
    for (const auto& [what, file] : named) {
        if (!file.empty()) {
            outputs.push_back(read_through(what, file));
        }
    }
    if (!asked.keep_work.empty()) {
        std::vector<fs::path> kept = entries_of(asked.keep_work);
        std::sort(kept.begin(), kept.end());
        for (const fs::path& file : kept) {
            if (is_working_name(file.filename().string())) {
                outputs.push_back(read_through("working file", file.string()));
            }
        }
    }
    return outputs;
}

file_identity identity_of_report(const std::string& file)
{
    return read_through("report", file);
}

std::vector<std::string> outputs_of_earlier_run(const std::string& panorama)
{
    std::vector<std::string> outputs;
    try {
        const ordered_json recorded = record_of(panorama);
        for (const ordered_json& one : recorded.is_null() ? ordered_json::array() : recorded.at("outputs")) {
            const std::string file = one.at("file");
            // They may have been moved together, or be seen from another directory now.
            const std::string beside = (fs::path(panorama).parent_path() / fs::path(file).filename()).string();
            for (const std::string& place : {file, beside}) {
                if (const std::string digest = digest_of(place); !digest.empty() && one.at("sha256") == digest) {
                    outputs.push_back(place);
                }
            }
        }
    } catch (const ordered_json::exception&) {
        outputs.clear();  // it is not one of ours
    }
    return outputs;
}

bool is_done(const options& asked, const std::string& panorama, const std::vector<std::string>& input_files,
             std::string& record)
{
    try {
        ordered_json recorded = record_of(panorama);
        if (recorded.is_null()) {
            return false;
        }
        const ordered_json versions = versions_as_json();
        const bool of_this =
            std::all_of(versions.items().begin(), versions.items().end(),
                        [&recorded](const auto& one) { return recorded.at(one.key()) == one.value(); });
        if (!of_this || recorded.at("exit_code") != 0 || recorded.at("options") != options_as_json(asked)
            || !is_same_input(recorded.at("input").at("files"), input_files)
            || !are_same_outputs(recorded.at("outputs"), all_outputs(asked, panorama))) {
            return false;
        }
        recorded["skipped"] = true;
        record = as_text(recorded);
        return true;
    } catch (const ordered_json::exception&) {
        return false;  // it is not one of ours
    }
}

}  // namespace tarn::host
