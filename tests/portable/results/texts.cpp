// Formats with every letter, flag, width, precision and size; conversions of text; error texts.
#include "results.h"

namespace results {
namespace {

// "<" and ">" show where the conversion's output begins and ends.
template <typename... Values>
void format(const std::u16string& text, const std::string& value_name, Values... values) {
    ZU_s out = nullptr;
    ZU_s_sprintf(&out, (u"<" + text + u">").c_str(), values...);
    add("format " + show(text) + " of " + value_name,
        show(std::u16string_view(ZU_s_text(out), ZU_s_length(out))));
    ZU_s_destroy(&out);
}

template <typename Value>
void with_flags(std::u16string_view letters, const std::string& value_name, Value value,
                const char16_t* size = u"") {
    for (const char16_t letter : letters)
        for (const char16_t* flags : {u"", u"-", u"+", u" ", u"#", u"0", u"-0", u"+#0"})
            for (const char16_t* width : {u"", u"1", u"9"})
                for (const char16_t* precision : {u"", u".", u".0", u".3", u".12"})
                    format(std::u16string(u"%") + flags + width + precision + size + letter, value_name,
                           value);
}

void with_sizes() {
    for (const char16_t* size :
         {u"", u"h", u"hh", u"l", u"ll", u"I", u"I32", u"I64", u"L", u"w", u"z", u"t", u"j"})
        for (const char16_t letter : std::u16string_view(u"diouxX"))
            format(std::u16string(u"%") + size + letter, "FEDCBA9876543201", uint64_t{0xFEDCBA9876543201});
    for (const char16_t* text : {u"%s", u"%ls", u"%ws", u"%lS", u"%wS", u"%Ls"})
        format(text, "wide text", u"wid\u20AC");
    for (const char16_t* text : {u"%S", u"%hs", u"%hS"})
        format(text, "Latin text", "nar\xE9");
    for (const char16_t* text : {u"%c", u"%C", u"%hc", u"%lc", u"%wc", u"%hC", u"%lC"})
        for (const int unit : {0, 65, 0x141, 0x20AC})
            format(text, show(unit), unit);
}

void with_stars() {
    for (const int star : {-5, -1, 0, 3, 12}) {
        const std::string name = show(star) + ", 42";
        for (const char16_t* text : {u"%*d", u"%0*d", u"%-*d", u"%.*d", u"%+.*d"})
            format(text, name, star, 42);
        for (const char16_t* text : {u"%*s", u"%.*s"})
            format(text, name, star, u"text");
    }
}

void odd_formats() {
    for (char16_t letter = u'!'; letter < 0x7F; ++letter)
        if (std::u16string_view(u"diouxXcCsSpeEfFgGaAnZhlLIwztjq*.0123456789-+ #$'").find(letter)
            == std::u16string_view::npos)
            format(std::u16string(u"%") + letter + u"%d", "1, 2", 1, 2);
    for (const char16_t* text :
         {u"%5", u"%-", u"%l", u"%.", u"%I6", u"%5%", u"%-%", u"%'d", u"%1$d", u"%q", u"%%", u"%%%%d", u"",
          u"%127d", u"%128d", u"%-511d", u"%02000d", u"abc%-08.3l", u"%d%*"})
        format(text, "42", 42);
}

// Every text of up to three of the units.
template <typename Unit>
std::vector<std::basic_string<Unit>> combined(std::basic_string_view<Unit> units) {
    std::vector<std::basic_string<Unit>> all(1);
    for (size_t i = 0; i < all.size() && all[i].size() < 3; ++i)
        for (const Unit unit : units)
            all.push_back(all[i] + unit);
    return all;
}

void conversions() {
    for (const std::string& bytes :
         combined(std::string_view("A\x80\x9F\xBF\xC0\xC3\xE0\xE2\xED\xF0\xF4\xFF"))) {
        uint32_t count = 77;
        RESULT(show(std::string_view(bytes)),
               both(ZU_char_2_wchar(ZU_ENCODING_UTF8, bytes.c_str(), -1, &count), &count));
    }
    for (const std::u16string& text : combined(std::u16string_view(u"A\u00E4\u20AC\xD83D\xDE00\xFFFF")))
        for (const int32_t length : {-2, -1, 0, static_cast<int32_t>(text.size())}) {
            uint32_t count = 77;
            char* const made = ZU_wchar_2_char(ZU_ENCODING_UTF8, text.c_str(), length, &count);
            add("ZU_wchar_2_char " + show(text) + " length " + show(length),
                show(std::string_view(made, count)));
            ZU_free(made);
        }
}

} // namespace

void texts() {
    with_flags(u"diouxXc", "42", 42);
    with_flags(u"dioux", "-1", -1);
    with_flags(u"dioux", "0", 0);
    with_flags(u"d", "-5000000000", int64_t{-5000000000}, u"I64");
    with_flags(u"s", "text", u"text");
    with_flags(u"S", "narrow text", "narrow text");
    with_flags(u"sS", "null", static_cast<const void*>(nullptr));
    with_flags(u"p", "AB", reinterpret_cast<const void*>(uintptr_t{0xAB}));
    with_flags(u"feEgG", "42.75", 42.75); // more numbers are compared with those of the C library
    for (const auto group : {with_sizes, with_stars, odd_formats, conversions})
        group();
    for (const uint32_t number :
         {0u,    1u,    2u,    3u,     5u,     8u,     17u,    32u,         53u,        87u,   112u,
          123u,  126u,  183u,  193u,   234u,   267u,   298u,   317u,        1053u,      1060u, 1300u,
          1332u, 1460u, 1722u, 10022u, 10035u, 11001u, 49999u, 0x80070005u, 0xC0000005u})
        note("error text " + show(number), [&] {
            ZU_wchar* const text = ZU_get_error_msg(number);
            ZU_free(text);
            return text != nullptr;
        });
}

} // namespace results
