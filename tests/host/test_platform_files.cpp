// Opening, reading, writing, deleting and moving: the code of each situation, and what is left of the data. Attributes,
// creation times and links, for root and for an ordinary user. About Linux: codes come from errno values, and
// attributes from modes and extended attributes.
#include <sys/time.h>
#include <sys/xattr.h>

#include "support/test.h"

namespace {

using namespace platform;
using platform_files = file_test;

constexpr DWORD untouched = 0xABCD;
// The codes of the tables.
constexpr DWORD ok = codes::none, no_file = codes::file_not_found, no_path = codes::path_not_found,
                denied = codes::access_denied, exists = codes::file_exists, there = codes::already_exists,
                not_empty = codes::directory_not_empty, bad_name = codes::invalid_name,
                no_directory = codes::directory_name_invalid, bad_call = codes::invalid_parameter;
constexpr DWORD R = GENERIC_READ, W = GENERIC_WRITE, A = FILE_WRITE_ATTRIBUTES;
constexpr DWORD shared = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr DWORD backup = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS;

DWORD open_code(const std::u16string& path, DWORD access, DWORD disposition, DWORD flags = 0x80) {
    return layer_file(path, access, disposition, 0, flags).code;
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

// Checks the position that is reached, unless it is -1; a failure leaves it alone.
DWORD seek_code(HANDLE file, int64_t distance, DWORD origin, int64_t reached = -1) {
    LARGE_INTEGER by, to;
    by.QuadPart = distance;
    to.QuadPart = -1;
    const DWORD code = code_of(SetFilePointerEx(file, by, &to, origin));
    EXPECT_EQ(to.QuadPart, code == 0 && reached == -1 ? to.QuadPart : reached);
    return code;
}

// One of each: files, directories and links.
void furnish(const file_place& place) {
    for (const char* name : {"file", "other", "hidden", "read-only"})
        place.write(name, name);
    chmod(place.host_path("read-only").c_str(), 0444);
    for (const char* name : {"directory", "full", "read-only-dir"})
        place.make_directory(name);
    place.write("full/x", "");
    ASSERT_TRUE(SetFileAttributesW(place.long_path(u"hidden").c_str(), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(SetFileAttributesW(place.long_path(u"read-only-dir").c_str(), FILE_ATTRIBUTE_READONLY));
    place.make_link("link", "read-only");
    place.make_link("dir-link", "full");
    place.make_link("dangling", "nowhere");
}

TEST_F(platform_files, each_situation_of_opening_has_its_code) {
    // The columns: CREATE_NEW, CREATE_ALWAYS, OPEN_EXISTING, OPEN_ALWAYS, TRUNCATE_EXISTING.
    const std::pair<std::array<DWORD, 5>, std::vector<std::pair<const char16_t*, DWORD>>> rows[] = {
        {{ok, ok, no_file, ok, no_file}, {{u"missing", R | W}}},
        {{ok, ok, no_file, ok, bad_call}, {{u"missing", 0}}},
        {{exists, there, ok, there, ok}, {{u"FILE", W}}},
        {{exists, there, ok, there, bad_call}, {{u"file", R}}},
        {{exists, denied, ok, there, ok}, {{u"hidden", W}}},
        {{exists, denied, ok, there, bad_call}, {{u"read-only", 0}}},
        {{exists, denied, denied, denied, denied}, {{u"read-only", R | W}, {u"directory", W}, {u"", W}}},
        {{exists, denied, denied, denied, bad_call}, {{u"directory", 0}}},
        {{exists, denied, no_path, no_path, no_path}, {{u"directory\\", W}}},
        {{no_path, no_path, no_path, no_path, no_path}, {{u"none\\file", R | W}, {u"file\\x", W}}},
        {{bad_name, bad_name, bad_name, bad_name, bad_name},
         {{u"file\\", W}, {u"missing\\", W}, {u"a*b", W}}},
    };
    for (const auto& [codes, openings] : rows)
        for (const auto& [name, access] : openings)
            for (DWORD disposition = CREATE_NEW; disposition <= TRUNCATE_EXISTING; ++disposition) {
                SCOPED_TRACE(testing::Message() << narrow(name) << ' ' << access << ' ' << disposition);
                const file_place fresh;
                furnish(fresh);
                const DWORD code = open_code(fresh.long_path(name), access, disposition);
                EXPECT_EQ(code, codes[disposition - 1]);
                const bool empties = (disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING)
                                     && (code == ok || code == there);
                for (const char* kept : {"file", "hidden", "read-only"})
                    EXPECT_EQ(fresh.read(kept),
                              empties && strcasecmp(narrow(name).c_str(), kept) == 0 ? "" : kept);
                EXPECT_FALSE(fresh.exists("FILE"));
            }
    furnish(place);
    for (const DWORD disposition : {0u, 6u})
        EXPECT_EQ(open_code(place.long_path(u"file"), R, disposition), codes::invalid_parameter);
    EXPECT_EQ(open_code(u"", R, OPEN_EXISTING), codes::invalid_parameter);
    SECURITY_ATTRIBUTES security{};
    CreateFileW(place.long_path(u"new").c_str(), W, 0, &security, CREATE_NEW, 0x80, nullptr);
    EXPECT_EQ(GetLastError(), codes::not_supported);
    EXPECT_FALSE(place.exists("new"));

    const std::tuple<const char16_t*, DWORD, DWORD, DWORD> existing[] = {
        {u"read-only", A, 0x80, ok},      {u"read-only", W, backup, denied},
        {u"directory", A, 0x80, denied},  {u"directory", A, backup, ok},
        {u"directory", W, backup, ok},    {u"directory\\", R, backup, ok},
        {u"missing", A, backup, no_file}, {u"", R, backup, ok},
    };
    for (const auto& [name, access, flags, code] : existing)
        EXPECT_EQ(open_code(place.long_path(name), access, OPEN_EXISTING, flags), code)
            << narrow(name) << ' ' << access;
    char byte;
    DWORD done;
    const layer_file directory(place.long_path(u"directory"), R, OPEN_EXISTING, 0, backup);
    EXPECT_EQ(code_of(ReadFile(directory, &byte, 1, &done, nullptr)), codes::invalid_function);
}

TEST_F(platform_files, rights_and_bounds) {
    place.write("file", "0123456789");
    const std::u16string path = place.long_path(u"file");
    layer_file reader(path, R, OPEN_EXISTING, shared), writer(path, W, OPEN_EXISTING, shared);
    char byte = 0;
    DWORD done = 77;
    EXPECT_EQ(code_of(ReadFile(writer, &byte, 0, &done, nullptr)), codes::access_denied);
    EXPECT_EQ(write_code(reader, ""), codes::access_denied);
    EXPECT_EQ(code_of(ReadFile(reader, nullptr, 1, &done, nullptr)), codes::noaccess);
    EXPECT_EQ(code_of(WriteFile(writer, nullptr, 1, &done, nullptr)), codes::noaccess);
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(seek_code(reader, -3, FILE_END, 7), 0u);
    EXPECT_EQ(seek_code(reader, INT64_MAX, FILE_CURRENT), codes::negative_seek);
    EXPECT_EQ(read_some(reader, 9), "789") << "where it was";
    EXPECT_EQ(seek_code(reader, INT64_MAX, FILE_BEGIN, INT64_MAX), 0u);
    EXPECT_EQ(read_some(reader, 1), "");

    const HANDLE closed = reader;
    reader.close();
    for (const HANDLE bad : {closed, HANDLE{}, INVALID_HANDLE_VALUE}) {
        EXPECT_EQ(code_of(ReadFile(bad, &byte, 1, &done, nullptr)), codes::invalid_handle);
        EXPECT_EQ(write_code(bad, "x"), codes::invalid_handle);
        EXPECT_EQ(seek_code(bad, 0, FILE_BEGIN), codes::invalid_handle);
    }
}

// A reader that keeps writers away reads ahead; what reaches the file beside the library must still be seen.
TEST_F(platform_files, reading_ahead_hides_nothing) {
    const std::u16string path = place.long_path(u"file");
    std::string data, seen;
    for (int i = 0; data.size() < 200'000; ++i)
        data += "line " + std::to_string(i) + '\n';
    place.write("file", data);
    layer_file reader(path, R, OPEN_EXISTING, FILE_SHARE_READ);
    for (size_t step = 1; seen.size() < data.size(); step = step * 7 % 5003) {
        const std::string part = read_some(reader, static_cast<DWORD>(step));
        seen += part;
        const size_t back = part.size() / 3; // as a line reader gives back what it has read too far
        ASSERT_EQ(seek_code(reader, -static_cast<int64_t>(back), FILE_CURRENT), 0u);
        seen.resize(seen.size() - back);
        ASSERT_TRUE(data.starts_with(seen));
    }
    EXPECT_EQ(read_some(reader, 10), "");
    std::ofstream(place.host_path("file"), std::ios::app) << "appended";
    EXPECT_EQ(read_some(reader, 100), "appended");
    reader.close();

    const layer_file both(path, R | W, OPEN_EXISTING);
    EXPECT_EQ(read_some(both, 4), "line");
    EXPECT_EQ(write_code(both, "-"), 0u);
    EXPECT_EQ(seek_code(both, 0, FILE_BEGIN), 0u);
    EXPECT_EQ(read_some(both, 6), "line-0");
    EXPECT_EQ(seek_code(both, 5, FILE_BEGIN), 0u);
    EXPECT_TRUE(SetEndOfFile(both));
    EXPECT_EQ(read_some(both, 6), "");
}

// Every byte that is written arrives, whatever signals come; a writer learns that its reader is gone; no reader is held
// up.
TEST_F(platform_files, pipes) {
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &nothing, nullptr), 0);
    const std::string host = place.host_path("pipe");
    ASSERT_EQ(mkfifo(host.c_str(), 0666), 0);
    EXPECT_EQ(read_some(layer_file(place.long_path(u"pipe"), R, OPEN_EXISTING), 1), "")
        << "no writer, no wait";
    std::atomic<bool> reads{false};
    std::thread waits([&] {
        usleep(50000);
        reads = true;
        close(open(host.c_str(), O_RDONLY));
    });
    layer_file(place.long_path(u"pipe"), W, OPEN_EXISTING).close();
    EXPECT_TRUE(reads) << "opening waits for a reader";
    waits.join();
    const int other = open(host.c_str(), O_RDWR | O_CLOEXEC); // neither side waits for a peer
    const layer_file writer(place.long_path(u"pipe"), W, OPEN_EXISTING);
    layer_file reader(place.long_path(u"pipe"), R, OPEN_EXISTING);
    std::thread late([&] {
        usleep(50000);
        EXPECT_EQ(write_code(writer, "through"), 0u);
    });
    const itimerval often = {{0, 1000}, {0, 1000}}, never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(read_some(reader, 100), "through");
    setitimer(ITIMER_REAL, &never, nullptr);
    late.join();
    EXPECT_EQ(seek_code(writer, 0, FILE_END), codes::seek_on_device);
    // Another user's pipe, which its writer keeps open and silent, holds nobody up.
    if (is_root()) {
        ASSERT_EQ(chown(host.c_str(), 12345, 12345), 0);
        const layer_file others(place.long_path(u"pipe"), R, OPEN_EXISTING);
        char byte;
        DWORD done;
        EXPECT_EQ(code_of(ReadFile(others, &byte, 1, &done, nullptr)), codes::no_data);
        EXPECT_EQ(open_code(place.long_path(u"pipe"), FILE_WRITE_ATTRIBUTES, OPEN_EXISTING), 0u);
    }
    reader.close();
    close(other);
    EXPECT_EQ(write_code(writer, "nowhere"), codes::broken_pipe);
}

// Whole lines are left where the writer is alone.
TEST_F(platform_files, full_disk) {
    if (!is_root())
        GTEST_SKIP() << "mounting a small file system takes root";
    const std::u16string path = place.long_path(u"file"), missing = place.long_path(u"new");
    const small_file_system disk(place.host_path(), 256 * 1024);
    ASSERT_TRUE(disk.mounted());
    const std::string line(10'007, 'x');
    for (const DWORD share : {DWORD{FILE_SHARE_READ}, shared}) {
        const layer_file file(path, W, CREATE_ALWAYS, share);
        EXPECT_EQ(write_code(file, line), 0u);
        DWORD code = 0;
        while (code == 0)
            code = write_code(file, line);
        EXPECT_EQ(code, codes::disk_full);
        EXPECT_EQ(place.read("file").size() % line.size() == 0, share != shared);
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

// A failure, and no signal.
TEST_F(platform_files, file_size_limit) {
    const outcome child = run_child([&] {
        const rlimit limit{10'000, 10'000};
        setrlimit(RLIMIT_FSIZE, &limit);
        const layer_file file(place.long_path(u"file"), W, CREATE_NEW);
        for (const char fill : {'a', 'b'})
            std::printf("%u ", write_code(file, std::string(8'000, fill)));
        seek_code(file, 10'000, FILE_BEGIN);
        std::printf("%u ", write_code(file, "c"));
        seek_code(file, 20'000, FILE_BEGIN);
        std::printf("%u", code_of(SetEndOfFile(file)));
    });
    EXPECT_EQ(child.signal, 0);
    EXPECT_EQ(child.output, "0 112 112 112");
    EXPECT_TRUE(place.read("file") == std::string(8'000, 'a'));
}

TEST_F(platform_files, deleting_and_making_directories_have_their_codes) {
    // Of DeleteFileW, RemoveDirectoryW, CreateDirectoryW.
    const std::pair<std::array<DWORD, 3>, std::vector<const char16_t*>> rows[] = {
        {{ok, no_directory, there}, {u"FILE", u"link", u"dangling"}},
        {{ok, ok, there}, {u"dir-link"}},
        {{no_file, no_file, ok}, {u"missing", u"missing\\"}},
        {{no_path, no_path, no_path}, {u"none\\x", u"file\\x"}},
        {{denied, ok, there}, {u"directory", u"directory\\"}},
        {{denied, not_empty, there}, {u"full"}},
        {{denied, denied, there}, {u"read-only-dir"}},
        {{denied, no_directory, there}, {u"read-only"}},
        {{denied, denied, denied}, {u""}},
        {{bad_name, no_directory, there}, {u"file\\"}},
        {{bad_name, bad_name, bad_name}, {u"a*"}}};
    for (const auto& [codes, all] : rows)
        for (const char16_t* name : all)
            for (size_t call = 0; call < codes.size(); ++call) {
                const file_place fresh;
                furnish(fresh);
                const std::u16string path = fresh.long_path(name);
                SetLastError(untouched);
                const BOOL result = call == 0   ? DeleteFileW(path.c_str())
                                    : call == 1 ? RemoveDirectoryW(path.c_str())
                                                : CreateDirectoryW(path.c_str(), nullptr);
                EXPECT_EQ(result, codes[call] == 0) << narrow(name) << ' ' << call;
                EXPECT_EQ(GetLastError(), result ? untouched : codes[call]) << narrow(name) << ' ' << call;
                EXPECT_TRUE(fresh.exists("full/x")) << "only links themselves go";
                EXPECT_TRUE(fresh.exists("read-only"));
            }
}

TEST_F(platform_files, moving_has_its_codes_and_loses_nothing) {
    // The codes without the flag that lets it replace a file, and with it.
    using way = std::pair<const char16_t*, const char16_t*>;
    const std::pair<std::array<DWORD, 2>, std::vector<way>> rows[] = {
        {{ok, ok},
         {{u"file", u"new"},
          {u"file", u"FILE"},
          {u"file", u"file"},
          {u"full", u"new"},
          {u"link", u"new"},
          {u"read-only", u"new"}}},
        {{there, ok}, {{u"file", u"other"}, {u"file", u"OTHER"}, {u"file", u"hard"}}},
        {{there, denied}, {{u"file", u"read-only"}, {u"file", u"directory"}, {u"full", u"file"}}},
        {{no_file, no_file}, {{u"missing", u"read-only"}}},
        {{no_path, no_path}, {{u"none\\x", u"new"}, {u"file", u"none\\new"}, {u"file", u"other\\new"}}},
        {{denied, denied}, {{u"", u"new"}}},
        {{bad_call, bad_call}, {{u"full", u"full\\in"}}},
        {{no_directory, no_directory}, {{u"file", u"new\\"}}},
        {{bad_name, bad_name}, {{u"file\\", u"new"}, {u"file", u"n*w"}}}};
    for (const auto& [codes, ways] : rows)
        for (const auto& [source, destination] : ways)
            for (const DWORD flags : {0u, 1u}) {
                const std::string from = narrow(source), to = narrow(destination);
                SCOPED_TRACE(from + " to " + to + ' ' + std::to_string(flags));
                const file_place fresh;
                furnish(fresh);
                ASSERT_EQ(::link(fresh.host_path("file").c_str(), fresh.host_path("hard").c_str()), 0);
                const DWORD code = code_of(MoveFileExW(fresh.long_path(source).c_str(),
                                                       fresh.long_path(destination).c_str(), flags));
                EXPECT_EQ(code, codes[flags]);
                if (code != 0) {
                    EXPECT_EQ(fresh.read("file") + fresh.read("other"), "fileother");
                    continue;
                }
                const bool replaces = strcasecmp(to.c_str(), "other") == 0;
                EXPECT_TRUE(fresh.exists(to));
                EXPECT_EQ(fresh.exists(from), from == to);
                EXPECT_TRUE(fresh.read("other") == (!replaces ? "other" : to == "other" ? from : ""));
            }
}

// The same file under two names, by a mount and not by a second link.
TEST_F(platform_files, moving_onto_its_own_mount_loses_nothing) {
    if (!is_root())
        GTEST_SKIP() << "mounting takes root";
    for (const char* name : {"other", "FILE"}) {
        place.write("file", "data");
        place.write(name, "");
        const outcome child = run_child([&] {
            if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0
                || mount(place.host_path("file").c_str(), place.host_path(name).c_str(), "", MS_BIND,
                         nullptr))
                _exit(2);
            std::printf("%u", code_of(MoveFileExW(u"T:\\file", place.long_path(wide(name)).c_str(), 1)));
        });
        EXPECT_EQ(child.output, "32") << name;
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

TEST_F(platform_files, streams) {
    place.write("file", "data");
    FILE* stream = _wfopen(u"T:\\file", u"r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fcntl(fileno(stream), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(platform::fclose(stream), 0);
    const layer_file alone(place.long_path(u"file"), R, OPEN_EXISTING);
    for (const auto& [path, mode, error] :
         {std::tuple{u"T:\\file", u"rw", EINVAL},
          {u"T:\\file", u"rD", EINVAL}, // which natively opens a temporary file
          {u"T:\\file", u"r", EACCES},
          {u"T:\\", u"w", EACCES},
          {u"T:\\a*", u"w", EINVAL}}) {
        EXPECT_EQ(_wfopen(path, mode), nullptr);
        EXPECT_EQ(errno, error) << narrow(path) << ' ' << narrow(mode);
    }
    FILE* nothing = _wfopen(u"NUL", u"w");
    ASSERT_NE(nothing, nullptr);
    EXPECT_GE(std::fputs("gone", nothing), 0);
    EXPECT_EQ(platform::fclose(nothing), 0);
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

TEST(attributes, each_bit_reads_back_as_it_should) {
    // The attributes that are set, and those that a file and a directory have then.
    const std::array<DWORD, 3> rows[] = {
        {0, 0x80, 0x10},      {0x81, 0x01, 0x11},       {0x10, 0x80, 0x10},           {0x20, 0x20, 0x30},
        {0x01, 0x01, 0x11},   {0x02, 0x02, 0x12},       {0x04, 0x04, 0x14},           {0x27, 0x27, 0x37},
        {0x100, 0x100, 0x10}, {0x2000, 0x2000, 0x2010}, {0xFFFFFFFF, 0x2127, 0x2037}, {0x800, 0x80, 0x10}};
    as_both_users([&](const file_place& place) {
        place.write("file", "data");
        place.make_directory("directory");
        for (const auto& [set, of_file, of_directory] : rows) {
            SCOPED_TRACE(set);
            for (const auto& [path, wanted] :
                 {std::pair{u"T:\\file", of_file}, {u"T:\\directory", of_directory}}) {
                EXPECT_TRUE(SetFileAttributesW(path, set)) << GetLastError();
                EXPECT_EQ(GetFileAttributesW(path), wanted);
                const listing found = list(path);
                ASSERT_EQ(found.names.size(), 1u);
                EXPECT_EQ(found.entries.begin()->second.dwFileAttributes, wanted);
            }
            // A directory's read-only says nothing about what is in it, and leaves the mode alone.
            EXPECT_EQ(mode_of(place.host_path("directory")), 0777u);
        }
        EXPECT_EQ(stored_text(place.host_path("file")), "none");
    });
}

TEST(attributes, modes_and_extended_attributes) {
    const file_place place;
    place.write("file", "data");
    const std::string host = place.host_path("file");
    const char16_t* path = u"T:\\file";
    chmod(host.c_str(), 0664);
    for (const auto& [set, text] : {std::pair{0x01u, "none"}, {0x03u, "0x3"}}) {
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

TEST(attributes, opening_keeps_to_them_and_gives_them) {
    const file_place place;
    const std::array<DWORD, 5> rows[] = {{0, CREATE_NEW, 0x05, ok, 0x05},
                                         {0, OPEN_EXISTING, 0x80, denied, 0x05},
                                         {0x04, CREATE_ALWAYS, 0x02, denied, 0x04},
                                         {0, CREATE_ALWAYS, 0x24, there, 0x24},
                                         {0x20, CREATE_ALWAYS, 0x80, there, 0x80}};
    for (const auto& [before, disposition, given, code, after] :
         rows) { // before: 0 for what the row above left
        EXPECT_TRUE(before == 0 || SetFileAttributesW(u"T:\\file", before));
        const layer_file file(u"T:\\file", GENERIC_WRITE, disposition, 0, given);
        EXPECT_EQ(file.code, code);
        DWORD done; // also with the read-only that it has got itself
        EXPECT_EQ(WriteFile(file, "x", 1, &done, nullptr), code != denied);
        EXPECT_EQ(GetFileAttributesW(u"T:\\file"), after);
        EXPECT_EQ(place.read("file"), "x");
    }
}

TEST(attributes, fail_with_50_where_they_cannot_be_kept) {
    const file_place place;
    if (mount("zu-test", place.host_path().c_str(), "ramfs", 0, "mode=0777") != 0)
        GTEST_SKIP() << "mounting a file system without extended attributes takes root";
    place.write("file", "data");
    for (const DWORD kept : {0x01u, 0x80u}) {
        EXPECT_TRUE(SetFileAttributesW(u"T:\\file", kept));
        for (const DWORD bits : {0x02u, 0x03u})
            EXPECT_EQ(code_of(SetFileAttributesW(u"T:\\file", bits)), codes::not_supported);
        EXPECT_EQ(GetFileAttributesW(u"T:\\file"), kept);
    }
    layer_file file(u"T:\\file", FILE_WRITE_ATTRIBUTES, OPEN_EXISTING);
    FILETIME before, after, time{0x12345678, 0x1C00000};
    EXPECT_TRUE(GetFileTime(file, nullptr, nullptr, &before));
    EXPECT_EQ(code_of(SetFileTime(file, &time, nullptr, &time)), codes::not_supported);
    EXPECT_TRUE(GetFileTime(file, nullptr, nullptr, &after));
    EXPECT_EQ(before.dwLowDateTime, after.dwLowDateTime);
    file.close();
    EXPECT_EQ(layer_file(u"T:\\new", GENERIC_WRITE, CREATE_NEW, 0, FILE_ATTRIBUTE_HIDDEN).code,
              codes::not_supported);
    EXPECT_FALSE(place.exists("new"));
    umount2(place.host_path().c_str(), MNT_DETACH);
}

TEST(attributes, are_kept_without_proc_or_refused_with_120) {
    if (!is_root())
        GTEST_SKIP() << "covering /proc takes root";
    const file_place place;
    place.write("file", "data");
    const outcome child = run_child([] {
        if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0
            || mount("zu-test", "/proc", "tmpfs", 0, nullptr) != 0)
            _exit(2);
        const char16_t* path = u"T:\\FILE";
        const FILETIME time{0x12345678, 0x1C00000};
        const layer_file file(path, FILE_WRITE_ATTRIBUTES, OPEN_EXISTING);
        for (const DWORD bits : {0x03u, 0x02u}) {
            std::printf("%u ", code_of(SetFileAttributesW(path, bits)));
            std::printf("%x ", GetFileAttributesW(path));
        }
        std::printf("%x ", list(u"T:\\*").entries.at(u"file").dwFileAttributes);
        std::printf("%u ", code_of(SetFileTime(file, nullptr, &time, &time)));
        std::printf("%u", code_of(SetFileTime(file, &time, nullptr, nullptr)));
    });
    EXPECT_EQ(child.output, "0 3 0 2 2 0 120");
}

TEST(attributes, times_come_back_exactly_and_one_by_one) {
    as_both_users([](const file_place& place) {
        place.write("file", "data");
        chmod(place.host_path("file").c_str(), 0444);
        place.make_directory("directory");
        const uint64_t base = 0x01C8000012345678, early = 116444736000000000 - 12'345'678; // before 1970
        const FILETIME created = std::bit_cast<FILETIME>(base), accessed = std::bit_cast<FILETIME>(early),
                       written = std::bit_cast<FILETIME>(base + 2),
                       none = std::bit_cast<FILETIME>(uint64_t{0}),
                       keep = std::bit_cast<FILETIME>(UINT64_MAX),
                       bad = std::bit_cast<FILETIME>(uint64_t{1} << 63);
        for (const char16_t* path : {u"T:\\file", u"T:\\directory"}) {
            const layer_file file(path, FILE_WRITE_ATTRIBUTES, OPEN_EXISTING, 0, FILE_FLAG_BACKUP_SEMANTICS);
            EXPECT_TRUE(SetFileTime(file, &created, &accessed, &written)) << GetLastError();
            EXPECT_TRUE(SetFileTime(file, nullptr, &none, &keep)) << "nothing changes";
            EXPECT_EQ(code_of(SetFileTime(file, &written, &bad, nullptr)), codes::invalid_parameter);
            FILETIME times[3];
            EXPECT_TRUE(GetFileTime(file, &times[0], &times[1], &times[2]));
            EXPECT_EQ(std::bit_cast<uint64_t>(times[0]), base);
            EXPECT_EQ(std::bit_cast<uint64_t>(times[1]), early);
            EXPECT_EQ(std::bit_cast<uint64_t>(times[2]), base + 2);
        }
        EXPECT_EQ(mode_of(place.host_path("file")), 0444u);
        const layer_file reader(u"T:\\file", GENERIC_READ, OPEN_EXISTING);
        EXPECT_EQ(code_of(SetFileTime(reader, nullptr, nullptr, &created)), codes::access_denied);
    });
}

// A link passes questions on, unless it leads nowhere; a listing reports links themselves.
TEST(attributes, links_and_what_is_no_file) {
    const file_place place;
    place.write("target", "data");
    place.make_directory("directory");
    ASSERT_EQ(mkfifo(place.host_path("pipe").c_str(), 0444), 0);
    constexpr DWORD link = 0x400;
    // The attributes in a listing, and in the answer to a question about the path.
    const std::tuple<const char16_t*, const char*, DWORD, DWORD> rows[] = {
        {u"target", nullptr, 0x03, 0x03},         {u"directory", nullptr, 0x10, 0x10},
        {u"pipe", nullptr, 0x41, 0x41},           {u"link", "target", link, 0x03},
        {u"to-pipe", "pipe", link, 0x41},         {u"to-directory", "directory", link, 0x10},
        {u"dangling", "nowhere", link, link},     {u"circle", "circle", link, link},
        {u"through-file", "target/x", link, link}};
    for (const auto& [name, target, listed, asked] : rows)
        if (target)
            place.make_link(narrow(name), target);
    EXPECT_TRUE(SetFileAttributesW(u"T:\\link", 0x03));
    listing all = list(u"T:\\*");
    EXPECT_EQ(all.names.size(), std::size(rows));
    for (const auto& [name, target, listed, asked] : rows) {
        SCOPED_TRACE(narrow(name));
        const std::u16string path = place.drive_path(name);
        EXPECT_EQ(all.entries[name].dwFileAttributes, listed);
        EXPECT_EQ(all.entries[name].dwReserved0, listed == link ? 0xA000000C : 0u);
        EXPECT_EQ(GetFileAttributesW(path.c_str()), asked);
        EXPECT_EQ(list(path).entries[name].dwFileAttributes, asked);
        EXPECT_EQ(ZU_path_attributes(path.c_str()) & (ZU_PATH_DIR | ZU_PATH_FILE),
                  asked & 0x10 ? ZU_PATH_DIR : ZU_PATH_FILE);
        if (asked == link) {
            EXPECT_EQ(code_of(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_HIDDEN)), codes::not_supported);
        }
    }
    EXPECT_EQ(layer_file(u"T:\\dangling", GENERIC_WRITE, OPEN_ALWAYS).code, 0u);
    EXPECT_TRUE(place.exists("nowhere"));
}

} // namespace
