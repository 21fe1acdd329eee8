// The log file: rotation, faults of the file system, and many processes on one set of files.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/process.h"
#include "zu/zu.h"

namespace fs = std::filesystem;

namespace {

std::string content(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The messages of a file's lines, each checked to be whole.
std::vector<std::string> messages(const fs::path& path) {
    std::vector<std::string> found;
    const std::string text = content(path);
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find("\r\n", at);
        if (end == std::string::npos || text.compare(at, 3, "|D:") != 0) {
            ADD_FAILURE() << "torn line: " << text.substr(at, 100);
            break;
        }
        const size_t message = text.find("|O:Windows| ", at);
        found.push_back(text.substr(message + 12, end - message - 12));
        at = end + 2;
    }
    return found;
}

int before_calls, after_calls;
ZU_bool before_answer;
ZU_bool before_write() {
    ++before_calls;
    return before_answer;
}
ZU_bool after_write() {
    ++after_calls;
    return 0;
}

// The library started, writing nothing but to a file in a directory of the test's own.
struct file_log {
    zu_test::file_place place;
    fs::path directory = place.host_path();
    fs::path path = directory / "app.log";
    std::u16string name = place.drive_path(u"app.log");

    file_log() {
        ZU_init();
        ZU_log_set_level(0x3F);
        ZU_log_set_output(ZU_LOG_OUT_FILE);
        before_calls = after_calls = 0;
        before_answer = 1;
    }
    ~file_log() { ZU_shutdown(); }

    void set(uint32_t max_size, uint32_t generations, uint32_t encoding = ZU_ENCODING_UTF8) const {
        ZU_log_set_log_file_ex(name.c_str(), 0, encoding, max_size, generations, before_write, after_write);
    }
    fs::path generation(int number) const { return path.string() + "." + std::to_string(number); }
    static bool write(const char16_t* message) { return ZU_log_write(ZU_LOG_INFO, u"%s", message) == 0x10; }
};

TEST(log_file, callbacks_bracket_the_write_and_may_refuse_it) {
    file_log log;
    EXPECT_FALSE(log.write(u"no file set"));
    log.set(1 << 20, 3);
    before_answer = 0;
    EXPECT_FALSE(log.write(u"refused"));
    EXPECT_FALSE(fs::exists(log.path));
    EXPECT_EQ(before_calls, 1);
    EXPECT_EQ(after_calls, 0);
    before_answer = 1;
    EXPECT_TRUE(log.write(u"taken \u20ac"));
    EXPECT_EQ(after_calls, 1);
    EXPECT_EQ(messages(log.path), std::vector<std::string>{"taken \xE2\x82\xAC"});
    log.set(1 << 20, 3, 0);
    EXPECT_TRUE(log.write(u"an unknown encoding gives nothing, wholly written"));
    EXPECT_EQ(messages(log.path).size(), 1u);
}

TEST(log_file, rotation_keeps_the_generations_asked_for) {
    const struct {
        uint32_t max_size, generations;
        int writes;
        std::vector<int> kept; // the message of the live file, .1, .2, ... of one line each
    } rows[] = {
        {0, 0, 3, {2}}, {0, 1, 3, {2}}, {0, 2, 3, {2, 1}}, {0, 4, 3, {2, 1, 0}}, {0, 4, 9, {8, 7, 6, 5}}};
    for (const auto& row : rows) {
        file_log log;
        log.set(row.max_size, row.generations);
        for (int i = 0; i < row.writes; ++i)
            EXPECT_TRUE(log.write(std::u16string(1, static_cast<char16_t>(u'0' + i)).c_str()));
        for (size_t i = 0; i < row.kept.size(); ++i)
            EXPECT_EQ(messages(i == 0 ? log.path : log.generation(static_cast<int>(i))),
                      std::vector<std::string>{std::to_string(row.kept[i])});
        EXPECT_FALSE(fs::exists(log.generation(static_cast<int>(row.kept.size()))));
    }
}

TEST(log_file, the_limit_counts_bytes_of_the_line_to_come) {
    file_log log;
    log.set(UINT32_MAX, 3);
    ASSERT_TRUE(log.write(u"one \u20ac"));
    const uint32_t line = static_cast<uint32_t>(fs::file_size(log.path));
    log.set(2 * line, 3);
    EXPECT_TRUE(log.write(u"two \u20ac"));
    EXPECT_EQ(messages(log.path).size(), 2u) << "exactly full";
    EXPECT_TRUE(log.write(u"3"));
    EXPECT_EQ(messages(log.path).size(), 1u);
    EXPECT_EQ(messages(log.generation(1)).size(), 2u);
    log.set(2, 3);
    EXPECT_TRUE(log.write(u"longer than the limit"));
    EXPECT_EQ(messages(log.path).size(), 1u);
}

TEST(log_file, another_file_takes_one_record_and_the_default_file_the_rest) {
    file_log log;
    log.set(1 << 20, 3);
    const std::u16string other_name = log.place.drive_path(u"errors.log");
    const ZU_log_file_settings other = {
        other_name.c_str(), 0, ZU_ENCODING_UTF8, 1 << 20, 2, nullptr, nullptr};
    EXPECT_EQ(ZU_log_write_another_file(ZU_LOG_ERROR, &other, u"%d", 1), 0x10u);
    EXPECT_EQ(ZU_log_format_message_another_file(ZU_LOG_ERROR, &other, u"%1", u"2"), 0x10u);
    EXPECT_TRUE(log.write(u"3"));
    EXPECT_EQ(messages(log.directory / "errors.log"), (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(messages(log.path), std::vector<std::string>{"3"});
}

TEST(log_file, a_name_relative_to_the_executable_is_joined_whatever_it_is) {
    file_log log;
    const std::string name = "zu-test-" + std::to_string(getpid()) + ".log";
    ZU_log_set_log_file_ex(std::u16string(name.begin(), name.end()).c_str(), 1, 2, 1 << 20, 2, nullptr,
                           nullptr);
    const fs::path beside = fs::read_symlink("/proc/self/exe").parent_path() / name;
    if (access(beside.parent_path().c_str(), W_OK) != 0)
        GTEST_SKIP() << "the directory of the test program is not this user's to write to";
    EXPECT_TRUE(log.write(u"here"));
    EXPECT_EQ(messages(beside), std::vector<std::string>{"here"});
    fs::remove(beside);
    ZU_log_set_log_file_ex(u"C:\\full.log", 1, 2, 1 << 20, 2, nullptr, nullptr);
    EXPECT_FALSE(log.write(u"no such place below the executable"));
}

TEST(log_file, what_cannot_be_rotated_or_opened) {
    file_log log;
    log.set(0, 3);
    ASSERT_TRUE(log.write(u"1"));
    for (int i : {1, 2})
        fs::create_directory(log.generation(i));
    std::ofstream(log.generation(2) / "keep");
    EXPECT_TRUE(log.write(u"2")) << "a generation that cannot be moved away: the line is appended";
    EXPECT_EQ(messages(log.path), (std::vector<std::string>{"1", "2"}));

    fs::permissions(log.path, fs::perms::owner_read);
    log.set(1 << 20, 3);
    EXPECT_TRUE(log.write(u"3")) << "a read-only file is written by the second attempt";
    EXPECT_EQ(messages(log.path).back(), "3");

    fs::remove_all(log.directory);
    EXPECT_FALSE(log.write(u"the directory is gone"));
    fs::create_directory(log.directory);
    EXPECT_TRUE(log.write(u"4"));
    EXPECT_EQ(messages(log.path), std::vector<std::string>{"4"});
}

TEST(log_file, a_symbolic_link_rotates_by_its_target_and_is_moved_itself) {
    file_log log;
    const fs::path target = log.directory / "target";
    std::ofstream(target) << "|D:|O:Windows| " << std::string(1000, 'x') << "\r\n";
    fs::create_symlink(target, log.path);
    log.set(1100, 3);
    ASSERT_TRUE(log.write(std::u16string(100, u'y').c_str()));
    EXPECT_TRUE(fs::is_symlink(log.generation(1)));
    EXPECT_FALSE(fs::is_symlink(log.path));
    EXPECT_EQ(messages(target).size(), 1u);
    EXPECT_EQ(messages(log.path).size(), 1u);
}

TEST(log_file, a_full_disk_leaves_no_half_line_and_logging_goes_on_when_there_is_room) {
    if (!zu_test::is_root())
        GTEST_SKIP() << "only root can mount a small file system";
    file_log log;
    const zu_test::small_file_system disk(log.directory, 256 * 1024);
    ASSERT_TRUE(disk.mounted());
    log.set(UINT32_MAX, 1);
    const std::u16string message(3000, u'm');
    int written = 0;
    while (written < 1000 && log.write(message.c_str()))
        ++written;
    ASSERT_LT(written, 1000);
    ASSERT_GT(written, 10);
    EXPECT_FALSE(log.write(message.c_str()));
    EXPECT_EQ(messages(log.path).size(), static_cast<size_t>(written));
    ASSERT_EQ(truncate(log.path.c_str(), 0), 0);
    EXPECT_TRUE(log.write(message.c_str()));
    EXPECT_EQ(messages(log.path).size(), 1u);
}

TEST(log_file, a_forked_child_that_lives_on_does_not_hold_the_file) {
    file_log log;
    log.set(1 << 20, 3);
    std::atomic<bool> stop{false};
    std::atomic<int> failed{0}, written{0};
    std::thread writer([&] {
        while (!stop)
            ++(log.write(u"x") ? written : failed);
    });
    std::vector<pid_t> children;
    while (written < 200) {
        if (children.size() < 40) {
            const pid_t child = fork();
            if (child == 0) {
                pause();
                _exit(0);
            }
            children.push_back(child);
        }
        std::this_thread::yield();
    }
    stop = true;
    writer.join();
    for (pid_t child : children) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(messages(log.path).size(), static_cast<size_t>(written));
}

// Writes its records and puts down, in order, the numbers of those that were reported as written.
void write_records(int process, int thread, int count, const fs::path& list) {
    std::ofstream reported(list);
    for (int i = 0; i < count; ++i)
        if (ZU_log_write(ZU_LOG_INFO, u"%d.%d.%d", process, thread, i) == 0x10)
            reported << i << "\n";
}

// One process at a time writes, and rotates, between the two callbacks.
int gate = -1;
ZU_bool take_gate() {
    flock(gate, LOCK_EX);
    return 1;
}
ZU_bool leave_gate() {
    flock(gate, LOCK_UN);
    return 1;
}

constexpr int generations = 6;

// Four processes of two threads each write into one set of files. Afterwards every line is whole, and what remains of
// each writer's records is in order, each once, and was reported. `gated`: it is the end of what was reported, without
// a gap. Without a gate two processes may rotate at the same time, and one may then move a generation over another.
void write_from_four_processes(bool gated) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr int count = 2000;
#else
    constexpr int count = 20000;
#endif
    file_log log;
    const fs::path directory = log.directory;
    if (gated)
        ZU_log_set_log_file_ex(log.name.c_str(), 0, ZU_ENCODING_UTF8, 400'000, generations, take_gate,
                               leave_gate);
    else
        log.set(400'000, generations);
    std::vector<pid_t> children;
    for (int process = 0; process < 4; ++process) {
        const pid_t child = fork();
        if (child == 0) {
            gate = open((directory / "gate").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
            std::thread other(write_records, process, 1, count,
                              directory / ("list" + std::to_string(process) + "1"));
            write_records(process, 0, count, directory / ("list" + std::to_string(process) + "0"));
            other.join();
            _exit(0);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }

    std::map<std::string, std::vector<int>> found; // from the oldest generation to the live file
    for (int i = generations - 1; i >= 0; --i)
        for (const std::string& message : messages(i == 0 ? log.path : log.generation(i))) {
            const size_t dot = message.rfind('.');
            found[message.substr(0, dot)].push_back(std::stoi(message.substr(dot + 1)));
        }
    for (int process = 0; process < 4; ++process) {
        for (int thread = 0; thread < 2; ++thread) {
            std::ifstream list(directory / ("list" + std::to_string(process) + std::to_string(thread)));
            const std::vector<int> reported((std::istream_iterator<int>(list)), std::istream_iterator<int>());
            const std::vector<int>& kept = found[std::to_string(process) + "." + std::to_string(thread)];
            EXPECT_FALSE(reported.empty());
            EXPECT_TRUE(std::is_sorted(kept.begin(), kept.end(), std::less_equal<>()))
                << "in order, each once";
            EXPECT_TRUE(std::includes(reported.begin(), reported.end(), kept.begin(), kept.end()));
            if (gated) {
                ASSERT_LE(kept.size(), reported.size());
                EXPECT_TRUE(std::equal(kept.rbegin(), kept.rend(), reported.rbegin())) << "without a gap";
            } else if (!kept.empty()) {
                EXPECT_EQ(kept.back(), reported.back()) << "the latest record is there";
            }
        }
    }
}

TEST(log_file, four_processes_that_take_turns_lose_nothing) {
    write_from_four_processes(true);
}

TEST(log_file, four_processes_on_their_own_tear_and_invent_nothing) {
    write_from_four_processes(false);
}

} // namespace
