#include "support/files.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdio>
#include <utility>

namespace zu_test {

namespace {

constexpr uid_t ordinary_user = 12345;

void set_link(const std::string& link, const std::string& target) {
    unlink(link.c_str());
    if (!target.empty())
        must(symlink(target.c_str(), link.c_str()) == 0, "symlink", link);
}

} // namespace

void file_place::map_drive(char letter, const std::string& directory) const {
    const char name[] = {static_cast<char>(letter | 0x20), ':', 0};
    set_link(host_path("../host/drives/") + name, directory);
}

void file_place::map_share(const std::string& server, const std::string& share,
                           const std::string& directory) const {
    const std::string folder = host_path("../host/drives/unc/" + server);
    mkdir(folder.c_str(), 0777);
    set_link(folder + "/" + share, directory);
}

void file_place::make_link(std::string_view relative, const std::string& target) const {
    set_link(host_path(relative), target);
}

layer_file::layer_file(const std::u16string& path, uint32_t access, uint32_t disposition, uint32_t share,
                       uint32_t flags) {
    SetLastError(0xABCD);
    handle_ = platform::CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr);
    code = GetLastError();
    EXPECT_EQ(handle_ != INVALID_HANDLE_VALUE, code == codes::none || code == codes::already_exists)
        << code << ' ' << narrow(path);
}

void layer_file::close() {
    EXPECT_TRUE(handle_ == INVALID_HANDLE_VALUE || platform::CloseHandle(handle_));
    handle_ = INVALID_HANDLE_VALUE;
}

listing list(const std::u16string& pattern) {
    listing out;
    WIN32_FIND_DATAW found;
    const platform::HANDLE search = platform::FindFirstFileW(pattern.c_str(), &found);
    for (bool more = search != INVALID_HANDLE_VALUE; more; more = platform::FindNextFileW(search, &found)) {
        out.names.push_back(found.cFileName);
        out.entries[out.names.back()] = found;
    }
    out.code = GetLastError();
    EXPECT_TRUE(search == INVALID_HANDLE_VALUE || platform::FindClose(search));
    return out;
}

small_file_system::small_file_system(const std::string& directory, uint64_t bytes) : directory_(directory) {
    const std::string options = "mode=0777,size=" + std::to_string(bytes);
    mounted_ = mount("zu-test", directory.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

bool small_file_system::remount_read_only() const {
    return mount("zu-test", directory_.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

void become_ordinary_user() {
    if (is_root())
        must(setgroups(0, nullptr) == 0 && setresgid(ordinary_user, ordinary_user, ordinary_user) == 0
                 && setresuid(ordinary_user, ordinary_user, ordinary_user) == 0,
             "giving up root", "");
}

outcome run_as_ordinary_user(const std::function<void()>& body) {
    return run_child([&] {
        become_ordinary_user();
        body();
    });
}

void as_both_users(const std::function<void(const file_place&)>& body) {
    body(file_place());
    const outcome other = run_as_ordinary_user([&] {
        body(file_place());
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure());
    });
    EXPECT_EQ(other.exit_code, 0) << "as an ordinary user: " << other.output;
}

} // namespace zu_test
