// Lifecycle, error texts, memory, and what the built library shows to the outside. About Linux: exports of a shared
// object, and limits on memory.
#include <dlfcn.h>
#include <regex>
#include <sys/mman.h>

#include "support/test.h"

namespace {

TEST(lifecycle, nested_pairs_start_once_and_stop_last) {
    platform::WSADATA record;
    ZU_init();
    ZU_init();
    ZU_shutdown();
    EXPECT_EQ(platform::WSACleanup(), 0) << "still started inside the outer pair";
    ASSERT_EQ(platform::WSAStartup(0x0202, &record), 0);
    ZU_shutdown();
    EXPECT_EQ(code_of(platform::WSACleanup() == 0), codes::not_initialised);
    ZU_shutdown();
    ZU_init(); // the count is not clamped: back to 0, which starts nothing
    EXPECT_EQ(code_of(platform::WSACleanup() == 0), codes::not_initialised);

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

    ZU_wchar buffer[64];
    const auto format = [&](uint32_t size) {
        return platform::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 2, 0, buffer, size, nullptr);
    };
    const uint32_t whole = format(64);
    EXPECT_TRUE(std::u16string_view(buffer, whole).ends_with(u".\r\n"));
    EXPECT_EQ(code_of(format(whole)), codes::insufficient_buffer);
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

// 2^31 - 1 units, whose bytes with the terminator are 4 GiB: one block of memory, mapped over and over. Null where all
// addresses together are 4 GiB.
const ZU_wchar* longest_text() {
    if (sizeof(size_t) == sizeof(uint32_t))
        return nullptr;
    const size_t bytes = size_t{0xFFFFFFFF} + 1, block = 1 << 21;
    const std::vector<char> letters(block, 'a');
    const int fd = memfd_create("text", 0);
    auto* const text =
        static_cast<char*>(mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (write(fd, letters.data(), block) != static_cast<ssize_t>(block) || text == MAP_FAILED)
        std::abort();
    for (size_t at = 0; at < bytes; at += block)
        mmap(text + at, block, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, fd, 0);
    text[bytes - 2] = text[bytes - 1] = 0;
    close(fd);
    return reinterpret_cast<const ZU_wchar*>(text);
}

// The child runs out of address space, so that the allocator fails for real.
TEST(memory, exhaustion_writes_one_line_and_aborts) {
    if (address_space_is_not_limited())
        GTEST_SKIP() << "a sanitizer's shadow memory does not live under an address-space limit";
    static const std::u16string text(100u << 20, u'x');
    static const ZU_wchar* const longest = longest_text();
    if (longest) {
        uint32_t count = 1;
        ZU_free(ZU_char_2_wchar(ZU_ENCODING_UTF8, reinterpret_cast<const char*>(longest), -1, &count));
        EXPECT_EQ(count, 0u) << "more bytes than the platform counts";
    }
    const std::pair<std::string, void (*)()> rows[] = {
        // the size that is reported
        // clang-format off
        {"3221225472", [] { ZU_malloc(3u << 30); }},          {"3221225472", [] { ZU_calloc(3u << 28, 4); }},
        {"3221225472", [] { ZU_realloc(nullptr, 3u << 30); }}, {"0", [] { ZU_calloc(0x10000, 0x10000); }}, // it wraps
        {"3221225472", [] { ZU_malloc_dbg(3u << 30, "f", 1); }},
        {"209715202", [] { for (int i = 0; i < 20; ++i) ZU_strdup(text.c_str()); }},
        {"1610612876", [] { ZU_s s = nullptr; ZU_s_reserve(&s, 0x30000000); }},
        {"8589934604", [] { ZU_s s = nullptr; ZU_s_reserve(&s, 0xFFFFFFFF); }},
        {"4294967344", [] { ZU_buf b{}; ZU_buf_append(&b, 0xFFFFFFF0, "", 0x40); }},
        {"1073742092", [] { ZU_s s = nullptr; ZU_s_sprintf(&s, u"%2147483647d%5d", 1, 1); }},
        {"4294967296", [] { ZU_strdup(longest); }},
        {"4294967308", [] { ZU_s s = nullptr; ZU_s_insert(&s, 0, longest); }},
        // clang-format on
    };
    for (size_t i = 0; i < std::size(rows) - (longest ? 0 : 2); ++i) {
        const bool redirected = i % 2 != 0;
        const outcome child = run_child([&] {
            if (redirected)
                ZU_memory_set_error_fp(stdout);
            const rlim_t room = longest ? 5ull << 30 : 1ull << 30; // of which that text takes 4 GiB
            const rlimit limit{room, room};
            if (setrlimit(RLIMIT_AS, &limit) == 0)
                rows[i].second();
        });
        EXPECT_EQ(child.signal, SIGABRT) << "row " << i;
        EXPECT_EQ(redirected ? child.output : child.error_output,
                  "error (ZU_memory):Failed to allocate memory. size:" + rows[i].first + ". errno:12.\n");
        EXPECT_EQ(redirected ? child.error_output : child.output, "");
    }
}

// The library as others have it, which a program may load and let go while it runs.
template <class Function>
Function* in_library(void* library, const char* name) {
    return reinterpret_cast<Function*>(dlsym(library, name));
}

TEST(library, loading_and_reports_from_containers) {
    void* const library = dlopen(ZU_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    std::thread([&] {
        ZU_lock_process lock =
            in_library<decltype(ZU_lock_process_create)>(library, "ZU_lock_process_create")(nullptr);
        EXPECT_TRUE(in_library<decltype(ZU_lock_process_lock)>(library, "ZU_lock_process_lock")(lock));
        dlclose(library);
    }).join();
    if (address_space_is_not_limited())
        return;
    const outcome child = run_child([&] {
        const auto open_stream = in_library<decltype(ZU_fopen)>(library, "ZU_fopen");
        const rlimit limit{1u << 28, 1u << 28};
        setrlimit(RLIMIT_AS, &limit);
        for (size_t size = 1 << 20; size >= 16; size -= size > 1024 ? size / 2 : 8) {
            while (std::malloc(size)) {}
        }
        open_stream(u"C:\\a directory with a long name\\file", u"r");
    });
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_TRUE(child.error_output.starts_with("error (ZU_memory):Failed to allocate memory. size:"))
        << child.error_output;
}

} // namespace
