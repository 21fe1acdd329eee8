#include "support/files.h"

#include <fcntl.h>
#include <ftw.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include "zu/zu.h"

namespace zu_test {

namespace {

constexpr uid_t ordinary_user = 12345;

void must(bool condition, const char* what, const std::string& path) {
    if (condition)
        return;
    std::fprintf(stderr, "test set-up failed: %s: %s: %s\n", what, path.c_str(), std::strerror(errno));
    std::abort();
}

// Directories that a test closed are opened again first, on the way down.
int open_directory(const char* path, const struct stat*, int kind, struct FTW*) {
    if (kind == FTW_D || kind == FTW_DNR)
        chmod(path, 0777);
    return 0;
}

void remove_tree(const std::string& top) {
    nftw(top.c_str(), open_directory, 16, FTW_PHYS);
    std::error_code ignored;
    std::filesystem::remove_all(top, ignored); // however long its paths are
}

void make_open_directory(const std::string& path) {
    must(mkdir(path.c_str(), 0777) == 0 && chmod(path.c_str(), 0777) == 0, "mkdir", path);
}

void set_link(const std::string& link, const std::string& target) {
    unlink(link.c_str());
    if (!target.empty())
        must(symlink(target.c_str(), link.c_str()) == 0, "symlink", link);
}

} // namespace

uint32_t code_after(int result) {
    return result ? 0 : GetLastError();
}

std::u16string wide(std::string_view utf8) {
    std::u16string out;
    for (size_t i = 0; i < utf8.size();) {
        const auto lead = static_cast<unsigned char>(utf8[i++]);
        int more = lead < 0xC0 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        char32_t c = more == 0 ? lead : lead & (0x3Fu >> more);
        for (; more > 0 && i < utf8.size(); --more)
            c = c << 6 | (static_cast<unsigned char>(utf8[i++]) & 0x3Fu);
        if (c >= 0x10000) {
            out += static_cast<char16_t>(0xD7C0 + (c >> 10));
            out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
    }
    return out;
}

std::string narrow(std::u16string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if ((c & 0xFC00) == 0xD800 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00)
            c = 0x10000 + ((c & 0x3FF) << 10) + (text[++i] & 0x3FF);
        const int more = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
        const char32_t lead[] = {0, 0xC0, 0xE0, 0xF0};
        out += static_cast<char>(lead[more] | c >> (6 * more));
        for (int shift = 6 * (more - 1); shift >= 0; shift -= 6)
            out += static_cast<char>(0x80 | (c >> shift & 0x3F));
    }
    return out;
}

file_place::file_place() {
    const char* temporary = std::getenv("TMPDIR");
    top_ = std::string(temporary && *temporary ? temporary : "/tmp") + "/zu-test-XXXXXX";
    must(mkdtemp(top_.data()) != nullptr, "mkdtemp", top_);
    must(chmod(top_.c_str(), 0755) == 0, "chmod", top_);
    for (const char* part : {"/files", "/host", "/host/drives", "/host/drives/unc"})
        make_open_directory(top_ + part);
    map_drive('C', "/");
    map_drive('T', top_ + "/files");

    const char* previous = std::getenv("ZU_HOST");
    had_host_ = previous != nullptr;
    previous_host_ = previous ? previous : "";
    setenv("ZU_HOST", (top_ + "/host").c_str(), 1);
}

file_place::~file_place() {
    if (had_host_)
        setenv("ZU_HOST", previous_host_.c_str(), 1);
    else
        unsetenv("ZU_HOST");
    remove_tree(top_);
}

std::u16string file_place::long_path(std::u16string_view relative) const {
    return u"\\\\?\\" + drive_path(relative);
}

std::u16string file_place::drive_path(std::u16string_view relative) const {
    return u"T:\\" + std::u16string(relative);
}

std::string file_place::host_path(std::string_view relative) const {
    std::string path = top_ + "/files";
    if (!relative.empty())
        path.append("/").append(relative);
    return path;
}

void file_place::map_drive(char letter, const std::string& directory) const {
    const char name[] = {static_cast<char>(letter | 0x20), ':', 0};
    set_link(top_ + "/host/drives/" + name, directory);
}

void file_place::map_share(const std::string& server, const std::string& share,
                           const std::string& directory) const {
    const std::string folder = top_ + "/host/drives/unc/" + server;
    mkdir(folder.c_str(), 0777);
    set_link(folder + "/" + share, directory);
}

void file_place::write(std::string_view relative, std::string_view bytes) const {
    const std::string path = host_path(relative);
    FILE* stream = std::fopen(path.c_str(), "we");
    must(stream != nullptr, "open for writing", path);
    must(std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size(), "write", path);
    must(std::fclose(stream) == 0, "close", path);
}

std::string file_place::read(std::string_view relative) const {
    std::string bytes;
    if (FILE* stream = std::fopen(host_path(relative).c_str(), "re")) {
        char block[4096];
        while (const size_t size = std::fread(block, 1, sizeof block, stream))
            bytes.append(block, size);
        std::fclose(stream);
    }
    return bytes;
}

bool file_place::exists(std::string_view relative) const {
    struct stat status;
    return lstat(host_path(relative).c_str(), &status) == 0;
}

void file_place::make_directory(std::string_view relative) const {
    make_open_directory(host_path(relative));
}

small_file_system::small_file_system(const std::string& directory, uint64_t bytes, bool read_only)
    : directory_(directory) {
    const std::string options = "mode=0777,size=" + std::to_string(bytes);
    mounted_ = mount("zu-test", directory.c_str(), "tmpfs", read_only ? MS_RDONLY : 0, options.c_str()) == 0;
}

small_file_system::~small_file_system() {
    if (mounted_)
        umount2(directory_.c_str(), MNT_DETACH);
}

bool small_file_system::remount_read_only() const {
    return mount("zu-test", directory_.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

bool is_root() {
    return geteuid() == 0;
}

void become_ordinary_user() {
    if (!is_root())
        return;
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
