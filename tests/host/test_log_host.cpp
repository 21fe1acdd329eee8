// Log records on the standard streams of the host, with its signals, and on the debugger's socket.
#include "support/test.h"

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
        char block[1 << 16];
        const ssize_t size = recv(listener, block, sizeof block, MSG_DONTWAIT);
        return size < 0 ? "<nothing>" : std::string(block, static_cast<size_t>(size));
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
    EXPECT_NE(next(), "<nothing>") << "the first lines wait in the socket";
}

} // namespace
