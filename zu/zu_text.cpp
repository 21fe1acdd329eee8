// Text helpers on plain texts: tokens, splitting, trimming, tests, short names, hashing, wildcards.
#include <algorithm>
#include <cstdint>

#include "zu/zu_support.h"

namespace {

bool is_digit(ZU_wchar c) {
    return c >= '0' && c <= '9';
}

ZU_wchar ascii_lower(ZU_wchar c) {
    return c >= 'A' && c <= 'Z' ? static_cast<ZU_wchar>(c + ('a' - 'A')) : c;
}

bool matches_one(ZU_wchar in_pattern, ZU_wchar c) {
    return in_pattern == c || in_pattern == '?';
}

// Whether a text ends as a pattern without stars says.
bool ends_with(const ZU_wchar* text, zu::text_view pattern) {
    const size_t length = platform::wcsnlen(text, SIZE_MAX);
    if (length < pattern.size())
        return false;
    return std::equal(pattern.begin(), pattern.end(), text + (length - pattern.size()), matches_one);
}

void copy_terminated(ZU_wchar* out, zu::text_view text) {
    text.copy(out, text.size());
    out[text.size()] = 0;
}

} // namespace

ZU_wchar* ZU_strtok(ZU_wchar* text, const ZU_wchar* separators, ZU_wchar** context) {
    const zu::text_view set(separators);
    const auto is_separator = [&](ZU_wchar c) { return set.find(c) != zu::text_view::npos; };
    ZU_wchar* token = text ? text : *context;
    while (*token && is_separator(*token))
        ++token;
    if (!*token)
        return nullptr;
    ZU_wchar* end = token + 1;
    while (*end && !is_separator(*end))
        ++end;
    if (*end)
        *end++ = 0;
    *context = end;
    return token;
}

int32_t ZU_split(const ZU_wchar* text, const ZU_wchar* separator, ...) {
    zu::text_view rest(text);
    const zu::text_view between(separator);
    size_t found = rest.find(between);
    if (found == zu::text_view::npos)
        return -1;
    va_list buffers;
    va_start(buffers, separator);
    int32_t result = -1;
    while (ZU_wchar* buffer = va_arg(buffers, ZU_wchar*)) {
        copy_terminated(buffer, rest.substr(0, found));
        if (found == zu::text_view::npos) {
            result = 0;
            break;
        }
        rest.remove_prefix(found + between.size());
        found = rest.find(between);
    }
    va_end(buffers);
    return result;
}

void ZU_trim_end_path_symbol(ZU_wchar* path) {
    size_t length = zu::text_view(path).size();
    while (length > 1 && (path[length - 1] == '\\' || path[length - 1] == ' '))
        path[--length] = 0;
}

void ZU_trim_end_char(ZU_wchar* text, ZU_wchar character) {
    size_t length = zu::text_view(text).size();
    while (length > 0 && text[length - 1] == character)
        text[--length] = 0;
}

ZU_bool ZU_is_numeric(const ZU_wchar* text, uint8_t flags) {
    constexpr uint8_t without_sign = 1;
    const bool signed_text = !(flags & without_sign) && (*text == '+' || *text == '-');
    if (!signed_text && !is_digit(*text))
        return 0;
    ++text;
    while (is_digit(*text))
        ++text;
    return *text == 0;
}

ZU_wchar* ZU_str_make_short_name(const ZU_wchar* text, uint32_t maximum) {
    const zu::text_view whole(text);
    if (whole.size() <= maximum)
        return ZU_strdup(text);
    constexpr zu::text_view ellipsis = ZU_W("...");
    auto* result = zu::allocate<ZU_wchar>(uint64_t{maximum} + ellipsis.size() + 1);
    whole.copy(result, maximum);
    copy_terminated(result + maximum, ellipsis);
    return result;
}

uint32_t ZU_hash_string_nocase(const ZU_wchar* text) {
    uint32_t hash = 0;
    for (uint32_t position = 1; *text; ++text, ++position)
        hash += ascii_lower(*text) * position;
    return hash;
}

ZU_bool ZU_wildcard_match(const ZU_wchar* pattern, const ZU_wchar* text) {
    for (; *text && *pattern != '*'; ++pattern, ++text) {
        if (!matches_one(*pattern, *text))
            return 0;
    }
    // After a star the rest of the pattern is tried at every later place of the text. Only the latest star is retried.
    const ZU_wchar* resume = nullptr;
    const ZU_wchar* retry = nullptr;
    while (*text) {
        if (*pattern == '*') {
            const ZU_wchar* end = ++pattern;
            while (*end && *end != '*')
                ++end;
            if (!*end) // that was the last star
                return ends_with(text, {pattern, static_cast<size_t>(end - pattern)});
            resume = pattern;
            retry = text + 1;
        } else if (matches_one(*pattern, *text)) {
            ++pattern;
            ++text;
        } else {
            pattern = resume;
            text = retry++;
        }
    }
    while (*pattern == '*')
        ++pattern;
    return *pattern == 0;
}

ZU_bool ZU_wildcard_match_win32_file(const ZU_wchar* pattern, const ZU_wchar* name) {
    constexpr zu::text_view any_with_dot = ZU_W("*.*");
    const zu::owned<ZU_wchar> pattern_copy(ZU_strdup(pattern));
    const zu::owned<ZU_wchar> name_copy(ZU_strdup(name));
    const zu::text_view whole(pattern);
    if (whole.size() >= any_with_dot.size()
        && whole.substr(whole.size() - any_with_dot.size()) == any_with_dot)
        pattern_copy[whole.size() - 2] = 0;
    return ZU_wildcard_match(ZU_strlwr(pattern_copy.get()), ZU_strlwr(name_copy.get()));
}
