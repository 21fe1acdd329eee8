// Logging inside one process: switches, hooks, filter, the form of a record, traces and templates.
#include "support/portable.h"

namespace {

struct recorder {
    ZU_bool answer = 1;
    std::vector<std::u16string> messages;
    std::u16string last_prefix;
    ZU_time_t time = 0;
};

ZU_bool record_hook(void* user_data, const ZU_log_record* record) {
    auto* to = static_cast<recorder*>(user_data);
    to->messages.emplace_back(record->message, record->message_length);
    to->last_prefix.assign(record->prefix, record->prefix_length);
    to->time = record->time;
    return to->answer;
}

// The library started, writing everything to a hook and nowhere else.
struct hooked : recorder {
    started_library started;
    hooked() {
        ZU_log_set_output(ZU_LOG_OUT_HOOK);
        ZU_log_set_level(0x3F);
        ZU_log_add_hook(record_hook, static_cast<recorder*>(this));
    }
};

uint32_t constant_filter(void* user_data, uint32_t, const ZU_log_record*) {
    return *static_cast<uint32_t*>(user_data);
}

TEST(log_configuration, what_outlasts_a_stop) {
    EXPECT_EQ(ZU_log_get_output(), 0x1Au);
    uint32_t to_nothing = 0;
    recorder first;
    ZU_log_file_settings settings;
    {
        started_library started;
        EXPECT_EQ(ZU_log_set_level(0x3F), 0x38u);
        ZU_log_del_level(0x21);
        ZU_log_add_level(0x41);
        ZU_log_set_output(0);
        ZU_log_add_output(0xF02);
        ZU_log_del_output(0x100);
        EXPECT_TRUE(ZU_log_add_hook(record_hook, &first));
        EXPECT_FALSE(ZU_log_add_hook(record_hook, &first));
        EXPECT_FALSE(ZU_log_del_hook(record_hook, &to_nothing));
        EXPECT_EQ(ZU_log_get_hook_count(), 1);
        ZU_log_set_filter(constant_filter, &to_nothing);

        std::u16string name = u"C:\\logs\\a.log";
        ZU_log_set_log_file_ex(name.c_str(), 1, ZU_ENCODING_UTF8, 1000, 7, nullptr, nullptr);
        name[3] = u'X'; // the library has its own copy
        ZU_log_get_log_file(&settings);
        EXPECT_EQ(taken(const_cast<ZU_wchar*>(settings.file_name)), u"C:\\logs\\a.log");
        EXPECT_EQ(settings.max_size, 1000u);
    }
    started_library again;
    EXPECT_EQ(ZU_log_get_level(), 0x5Fu);
    EXPECT_EQ(ZU_log_get_output(), 0xE02u);
    EXPECT_EQ(ZU_log_get_hook_count(), 0);
    ZU_log_get_log_file(&settings);
    EXPECT_EQ(settings.file_name, nullptr);
    EXPECT_EQ(settings.max_size, 0u);
    EXPECT_EQ(ZU_log_write(ZU_LOG_INFO, u"held back by the filter that was kept"), 0u);
    ZU_log_set_filter(nullptr, nullptr);
}

TEST(log_record, prefix_message_and_letters) {
    hooked log;
    const uint32_t levels[] = {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x03, 0x41};
    for (size_t i = 0; i < std::size(levels); ++i) {
        ASSERT_EQ(ZU_log_write(levels[i], u"%d %s", 42, u"words"), 0x04u);
        EXPECT_EQ(log.messages.back(), u"42 words");
        ZU_wchar when[20];
        ASSERT_TRUE(ZU_write_time_t(log.time, when));
        char tail[64];
        std::snprintf(tail, sizeof tail, "|P:%5u|T:%5u|L:%c|O:Windows| ", ZU_get_current_process_id(),
                      ZU_get_current_thread_id(), "TDIWEA??"[i]);
        EXPECT_EQ(log.last_prefix, u"|D:" + std::u16string(when) + wide(tail));
    }
    for (const std::u16string& message : {std::u16string(2'000'000, u'h'), std::u16string(u"small again")}) {
        ASSERT_EQ(ZU_log_write(1, u"%s", message.c_str()), 0x04u);
        EXPECT_TRUE(log.messages.back() == message);
    }
    EXPECT_EQ(ZU_log_write(0x40, u"outside the mask"), 0u);
    ZU_log_set_output(0);
    EXPECT_EQ(ZU_log_write(0x01, u"no output"), 0u);
}

TEST(log_record, every_hook_is_called_and_one_answer_is_enough) {
    hooked log;
    recorder second, third;
    log.answer = third.answer = 0;
    ZU_log_add_hook(record_hook, &second);
    ZU_log_add_hook(record_hook, &third);
    EXPECT_EQ(ZU_log_write(1, u"x"), 0x04u);
    second.answer = 0;
    EXPECT_EQ(ZU_log_write(1, u"x"), 0u);
    third.answer = 1;
    EXPECT_TRUE(ZU_log_del_hook(record_hook, &second));
    uint32_t chosen = ZU_LOG_OUT_HOOK;
    ZU_log_set_output(ZU_LOG_OUT_STDOUT);
    ZU_log_set_filter(constant_filter, &chosen);
    EXPECT_EQ(ZU_log_write(1, u"x"), 0x04u) << "the filter's outputs stand in place of the mask";
    EXPECT_EQ(log.messages.size() * 100 + second.messages.size() * 10 + third.messages.size(), 323u);
    EXPECT_EQ(ZU_log_clear_hook(), 2);
    ZU_log_set_filter(nullptr, nullptr);
}

TEST(log_record, traces_and_templates) {
    hooked log;
    const std::u16string long_name(300, u'n');
    ZU_trace_enter(u"f", nullptr);
    ZU_trace_enter(u"f", u"%d", 1);
    ZU_trace_leave(u"f", nullptr);
    ZU_trace_leave(u"f", u"%s%%", u"100");
    ZU_trace(u"f", u"at %s", u"%d is no format");
    ZU_trace(long_name.c_str(), u"");
    ZU_log_format_message(ZU_LOG_INFO, u"%2 before %1, %1%%", u"b", u"a");
    ZU_log_format_message(ZU_LOG_INFO, u"%0");
    const std::vector<std::u16string> expected = {u"->>: f()",
                                                  u"->>: f(): 1",
                                                  u"<<-: f()",
                                                  u"<<-: f(): 100%",
                                                  u"     f(): at %d is no format",
                                                  u"     " + long_name + u"(): ",
                                                  u"a before b, b%",
                                                  u""};
    EXPECT_EQ(log.messages, expected);
    ZU_log_set_level(0x38);
    EXPECT_EQ(ZU_trace_enter(u"f", nullptr) + ZU_trace_leave(u"f", nullptr) + ZU_trace(u"f", u"x"), 0u);
    EXPECT_EQ(ZU_log_format_message(ZU_LOG_INFO, u"%1", u"x"), 0u);
}

const part logs_to_streams("logs to streams", [](const words&) -> int {
    started_library started;
    ZU_log_set_output(ZU_LOG_OUT_STDERR | ZU_LOG_OUT_STDOUT);
    std::setvbuf(stdout, nullptr, _IOFBF, 4096);
    const uint32_t both = ZU_log_write(ZU_LOG_ALERT, u"50%% \u20ac \xD800 end");
    std::_Exit(
        static_cast<int>(both << 4 | ZU_log_write(ZU_LOG_ALERT, u"once more"))); // which flushes nothing
});

TEST(log_streams, records_as_another_process_sees_them) {
    const outcome end = child(logs_to_streams).end();
    EXPECT_EQ(end.exit_code, 0x33);
    EXPECT_EQ(end.output, end.error_output);
    const std::string first = "|O:Windows| " + narrow_of(u"50% \u20ac \xD800 end\n|", ZU_ENCODING_ANSI);
    EXPECT_EQ(end.output.find(first), end.output.find("|O:")) << end.output;
    EXPECT_TRUE(end.output.starts_with("|D:") && end.output.ends_with("|O:Windows| once more\n"));
}

TEST(log_concurrency, changes_while_threads_write) {
    started_library started;
    ZU_log_set_level(0x3F);
    ZU_log_set_output(ZU_LOG_OUT_HOOK);
    static std::atomic<int> inside{0}, calls{0};
    const auto hook = [](void*, const ZU_log_record* record) -> ZU_bool {
        EXPECT_EQ(inside.fetch_add(1), 0) << "one record at a time";
        EXPECT_EQ(record->message[0], u'm');
        ++calls;
        inside.fetch_sub(1);
        return 1;
    };
    std::atomic<bool> stop{false};
    crew writers;
    for (int i = 0; i < 8; ++i)
        writers.add([&] {
            while (!stop)
                ZU_log_write(ZU_LOG_INFO, u"m%d", 1);
        });
    uint32_t hooks_and_file = ZU_LOG_OUT_HOOK | ZU_LOG_OUT_FILE;
    for (int i = 0; i < 500 || calls == 0; ++i) {
        ZU_log_add_hook(hook, nullptr);
        ZU_log_set_filter(constant_filter, &hooks_and_file);
        ZU_log_add_hook(hook, &hooks_and_file);
        ZU_log_set_filter(nullptr, nullptr);
        ZU_log_del_hook(hook, nullptr);
        EXPECT_EQ(ZU_log_clear_hook(), 1);
    }
    stop = true;
    writers.join();
}

} // namespace
