// Files on this host: links and mounts, pipes, a full disk, directories that a user may not enter; attributes and times,
// which are kept in modes and extended attributes; and the calls of the layer that no family makes. The codes of all
// others are compared with the native platform's: tests/portable/results.
#include <sys/time.h>
#include <sys/xattr.h>

#include "support/test.h"

namespace {

using namespace platform;
using platform_files = file_test;
using attributes = file_test;

// The codes of the tables.
constexpr DWORD ok = codes::none, denied = codes::access_denied, there = codes::already_exists,
                no_directory = codes::directory_name_invalid, bad_call = codes::invalid_parameter;
constexpr DWORD R = GENERIC_READ, W = GENERIC_WRITE, A = FILE_WRITE_ATTRIBUTES;

DWORD open_code(const std::u16string& path, DWORD access, DWORD disposition) {
    return layer_file(path, access, disposition).code;
}

std::string read_some(HANDLE file, DWORD count) {
    std::string bytes(count, 0);
    DWORD done = 77;
    EXPECT_TRUE(ReadFile(file, bytes.data(), count, &done, nullptr)) << GetLastError();
    bytes.resize(done);
    return bytes;
}

DWORD write_code(HANDLE file, const std::string& bytes) {
    DWORD done = 77;
    const DWORD code =
        code_of(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr));
    EXPECT_EQ(done, code == ERROR_SUCCESS ? bytes.size() : 0);
    return code;
}

// The attributes that opening itself gives, which no family asks for; no security; close-on-exec.
TEST_F(platform_files, what_opening_gives) {
    for (const char* name : {"system", "archive"})
        place.write(name, "x");
    ASSERT_TRUE(SetFileAttributesW(u"T:\\system", FILE_ATTRIBUTE_SYSTEM));
    // The code, and the attributes that are there then.
    const std::tuple<const char16_t*, DWORD, DWORD, DWORD, DWORD> rows[] = {
        {u"new", CREATE_NEW, 0x05, ok, 0x05},           {u"new", OPEN_EXISTING, 0x80, denied, 0x05},
        {u"system", CREATE_ALWAYS, 0x02, denied, 0x04}, {u"system", CREATE_ALWAYS, 0x24, there, 0x24},
        {u"archive", CREATE_ALWAYS, 0x20, there, 0x20}, {u"archive", CREATE_ALWAYS, 0x80, there, 0x80}};
    for (const auto& [name, disposition, given, code, after] : rows) {
        const layer_file file(place.drive_path(name), W, disposition, 0, given);
        EXPECT_EQ(file.code, code) << narrow(name) << ' ' << given;
        if (code != denied) { // also with the read-only that it has got itself
            EXPECT_EQ(write_code(file, "x"), 0u);
        }
        EXPECT_EQ(GetFileAttributesW(place.drive_path(name).c_str()), after) << narrow(name) << ' ' << given;
        EXPECT_EQ(place.read(narrow(name)), "x");
    }
    EXPECT_TRUE(SetFileAttributesW(u"T:\\new", FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(open_code(u"T:\\new", R, CREATE_ALWAYS), denied) << "emptying is a change, too";
    SECURITY_ATTRIBUTES security{};
    EXPECT_EQ(code_of(ZU_open_file(u"T:\\none", ZU_FILE_WRITE | ZU_FILE_CREATE_NEW, &security)),
              codes::not_supported);
    EXPECT_EQ(code_of(ZU_create_dir(u"T:\\none", &security)), codes::not_supported);
    EXPECT_FALSE(place.exists("none"));
    FILE* const stream = ZU_fopen(u"T:\\system", u"r");
    EXPECT_EQ(fcntl(fileno(stream), F_GETFD), FD_CLOEXEC);
    ZU_fclose(stream);
    // The end that a handle knows, which another one moves only where it may write.
    for (const DWORD share : {0u, FILE_SHARE_READ | FILE_SHARE_WRITE}) {
        const layer_file one(u"T:\\end", W, CREATE_ALWAYS, share), other(u"T:\\end", W, OPEN_EXISTING, share);
        write_code(one, "12");
        write_code(other, "123");
        LARGE_INTEGER end{};
        EXPECT_TRUE(go_to_known_end(one, &end)) << share;
        EXPECT_EQ(end.QuadPart, share ? 3 : 2);
        EXPECT_EQ(write_code(one, "!"), 0u);
        EXPECT_EQ(place.read("end"), share ? "123!" : "12!");
    }
}

// A link passes questions on, unless it leads nowhere. A listing reports links themselves, and a call that deletes or
// moves takes them alone.
TEST_F(platform_files, links_and_what_is_no_file) {
    constexpr DWORD link = 0x400;
    struct row {
        const char16_t* name;
        const char* target;
        DWORD listed, asked;                                    // the attributes
        DWORD deleted = ok, removed = no_directory, moved = ok; // the codes
    };
    const row rows[] = {
        {u"target", nullptr, 0x03, 0x03, denied}, {u"directory", nullptr, 0x10, 0x10, denied, ok},
        {u"pipe", nullptr, 0x41, 0x41, denied},   {u"link", "target", link, 0x03},
        {u"to-pipe", "pipe", link, 0x41},         {u"to-directory", "directory", link, 0x10, ok, ok},
        {u"dangling", "nowhere", link, link},     {u"circle", "circle", link, link},
        {u"through-file", "target/x", link, link}};
    const auto furnish = [&](const file_place& in) {
        in.write("target", "data");
        in.make_directory("directory");
        ASSERT_EQ(mkfifo(in.host_path("pipe").c_str(), 0444), 0);
        for (const row& row : rows)
            if (row.target)
                in.make_link(narrow(row.name), row.target);
        EXPECT_TRUE(SetFileAttributesW(in.drive_path(u"link").c_str(), 0x03));
    };
    furnish(place);
    listing all = list(u"T:\\*");
    EXPECT_EQ(all.names.size(), std::size(rows));
    for (const row& row : rows) {
        SCOPED_TRACE(narrow(row.name));
        const std::u16string path = place.drive_path(row.name);
        EXPECT_EQ(all.entries[row.name].dwFileAttributes, row.listed);
        EXPECT_EQ(all.entries[row.name].dwReserved0, row.listed == link ? 0xA000000C : 0u);
        EXPECT_EQ(GetFileAttributesW(path.c_str()), row.asked);
        EXPECT_EQ(list(path).entries[row.name].dwFileAttributes, row.asked);
        EXPECT_EQ(ZU_path_attributes(path.c_str()) & (ZU_PATH_DIR | ZU_PATH_FILE),
                  row.asked & 0x10 ? ZU_PATH_DIR : ZU_PATH_FILE);
        if (row.asked == link) {
            EXPECT_EQ(code_of(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_HIDDEN)), codes::not_supported);
        }
        EXPECT_EQ(code_of(CreateDirectoryW(path.c_str(), nullptr)), there);
        for (const auto& [call, code] :
             {std::pair{"delete", row.deleted}, {"remove", row.removed}, {"move", row.moved}}) {
            const file_place fresh;
            furnish(fresh);
            EXPECT_EQ(code_of(call[0] == 'd'   ? DeleteFileW(path.c_str())
                              : call[0] == 'r' ? RemoveDirectoryW(path.c_str())
                                               : MoveFileExW(path.c_str(), u"T:\\new", 0)),
                      code)
                << call;
            EXPECT_EQ(fresh.exists(narrow(row.name)), code != 0) << call;
            for (const char* kept : {"target", "directory", "pipe"})
                EXPECT_TRUE(fresh.exists(kept) || narrow(row.name) == kept) << call << ' ' << kept;
        }
    }
    EXPECT_EQ(open_code(u"T:\\dangling", W, OPEN_ALWAYS), 0u);
    EXPECT_TRUE(place.exists("nowhere"));
    // Two names of one file.
    place.write("file", "data");
    ASSERT_EQ(::link(place.host_path("file").c_str(), place.host_path("hard").c_str()), 0);
    EXPECT_EQ(code_of(MoveFileExW(u"T:\\file", u"T:\\hard", 0)), there);
    EXPECT_EQ(code_of(MoveFileExW(u"T:\\file", u"T:\\hard", 1)), ok);
    EXPECT_FALSE(place.exists("file"));
    EXPECT_EQ(place.read("hard"), "data");
}

// Every byte that is written arrives, whatever signals come; a writer learns that its reader is gone; no reader is held
// up.
TEST_F(platform_files, pipes) {
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &nothing, nullptr), 0);
    const std::string host = place.host_path("pipe");
    const std::u16string path = place.long_path(u"pipe");
    ASSERT_EQ(mkfifo(host.c_str(), 0666), 0);
    EXPECT_EQ(read_some(layer_file(path, R, OPEN_EXISTING), 1), "") << "no writer, no wait";
    std::atomic<bool> reads{false};
    std::thread waits([&] {
        usleep(50000);
        reads = true;
        close(open(host.c_str(), O_RDONLY));
    });
    layer_file(path, W, OPEN_EXISTING).close();
    EXPECT_TRUE(reads) << "opening waits for a reader";
    waits.join();
    const int other = open(host.c_str(), O_RDWR | O_CLOEXEC); // neither side waits for a peer
    const layer_file writer(path, W, OPEN_EXISTING);
    layer_file reader(path, R, OPEN_EXISTING);
    std::thread late([&] {
        usleep(50000);
        EXPECT_EQ(write_code(writer, "through"), 0u);
    });
    const itimerval often = {{0, 1000}, {0, 1000}}, never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(read_some(reader, 100), "through");
    setitimer(ITIMER_REAL, &never, nullptr);
    late.join();
    EXPECT_EQ(code_of(SetFilePointerEx(writer, {}, nullptr, FILE_END)), codes::seek_on_device);
    // Another user's pipe, which its writer keeps open and silent, holds nobody up.
    if (is_root()) {
        ASSERT_EQ(chown(host.c_str(), 12345, 12345), 0);
        const layer_file others(path, R, OPEN_EXISTING);
        char byte;
        DWORD done;
        EXPECT_EQ(code_of(ReadFile(others, &byte, 1, &done, nullptr)), codes::no_data);
        EXPECT_EQ(layer_file(path, A, OPEN_EXISTING).code, 0u);
    }
    reader.close();
    close(other);
    EXPECT_EQ(write_code(writer, "nowhere"), codes::broken_pipe);
}

// A failure, and no signal. Whole lines are left where the writer is alone.
TEST_F(platform_files, where_no_more_can_be_written) {
    const std::u16string path = place.long_path(u"file"), missing = place.long_path(u"new");
    const outcome child = run_child([&] {
        const rlimit limit{10'000, 10'000};
        setrlimit(RLIMIT_FSIZE, &limit);
        const layer_file file(path, W, CREATE_NEW);
        for (const auto& [position, size] :
             {std::pair{int64_t{0}, 8'000}, {8'000, 8'000}, {10'000, 1}, {20'000, 0}}) {
            SetFilePointerEx(file, std::bit_cast<LARGE_INTEGER>(position), nullptr, FILE_BEGIN);
            std::printf("%u ",
                        size > 0 ? write_code(file, std::string(size, 'a')) : code_of(SetEndOfFile(file)));
        }
    });
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(child.output, "0 112 112 112 ");
    EXPECT_TRUE(place.read("file") == std::string(8'000, 'a'));
    if (!is_root())
        GTEST_SKIP() << "mounting a small file system takes root";
    const small_file_system disk(place.host_path(), 256 * 1024);
    ASSERT_TRUE(disk.mounted());
    const std::string line(10'007, 'x');
    for (const DWORD share : {FILE_SHARE_READ, FILE_SHARE_READ | FILE_SHARE_WRITE}) {
        const layer_file file(path, W, CREATE_ALWAYS, share);
        DWORD code = 0;
        while (code == 0)
            code = write_code(file, line);
        EXPECT_EQ(code, codes::disk_full);
        EXPECT_EQ(place.read("file").size() % line.size() == 0, share == FILE_SHARE_READ);
    }
    ASSERT_TRUE(disk.remount_read_only());
    const DWORD codes[] = {open_code(path, W, OPEN_EXISTING), open_code(missing, W, CREATE_NEW),
                           code_of(DeleteFileW(path.c_str())),
                           code_of(CreateDirectoryW(missing.c_str(), nullptr)),
                           code_of(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY))};
    for (const DWORD code : codes)
        EXPECT_EQ(code, codes::write_protect);
    EXPECT_EQ(open_code(path, R, OPEN_EXISTING), 0u);
}

// Runs the body in a child in which something is mounted over a path, and tells what it prints.
std::string printed_with(const std::string& mounted, const std::string& over, const char* type,
                         unsigned long flags, const std::function<void()>& body) {
    const outcome child = run_child([&] {
        if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0
            || mount(mounted.c_str(), over.c_str(), type, flags, flags ? "" : "mode=0777") != 0)
            _exit(2);
        body();
    });
    return child.output;
}

// The same file under two names, by a mount and not by a second link.
TEST_F(platform_files, moving_onto_its_own_mount_loses_nothing) {
    if (!is_root())
        GTEST_SKIP() << "mounting takes root";
    for (const char* name : {"other", "FILE"}) {
        place.write("file", "data");
        place.write(name, "");
        const auto move = [&] {
            std::printf("%u", code_of(ZU_move_file(u"T:\\file", place.drive_path(wide(name)).c_str())));
        };
        EXPECT_EQ(printed_with(place.host_path("file"), place.host_path(name), "", MS_BIND, move), "32")
            << name;
        EXPECT_EQ(place.read("file"), "data") << name;
    }
}

// A call that the directory does not permit fails with 5.
TEST_F(platform_files, directory_permissions) {
    for (const auto& [directory, mode] : {std::pair{"closed", 0}, {"fixed", 0555}, {"listed", 0444}}) {
        place.make_directory(directory);
        place.write(directory + std::string("/file"), "data");
        chmod(place.host_path(directory).c_str(), static_cast<mode_t>(mode));
    }
    const outcome child = run_as_ordinary_user([] {
        const char16_t *closed = u"T:\\closed\\file", *fixed = u"T:\\fixed\\file";
        const DWORD codes[] = {open_code(closed, R, OPEN_EXISTING),
                               code_of(GetFileAttributesW(closed) != INVALID_FILE_ATTRIBUTES),
                               list(closed).code,
                               list(u"T:\\closed\\*").code,
                               open_code(u"T:\\fixed\\new", W, CREATE_NEW),
                               code_of(DeleteFileW(fixed)),
                               code_of(MoveFileExW(fixed, u"T:\\moved", 0))};
        for (const DWORD code : codes)
            std::printf("%u ", code);
        const listing found = list(u"T:\\listed\\*"); // nothing in it may be looked at
        std::printf("%zu %x", found.names.size(), found.entries.at(u"file").dwFileAttributes);
    });
    EXPECT_EQ(child.output, "5 5 5 5 5 5 5 3 80");
    EXPECT_EQ(place.read("fixed/file"), "data");
}

std::string stored_text(const std::string& path) {
    char text[64];
    const ssize_t size = getxattr(path.c_str(), "user.DOSATTRIB", text, sizeof text);
    return size < 0 ? "none" : std::string(text, static_cast<size_t>(size));
}

mode_t mode_of(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST_F(attributes, modes_and_extended_attributes) {
    place.write("file", "data");
    place.make_directory("directory");
    EXPECT_TRUE(SetFileAttributesW(u"T:\\directory", 0x11));
    EXPECT_EQ(mode_of(place.host_path("directory")), 0777u) << "read-only says nothing about what is in it";
    const std::string host = place.host_path("file");
    const char16_t* path = u"T:\\file";
    chmod(host.c_str(), 0664);
    for (const auto& [set, text] : {std::pair{0x03u, "0x3"}, {0x01u, "none"}}) {
        EXPECT_TRUE(SetFileAttributesW(path, set));
        EXPECT_EQ(mode_of(host), 0444u);
        EXPECT_EQ(stored_text(host), text);
    }
    chmod(host.c_str(), 0644);
    for (const auto& [text, wanted] : {std::pair{std::string("0x27\0", 5), 0x26u}, {"hidden", 0x80u}}) {
        EXPECT_EQ(setxattr(host.c_str(), "user.DOSATTRIB", text.data(), text.size(), 0), 0);
        EXPECT_EQ(GetFileAttributesW(path), wanted);
    }
    const std::array<mode_t, 3> rows[] = {{022, 0444, 0644}, {002, 0444, 0664}, {022, 0440, 0640},
                                          {022, 0000, 0200}, {022, 0555, 0755}, {0222, 0444, 0644}};
    for (const auto& [mask, before, after] : rows) {
        chmod(host.c_str(), before);
        const mode_t outside = umask(mask);
        EXPECT_TRUE(SetFileAttributesW(path, FILE_ATTRIBUTE_NORMAL));
        EXPECT_EQ(umask(outside), mask);
        EXPECT_EQ(mode_of(host), after) << std::oct << mask << ' ' << before;
    }
}

// 50 (ERROR_NOT_SUPPORTED) without extended attributes. Without /proc they are kept, but for a creation time: 120
// (ERROR_CALL_NOT_IMPLEMENTED).
TEST_F(attributes, are_kept_or_refused) {
    if (!is_root())
        GTEST_SKIP() << "mounting takes root";
    const char16_t* path = u"T:\\FILE";
    const FILETIME time{0x12345678, 0x1C00000};
    place.write("file", "data");
    const auto results = [&](const std::string& over, const char* type, std::initializer_list<DWORD> all) {
        return printed_with("zu-test", over, type, 0, [&] {
            if (!place.exists("file"))
                place.write("file", "data");
            const layer_file file(path, A, OPEN_EXISTING);
            for (const DWORD bits : all) {
                std::printf("%u ", code_of(SetFileAttributesW(path, bits)));
                std::printf("%x, ", GetFileAttributesW(path));
            }
            std::printf("%x ", list(u"T:\\*").entries.at(u"file").dwFileAttributes);
            for (const FILETIME* created : {&time, static_cast<const FILETIME*>(nullptr)}) {
                FILETIME access{};
                std::printf("%u ", code_of(SetFileTime(file, created, &time, nullptr)));
                GetFileTime(file, nullptr, &access, nullptr);
                std::printf("%d ", access.dwLowDateTime == time.dwLowDateTime);
            }
            std::printf("%u ", layer_file(u"T:\\new", W, CREATE_NEW, 0, FILE_ATTRIBUTE_HIDDEN).code);
            std::printf("%d", place.exists("new"));
        });
    };
    EXPECT_EQ(results(place.host_path(), "ramfs", {0x01, 0x02, 0x03, 0x80, 0x02, 0x03}),
              "0 1, 50 1, 50 1, 0 80, 50 80, 50 80, 80 50 0 0 1 50 0");
    EXPECT_EQ(results("/proc", "tmpfs", {0x03, 0x02}), "0 3, 0 2, 2 120 0 0 1 0 1");
}

TEST_F(attributes, times_come_back_exactly_and_one_by_one) {
    place.write("file", "data");
    chmod(place.host_path("file").c_str(), 0444);
    place.make_directory("directory");
    using numbers = std::array<uint64_t, 3>;
    const numbers wanted = {0x01C8000012345678, 116444736000000000 - 12'345'678, // before 1970
                            0x01C800001234567A};
    const auto set = std::bit_cast<std::array<FILETIME, 3>>(wanted);
    const auto [none, keep, bad] =
        std::bit_cast<std::array<FILETIME, 3>>(numbers{0, UINT64_MAX, uint64_t{1} << 63});
    for (const char16_t* path : {u"T:\\file", u"T:\\directory"}) {
        const layer_file file(path, A, OPEN_EXISTING, 0, FILE_FLAG_BACKUP_SEMANTICS);
        EXPECT_TRUE(SetFileTime(file, &set[0], &set[1], &set[2])) << GetLastError();
        EXPECT_TRUE(SetFileTime(file, nullptr, &none, &keep)) << "nothing changes";
        EXPECT_EQ(code_of(SetFileTime(file, &set[2], &bad, nullptr)), bad_call);
        std::array<FILETIME, 3> times;
        EXPECT_TRUE(GetFileTime(file, &times[0], &times[1], &times[2]));
        EXPECT_EQ(std::bit_cast<numbers>(times), wanted);
    }
    EXPECT_EQ(mode_of(place.host_path("file")), 0444u);
    const layer_file reader(u"T:\\file", R, OPEN_EXISTING);
    EXPECT_EQ(code_of(SetFileTime(reader, nullptr, nullptr, &set[0])), denied);

    // A family takes the offset in force now for every date: a file of the other season is an hour off.
    ZU_stat status;
    const auto status_of_time = [&](time_t seconds) {
        const timespec both[] = {{seconds, 0}, {seconds, 0}};
        EXPECT_EQ(utimensat(AT_FDCWD, place.host_path("file").c_str(), both, 0), 0);
        EXPECT_EQ(ZU_stat64(u"T:\\file", &status), 0);
        return status;
    };
    const auto offset_at = [](time_t time) {
        struct ::tm local;
        return localtime_r(&time, &local)->tm_gmtoff;
    };
    for (const char* zone : {"CET-1CEST,M3.5.0,M10.5.0/3", "AEST-10AEDT,M10.1.0,M4.1.0/3"})
        for (const int32_t day : {1137000000, 1152626400}) { // January and July 2006
            set_zone(zone);
            EXPECT_TRUE(ZU_set_file_time(u"T:\\file", day - 86400, -1, -1));
            EXPECT_EQ(status_of_time(day).st_mtime, day + offset_at(std::time(nullptr)) - offset_at(day));
            EXPECT_EQ(status.st_ctime, day - 86400) << zone;
        }
    EXPECT_EQ(status_of_time(5'000'000'000).st_mtime, -1) << "a time past 2038 is none";
    EXPECT_TRUE(SetFileAttributesW(u"T:\\directory", FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(ZU_stat64(u"T:\\directory", &status) == 0 && status.st_mode == 0x416D);
}

} // namespace
