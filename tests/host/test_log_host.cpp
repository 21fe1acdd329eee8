// Log records on closed standard streams, whose descriptors others have, and on the debugger's socket; the log file in the
// character sets and on the file systems of the host, and in directories closed to their user.
#include "support/file_log.h"
#include "support/test.h"

namespace fs = std::filesystem;

namespace {

TEST(log_streams, closed_standard_streams) {
    const file_place place;
    const outcome child = run_child([&] {
        started_library started;
        for (int stream = 0; stream < 3; ++stream)
            close(stream);
        ZU_file* const files[] = {ZU_open_file(u"T:\\a", ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS, nullptr),
                                  ZU_open_file(u"T:\\b", ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS, nullptr)};
        const held_socket sockets[] = {stream_socket(), stream_socket()};
        ZU_log_set_output(ZU_LOG_OUT_STDERR | ZU_LOG_OUT_STDOUT);
        const uint32_t taken_by = ZU_log_write(ZU_LOG_ALERT, u"a line");
        _exit(static_cast<int>(taken_by) + (files[0] && files[1] && sockets[1] > 2 ? 0 : 100));
    });
    EXPECT_EQ(child.exit_code, 0);
    EXPECT_EQ(place.read("a") + place.read("b"), "");
}

// A listener on the debugger's socket, in a runtime directory of its own, that does not read while lines come.
TEST(log_debugger, one_datagram_for_each_line) {
    const file_place place;
    setenv("XDG_RUNTIME_DIR", place.host_path().c_str(), 1);
    const int listener = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/zu-debug", place.host_path().c_str());
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const auto next = [listener] {
        std::string block(1 << 16, 0);
        return block.substr(0, static_cast<size_t>(recv(listener, block.data(), block.size(), MSG_DONTWAIT)));
    };
    started_library started;
    ZU_log_set_output(ZU_LOG_OUT_DEBUGGER);
    EXPECT_EQ(ZU_log_write(ZU_LOG_ALERT, u"gr\u00fc\u00df"), 0u);
    EXPECT_TRUE(next().ends_with(" gr\xC3\xBC\xC3\x9F\n"));
    ZU_log_write(ZU_LOG_ALERT, u"%s", std::u16string(40'000, u'\u20ac').c_str());
    const std::string cut = next();
    EXPECT_GT(cut.size(), 32u * 1024 - 3);
    EXPECT_LE(cut.size(), 32u * 1024);
    EXPECT_TRUE(cut.ends_with("\xE2\x82\xAC"));
    for (int i = 0; i < 5000; ++i) // nobody reads them, and nothing is delayed
        ZU_log_write(ZU_LOG_ALERT, u"%d", i);
    EXPECT_TRUE(next().ends_with(" 0\n")) << "the first lines wait in the socket";
}

// The environment's character set is looked up once in a process, so that it has to be set in a child.
TEST(log_file, characters_that_the_encoding_lacks) {
    const file_log log;
    const outcome child = run_child([&] {
        setenv("LC_ALL", "x.CP1252", 1);
        ZU_log_add_output(ZU_LOG_OUT_STDOUT);
        log.set(1 << 20, 3, ZU_ENCODING_ANSI);
        ZU_tm local;
        ZU_localtime(0, &local); // reads the zone's file
        rlimit memory;
        getrlimit(RLIMIT_AS, &memory);
        const rlimit none{0, memory.rlim_max};
        setrlimit(RLIMIT_AS, &none);
        if (!built_with_sanitizer && ZU_log_write(ZU_LOG_ALERT, u"no memory for a converter") != 0)
            _exit(1);
        setrlimit(RLIMIT_AS, &memory);
        ZU_log_write(ZU_LOG_ALERT, u"\u20ac \u0436 \U0001F600 \xD800");
        log.set(1 << 20, 3);
        _exit(static_cast<int>(ZU_log_write(ZU_LOG_ALERT, u"\u20ac \xD800")));
    });
    EXPECT_EQ(child.exit_code, 0x12);
    EXPECT_EQ(log.messages(), (texts{"\x80 ? ?? ?", "\xE2\x82\xAC \xEF\xBF\xBD"}));
    EXPECT_NE(child.output.find("s| \x80 ? ?? ?\n"), std::string::npos) << child.output;
}

// Where the directory cannot be listed, the numbers of generations are tried one by one, unless they are too many.
TEST(log_file, rotation_where_the_directory_cannot_be_listed) {
    as_both_users([](const file_place& place) {
        const started_library started;
        ZU_log_set_output(ZU_LOG_OUT_FILE);
        for (const uint32_t generations : {6u, 2000u}) {
            const std::string directory = std::to_string(generations), file = directory + "/app.log";
            place.make_directory(directory);
            for (const std::string suffix : {"", ".1", ".3"})
                place.write(file + suffix, suffix);
            fs::permissions(place.host_path(directory), fs::perms(0333));
            ZU_log_set_log_file_ex(place.drive_path(wide(directory + "\\app.log")).c_str(), 0,
                                   ZU_ENCODING_UTF8, 0, generations, nullptr, nullptr);
            EXPECT_EQ(ZU_log_write(ZU_LOG_ALERT, u"x"), 0x10u) << generations;
            EXPECT_EQ(place.read(file + ".2") + ' ' + place.read(file + ".3") + ' ' + place.read(file + ".4"),
                      generations == 6 || is_root() ? ".1  .3" : " .3 "); // root lists every directory
        }
    });
}

TEST(log_file, full_disk) {
    if (!is_root())
        GTEST_SKIP() << "only root can mount a small file system";
    file_log log;
    const small_file_system disk(log.place.at(""), 256 * 1024);
    ASSERT_TRUE(disk.mounted());
    log.set(UINT32_MAX, 1);
    const std::u16string message(3000, u'm');
    size_t written = 0;
    while (written < 1000 && log.write(message))
        ++written;
    EXPECT_LT(written, 1000u);
    EXPECT_EQ(log.messages().size(), written);
    ASSERT_EQ(truncate(log.place.at("app.log").c_str(), 0), 0);
    EXPECT_TRUE(log.write(message));
    EXPECT_EQ(log.messages().size(), 1u);
}

} // namespace
