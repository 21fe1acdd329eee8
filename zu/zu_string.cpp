// Growable string: a pointer to ordinary text, with its header in the same block before the characters.
#include <algorithm>
#include <utility>

#include "zu/zu_support.h"

namespace {

constexpr uint32_t capacity_step = 64;
constexpr uint32_t formatting_slack = 63;         // the least room for the first attempt to format
constexpr uint32_t formatting_reserve = 127;      // the room that is made if there is less
constexpr uint32_t formatting_step = 128;         // the room that is added if the output does not fit
constexpr uint32_t largest_capacity = 0x7FFFFFBF; // in characters; the block's bytes are counted in 32 bits
constexpr uint32_t position_end = 0xFFFFFFFF;

constexpr uint32_t most_inserts = 128;
constexpr uint32_t most_insert_digits = 63;

ZU_s_header* header_of(ZU_s s) {
    return reinterpret_cast<ZU_s_header*>(s) - 1;
}

ZU_wchar* characters_of(ZU_s_header* header) {
    return reinterpret_cast<ZU_wchar*>(header + 1);
}

uint32_t capacity_of(ZU_s s) {
    return s ? header_of(s)->capacity : 0;
}

constexpr int32_t count_alone = 1; // the reference count of a buffer that is not shared

bool is_shared(ZU_s s) {
    return s && header_of(s)->reference_count > count_alone;
}

void set_length(ZU_s s, uint32_t length) {
    header_of(s)->length = length;
    s[length] = 0;
}

uint32_t block_bytes(uint64_t capacity) {
    return zu::block_size((capacity + 1) * sizeof(ZU_wchar) + sizeof(ZU_s_header));
}

// Characters up to the first zero character, at most n.
uint32_t length_within(const ZU_wchar* text, uint32_t n) {
    return static_cast<uint32_t>(platform::wcsnlen(text, n));
}

// A buffer that is not shared is reallocated, and so may keep its block. The function is out of line, which keeps the
// operations short for the usual case that there is room.
[[gnu::noinline]] void move_to_capacity(ZU_s* s, uint64_t capacity) {
    const ZU_s old = *s;
    const uint32_t bytes = block_bytes(capacity);
    const uint32_t kept = old ? length_within(old, ZU_s_length(old)) : 0; // up to the first zero character
    ZU_s_header* header;
    if (old && header_of(old)->reference_count > count_alone) {
        header = static_cast<ZU_s_header*>(ZU_malloc(bytes));
        std::memcpy(characters_of(header), old, kept * sizeof(ZU_wchar));
        --header_of(old)->reference_count;
    } else {
        header = static_cast<ZU_s_header*>(ZU_realloc(old ? header_of(old) : nullptr, bytes));
    }
    header->capacity = static_cast<uint32_t>(capacity);
    header->reference_count = count_alone;
    *s = characters_of(header);
    set_length(*s, kept);
}

// The growth step: room for n characters, in a buffer of its own when a private copy is asked for.
void grow(ZU_s* s, uint64_t n, bool private_copy) {
    if (capacity_of(*s) >= n && !(private_copy && is_shared(*s)))
        return;
    move_to_capacity(s, n | (capacity_step - 1));
}

void make_private(ZU_s* s) {
    grow(s, ZU_s_length(*s), true);
}

bool lies_within(ZU_s s, const ZU_wchar* text) {
    const auto at = reinterpret_cast<uintptr_t>(text);
    return s && at >= reinterpret_cast<uintptr_t>(s)
           && at <= reinterpret_cast<uintptr_t>(s + header_of(s)->length);
}

// A copy of a text that lies in the string's own buffer. Growing moves the buffer, so the text is copied first.
ZU_wchar* copied_aside(const ZU_wchar* text, uint32_t n) {
    const uint32_t length = length_within(text, n);
    auto* copy = zu::allocate<ZU_wchar>(length + 1);
    std::memcpy(copy, text, length * sizeof(ZU_wchar));
    copy[length] = 0;
    return copy;
}

// Room for the n characters that the caller allows, or, when no block holds as many, for the k that there are.
void grow_for(ZU_s* s, uint32_t n, uint32_t k) {
    const uint64_t length = ZU_s_length(*s);
    grow(s, length + (length + n <= largest_capacity ? n : std::max(k, 1u)), true);
}

// Whether n characters more fit into the buffer as it is, and nobody else sees it.
bool has_room(ZU_s s, uint32_t n) {
    return s && n <= header_of(s)->capacity - header_of(s)->length
           && header_of(s)->reference_count <= count_alone;
}

// Copies up to the first zero character, at most n, behind the present text.
void put_behind(ZU_s s, const ZU_wchar* text, uint32_t n) {
    const uint32_t length = header_of(s)->length;
    set_length(s, length + static_cast<uint32_t>(platform::copy_text(s + length, text, n)));
}

// Out of line, which keeps appending short for the usual case that there is room.
[[gnu::noinline]] void append_with_growth(ZU_s* s, const ZU_wchar* text, uint32_t n) {
    if (lies_within(*s, text)) {
        const zu::owned<ZU_wchar> copy(copied_aside(text, n));
        append_with_growth(s, copy.get(), n);
        return;
    }
    const uint32_t k = length_within(text, n);
    grow_for(s, n, k);
    put_behind(*s, text, k);
}

} // namespace

ZU_s* ZU_s_reserve(ZU_s* s, uint32_t n) {
    grow(s, n, false);
    return s;
}

void ZU_s_destroy(ZU_s* s) {
    if (!s || !*s)
        return;
    if (is_shared(*s))
        --header_of(*s)->reference_count;
    else
        ZU_free(header_of(*s));
    *s = nullptr;
}

void ZU_s_clear(ZU_s* s) {
    if (is_shared(*s)) {
        ZU_s_destroy(s);
    } else if (*s) {
        set_length(*s, 0);
    }
}

ZU_s* ZU_s_insert(ZU_s* s, uint32_t position, const ZU_wchar* text) {
    if (zu::is_empty(text))
        return s;
    const size_t length = zu::text_view(text).size();
    // Ends the process for a text that no string can hold.
    zu::block_size(uint64_t{length} * sizeof(ZU_wchar));
    return ZU_s_insert_n(s, position, text, static_cast<uint32_t>(length));
}

ZU_s* ZU_s_insert_n(ZU_s* s, uint32_t position, const ZU_wchar* text, uint32_t n) {
    if (n == 0)
        return s;
    if (position == position_end)
        return ZU_s_append_n(s, text, n);
    if (lies_within(*s, text)) {
        const zu::owned<ZU_wchar> copy(copied_aside(text, n));
        return ZU_s_insert_n(s, position, copy.get(), n);
    }
    const uint32_t k = length_within(text, n);
    grow_for(s, n, k);
    const uint32_t length = header_of(*s)->length;
    ZU_wchar* gap = *s + std::min(position, length); // growing may have cut the text
    std::memmove(gap + k, gap, static_cast<size_t>(*s + length - gap) * sizeof(ZU_wchar));
    std::memcpy(gap, text, k * sizeof(ZU_wchar));
    set_length(*s, length + k);
    return s;
}

ZU_s* ZU_s_append_n(ZU_s* s, const ZU_wchar* text, uint32_t n) {
    if (n == 0)
        return s;
    if (has_room(*s, n) && !lies_within(*s, text))
        put_behind(*s, text, n);
    else
        append_with_growth(s, text, n);
    return s;
}

ZU_s* ZU_s_append_sprintf(ZU_s* s, const ZU_wchar* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ZU_s_append_sprintf_i(s, format, arguments);
    va_end(arguments);
    return s;
}

namespace {

int format_at(ZU_wchar* out, uint32_t room, const ZU_wchar* format, va_list arguments) {
    va_list copy;
    va_copy(copy, arguments);
    const int length = platform::_vsnwprintf(out, room, format, copy);
    va_end(copy);
    return length;
}

// The next capacity to try after one that was too small. Capacities grow in steps; the first that holds the output is
// taken. A runtime that cannot measure the output gets one step more each time, and twice as much once the text is long.
uint64_t next_capacity(uint32_t capacity, uint32_t length, int measured) {
    constexpr uint32_t long_text = 0x10000;
    const uint64_t needed = uint64_t{length} + static_cast<uint64_t>(measured);
    uint64_t steps = 1;
    if (measured < 0)
        steps = capacity < long_text ? 1 : capacity / formatting_step;
    else if (needed > capacity)
        steps = (needed - capacity + formatting_step - 1) / formatting_step;
    return capacity + steps * formatting_step;
}

} // namespace

ZU_s* ZU_s_append_sprintf_i(ZU_s* s, const ZU_wchar* format, va_list arguments) {
    const uint64_t length_before = ZU_s_length(*s);
    if (length_before + formatting_slack > capacity_of(*s) || is_shared(*s))
        grow(s, length_before + formatting_reserve, true);
    for (;;) {
        const uint32_t length = ZU_s_length(*s);
        const uint32_t capacity = capacity_of(*s);
        const uint32_t room = capacity - length + 1;
        const int added = format_at(*s + length, room, format, arguments);
        if (added >= 0 && static_cast<uint32_t>(added) < room) {
            set_length(*s, length + static_cast<uint32_t>(added));
            return s;
        }
        (*s)[length] = 0;
        const int measured = added >= 0 ? added : format_at(nullptr, 0, format, arguments);
        grow(s, next_capacity(capacity, length, measured), true);
    }
}

ZU_s* ZU_s_sprintf(ZU_s* s, const ZU_wchar* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ZU_s_sprintf_i(s, format, arguments);
    va_end(arguments);
    return s;
}

ZU_s* ZU_s_sprintf_i(ZU_s* s, const ZU_wchar* format, va_list arguments) {
    ZU_s_clear(s);
    return ZU_s_append_sprintf_i(s, format, arguments);
}

void ZU_s_swap(ZU_s* s, ZU_s* other) {
    std::swap(*s, *other);
}

ZU_s* ZU_s_assign_s(ZU_s* s, const ZU_s* source) {
    if (*s == *source)
        return s;
    ZU_s_clear(s);
    return ZU_s_append_n(s, ZU_s_text(*source), ZU_s_length(*source));
}

ZU_wchar ZU_s_set_at(ZU_s* s, uint32_t index, ZU_wchar character) {
    grow(s, header_of(*s)->length, true); // the caller passes no null string
    return std::exchange((*s)[index], character);
}

ZU_s* ZU_s_resize(ZU_s* s, uint32_t n) {
    if (ZU_s_length(*s) <= n)
        return s;
    make_private(s);
    if (ZU_s_length(*s) > n) // copying may have cut the text
        set_length(*s, n);
    return s;
}

uint32_t ZU_s_trim_end_c(ZU_s* s, ZU_wchar character) {
    make_private(s);
    const uint32_t before = ZU_s_length(*s);
    uint32_t length = before;
    while (length > 0 && (*s)[length - 1] == character)
        (*s)[--length] = 0;
    if (length < before)
        set_length(*s, length);
    return before - length;
}

uint32_t ZU_s_replace_c(ZU_s* s, ZU_wchar from, ZU_wchar to) {
    make_private(s);
    uint32_t replaced = 0;
    for (uint32_t i = 0, length = ZU_s_length(*s); i < length; ++i) {
        if ((*s)[i] == from) {
            (*s)[i] = to;
            ++replaced;
        }
    }
    return replaced;
}

void ZU_s_make_lower(ZU_s* s) {
    if (ZU_s_length(*s) == 0)
        return;
    make_private(s);
    ZU_strlwr(*s);
}

void ZU_s_make_upper(ZU_s* s) {
    if (ZU_s_length(*s) == 0)
        return;
    make_private(s);
    ZU_strupr(*s);
}

ZU_wchar* ZU_strlwr(ZU_wchar* text) {
    for (ZU_wchar* at = text; *at; ++at) {
        if (*at >= 'A' && *at <= 'Z')
            *at = static_cast<ZU_wchar>(*at + ('a' - 'A'));
    }
    return text;
}

ZU_wchar* ZU_strupr(ZU_wchar* text) {
    for (ZU_wchar* at = text; *at; ++at) {
        if (*at >= 'a' && *at <= 'z')
            *at = static_cast<ZU_wchar>(*at - ('a' - 'A'));
    }
    return text;
}

int32_t ZU_s_format_message(ZU_s* s, const ZU_wchar* message, ...) {
    va_list arguments;
    va_start(arguments, message);
    ZU_s_format_message_i(s, message, arguments);
    va_end(arguments);
    return static_cast<int32_t>(ZU_s_length(*s));
}

namespace {

bool is_digit(ZU_wchar c) {
    return c >= '0' && c <= '9';
}

bool is_letter(ZU_wchar c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The number-th wide text of a list, counted from 1.
const ZU_wchar* nth_text(va_list arguments, int number) {
    va_list copy;
    va_copy(copy, arguments);
    const ZU_wchar* text = nullptr;
    for (int i = 0; i < number; ++i)
        text = va_arg(copy, const ZU_wchar*);
    va_end(copy);
    return text ? text : ZU_W("(null)");
}

struct insert_table {
    const ZU_wchar* texts[most_inserts] = {};
    uint32_t count = 0;
};

// Takes the insert whose number stands at `at`, and moves `at` behind the number. False if there is no such insert.
bool take_insert(const ZU_wchar*& at, va_list arguments, insert_table& inserts) {
    ZU_wchar digits[most_insert_digits + 1];
    uint32_t count = 0;
    while (count < most_insert_digits && is_digit(*at))
        digits[count++] = *at++;
    digits[count] = 0;
    const int number = platform::_wtoi(digits);
    if (inserts.count == most_inserts || number < 1)
        return false;
    inserts.texts[inserts.count++] = nth_text(arguments, number);
    return true;
}

// Moves behind a width or precision. True for a star: it takes an argument for the number.
bool skip_number(const ZU_wchar*& at) {
    if (*at == '*') {
        ++at;
        return true;
    }
    while (is_digit(*at))
        ++at;
    return false;
}

void skip_sizes(const ZU_wchar*& at) {
    for (;;) {
        if (*at == 'I' && ((at[1] == '6' && at[2] == '4') || (at[1] == '3' && at[2] == '2')))
            at += 3;
        else if (*at && zu::text_view(ZU_W("hlwjztL")).find(*at) != zu::text_view::npos)
            ++at;
        else
            return;
    }
}

// Whether the format takes nothing but the inserts. Every argument is a text, so a star would take the address of one
// for a width or a precision; and behind the last insert there is nothing. Conversions are read as the formatter reads
// them: in "%-%%*d" the second percent sign is the letter of the first, and the third begins a conversion with a star.
bool takes_only_inserts(const ZU_wchar* at) {
    uint32_t taken = 0;
    while (*at) {
        if (*at++ != '%')
            continue;
        while (*at && zu::text_view(ZU_W("-+ #0")).find(*at) != zu::text_view::npos)
            ++at;
        uint32_t stars = skip_number(at);
        if (*at == '.')
            stars += skip_number(++at);
        if (stars > 0 && is_letter(*at))
            return false;
        skip_sizes(at);
        taken += stars + is_letter(*at);
        if (*at)
            ++at;
    }
    return taken <= most_inserts;
}

// Rewrites a message template into a format whose k-th "%s" stands for the k-th insert taken.
bool rewrite_template(const ZU_wchar* message, va_list arguments, ZU_wchar* out, insert_table& inserts) {
    while (*message) {
        *out = *message++;
        if (*out++ != '%' || !*message)
            continue;
        if (is_digit(*message)) {
            if (!take_insert(message, arguments, inserts))
                return false;
            *out++ = 's';
        } else if (*message == 'n') {
            out[-1] = '\r';
            *out++ = '\n';
            ++message;
        } else {
            *out++ = *message++;
        }
    }
    *out = 0;
    return true;
}

// Passes every slot of the table in a variadic call, so that no va_list has to be built by hand.
template <size_t... Slot>
void format_inserts(ZU_s* s, const ZU_wchar* format, const insert_table& inserts,
                    std::index_sequence<Slot...>) {
    ZU_s_sprintf(s, format, inserts.texts[Slot]...);
}

} // namespace

int32_t ZU_s_format_message_i(ZU_s* s, const ZU_wchar* message, va_list arguments) {
    ZU_s_clear(s);
    const zu::owned<ZU_wchar> format(zu::allocate<ZU_wchar>(uint64_t{zu::text_view(message).size()} + 1));
    insert_table inserts;
    if (!rewrite_template(message, arguments, format.get(), inserts) || !takes_only_inserts(format.get()))
        return 0;
    format_inserts(s, format.get(), inserts, std::make_index_sequence<most_inserts>());
    return static_cast<int32_t>(ZU_s_length(*s));
}
