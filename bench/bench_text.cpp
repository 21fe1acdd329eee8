// Text: growable strings, formatting and conversions.
#include <iconv.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <benchmark/benchmark.h>

#include "platform/platform.h"
#include "zu/zu.h"

namespace {

// ---- appending pieces of 16 characters, from nothing to the given number of pieces

constexpr ZU_wchar piece[] = u"0123456789abcdef";
constexpr uint32_t piece_length = 16;

void append_zu(benchmark::State& state) {
    for (auto _ : state) {
        ZU_s s = nullptr;
        for (int64_t i = 0; i < state.range(0); ++i)
            ZU_s_append_n(&s, piece, piece_length);
        benchmark::DoNotOptimize(s);
        ZU_s_destroy(&s);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void append_std(benchmark::State& state) {
    for (auto _ : state) {
        std::u16string s;
        for (int64_t i = 0; i < state.range(0); ++i)
            s.append(piece, piece_length);
        benchmark::DoNotOptimize(s.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(append_zu)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(append_std)->Arg(10)->Arg(100)->Arg(1000);

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

// ---- ASCII between UTF-8 and UTF-16; the bytes counted are those of the narrow text in every row

void copy_bytes(benchmark::State& state) {
    const std::string text(static_cast<size_t>(state.range(0)), 'x');
    std::string out(text.size(), 0);
    for (auto _ : state) {
        std::memcpy(out.data(), text.data(), text.size());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void to_wide(benchmark::State& state) {
    const std::string text(static_cast<size_t>(state.range(0)), 'x');
    std::u16string out(text.size(), 0);
    for (auto _ : state) {
        platform::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(),
                                      static_cast<int>(out.size()));
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void to_narrow(benchmark::State& state) {
    const std::u16string text(static_cast<size_t>(state.range(0)), u'x');
    std::string out(text.size(), 0);
    for (auto _ : state) {
        platform::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(),
                                      static_cast<int>(out.size()), nullptr, nullptr);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(copy_bytes)->Arg(64)->Arg(4096)->Arg(1 << 20);
BENCHMARK(to_wide)->Arg(64)->Arg(4096)->Arg(1 << 20);
BENCHMARK(to_narrow)->Arg(64)->Arg(4096)->Arg(1 << 20);

// ---- other text: Cyrillic words, beside the C library's converter

const std::u16string& cyrillic() {
    static const std::u16string text = [] {
        std::u16string repeated;
        for (int i = 0; i < 1000; ++i)
            repeated += u"\u043f\u0440\u0438\u043c\u0435\u0440 \u0442\u0435\u043a\u0441\u0442\u0430, ";
        return repeated;
    }();
    return text;
}

void cyrillic_to_narrow(benchmark::State& state) {
    std::string out(cyrillic().size() * 3, 0);
    for (auto _ : state) {
        platform::WideCharToMultiByte(CP_UTF8, 0, cyrillic().data(), static_cast<int>(cyrillic().size()),
                                      out.data(), static_cast<int>(out.size()), nullptr, nullptr);
        benchmark::DoNotOptimize(out.data());
    }
}

void cyrillic_to_wide(benchmark::State& state) {
    std::string narrow(cyrillic().size() * 3, 0);
    narrow.resize(static_cast<size_t>(
        platform::WideCharToMultiByte(CP_UTF8, 0, cyrillic().data(), static_cast<int>(cyrillic().size()),
                                      narrow.data(), static_cast<int>(narrow.size()), nullptr, nullptr)));
    std::u16string out(cyrillic().size(), 0);
    for (auto _ : state) {
        platform::MultiByteToWideChar(CP_UTF8, 0, narrow.data(), static_cast<int>(narrow.size()), out.data(),
                                      static_cast<int>(out.size()));
        benchmark::DoNotOptimize(out.data());
    }
}

void convert_with_iconv(benchmark::State& state, const char* to, const char* from, std::string in) {
    std::string out(in.size() * 3, 0);
    const iconv_t converter = iconv_open(to, from);
    for (auto _ : state) {
        char* at = in.data();
        char* end = out.data();
        size_t left = in.size();
        size_t room = out.size();
        iconv(converter, &at, &left, &end, &room);
        benchmark::DoNotOptimize(out.data());
    }
    iconv_close(converter);
}

void cyrillic_to_narrow_iconv(benchmark::State& state) {
    const auto* bytes = reinterpret_cast<const char*>(cyrillic().data());
    convert_with_iconv(state, "UTF-8", "UTF-16LE", std::string(bytes, cyrillic().size() * 2));
}

void cyrillic_to_wide_iconv(benchmark::State& state) {
    std::string narrow(cyrillic().size() * 3, 0);
    narrow.resize(static_cast<size_t>(
        platform::WideCharToMultiByte(CP_UTF8, 0, cyrillic().data(), static_cast<int>(cyrillic().size()),
                                      narrow.data(), static_cast<int>(narrow.size()), nullptr, nullptr)));
    convert_with_iconv(state, "UTF-16LE", "UTF-8", narrow);
}

BENCHMARK(cyrillic_to_narrow);
BENCHMARK(cyrillic_to_narrow_iconv);
BENCHMARK(cyrillic_to_wide);
BENCHMARK(cyrillic_to_wide_iconv);

// ---- the same through the families, which measure and allocate; beside an allocation and a copy

void duplicate_bytes(benchmark::State& state) {
    const std::string text(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        char* copy = static_cast<char*>(ZU_malloc(static_cast<uint32_t>(text.size() + 1)));
        std::memcpy(copy, text.c_str(), text.size() + 1);
        benchmark::DoNotOptimize(copy);
        ZU_free(copy);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void char_to_wchar(benchmark::State& state) {
    const std::string text(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        ZU_wchar* wide =
            ZU_char_2_wchar(ZU_ENCODING_UTF8, text.data(), static_cast<int32_t>(text.size()), nullptr);
        benchmark::DoNotOptimize(wide);
        ZU_free(wide);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void wchar_to_char(benchmark::State& state) {
    const std::u16string text(static_cast<size_t>(state.range(0)), u'x');
    for (auto _ : state) {
        char* narrow =
            ZU_wchar_2_char(ZU_ENCODING_UTF8, text.data(), static_cast<int32_t>(text.size()), nullptr);
        benchmark::DoNotOptimize(narrow);
        ZU_free(narrow);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(duplicate_bytes)->Arg(64)->Arg(4096)->Arg(1 << 20);
BENCHMARK(char_to_wchar)->Arg(64)->Arg(4096)->Arg(1 << 20);
BENCHMARK(wchar_to_char)->Arg(64)->Arg(4096)->Arg(1 << 20);

} // namespace
