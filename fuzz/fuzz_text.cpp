// Texts of any kind: conversions, formats, message templates, addresses, command lines, paths, names, patterns, records of
// services, registry files. None of this asks the host, so a run has many turns.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "fuzz/check.h"
#include "platform/files/name_map.h"
#include "platform/files/path.h"
#include "platform/files/wildcard.h"
#include "platform/platform.h"
#include "platform/services/service_record.h"
#include "platform/system/registry.h"
#include "platform/text/case_fold.h"
#include "platform/text/command_line.h"
#include "zu/zu.h"

namespace {

using namespace platform;

// Blocks of their own size show a look behind the end. What has come out of UTF-8 is a fixed point.
void convert(fuzz_input& input) {
    const uint32_t encoding = input.ConsumeBool() ? ZU_ENCODING_UTF8 : ZU_ENCODING_ANSI;
    const std::vector<char> bytes = input.ConsumeRemainingBytes<char>();
    std::vector<ZU_wchar> units(bytes.size() / 2);
    if (units.empty())
        return;
    std::memcpy(units.data(), bytes.data(), units.size() * sizeof units[0]);
    uint32_t length = 0;
    ZU_wchar* const wide =
        ZU_char_2_wchar(encoding, bytes.data(), static_cast<int32_t>(bytes.size()), &length);
    check(wide && wide[length] == 0);
    for (const std::u16string_view text : {std::u16string_view(wide, length), {units.data(), units.size()}}) {
        uint32_t size = 0, length_again = 0;
        char* const narrow = ZU_wchar_2_char(encoding, text.data(), static_cast<int32_t>(text.size()), &size);
        check(narrow && narrow[size] == 0);
        ZU_wchar* const again = ZU_char_2_wchar(encoding, narrow, static_cast<int32_t>(size), &length_again);
        check(encoding != ZU_ENCODING_UTF8 || text.data() != wide
              || text == std::u16string_view(again, length_again));
        ZU_free(again);
        ZU_free(narrow);
    }
    ZU_free(wide);
}

constexpr size_t argument_count = 64; // a conversion takes at most as many arguments as it has units

const char16_t* const arguments[] = {u"text", u"", u"a longer text, of more units than an area has", nullptr};

template <size_t... I>
int print(char16_t* out, size_t count, const char16_t* text, std::index_sequence<I...>) {
    return _snwprintf(out, count, text, arguments[I % 4]..., 1.5, -1e300, 0.0, 1e-320, 3.0, 2.5, 1e15, -0.0);
}

// Arguments that every conversion can take: pointers to texts. Areas of every size are filled as the measured length
// says.
void format(fuzz_input& input) {
    const size_t count = size_t{input.ConsumeIntegral<uint8_t>()} + 1;
    std::u16string text = remaining_text(input).substr(0, argument_count - 1);
    std::replace(text.begin(), text.end(), u'\xFF', u'\u20ac');
    constexpr auto slots = std::make_index_sequence<argument_count>();
    std::vector<char16_t> area(count);
    const int measured = print(nullptr, 0, text.c_str(), slots);
    const int length = print(area.data(), count, text.c_str(), slots);
    const bool fits = measured >= 0 && static_cast<size_t>(measured) <= count;
    check(length == (fits ? measured : -1));
    check(!fits || static_cast<size_t>(length) == count || area[static_cast<size_t>(length)] == 0);
}

// Widths of many digits make texts that no memory holds, and numbers of inserts beyond those that are passed.
void fill_template(fuzz_input& input) {
    const std::u16string text = remaining_text(input);
    const auto are_digits = [](ZU_wchar a, ZU_wchar b) {
        return a >= u'0' && a <= u'9' && b >= u'0' && b <= u'9';
    };
    if (std::adjacent_find(text.begin(), text.end(), are_digits) != text.end())
        return;
    ZU_s s = nullptr;
    const int32_t length = ZU_s_format_message(&s, text.c_str(), u"1", u"22", static_cast<ZU_wchar*>(nullptr),
                                               u"4444", u"", u"6", u"7", u"8", u"9");
    check(length == static_cast<int32_t>(ZU_s_length(s)));
    ZU_s_destroy(&s);
}

// Dotted addresses as the C library reads them, but for one blank alone, and the way back.
void read_address(fuzz_input& input) {
    const std::string text = input.ConsumeRemainingBytesAsString().c_str();
    in_addr expected{INADDR_NONE};
    if (text == " ")
        expected.s_addr = 0;
    else if (inet_aton(text.c_str(), &expected) == 0)
        expected.s_addr = INADDR_NONE;
    const uint32_t address = ZU_inet_addr(text.c_str());
    check(address == expected.s_addr);
    char dotted[16];
    ZU_inet_ntoa(address, dotted);
    check(address == INADDR_NONE || ZU_inet_addr(dotted) == address);
}

void read_command_line(fuzz_input& input) {
    const std::u16string text = remaining_text(input);
    command_line line(text);
    do {
        size_t units = line.program().size();
        for (const std::u16string& argument : line.arguments())
            units += argument.size();
        check(units <= text.size());
    } while (line.lengthen_program());
}

// A path stays on its drive: there, it never has an empty, "." or ".." component, nor a zero byte.
void read_path(fuzz_input& input) {
    const path_use use = input.ConsumeBool() ? path_use::exact : path_use::search;
    const std::u16string start = input.ConsumeBool() ? u"\\\\?\\C:\\" : u"";
    parsed_path path;
    if (parse_path((start + remaining_text(input)).c_str(), use, path) != ERROR_SUCCESS)
        return;
    check(path.root_size == 0); // C: is /
    check(path.host.find('\0') == std::string::npos);
    for (const char* component : {"//", "/./", "/../"})
        check((path.host + '/').find(component) == std::string::npos);
    check(path.is_root == (path.host.empty() && path.pattern.empty()));
    check(use == path_use::search || path.pattern.empty());
}

// A path of plain characters is parsed in one pass, and any other component by component: both say the same.
void parse_both_ways(fuzz_input& input) {
    const path_use use = input.ConsumeBool() ? path_use::exact : path_use::search;
    const std::u16string rest = u"a" + remaining_text(input);
    parsed_path plain, general;
    const DWORD code = parse_path((u"\\\\?\\C:\\" + rest).c_str(), use, plain);
    check(code == parse_path((u"\\\\?\\C:\\\u00e4\\" + rest).c_str(), use, general));
    if (code != ERROR_SUCCESS)
        return;
    check("/\u00e4" + plain.host == general.host && plain.pattern == general.pattern);
    check(plain.ends_with_separator == general.ends_with_separator && plain.root_size == general.root_size);
}

// A name comes back unchanged, either way.
void convert_name(fuzz_input& input) {
    std::string name = input.ConsumeRandomLengthString(300), back;
    std::erase_if(name, [](char c) { return c == 0 || c == '/'; });
    const std::u16string wide = remaining_text(input);
    std::u16string spelling;
    append_wide_name(name, spelling);
    check(append_host_name(spelling, back) && back == name);
    check(same_name(name, back));
    back.clear();
    spelling.clear();
    if (!append_host_name(wide, back))
        check(back.empty());
    append_wide_name(back, spelling);
    check(back.empty() || spelling == wide);
}

bool model(wide_view pattern, wide_view name) {
    if (pattern.empty())
        return name.empty();
    if (name.empty()) { // only characters that match nothing are left: stars, marks, and dots before them
        const size_t next = pattern[0] == u'.' ? 1 : 0;
        return next < pattern.size() && (pattern[next] == u'*' || pattern[next] == u'?')
               && model(pattern.substr(next + 1), name);
    }
    if (pattern[0] == u'*')
        return model(pattern.substr(1), name) || model(pattern, name.substr(1));
    if (pattern[0] == u'?')
        return model(pattern.substr(1), name.substr(1))
               || (name[0] == u'.' && model(pattern.substr(1), name));
    return fold_case(pattern[0]) == fold_case(name[0]) && model(pattern.substr(1), name.substr(1));
}

// The model is exponential, and knows nothing of the two patterns with rules of their own.
void match(fuzz_input& input) {
    const std::string bytes = input.ConsumeRandomLengthString(longest_component);
    const std::u16string pattern(bytes.begin(), bytes.end());
    const std::u16string name = remaining_text(input).substr(0, longest_component);
    const bool matched = matches(pattern, name);
    if (pattern.size() <= 8 && name.size() <= 8 && !matches_all(pattern) && !pattern.ends_with(u"*."))
        check(matched == model(pattern, name));
}

// What was read is written so that it is read the same.
void read_record(fuzz_input& input) {
    service_record record, again;
    if (!read_record(input.ConsumeRemainingBytesAsString(), record))
        return;
    const std::string written = text_of(record);
    check(read_record(written, again) && text_of(again) == written);
    check(again.name == record.name && again.command_line == record.command_line
          && again.dependencies == record.dependencies);
    const std::string directory = directory_name_of(record.name);
    check(!directory.empty() && directory.size() <= 255 && directory[0] != '.'
          && directory.find('/') == std::string::npos);
}

size_t visit(const registry_node& node, size_t depth) {
    check(depth <= deepest_key);
    size_t bytes = 0;
    for (const auto& [name, value] : node.values) {
        check(folded_name(name) == name);
        bytes += value.data.size();
    }
    for (const auto& [name, key] : node.keys) {
        check(name.size() <= longest_key_name && folded_name(name) == name);
        check(!name.empty() && node.find(name) == key.get());
        bytes += visit(*key, depth + 1);
    }
    return bytes;
}

// Every name of the registry is folded, found again and within the limits.
void read_registry(fuzz_input& input) {
    const std::string bytes = input.ConsumeRemainingBytesAsString();
    registry_node roots;
    registry_text text;
    check(text.decode(bytes) == 0);
    const skipped_lines skipped = read_registry_text(text, roots);
    check(visit(roots, 0) <= 4 * bytes.size() + 4);
    check(skipped.first <= bytes.size() + 1 && (skipped.count == 0) == (skipped.first == 0));
}

} // namespace

// A process has one character set, so a run takes one of eight; LC_ALL=x.SET chooses it.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    constexpr const char* sets[] = {"x.CP1252",  "x.ISO-8859-7",  "x.EUC-JP", "x.SHIFT_JIS",
                                    "x.GB18030", "x.ISO-2022-JP", "x.BIG5",   "x.TCVN5712-1"};
    setenv("LC_ALL", sets[getpid() % std::size(sets)], 0);
    std::printf("LC_ALL=%s\n", std::getenv("LC_ALL"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    setenv("ZU_HOST", "/nonexistent", 1);
    return run_one_of({convert, format, fill_template, read_address, read_command_line, read_path,
                       parse_both_ways, convert_name, match, read_record, read_registry},
                      data, size);
}
