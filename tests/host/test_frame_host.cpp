// Memory that runs out under the limits of the host, and loading the library as its loader does.
#include <dlfcn.h>
#include <sys/mman.h>

#include "support/test.h"

namespace {

// The child runs out of address space, so that the allocator fails for real.
TEST(memory, exhaustion_writes_one_line_and_aborts) {
    if (built_with_sanitizer)
        GTEST_SKIP() << "a sanitizer's shadow memory does not live under an address-space limit";
    static const std::u16string text(100u << 20, u'x');
    const std::pair<std::string, void (*)()> rows[] = {
        // the size that is reported
        // clang-format off
        {"3221225472", [] { ZU_malloc(3u << 30); }},          {"3221225472", [] { ZU_calloc(3u << 28, 4); }},
        {"3221225472", [] { ZU_realloc(nullptr, 3u << 30); }}, {"0", [] { ZU_calloc(0x10000, 0x10000); }}, // it wraps
        {"3221225472", [] { ZU_malloc_dbg(3u << 30, "f", 1); }},
        {"209715202", [] { for (int i = 0; i < 20; ++i) ZU_strdup(text.c_str()); }},
        {"1610612876", [] { ZU_s s = nullptr; ZU_s_reserve(&s, 0x30000000); }},
        {"4294967344", [] { ZU_buf b{}; ZU_buf_append(&b, 0xFFFFFFF0, "", 0x40); }},
        {"1073742092", [] { ZU_s s = nullptr; ZU_s_sprintf(&s, u"%2147483647d%5d", 1, 1); }},
        // clang-format on
    };
    for (const auto& [size, allocate] : rows) {
        const outcome child = run_child([&, allocates = allocate] {
            const rlimit limit{1u << 30, 1u << 30};
            if (setrlimit(RLIMIT_AS, &limit) == 0)
                allocates();
        });
        EXPECT_EQ(child.exit_code, exit_code_of_abort) << size;
        EXPECT_EQ(child.error_output,
                  "error (ZU_memory):Failed to allocate memory. size:" + size + ". errno:12.\n");
    }
}

// One block of memory, mapped over and over. Behind the first are 2^31 - 1 units: 4 GiB with the terminator.
TEST(memory, a_text_whose_bytes_32_bits_do_not_count) {
    if (sizeof(size_t) == sizeof(uint32_t) || built_with_sanitizer)
        GTEST_SKIP() << "32 bits have no room for it, and a sanitizer takes minutes";
    const size_t block = 1 << 21, bytes = size_t{UINT32_MAX} + 1 + block;
    const int file = memfd_create("text", 0);
    ASSERT_EQ(write(file, std::string(block, 'a').data(), block), ssize_t{block});
    auto* const narrow =
        static_cast<char*>(mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    for (size_t at = 0; at < bytes; at += block)
        mmap(narrow + at, block, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, file, 0);
    narrow[bytes - 2] = narrow[bytes - 1] = 0;
    uint32_t count = 1;
    ZU_free(ZU_char_2_wchar(ZU_ENCODING_UTF8, narrow, -1, &count));
    EXPECT_EQ(count, 0u) << "more bytes than the platform counts";
    auto* const text = reinterpret_cast<const ZU_wchar*>(narrow + block);
    const outcome copied = run_child([&] { ZU_strdup(text); });
    const outcome inserted = run_child([s = ZU_s{}, text]() mutable { ZU_s_insert(&s, 0, text); });
    EXPECT_TRUE(copied.error_output.ends_with(" size:4294967296. errno:12.\n")) << copied.error_output;
    EXPECT_TRUE(inserted.error_output.ends_with(" size:4294967308. errno:12.\n")) << inserted.error_output;
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
    if (built_with_sanitizer)
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
    EXPECT_EQ(child.exit_code, exit_code_of_abort);
    EXPECT_TRUE(child.error_output.starts_with("error (ZU_memory):Failed to allocate memory. size:"))
        << child.error_output;
}

} // namespace
