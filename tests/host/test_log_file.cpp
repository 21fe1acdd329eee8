// The log file: rotation, encodings, faults of the file system, and many processes on one set of files. About Linux:
// processes are forked and killed, and small file systems are mounted.
#include "support/test.h"

namespace fs = std::filesystem;

namespace {

using texts = std::vector<std::string>;

// The library started, writing nothing but to a file in a directory of the test's own.
struct file_log {
    file_place place;
    std::string path = place.host_path("app.log");
    std::u16string name = place.drive_path(u"app.log");

    file_log() {
        ZU_init();
        ZU_log_set_level(0x3F);
        ZU_log_set_output(ZU_LOG_OUT_FILE);
    }
    ~file_log() { ZU_shutdown(); }

    void set(uint32_t max_size, uint32_t generations, uint32_t encoding = ZU_ENCODING_UTF8,
             ZU_log_file_callback before = nullptr, ZU_log_file_callback after = nullptr) const {
        ZU_log_set_log_file_ex(name.c_str(), 0, encoding, max_size, generations, before, after);
    }
    static std::string generation(int number) {
        return number == 0 ? "app.log" : "app.log." + std::to_string(number);
    }
    static bool write(const std::u16string& message) {
        return ZU_log_write(ZU_LOG_INFO, u"%s", message.c_str()) == 0x10;
    }

    // The messages of a file's lines, each checked to be whole.
    texts messages(const std::string& file = "app.log") const {
        texts found;
        std::istringstream text(place.read(file));
        for (std::string line; std::getline(text, line);) {
            const size_t message = line.find("|O:Windows| ") + 12;
            EXPECT_EQ(line.substr(0, 3) + line.back(), "|D:\r") << "torn: " << line;
            EXPECT_GT(message, 12u) << "torn: " << line;
            found.push_back(line.substr(message, line.size() - message - 1));
        }
        return found;
    }
};

TEST(log_file, callbacks_and_another_file) {
    file_log log;
    EXPECT_FALSE(log.write(u"no file set"));
    static int before_calls = 0, after_calls = 0;
    const auto refuse_the_first = []() -> ZU_bool { return ++before_calls > 1; };
    const auto after = []() -> ZU_bool { return ++after_calls < 0; };
    log.set(1 << 20, 3, ZU_ENCODING_UTF8, refuse_the_first, after);
    EXPECT_FALSE(log.write(u"refused"));
    EXPECT_FALSE(log.place.exists("app.log"));
    EXPECT_EQ(after_calls, 0);
    EXPECT_TRUE(log.write(u"taken"));
    EXPECT_EQ(after_calls, 1);

    const std::u16string other_name = log.place.drive_path(u"errors.log");
    const ZU_log_file_settings other = {
        other_name.c_str(), 0, ZU_ENCODING_UTF8, 1 << 20, 2, nullptr, nullptr};
    EXPECT_EQ(ZU_log_write_another_file(ZU_LOG_ERROR, &other, u"%d", 1), 0x10u);
    EXPECT_EQ(ZU_log_format_message_another_file(ZU_LOG_ERROR, &other, u"%1", u"2"), 0x10u);
    EXPECT_EQ(log.messages("errors.log"), (texts{"1", "2"}));
    EXPECT_EQ(log.messages(), texts{"taken"});

    // A record that is not wanted waits for nobody, not even for one that is being written to another file.
    const auto write_unwanted = []() -> ZU_bool {
        std::thread([] {
            const ZU_log_file_settings none{};
            EXPECT_EQ(ZU_log_write_another_file(0x40, &none, u"outside the mask"), 0u);
        }).join();
        return 0;
    };
    const ZU_log_file_settings held = {other_name.c_str(), 0,      ZU_ENCODING_UTF8, 0, 2,
                                       write_unwanted,     nullptr};
    EXPECT_EQ(ZU_log_write_another_file(ZU_LOG_ERROR, &held, u"refused"), 0u);
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
        const rlim_t usual = std::exchange(memory.rlim_cur, 0);
        setrlimit(RLIMIT_AS, &memory);
        if (!address_space_is_not_limited() && ZU_log_write(ZU_LOG_INFO, u"no memory for a converter") != 0)
            _exit(1);
        memory.rlim_cur = usual;
        setrlimit(RLIMIT_AS, &memory);
        ZU_log_write(ZU_LOG_INFO, u"\u20ac \u0436 \U0001F600 \xD800");
        log.set(1 << 20, 3);
        _exit(static_cast<int>(ZU_log_write(ZU_LOG_INFO, u"\u20ac \xD800")));
    });
    EXPECT_EQ(child.exit_code, 0x12);
    EXPECT_EQ(log.messages(), (texts{"\x80 ? ?? ?", "\xE2\x82\xAC \xEF\xBF\xBD"}));
    EXPECT_NE(child.output.find("s| \x80 ? ?? ?\n"), std::string::npos) << child.output;
}

TEST(log_file, rotation_keeps_the_generations_asked_for) {
    const texts all = {"4", "3", "2", "1", "0"};
    const std::pair<uint32_t, texts> rows[] = {
        {0, {"4"}}, {1, {"4"}},        {2, {"4", "3"}},  {4, {"4", "3", "2", "1"}},
        {9, all},   {0x80000001, all}, {0xFFFFFFFF, all}};
    for (const auto& [generations, kept] : rows) {
        file_log log;
        log.set(0, generations);
        for (const char16_t* message : {u"0", u"1", u"2", u"3", u"4"})
            EXPECT_TRUE(log.write(message));
        for (int file = 0; file < 6; ++file)
            EXPECT_EQ(log.messages(log.generation(file)),
                      file < std::ssize(kept) ? texts{kept[file]} : texts{})
                << generations << " generations, number " << file;
    }
}

// Where the directory cannot be listed, numbers are tried one by one, unless they are too many.
TEST(log_file, rotation_moves_what_is_there_and_nothing_else) {
    as_both_users([](const file_place& place) {
        const started_library started;
        ZU_log_set_output(ZU_LOG_OUT_FILE);
        const struct {
            std::string directory, spelling;
            int mode;
            uint32_t generations;
            std::string suffixes_and_contents;
        } rows[] = {
            {"a", "App.Log", 0755, 6, " .05=.05 .1.1=.1.1 .1= .2=.1 .4=.3 .7=.7"},
            {"b", "app.log", 0755, 2000, " .05=.05 .1.1=.1.1 .1= .2=.1 .4=.3 .6=.5 .8=.7"},
            {"c", "app.log", 0333, 6, " .05=.05 .1.1=.1.1 .1= .2=.1 .4=.3 .7=.7"},
            {"d", "app.log", is_root() ? 0755 : 0333, 2000,
             is_root() ? " .05=.05 .1.1=.1.1 .1= .2=.1 .4=.3 .6=.5 .8=.7"
                       : " .05=.05 .1.1=.1.1 .1=.1 .3=.3 .5=.5 .7=.7"},
        };
        for (const auto& row : rows) {
            place.make_directory(row.directory);
            place.write(row.directory + "/app.log", "");
            for (const std::string suffix : {".1", ".3", ".5", ".05", ".7", ".1.1"})
                place.write(row.directory + "/" + row.spelling + suffix, suffix);
            const fs::path directory = place.host_path(row.directory);
            fs::permissions(directory, fs::perms(row.mode));
            ZU_log_set_log_file_ex(place.drive_path(wide(row.directory + "\\app.log")).c_str(), 0,
                                   ZU_ENCODING_UTF8, 0, row.generations, nullptr, nullptr);
            EXPECT_EQ(ZU_log_write(ZU_LOG_ALERT, u"x"), 0x10u) << row.directory;
            fs::permissions(directory, fs::perms(0755));
            std::set<std::string> found;
            for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
                const std::string file = entry.path().filename();
                if (file.size() > 7)
                    found.insert(" " + file.substr(7) + "=" + place.read(row.directory + "/" + file));
            }
            EXPECT_EQ(std::accumulate(found.begin(), found.end(), std::string()), row.suffixes_and_contents)
                << row.directory;
        }
    });
}

TEST(log_file, the_limit_counts_bytes_of_the_line_to_come) {
    file_log log;
    log.set(UINT32_MAX, 3);
    ASSERT_TRUE(log.write(u"one \u20ac"));
    log.set(2 * static_cast<uint32_t>(fs::file_size(log.path)), 3);
    for (const char16_t* message : {u"two \u20ac", u"3"})
        EXPECT_TRUE(log.write(message));
    EXPECT_EQ(log.messages("app.log.1"), (texts{"one \xE2\x82\xAC", "two \xE2\x82\xAC"})) << "exactly full";
    EXPECT_EQ(log.messages(), texts{"3"});
}

TEST(log_file, names_relative_to_the_executable) {
    file_log log;
    const std::string name = "zu-test-" + std::to_string(getpid()) + ".log";
    ZU_log_set_log_file_ex(wide(name).c_str(), 1, 2, 1 << 20, 2, nullptr, nullptr);
    const fs::path directory = fs::read_symlink("/proc/self/exe").parent_path();
    if (access(directory.c_str(), W_OK) != 0)
        GTEST_SKIP() << "the directory of the test program is not this user's to write to";
    EXPECT_TRUE(log.write(u"here"));
    EXPECT_GT(fs::file_size(directory / name), 4u);
    fs::remove(directory / name);
    ZU_log_set_log_file_ex(u"C:\\full.log", 1, 2, 1 << 20, 2, nullptr, nullptr);
    EXPECT_FALSE(log.write(u"no such place below the executable"));
}

TEST(log_file, obstacles_to_rotation) {
    file_log log;
    log.set(0, 3);
    ASSERT_TRUE(log.write(u"1"));
    log.place.make_directory("app.log.1");
    log.place.make_directory("app.log.2");
    log.place.write("app.log.2/keep", "");
    EXPECT_TRUE(log.write(u"2")) << "a generation that cannot be moved away: the line is appended";
    EXPECT_EQ(log.messages(), (texts{"1", "2"}));

    fs::permissions(log.path, fs::perms::owner_read);
    log.set(1 << 20, 3);
    EXPECT_TRUE(log.write(u"3")) << "a read-only file is written by the second attempt";
    EXPECT_EQ(log.messages(), (texts{"1", "2", "3"}));

    fs::remove_all(log.place.host_path());
    EXPECT_FALSE(log.write(u"the directory is gone"));
}

TEST(log_file, full_disk) {
    if (!is_root())
        GTEST_SKIP() << "only root can mount a small file system";
    file_log log;
    const small_file_system disk(log.place.host_path(), 256 * 1024);
    ASSERT_TRUE(disk.mounted());
    log.set(UINT32_MAX, 1);
    const std::u16string message(3000, u'm');
    size_t written = 0;
    while (written < 1000 && log.write(message))
        ++written;
    ASSERT_GT(written, 10u);
    ASSERT_LT(written, 1000u);
    EXPECT_EQ(log.messages().size(), written);
    ASSERT_EQ(truncate(log.path.c_str(), 0), 0);
    EXPECT_TRUE(log.write(message));
    EXPECT_EQ(log.messages().size(), 1u);
}

TEST(log_file, forked_children_hold_no_file) {
    file_log log;
    log.set(UINT32_MAX, 3);
    std::atomic<bool> stop{false};
    std::atomic<size_t> failed{0}, written{0};
    std::thread writer([&] {
        while (!stop)
            ++(log.write(u"x") ? written : failed);
    });
    {
        std::vector<std::unique_ptr<holder>> children; // forked in the midst of a line, now and then
        for (size_t i = 1; i <= 40; ++i) {
            children.push_back(std::make_unique<holder>([] { return 0u; }));
            while (written + failed < 5 * i)
                std::this_thread::yield();
        }
        stop = true;
        writer.join();
    }
    EXPECT_EQ(failed, 0u);
    EXPECT_EQ(log.messages().size(), written);
}

// Four processes write into one set of files, and one at a time writes, and rotates, between the two callbacks.
// Afterwards every line is whole, and what remains of each writer's records is the end of what was reported as written,
// in order and without a gap.
TEST(log_file, four_processes_that_take_turns_lose_nothing) {
    const int count = address_space_is_not_limited() ? 2000 : 20000; // a sanitizer is slow
    static int gate = -1;
    const auto take_gate = []() -> ZU_bool { return flock(gate, LOCK_EX) == 0; };
    const auto leave_gate = []() -> ZU_bool { return flock(gate, LOCK_UN) == 0; };
    file_log log;
    log.set(200'000, 6, ZU_ENCODING_UTF8, take_gate, leave_gate);
    std::vector<pid_t> children;
    for (const std::string writer : {"a", "b", "c", "d"}) {
        children.push_back(fork());
        if (children.back() != 0)
            continue;
        gate = open(log.place.host_path("gate").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
        std::ofstream reported(log.place.host_path("list" + writer));
        for (int i = 0; i < count; ++i)
            if (log.write(wide(writer + std::to_string(i))))
                reported << i << "\n";
        reported.close();
        _exit(0);
    }
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }

    std::map<char, std::vector<int>> found; // by writer, oldest first
    for (int i = 5; i >= 0; --i)
        for (const std::string& message : log.messages(log.generation(i)))
            found[message[0]].push_back(std::stoi(message.substr(1)));
    EXPECT_FALSE(found.empty());
    for (const char writer : {'a', 'b', 'c', 'd'}) {
        std::ifstream list(log.place.host_path(std::string("list") + writer));
        const std::vector<int> reported((std::istream_iterator<int>(list)), std::istream_iterator<int>());
        const std::vector<int>& kept = found[writer];
        ASSERT_FALSE(reported.empty()) << writer;
        ASSERT_LE(kept.size(), reported.size()) << writer;
        EXPECT_TRUE(std::equal(kept.rbegin(), kept.rend(), reported.rbegin())) << writer;
    }
}

} // namespace
