// Files for a test on the host: drives, shares and links beside its directory; a small file system; an ordinary user;
// files and searches of the layer.
#pragma once

#include <sys/mount.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "support/process.h"
#include "support/results.h"
#include "support/scratch.h"
#include "support/text.h"

namespace zu_test {

// The test's directory, with more drives and links.
class file_place : public scratch {
public:
    std::string host_path(std::string_view relative = "") const { return at(relative); }

    // Letter to directory, and \\server\share to directory; an empty directory takes the mapping away.
    void map_drive(char letter, const std::string& directory) const;
    void map_share(const std::string& server, const std::string& share, const std::string& directory) const;
    void make_link(std::string_view relative, const std::string& target) const; // as the link spells it
};

// For tests with a place of their own.
struct file_test : testing::Test {
    const file_place place{};
};

// A file of the layer, closed at the end of the scope.
class layer_file {
public:
    layer_file(const std::u16string& path, uint32_t access, uint32_t disposition, uint32_t share = 0,
               uint32_t flags = FILE_ATTRIBUTE_NORMAL);
    ~layer_file() { close(); }
    layer_file(const layer_file&) = delete;
    layer_file& operator=(const layer_file&) = delete;

    void close();
    operator platform::HANDLE() const { return handle_; }

    uint32_t code; // what opening has set: also in a success, where it is 0, or 183 for a file that was there

private:
    platform::HANDLE handle_;
};

// The names that a search of the layer finds, in its order, and the last code.
struct listing {
    uint32_t code = 0;
    std::vector<std::u16string> names;
    std::map<std::u16string, WIN32_FIND_DATAW> entries;
};
listing list(const std::u16string& pattern);

// A file system of `bytes` in memory, mounted on a directory until the end of the scope. Needs root.
class small_file_system {
public:
    small_file_system(const std::string& directory, uint64_t bytes);
    ~small_file_system() { umount2(directory_.c_str(), MNT_DETACH); }
    small_file_system(const small_file_system&) = delete;
    small_file_system& operator=(const small_file_system&) = delete;
    bool mounted() const { return mounted_; }
    bool remount_read_only() const;

private:
    std::string directory_;
    bool mounted_;
};

inline bool is_root() {
    return geteuid() == 0;
}

// Gives up root for good, if the process has it: from here on it is an ordinary user, without further groups.
void become_ordinary_user();

// run_child with become_ordinary_user in front. Failed expectations inside must be reported through the exit code or
// the output: they belong to the child.
outcome run_as_ordinary_user(const std::function<void()>& body);

// Runs a test's body here and in a child that is an ordinary user, each in a place of its own. Failed expectations of
// the child count as one here, with its output.
void as_both_users(const std::function<void(const file_place&)>& body);

} // namespace zu_test
