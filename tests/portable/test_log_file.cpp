// The log file: rotation, encodings, obstacles, and several processes on one set of files.
#include "support/file_log.h"
#include "support/portable.h"

namespace {

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

// Gaps between the numbers stay, whatever the letter case, and so does what only looks like a generation.
TEST(log_file, rotation_moves_what_is_there_and_nothing_else) {
    const std::tuple<std::string, uint32_t, std::string> rows[] = {
        {"App.Log", 6, " .05=.05 .1.1=.1.1 .1=live .2=.1 .4=.3 .7=.7"},
        {"app.log", 2000, " .05=.05 .1.1=.1.1 .1=live .2=.1 .4=.3 .6=.5 .8=.7"}};
    for (const auto& [spelling, generations, wanted] : rows) {
        const file_log log;
        log.place.write("app.log", "live");
        for (const std::string suffix : {".1", ".3", ".5", ".05", ".7", ".1.1"})
            log.place.write(spelling + suffix, suffix);
        log.set(0, generations);
        EXPECT_TRUE(log.write(u"x"));
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(log.place.at("")))
            if (const std::string file = narrow(entry.path().filename().u16string()); file.size() > 7)
                found.insert(' ' + file.substr(7) + '=' + log.place.read(file));
        EXPECT_EQ(std::accumulate(found.begin(), found.end(), std::string()), wanted) << generations;
    }
}

TEST(log_file, the_limit_counts_bytes_of_the_line_to_come) {
    file_log log;
    log.set(UINT32_MAX, 3);
    ASSERT_TRUE(log.write(u"one \u20ac"));
    log.set(2 * static_cast<uint32_t>(log.place.read("app.log").size()), 3);
    for (const char16_t* message : {u"two \u20ac", u"3"})
        EXPECT_TRUE(log.write(message));
    EXPECT_EQ(log.messages("app.log.1"), (texts{"one \xE2\x82\xAC", "two \xE2\x82\xAC"})) << "exactly full";
    EXPECT_EQ(log.messages(), texts{"3"});
}

TEST(log_file, names_relative_to_the_executable) {
    file_log log;
    const std::string name = "zu-test-" + std::to_string(ZU_get_current_process_id()) + ".log";
    ZU_log_set_log_file_ex(wide(name).c_str(), 1, 2, 1 << 20, 2, nullptr, nullptr);
    const std::u16string beside = taken(ZU_generate_local_path(wide(name).c_str()));
    if (!log.write(u"here"))
        GTEST_SKIP() << "the directory of the test program is not this user's to write to";
    EXPECT_TRUE(ZU_delete_file(beside.c_str())) << narrow(beside);
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

    ASSERT_TRUE(ZU_set_file_platform_attributes(log.name.c_str(), FILE_ATTRIBUTE_READONLY));
    log.set(1 << 20, 3);
    EXPECT_TRUE(log.write(u"3")) << "a read-only file is written by the second attempt";
    EXPECT_EQ(log.messages(), (texts{"1", "2", "3"}));

    ZU_log_set_log_file_ex(u"T:\\no\\app.log", 0, ZU_ENCODING_UTF8, 1 << 20, 3, nullptr, nullptr);
    EXPECT_FALSE(log.write(u"there is no directory"));
}

// Four processes write into one set of files, and one at a time writes, and rotates, between the two callbacks.
// Afterwards every line is whole, and what remains of each writer's records is their end, in order and without a gap.
ZU_lock_process gate = nullptr;

ZU_bool take_gate() {
    return ZU_lock_process_lock(gate);
}

ZU_bool leave_gate() {
    return ZU_lock_process_unlock(gate);
}

const part writes("writes", [](const words& arguments) {
    gate = ZU_lock_process_create(wide(arguments[2]).c_str());
    const started_library started;
    ZU_log_set_output(ZU_LOG_OUT_FILE);
    ZU_log_set_log_file_ex(u"T:\\app.log", 0, ZU_ENCODING_UTF8, 200'000, 6, take_gate, leave_gate);
    for (int i = 0, count = std::stoi(arguments[1]); i < count; ++i)
        if (ZU_log_write(ZU_LOG_ALERT, u"%s%d", wide(arguments[0]).c_str(), i) != 0x10)
            return 1;
    return ZU_lock_process_close(gate) ? 0 : 2;
});

TEST(log_file, four_processes_that_take_turns_lose_nothing) {
    const size_t count = built_with_sanitizer ? 2000 : 10000; // a sanitizer is slow
    const file_log log;
    const std::string lock = "zu-test-gate-" + std::to_string(ZU_get_current_process_id());
    std::vector<std::unique_ptr<child>> writers;
    for (const std::string writer : {"a", "b", "c", "d"})
        writers.push_back(std::make_unique<child>(writes, words{writer, std::to_string(count), lock}));
    for (const auto& writer : writers)
        EXPECT_EQ(writer->finish(), 0);

    std::map<char, std::vector<size_t>> found; // by writer, oldest first
    for (int i = 5; i >= 0; --i)
        for (const std::string& message : log.messages(log.generation(i)))
            found[message[0]].push_back(std::stoul(message.substr(1)));
    EXPECT_FALSE(found.empty());
    for (const auto& [writer, kept] : found)
        for (size_t i = 0; i < kept.size(); ++i)
            ASSERT_EQ(kept[i], count - kept.size() + i) << writer;
}

} // namespace
