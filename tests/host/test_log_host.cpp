// Log records on the standard streams of the host, with its signals, and on the debugger's socket; the log file in the
// character sets and on the file systems of the host, in directories closed to their user, and with forked children.
#include "support/file_log.h"
#include "support/test.h"

namespace fs = std::filesystem;

namespace {

TEST(log_streams, result_and_pipes_without_reader) {
    const outcome child = run_child([] {
        setenv("LC_ALL", "C.UTF-8", 1);
        started_library started;
        dup2(STDOUT_FILENO, STDERR_FILENO);
        ZU_log_set_output(ZU_LOG_OUT_STDERR | ZU_LOG_OUT_STDOUT);
        setvbuf(stdout, nullptr, _IOFBF, 4096);
        const uint32_t both = ZU_log_write(ZU_LOG_ALERT, u"50%% \u20ac \xD800 end");
        int ends[2];
        if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) != STDOUT_FILENO || close(ends[0]) != 0)
            _exit(0xFF);
        std::signal(SIGPIPE, SIG_DFL);
        _exit(static_cast<int>(both << 4 | ZU_log_write(ZU_LOG_ALERT, u"to one")));
    });
    EXPECT_EQ(child.exit_code, (ZU_LOG_OUT_STDERR | ZU_LOG_OUT_STDOUT) << 4 | ZU_LOG_OUT_STDERR);
    std::string messages;
    std::istringstream output(child.output);
    for (std::string line; std::getline(output, line); messages += line.substr(line.find("s| ")))
        EXPECT_TRUE(line.starts_with("|D:")) << line;
    const std::string taken_twice = "s| 50% \xE2\x82\xAC \xEF\xBF\xBD end";
    EXPECT_EQ(messages, taken_twice + taken_twice + "s| to one");
}

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

// Where the directory cannot be listed, numbers are tried one by one, unless they are too many.
TEST(log_file, rotation_moves_what_is_there_and_nothing_else) {
    as_both_users([](const file_place& place) {
        const started_library started;
        ZU_log_set_output(ZU_LOG_OUT_FILE);
        const std::string six = " .05=.05 .1.1=.1.1 .1= .2=.1 .4=.3 .7=.7",
                          all = " .05=.05 .1.1=.1.1 .1= .2=.1 .4=.3 .6=.5 .8=.7",
                          none = " .05=.05 .1.1=.1.1 .1=.1 .3=.3 .5=.5 .7=.7";
        const std::tuple<std::string, std::string, int, uint32_t, std::string> rows[] = {
            {"a", "App.Log", 0755, 6, six},
            {"b", "app.log", 0755, 2000, all},
            {"c", "app.log", 0333, 6, six},
            {"d", "app.log", 0333, 2000, is_root() ? all : none}}; // root lists every directory
        for (const auto& [name, spelling, mode, generations, wanted] : rows) {
            place.make_directory(name);
            place.write(name + "/app.log", "");
            for (const std::string suffix : {".1", ".3", ".5", ".05", ".7", ".1.1"})
                place.write(name + "/" + spelling + suffix, suffix);
            const fs::path directory = place.host_path(name);
            fs::permissions(directory, fs::perms(mode));
            ZU_log_set_log_file_ex(place.drive_path(wide(name + "\\app.log")).c_str(), 0, ZU_ENCODING_UTF8, 0,
                                   generations, nullptr, nullptr);
            EXPECT_EQ(ZU_log_write(ZU_LOG_ALERT, u"x"), 0x10u) << name;
            fs::permissions(directory, fs::perms(0755));
            std::set<std::string> found;
            for (const fs::directory_entry& entry : fs::directory_iterator(directory))
                if (const std::string file = entry.path().filename(); file.size() > 7)
                    found.insert(" " + file.substr(7) + "=" + place.read(name + "/" + file));
            EXPECT_EQ(std::accumulate(found.begin(), found.end(), std::string()), wanted) << name;
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

TEST(log_file, forked_children_hold_no_file) {
    file_log log;
    log.set(UINT32_MAX, 3);
    std::atomic<size_t> written{0};
    std::atomic<bool> stop{false};
    std::vector<std::unique_ptr<holder>> children; // forked in the midst of a line, now and then
    crew writer;
    writer.add([&] {
        for (; !stop; ++written)
            EXPECT_TRUE(log.write(u"x"));
    });
    for (size_t i = 1; i <= 40; ++i) {
        children.push_back(std::make_unique<holder>([] { return 0u; }));
        while (written < 5 * i)
            std::this_thread::yield();
    }
    stop = true;
    writer.join();
    EXPECT_EQ(log.messages().size(), written);
}

} // namespace
