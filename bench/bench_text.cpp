// Text: growable strings, formatting and conversions.
#include <unicode/ustring.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>

#include "platform/platform.h"
#include "zu/zu.h"

namespace {

// ---- appending pieces of 16 characters or of one, from nothing to the given number of pieces; the bare row takes the
// described steps alone: a new block for the exact length in steps of 64, a copy, and the old block freed

constexpr ZU_wchar piece[] = u"0123456789abcdef";

void count_pieces(benchmark::State& state, int64_t pieces) {
    state.SetItemsProcessed(state.iterations() * pieces);
}

void append_zu(benchmark::State& state, uint32_t length) {
    for (auto _ : state) {
        ZU_s s = nullptr;
        for (int64_t i = 0; i < state.range(0); ++i)
            ZU_s_append_n(&s, piece, length);
        benchmark::DoNotOptimize(s);
        ZU_s_destroy(&s);
    }
    count_pieces(state, state.range(0));
}

void append_std(benchmark::State& state, uint32_t length) {
    for (auto _ : state) {
        std::u16string s;
        for (int64_t i = 0; i < state.range(0); ++i)
            s.append(piece, length);
        benchmark::DoNotOptimize(s.data());
    }
    count_pieces(state, state.range(0));
}

void append_bare(benchmark::State& state, uint32_t length) {
    for (auto _ : state) {
        char16_t* text = nullptr;
        size_t capacity = 0, used = 0;
        for (int64_t i = 0; i < state.range(0); ++i) {
            if (used + length > capacity) {
                capacity = (used + length) | 63;
                auto* grown = static_cast<char16_t*>(std::malloc((capacity + 1) * sizeof *text));
                if (used != 0)
                    std::memcpy(grown, text, used * sizeof *text);
                std::free(std::exchange(text, grown));
            }
            std::memcpy(text + used, piece, length * sizeof *text);
            used += length;
            text[used] = 0;
        }
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
    count_pieces(state, state.range(0));
}

BENCHMARK_CAPTURE(append_zu, sixteen, 16)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK_CAPTURE(append_std, sixteen, 16)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK_CAPTURE(append_bare, sixteen, 16)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK_CAPTURE(append_zu, one, 1)->Arg(1000000);
BENCHMARK_CAPTURE(append_std, one, 1)->Arg(1000000);
BENCHMARK_CAPTURE(append_bare, one, 1)->Arg(1000000);

// ---- 16 characters where there is room, and in front of what is there

void append_with_room_zu(benchmark::State& state) {
    ZU_s s = nullptr;
    ZU_s_reserve(&s, 16000);
    for (auto _ : state) {
        ZU_s_clear(&s);
        for (int i = 0; i < 1000; ++i)
            ZU_s_append_n(&s, piece, 16);
        benchmark::DoNotOptimize(s);
    }
    ZU_s_destroy(&s);
    count_pieces(state, 1000);
}

void append_with_room_std(benchmark::State& state) {
    std::u16string s;
    s.reserve(16000);
    for (auto _ : state) {
        s.clear();
        for (int i = 0; i < 1000; ++i)
            s.append(piece, 16);
        benchmark::DoNotOptimize(s.data());
    }
    count_pieces(state, 1000);
}

// A check for the room, a search for a zero character, a copy.
void append_with_room_bare(benchmark::State& state) {
    std::u16string area(16001, u'\0');
    for (auto _ : state) {
        size_t used = 0;
        for (int i = 0; i < 1000; ++i) {
            size_t length = 16;
            benchmark::DoNotOptimize(length);
            if (used + length > 16000)
                std::abort();
            const size_t k = platform::wcsnlen(piece, length);
            std::memcpy(&area[used], piece, k * sizeof *piece);
            used += k;
            area[used] = 0;
            benchmark::ClobberMemory();
        }
    }
    count_pieces(state, 1000);
}

void insert_in_front_zu(benchmark::State& state) {
    for (auto _ : state) {
        ZU_s s = nullptr;
        for (int i = 0; i < 1000; ++i)
            ZU_s_insert_n(&s, 0, piece, 16);
        benchmark::DoNotOptimize(s);
        ZU_s_destroy(&s);
    }
    count_pieces(state, 1000);
}

void insert_in_front_std(benchmark::State& state) {
    for (auto _ : state) {
        std::u16string s;
        for (int i = 0; i < 1000; ++i)
            s.insert(0, piece, 16);
        benchmark::DoNotOptimize(s.data());
    }
    count_pieces(state, 1000);
}

// The described steps alone, as append_bare; what is there moves.
void insert_in_front_bare(benchmark::State& state) {
    for (auto _ : state) {
        char16_t* text = nullptr;
        size_t capacity = 0, used = 0;
        for (int i = 0; i < 1000; ++i) {
            if (used + 16 > capacity) {
                capacity = (used + 16) | 63;
                auto* grown = static_cast<char16_t*>(std::malloc((capacity + 1) * sizeof *text));
                if (used != 0)
                    std::memcpy(grown, text, used * sizeof *text);
                std::free(std::exchange(text, grown));
            }
            std::memmove(text + 16, text, used * sizeof *text);
            std::memcpy(text, piece, 16 * sizeof *text);
            used += 16;
            text[used] = 0;
            benchmark::DoNotOptimize(text);
        }
        std::free(text);
    }
    count_pieces(state, 1000);
}

BENCHMARK(append_with_room_zu);
BENCHMARK(append_with_room_bare);
BENCHMARK(append_with_room_std);
BENCHMARK(insert_in_front_zu);
BENCHMARK(insert_in_front_std);
BENCHMARK(insert_in_front_bare);

// ---- formatting a line of a log

void format_zu(benchmark::State& state) {
    ZU_s s = nullptr;
    for (auto _ : state) {
        ZU_s_sprintf(&s, u"|D:%04d-%02d-%02d %02d:%02d:%02d|P:%5lu|T:%5lu| %s", 2024, 2, 29, 23, 59, 58,
                     4711u, 815u, u"a message of ordinary length, as programs write them");
        benchmark::DoNotOptimize(s);
    }
    ZU_s_destroy(&s);
}

void format_snprintf(benchmark::State& state) {
    char line[256];
    for (auto _ : state) {
        std::snprintf(line, sizeof line, "|D:%04d-%02d-%02d %02d:%02d:%02d|P:%5u|T:%5u| %s", 2024, 2, 29, 23,
                      59, 58, 4711u, 815u, "a message of ordinary length, as programs write them");
        benchmark::DoNotOptimize(line);
    }
}

void format_floating_zu(benchmark::State& state) {
    ZU_s s = nullptr;
    for (auto _ : state) {
        ZU_s_sprintf(&s, u"%10.3f %g", 1234.5678, 0.1);
        benchmark::DoNotOptimize(s);
    }
    ZU_s_destroy(&s);
}

void format_floating_snprintf(benchmark::State& state) {
    char line[64];
    for (auto _ : state) {
        std::snprintf(line, sizeof line, "%10.3f %g", 1234.5678, 0.1);
        benchmark::DoNotOptimize(line);
    }
}

// A short piece behind the present text, and in its place.
void format_piece_zu(benchmark::State& state) {
    ZU_s s = nullptr;
    ZU_s_reserve(&s, 16000);
    for (auto _ : state) {
        ZU_s_clear(&s);
        for (int64_t i = 0; i < state.range(0); ++i)
            ZU_s_append_sprintf(&s, u"%s=%d;", u"name", 4711);
        benchmark::DoNotOptimize(s);
    }
    ZU_s_destroy(&s);
    count_pieces(state, state.range(0));
}

void format_piece_snprintf(benchmark::State& state) {
    std::string s;
    for (auto _ : state) {
        s.clear();
        for (int64_t i = 0; i < state.range(0); ++i) {
            char area[64];
            s.append(area, static_cast<size_t>(std::snprintf(area, sizeof area, "%s=%d;", "name", 4711)));
        }
        benchmark::DoNotOptimize(s.data());
    }
    count_pieces(state, state.range(0));
}

BENCHMARK(format_piece_zu)->Arg(1)->Arg(1000);
BENCHMARK(format_piece_snprintf)->Arg(1)->Arg(1000);
BENCHMARK(format_zu);
BENCHMARK(format_snprintf);
BENCHMARK(format_floating_zu);
BENCHMARK(format_floating_snprintf);

void format_long_zu(benchmark::State& state) {
    const std::u16string text(2000000, u'x');
    for (auto _ : state) {
        ZU_s s = nullptr;
        ZU_s_sprintf(&s, u"%s", text.c_str());
        benchmark::DoNotOptimize(s);
        ZU_s_destroy(&s);
    }
}

void format_long_snprintf(benchmark::State& state) {
    const std::string text(2000000, 'x');
    for (auto _ : state) {
        std::string s(static_cast<size_t>(std::snprintf(nullptr, 0, "%s", text.c_str())), 0);
        std::snprintf(s.data(), s.size() + 1, "%s", text.c_str());
        benchmark::DoNotOptimize(s.data());
    }
}

BENCHMARK(format_long_zu);
BENCHMARK(format_long_snprintf);

// ---- between UTF-16 and UTF-8, into new memory, of 1 KiB and 1 MiB of wide text; beside ICU, and a copy of as many bytes

struct script {
    const char* name;
    std::u16string words;
} const scripts[] = {
    {"ASCII", u"The quick brown fox jumps over the lazy dog. "},
    {"Latin",
     u"F\u00fcr d\u00e9j\u00e0 vu, \u00dcbergr\u00f6\u00dfe; \u017elu\u0165ou\u010dk\u00fd k\u016f\u0148 \u00fap\u011bl na\u00efve \u00f3dy. "},
    {"CJK", u"\u65e5\u672c\u8a9e\u306e\u6587\u7ae0\u3001\u4e2d\u6587\u7684\u53e5\u5b50\u3002"},
    {"emoji", u"\U0001F600\U0001F680\U0001F4A9\U0001F389"},
};

std::u16string text_of(const script& script, int64_t units) {
    std::u16string text;
    while (static_cast<int64_t>(text.size()) < units)
        text += script.words;
    return text;
}

template <class Convert>
void narrow(benchmark::State& state, const script& script, Convert&& convert) {
    const std::u16string text = text_of(script, state.range(0) / 2);
    for (auto _ : state)
        convert(text);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(2 * text.size()));
}

template <class Convert>
void widen(benchmark::State& state, const script& script, Convert&& convert) {
    const std::u16string text = text_of(script, state.range(0) / 2);
    uint32_t length = 0;
    char* bytes = ZU_wchar_2_char(ZU_ENCODING_UTF8, text.data(), static_cast<int32_t>(text.size()), &length);
    const std::string utf8(bytes, length);
    ZU_free(bytes);
    for (auto _ : state)
        convert(utf8);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(2 * text.size()));
}

void narrow_zu(const std::u16string& text) {
    char* bytes = ZU_wchar_2_char(ZU_ENCODING_UTF8, text.data(), static_cast<int32_t>(text.size()), nullptr);
    benchmark::DoNotOptimize(bytes);
    ZU_free(bytes);
}

void narrow_icu(const std::u16string& text) {
    const size_t room = 3 * text.size() + 1;
    auto* bytes = static_cast<char*>(std::malloc(room));
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8(bytes, static_cast<int32_t>(room), nullptr, text.data(), static_cast<int32_t>(text.size()),
                &error);
    benchmark::DoNotOptimize(bytes);
    std::free(bytes);
}

void widen_zu(const std::string& text) {
    ZU_wchar* units =
        ZU_char_2_wchar(ZU_ENCODING_UTF8, text.data(), static_cast<int32_t>(text.size()), nullptr);
    benchmark::DoNotOptimize(units);
    ZU_free(units);
}

void widen_icu(const std::string& text) {
    auto* units = static_cast<char16_t*>(std::malloc((text.size() + 1) * sizeof(char16_t)));
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8(units, static_cast<int32_t>(text.size() + 1), nullptr, text.data(),
                  static_cast<int32_t>(text.size()), &error);
    benchmark::DoNotOptimize(units);
    std::free(units);
}

template <class Text>
void copy(const Text& text) {
    const size_t bytes = text.size() * sizeof text[0];
    void* block = std::malloc(bytes);
    std::memcpy(block, text.data(), bytes);
    benchmark::DoNotOptimize(block);
    std::free(block);
}

const bool registered = [] {
    for (const script& script : scripts) {
        const auto add = [&](const std::string& way, auto function) {
            benchmark::RegisterBenchmark((way + "/" + script.name).c_str(), function)
                ->Arg(1 << 10)
                ->Arg(1 << 20);
        };
        add("utf8_from_wide_zu", [&](benchmark::State& state) { narrow(state, script, narrow_zu); });
        add("utf8_from_wide_icu", [&](benchmark::State& state) { narrow(state, script, narrow_icu); });
        add("utf8_from_wide_copy",
            [&](benchmark::State& state) { narrow(state, script, copy<std::u16string>); });
        add("wide_from_utf8_zu", [&](benchmark::State& state) { widen(state, script, widen_zu); });
        add("wide_from_utf8_icu", [&](benchmark::State& state) { widen(state, script, widen_icu); });
        add("wide_from_utf8_copy", [&](benchmark::State& state) { widen(state, script, copy<std::string>); });
    }
    return true;
}();

} // namespace
