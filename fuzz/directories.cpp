// SPDX-License-Identifier: Apache-2.0
//
// Emptying and removing working directories, on any tree: long names, links in and out, loops of links, pipes,
// devices, hard links, missing permissions. A model says what must be gone afterwards and what must stay; what
// lies outside must be exactly as before.
#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vector>

#include "input_bytes.h"
#include "private_directory.h"
#include "target.h"
#include "tarn_stitch_jni.h"

using namespace tarn::fuzz;  // NOLINT(google-build-using-namespace): the targets' own helpers

namespace {

constexpr int most_entries = 60;
constexpr int greatest_depth = 12;
constexpr uid_t ordinary_user = 65534;

enum class kind { file, directory, left_alone };

struct entry {
    std::string name;
    kind what = kind::file;
    mode_t mode = 0700;
    std::vector<entry> below;
};

/// Whose permissions count: root passes all of them.
bool permissions_count = false;

std::string any_name(input_bytes& input)
{
    const std::uint8_t how = input.byte();
    std::string name = input.text(how < 32 ? 255 : 12);
    std::replace(name.begin(), name.end(), '/', '_');
    if (how % 8 == 0) {
        name.resize(static_cast<std::size_t>(input.integer(1, 255)), static_cast<char>('a' + how % 26));
    }
    return name.empty() || name == "." || name == ".." ? "entry" + std::to_string(how) : name;
}

/// Makes entries below an open directory; the permissions come later, from the leaves up.
void make_entries(input_bytes& input, int directory, std::vector<entry>& made, int depth, int& left)
{
    const int count = input.integer(0, 9);
    for (int i = 0; i < count && left > 0 && !input.at_end(); ++i, --left) {
        entry next;
        next.name = any_name(input);
        const char* name = next.name.c_str();
        bool succeeded = false;
        switch (input.byte() % 12) {
        case 0:
        case 1:
        case 2:
        case 3: {
            const int file = openat(directory, name, O_WRONLY | O_CREAT | O_EXCL, 0600);
            succeeded = file >= 0;
            close(file);
            break;
        }
        case 4:
        case 5:
        case 6:
        case 7: {
            next.what = kind::directory;
            static constexpr mode_t modes[] = {0700, 0700, 0700, 0500, 0300, 0600, 0100, 0000};
            next.mode = modes[input.byte() % 8];
            succeeded = mkdirat(directory, name, 0700) == 0;
            if (succeeded && depth < greatest_depth) {
                const int inside = openat(directory, name, O_RDONLY | O_DIRECTORY);
                make_entries(input, inside, next.below, depth + 1, left);
                close(inside);
            }
            break;
        }
        case 8: {
            next.what = kind::left_alone;
            static const std::vector<std::string> targets = {".",
                                                             "..",
                                                             "../..",
                                                             "/",
                                                             "missing",
                                                             private_directory() + "outside",
                                                             private_directory() + "outside/file",
                                                             private_directory() + "work/sweep"};
            const auto target = static_cast<std::size_t>(input.byte()) % (targets.size() + 1);
            // The last kind is a link to itself.
            succeeded = symlinkat(target < targets.size() ? targets[target].c_str() : name, directory, name) == 0;
            break;
        }
        case 9:
            next.what = kind::left_alone;
            succeeded = mkfifoat(directory, name, 0600) == 0;
            break;
        case 10:
            // A device without effect: the null device. Only root can make one.
            next.what = kind::left_alone;
            succeeded = mknodat(directory, name, S_IFCHR | 0600, makedev(1, 3)) == 0;
            break;
        default:
            succeeded = linkat(AT_FDCWD, (private_directory() + "outside/file").c_str(), directory, name, 0) == 0;
            break;
        }
        if (succeeded) {
            made.push_back(next);
        }
    }
}

void set_permissions(int directory, const std::vector<entry>& entries)
{
    for (const entry& one : entries) {
        if (one.what == kind::directory) {
            const int inside = openat(directory, one.name.c_str(), O_RDONLY | O_DIRECTORY);
            set_permissions(inside, one.below);
            fchmod(inside, one.mode);
            close(inside);
        }
    }
}

bool allows(mode_t mode, mode_t bit)
{
    return !permissions_count || (mode & bit) != 0;
}

/// What must be left of the entries of a directory with the given permissions.
std::vector<entry> model_of_emptying(const std::vector<entry>& entries, mode_t mode)
{
    if (!allows(mode, S_IRUSR) || !allows(mode, S_IXUSR)) {
        return entries;  // cannot be listed, or nothing in it be reached
    }
    std::vector<entry> left;
    for (entry one : entries) {
        if (one.what == kind::directory) {
            one.below = model_of_emptying(one.below, one.mode);
        }
        const bool must_go = one.what != kind::left_alone && one.below.empty();
        if (!must_go || !allows(mode, S_IWUSR)) {
            left.push_back(one);
        }
    }
    return left;
}

/// One line per entry that the model says is there.
void describe(const std::vector<entry>& entries, const std::string& above, std::vector<std::string>& lines)
{
    for (const entry& one : entries) {
        lines.push_back(above + one.name);
        describe(one.below, above + one.name + "/", lines);
    }
}

/// The same of what is really there; opens the directories' permissions up.
void list(int directory, const std::string& above, std::vector<std::string>& lines)
{
    DIR* stream = fdopendir(directory);
    check(stream != nullptr, "a directory can be listed");
    while (const dirent* found = readdir(stream)) {
        const std::string name = found->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        lines.push_back(above + name);

        struct stat status {};

        fstatat(dirfd(stream), name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
        if (S_ISDIR(status.st_mode)) {
            fchmodat(dirfd(stream), name.c_str(), 0700, 0);
            list(openat(dirfd(stream), name.c_str(), O_RDONLY | O_DIRECTORY), above + name + "/", lines);
        }
    }
    closedir(stream);
}

std::string joined_by_definition(const std::string& path, const std::string& name)
{
    return path.empty() || path.back() != '/' ? path + "/" + name : path + name;
}

void check_path(input_bytes& input)
{
    const std::string path = input.text(255);
    const std::string name = input.text(255);
    std::vector<char> buffer(path.size() + name.size() + 2, '#');
    getFilePath(path.c_str(), name.c_str(), buffer.data());
    check(buffer.data() == joined_by_definition(path, name), "getFilePath");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    chmod(private_directory().c_str(), 0777);
    if (geteuid() == 0) {
        // What root does, an ordinary user's permissions would stop: both are tried.
        check(chown(private_directory().c_str(), ordinary_user, ordinary_user) == 0, "chown");
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    input_bytes input(data, size);
    const std::uint8_t what = input.byte();
    check_path(input);

    const bool may_change_user = geteuid() == 0;
    const bool as_ordinary_user = may_change_user && (what & 1) != 0;
    const std::string work = private_directory() + "work";
    const std::string outside = private_directory() + "outside";
    if (as_ordinary_user) {
        check(seteuid(ordinary_user) == 0, "seteuid");
    }
    permissions_count = geteuid() != 0;
    mkdir(outside.c_str(), 0700);
    mkdir((outside + "/sub").c_str(), 0700);
    const int file = open((outside + "/file").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    check(write(file, "precious", 8) == 8, "the file outside");
    close(file);
    mkdir(work.c_str(), 0700);
    mkdir((work + "/sweep").c_str(), 0700);
    const int neighbour = open((work + "/sweep2").c_str(), O_WRONLY | O_CREAT, 0600);
    close(neighbour);

    std::vector<entry> tree;
    int left = most_entries;
    const int top = open((work + "/sweep").c_str(), O_RDONLY | O_DIRECTORY);
    make_entries(input, top, tree, 0, left);
    set_permissions(top, tree);
    close(top);
    const std::string outside_before = description_of_tree(outside);
    const int descriptor_before = dup(0);
    close(descriptor_before);

    const std::vector<entry> expected = model_of_emptying(tree, 0700);
    const std::string path = work + ((what & 2) != 0 ? "/sweep/" : "/sweep");
    bool may_be_removed = false;
    switch (what / 4 % 4) {
    case 0:
        deleteFile(path.c_str());
        break;
    case 1:
        tarn_stitcher.local_path = path;
        tarn_stitcher.remove_local_path();
        tarn_stitcher.local_path.clear();
        may_be_removed = true;
        break;
    case 2:
        check(resetStitch(path.c_str()) == 1, "resetStitch answers 1");
        tarn_stitcher.local_path.clear();  // or the next reset would remove it
        break;
    default:
        check(resetStitch(path.c_str()) == 1, "resetStitch answers 1");
        check(resetStitch("") == 1, "resetStitch answers 1");
        may_be_removed = true;
        break;
    }

    const int descriptor_after = dup(0);
    close(descriptor_after);
    check(descriptor_after == descriptor_before, "every descriptor is closed again");
    const bool is_there = access(path.c_str(), F_OK) == 0;
    check(isFloderexit(path.c_str()) == is_there, "isFloderexit");
    check(is_there == !(may_be_removed && expected.empty()), "the directory itself goes when it must");
    std::vector<std::string> expected_lines;
    std::vector<std::string> lines;
    describe(expected, "", expected_lines);
    if (is_there) {
        list(open(path.c_str(), O_RDONLY | O_DIRECTORY), "", lines);
    }
    std::sort(expected_lines.begin(), expected_lines.end());
    std::sort(lines.begin(), lines.end());
    check(lines == expected_lines, "what must go is gone, and nothing else");
    check(access((work + "/sweep2").c_str(), F_OK) == 0, "the neighbour stays");
    // A hard link more or less to the file outside does not show.
    check(description_of_tree(outside) == outside_before, "nothing outside is touched");

    if (may_change_user) {
        check(seteuid(0) == 0, "seteuid back");
    }
    remove_tree(work);
    remove_tree(outside);
    return 0;
}
