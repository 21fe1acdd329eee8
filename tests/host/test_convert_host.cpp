// Conversions by the character set of the host's locale and by wide registers, and console output with signals.
#include "platform/text/registers.h"
#include "platform/text/utf8.h"
#include "support/test.h"

namespace {

// Texts of every kind, with and without what is malformed, in exact areas or at the end of a page: the same with wide
// registers and without.
TEST(utf8, wide_registers_change_nothing) {
    const platform::wide_registers all = platform::registers;
    std::mt19937 random(4711);
    const std::u16string kinds[] = {
        u"ab", u"\u00e9\u043f", u"\u20ac\u65e5", u"\U0001F600", {0xD800, 0xDC00, 0, 0x7FF}};
    for (int round = 0; round < 20000; ++round) {
        std::u16string wide;
        for (size_t left = random() % 150, kind = 0; left > 0; --left) {
            kind = random() % 8 ? kind : random() % std::size(kinds);
            const std::u16string& letters = kinds[kind];
            wide += kind == 3 ? letters : letters.substr(random() % letters.size(), 1);
        }
        std::string expected, spoiled;
        std::u16string expected_read;
        for (int with : {0, 1, 2}) {
            platform::registers =
                with == 2 ? all : platform::wide_registers{with == 1 && all.of_32_bytes, false};
            const size_t size = platform::utf8_size(wide.data(), wide.size());
            std::string narrow(size + 99, '-');
            for (size_t room : {size - !wide.empty(), size + random() % 2 * 90}) { // one too small at first
                ASSERT_EQ(platform::utf8_from_wide(wide.data(), wide.size(), narrow.data(), room),
                          room < size ? platform::does_not_fit : size);
                ASSERT_EQ(narrow.find_first_not_of('-', room), narrow.npos) << "written behind the area";
            }
            narrow.resize(size);
            char16_t* const at = std::copy_backward(wide.begin(), wide.end(), end_of_page());
            ASSERT_EQ(platform::wcsnlen(at, wide.size()), std::min(wide.find(u'\0'), wide.size()));
            if (with == 0)
                expected = spoiled = narrow;
            ASSERT_EQ(narrow, expected);
            for (size_t wrong = with == 0 ? random() % 3 : 0; wrong > 0 && !wide.empty(); --wrong)
                spoiled[random() % size] = "\x80\xBF\xC0\xC1\xE0\xED\xF4\xF5"[random() % 8];
            const size_t length = platform::wide_size(spoiled.data(), size);
            std::u16string read(length, u'-');
            if (length > 0) {
                ASSERT_EQ(platform::wide_from_utf8(spoiled.data(), size, read.data(), length - 1),
                          platform::does_not_fit);
                ASSERT_EQ(read.back(), u'-');
            }
            ASSERT_EQ(platform::wide_from_utf8(spoiled.data(), size, read.data(), length), length);
            expected_read = with == 0 ? read : expected_read;
            ASSERT_EQ(read, expected_read);
        }
    }
}

// The environment's character set is looked up once in a process, so that each row has a child of its own.
TEST(code_pages, the_environment_names_the_character_set) {
    const std::tuple<const char*, std::string, std::u16string, std::string, std::u16string> rows[] = {
        // clang-format off
        {"LC_ALL", "C", u"a\u20ac", "a\xE2\x82\xAC", u"a\u20ac"},
        {"LC_ALL", "", u"\u00e9", "\xC3\xA9", u"\u00e9"},
        {"LC_ALL", "nn_NO.no-such-set", u"\u00e9", "\xC3\xA9", u"\u00e9"},
        {"LC_CTYPE", "de_DE.utf8", u"\u00e9", "\xC3\xA9", u"\u00e9"},
        {"LANG", "de_DE.ISO-8859-15@euro", u"\u20ac\u00e9\u0151\u0149", "\xA4\xE9o?", u"\u20ac\u00e9o?"},
        {"LC_ALL", "x.CP1252", u"\u20ac\u0081\u2018\U0001F600\xD800", "\x80\x81\x91???", u"\u20ac\u0081\u2018???"},
        {"LC_ALL", "x.CP1252", u"\u0100\u017e\u0178\uff21\uff5e\uff5f", "A\x9E\x9F" "A~?", u"A\u017e\u0178A~?"},
        {"LC_ALL", "x.ISO-8859-7", u"\u03b1\u00d2", "\xE1?", u"\u03b1?"},
        {"LC_ALL", "ja_JP.EUC-JP", u"\u65e5a\u0e01\u672c\U0001F600", "\xC6\xFC" "a?\xCB\xDC??", u"\u65e5a?\u672c??"},
        {"LC_ALL", "x.ISO-2022-JP", u"\u65e5\u0e01\u672c", "\x1B$BF|\x1B(B?\x1B$BK\\\x1B(B", u"\u65e5?\u672c"},
        // clang-format on
    };
    for (const auto& row : rows) {
        const outcome outcome = run_child([&] {
            const auto& [variable, value, wide, narrow, back] = row;
            clearenv();
            setenv(variable, value.c_str(), 1);
            const bool is_asked_for = value.find('.') != value.npos && value.find("utf8") == value.npos;
            rlimit usual;
            getrlimit(RLIMIT_NOFILE, &usual);
            const rlimit none{0, usual.rlim_max};
            setrlimit(RLIMIT_NOFILE, &none);
            EXPECT_EQ(narrow_of(wide, ZU_ENCODING_ANSI), is_asked_for ? "" : narrow) << value;
            EXPECT_EQ(wide_of(narrow, ZU_ENCODING_ANSI), is_asked_for ? u"" : back) << value;
            EXPECT_EQ(
                code_of(platform::WideCharToMultiByte(CP_ACP, 0, u"x", 1, nullptr, 0, nullptr, nullptr)),
                is_asked_for ? codes::too_many_open_files : 0);
            setrlimit(RLIMIT_NOFILE, &usual);
            for (int i = 0; i < 2; ++i) { // no shift state is left behind
                EXPECT_EQ(narrow_of(wide, ZU_ENCODING_ANSI), narrow) << value;
                EXPECT_EQ(wide_of(narrow, ZU_ENCODING_ANSI), back) << value;
            }
            if (value == "ja_JP.EUC-JP") {
                EXPECT_EQ(wide_of("a\xFF\xC6\xFC\xC6", ZU_ENCODING_ANSI), u"a\ufffd\u65e5\ufffd");
            }
            _exit(testing::Test::HasFailure());
        });
        EXPECT_EQ(outcome.exit_code, 0) << std::get<1>(row) << outcome.output;
    }
}

bool a_broken_pipe_waits() {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

TEST(console, a_lost_reader) {
    const outcome gone = run_child([] {
        int ends[2];
        if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) < 0)
            _exit(2);
        close(ends[0]);
        const started_library started;
        ZU_log_set_output(ZU_LOG_OUT_STDOUT);
        const uint32_t taken_by = ZU_log_write(ZU_LOG_ALERT, u"a record of which flushing fails");
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        SetLastError(4711);
        const bool failed = ZU_printf_ex(u"%s", u"nobody reads this") < 0 && errno == EPIPE;
        std::fprintf(stderr, "%u %d %u %d ", taken_by, failed, GetLastError(), a_broken_pipe_waits());
        sigset_t pipe_signal;
        sigemptyset(&pipe_signal);
        sigaddset(&pipe_signal, SIGPIPE);
        sigprocmask(SIG_BLOCK, &pipe_signal, nullptr);
        raise(SIGPIPE);
        ZU_printf_ex(u"%s", u"nor this");
        std::fprintf(stderr, "%d", a_broken_pipe_waits()); // it was not this call's to take
        sigprocmask(SIG_UNBLOCK, &pipe_signal, nullptr); // which ends it: the signal is let through as before
    });
    EXPECT_EQ(gone.error_output, "0 1 4711 0 1");
    EXPECT_EQ(gone.exit_code, -SIGPIPE);
}

} // namespace
