// Lifecycle, error texts and memory.
#include <regex>

#include "support/portable.h"

namespace {

uint32_t code_of_a_socket() {
    return code_of(held_socket(ZU_socket(AF_INET, SOCK_STREAM, 0)) != INVALID_SOCKET);
}

TEST(lifecycle, nested_pairs_start_once_and_stop_last) {
    ZU_init();
    ZU_init();
    ZU_shutdown();
    EXPECT_EQ(code_of_a_socket(), 0u) << "still started inside the outer pair";
    ZU_shutdown();
    EXPECT_EQ(code_of_a_socket(), codes::not_initialised);
    ZU_shutdown();
    ZU_init(); // the count is not clamped: back to 0, which starts nothing
    EXPECT_EQ(code_of_a_socket(), codes::not_initialised);

    const std::string stamp = narrow(ZU_compilation_timestamp());
    const std::regex shape("[A-Z][a-z]{2} [ 1-3][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}");
    EXPECT_TRUE(std::regex_match(stamp, shape)) << stamp;
}

TEST(error_text, codes_of_daily_life) {
    std::set<std::u16string> seen;
    const auto check = [&seen](uint32_t first, uint32_t last) {
        for (uint32_t code = first; code <= last; ++code) {
            const std::u16string text = taken(ZU_get_error_msg(code));
            EXPECT_EQ(text.back(), u'.') << code << ": the line end is taken off, the full stop stays";
            EXPECT_TRUE(seen.insert(text).second) << code << " shares its text with another code";
        }
    };
    check(1, 19);
    check(188, 202);
    check(1053, 1073);
    check(10035, 10065);
    check(11001, 11031);
    for (uint32_t code : {32,   33,   50,   80,    87,    109,   112,   122,   123,   126,   127,  145,  183,
                          206,  234,  258,  267,   995,   996,   997,   998,   1300,  1312,  1313, 1314, 1326,
                          1332, 1460, 1722, 10004, 10009, 10013, 10014, 10022, 10024, 10101, 10112})
        check(code, code);
    for (uint32_t code : {318u, 9999u, 0xFFFFFFFFu, 0xC0000005u})
        EXPECT_EQ(code_of(ZU_get_error_msg(code)), codes::unknown_message) << code;
    EXPECT_EQ(taken(ZU_get_error_msg(0x80070005)), taken(ZU_get_error_msg(codes::access_denied)))
        << "the wrapped form of a code";
}

TEST(memory, duplicates_and_the_twins) {
    EXPECT_EQ(ZU_strdup(nullptr), nullptr);
    EXPECT_EQ(ZU_strdup_dbg(nullptr, "f", 1), nullptr);
    EXPECT_EQ(taken(ZU_strdup(u"wide \u20ac")), u"wide \u20ac");
    EXPECT_EQ(taken(ZU_strdup_dbg(u"", "f", 1)), u"");
    auto* cells = static_cast<uint32_t*>(ZU_calloc_dbg(64, 4, "f", 1));
    EXPECT_EQ(std::count(cells, cells + 64, 0u), 64);
    cells[0] = 7;
    cells = static_cast<uint32_t*>(ZU_realloc_dbg(cells, 1 << 20, "f", 1));
    EXPECT_EQ(cells[0], 7u);
    ZU_free_dbg(cells, "f", 1);
    ZU_free(nullptr);
}

const part asks_for_too_much("asks for too much", [](const words& arguments) {
    ZU_memory_set_error_fp(arguments[0] == "output" ? stdout : nullptr);
    ZU_s text = nullptr;
    ZU_s_reserve(&text, 0xFFFFFFFF);
    return 0;
});

TEST(memory, a_size_beyond_32_bits_ends_the_process_with_one_line) {
    for (const std::string to : {"output", "errors"}) {
        const outcome end = child(asks_for_too_much, {to}).end();
        EXPECT_EQ(end.exit_code, exit_code_of_abort);
        const std::string& shown = to == "output" ? end.output : end.error_output;
        EXPECT_EQ(shown.substr(0, shown.find('\n')), // behind which a runtime may have a word of its own
                  "error (ZU_memory):Failed to allocate memory. size:8589934604. errno:12.");
        EXPECT_EQ((end.output + end.error_output).rfind("ZU_memory"), 7u);
    }
}

} // namespace
