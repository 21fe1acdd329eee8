// results [times]: calls most of the library with all kinds of arguments and prints what comes out, sorted; "times" is
// about times alone. It runs in an empty directory, C:\here. Its zone is that of the environment.
#include <algorithm>
#include <cstdio>

#include "results.h"

namespace results {
namespace {

constexpr uint32_t untouched = 0xBEEF;

std::vector<std::string> lines;

template <typename Text>
std::string quoted(Text text) {
    std::string shown = "'";
    for (const auto unit : text) {
        const auto number = static_cast<std::make_unsigned_t<decltype(unit)>>(unit);
        shown += number >= 0x20 && number < 0x7F ? std::string(1, static_cast<char>(number))
                                                 : '{' + hex(number) + '}';
    }
    return shown + "'";
}

} // namespace

void add(const std::string& call, const std::string& result) {
    lines.push_back(call + " => " + result);
}

std::vector<std::u16string> split(std::u16string_view list) {
    std::vector<std::u16string> texts(1);
    for (const char16_t unit : list)
        unit == u';' ? texts.emplace_back() : texts.back() += unit;
    return texts;
}

std::string show(std::u16string_view text) {
    return quoted(text);
}

std::string show(std::string_view bytes) {
    return quoted(bytes);
}

std::string show(ZU_wchar* text) {
    const std::string shown = text ? quoted(std::u16string_view(text)) : "null";
    ZU_free(text);
    return shown;
}

std::string hex(uint64_t number) {
    char text[20];
    std::snprintf(text, sizeof text, "%llX", static_cast<unsigned long long>(number));
    return text;
}

void preset_code() {
    SetLastError(untouched);
}

std::string code() {
    const uint32_t left = GetLastError();
    return left == untouched ? "-" : show(left);
}

} // namespace results

int main(int argument_count, char**) {
    using namespace results;
    ZU_init();
    if (show(ZU_get_current_dir()) != "'C:\\here'") {
        std::fprintf(stderr, "results: the current directory has to be C:\\here\n");
        return 2;
    }
    times();
    if (argument_count == 1)
        for (const auto group : {paths, files, texts, waits, sockets, system_calls})
            group();
    std::sort(lines.begin(), lines.end());
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    for (const std::string& line : lines)
        std::printf("%s\n", line.c_str());
    ZU_shutdown();
    return 0;
}
