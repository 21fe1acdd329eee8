// What the fuzz programs share. Each has several targets; the last byte of the input chooses one.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

using fuzz_input = FuzzedDataProvider;

// A claim of a target. If it does not hold, the fuzzer keeps the input.
inline void check(bool holds) {
    if (!holds)
        std::abort();
}

inline int run_one_of(std::initializer_list<void (*)(fuzz_input&)> targets, const uint8_t* data,
                      size_t size) {
    fuzz_input input(data, size);
    targets.begin()[input.ConsumeIntegralInRange<size_t>(0, targets.size() - 1)](input);
    return 0;
}

// A text without zero units. Its units are those of the remaining bytes, two bytes each, or one each, so that ASCII is
// frequent.
inline std::u16string remaining_text(fuzz_input& input) {
    const bool is_wide = input.ConsumeBool();
    const std::vector<uint8_t> bytes = input.ConsumeRemainingBytes<uint8_t>();
    std::u16string text(bytes.begin(), bytes.end());
    if (is_wide) {
        text.resize(bytes.size() / 2);
        for (size_t i = 0; i < text.size(); ++i)
            text[i] = static_cast<char16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    }
    std::erase(text, u'\0');
    return text;
}

// A directory of the process's own, as long as it runs.
struct fuzz_directory {
    std::string path = "/tmp/fuzz." + std::to_string(getpid());
    fuzz_directory() { std::filesystem::create_directory(path); }
    ~fuzz_directory() { std::filesystem::remove_all(path); }
};
