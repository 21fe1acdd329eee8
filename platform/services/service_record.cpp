// The text of a service's record, and the directory name of a service.
#include "platform/services/service_record.h"

#include <charconv>
#include <cstdio>

#include "platform/text/case_fold.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

constexpr std::string_view first_line = "zu service 1";

bool is_letter_or_digit(char32_t c) {
    return (c >= U'0' && c <= U'9') || ((c | 0x20) >= U'a' && (c | 0x20) <= U'z');
}

// Characters that stand for themselves in a value, and in a directory's name.
bool is_plain_in_value(char32_t c) {
    return c >= 0x20 && c != U'%' && c != 0x7F;
}
bool is_plain_in_name(char32_t c) {
    return c >= 0x80 || is_letter_or_digit(c) || c == U'-' || c == U'_' || c == U' ' || c == U'.';
}

void append_escaped(std::string& out, char32_t c) {
    char digits[8];
    std::snprintf(digits, sizeof digits, c < 0x80 ? "%%%02X" : "%%u%04X", static_cast<unsigned>(c));
    out += digits;
}

template <class Plain, class Change>
std::string escaped(wide_view text, Plain is_plain, Change change) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        WCHAR units[2] = {text[i], 0};
        char32_t c = text[i];
        if (is_high_surrogate(c) && i + 1 < text.size() && is_low_surrogate(text[i + 1]))
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00u);
        c = change(c);
        size_t count = 1;
        if (c >= 0x10000) {
            units[0] = static_cast<WCHAR>(0xD7C0 + (c >> 10));
            units[1] = static_cast<WCHAR>(0xDC00 + (c & 0x3FF));
            count = 2;
        } else {
            units[0] = static_cast<WCHAR>(c);
        }
        if ((c & 0xFFFFF800) == 0xD800 || !is_plain(c)) {
            append_escaped(out, c);
            continue;
        }
        char bytes[4];
        out.append(bytes, utf8_from_wide(units, count, bytes, sizeof bytes));
    }
    return out;
}

std::string value_of(wide_view text) {
    return escaped(text, is_plain_in_value, [](char32_t c) { return c; });
}

// The name with every letter folded, in full.
std::string folded(wide_view name) {
    std::string out = escaped(name, is_plain_in_name, fold_case);
    if (!out.empty() && out[0] == '.') // names that begin with a dot are the manager's own
        out.replace(0, 1, "%2E");
    return out;
}

// Reads the hexadecimal number behind a percent sign, with its `u`. The result is its length; 0 if there is none.
size_t escaped_unit(std::string_view text, WCHAR& unit) {
    const size_t start = text.substr(0, 1) == "u" ? 1 : 0;
    const size_t digits = start ? 4 : 2;
    if (text.size() < start + digits)
        return 0;
    unsigned value = 0;
    const char* const end = text.data() + start + digits;
    if (std::from_chars(text.data() + start, end, value, 16).ptr != end)
        return 0;
    unit = static_cast<WCHAR>(value);
    return start + digits;
}

std::u16string text_of_value(std::string_view value) {
    std::u16string out;
    while (!value.empty()) {
        WCHAR units[2];
        if (value[0] == '%') {
            const size_t size = escaped_unit(value.substr(1), units[0]);
            if (size != 0) {
                out += units[0];
                value.remove_prefix(1 + size);
                continue;
            }
        }
        const size_t size = decode_utf8(value.data(), value.size()).length;
        out.append(units, wide_from_utf8(value.data(), size, units, 2));
        value.remove_prefix(size);
    }
    return out;
}

std::string_view take_line(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    return line;
}

DWORD number_of(std::string_view value) {
    DWORD number = 0;
    std::from_chars(value.data(), value.data() + value.size(), number);
    return number;
}

uint64_t hash_of(std::string_view text) {
    uint64_t hash = 0xcbf29ce484222325;
    for (char c : text)
        hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001b3;
    return hash;
}

} // namespace

std::string text_of(const service_record& record) {
    std::string text = std::string(first_line) + '\n';
    text += "name " + value_of(record.name) + '\n';
    text += "display " + value_of(record.display_name) + '\n';
    text += "type " + std::to_string(record.type) + '\n';
    text += "start " + std::to_string(record.start_type) + '\n';
    text += "error " + std::to_string(record.error_control) + '\n';
    text += "command " + value_of(record.command_line) + '\n';
    for (const std::u16string& name : record.dependencies)
        text += "depends " + value_of(name) + '\n';
    if (record.is_unit)
        text += "manager systemd\n";
    return text;
}

bool read_record(std::string_view text, service_record& out) {
    if (take_line(text) != first_line)
        return false;
    out = {};
    while (!text.empty()) {
        const std::string_view line = take_line(text);
        const std::string_view key = line.substr(0, line.find(' '));
        const std::string_view value = line.substr(std::min(line.size(), key.size() + 1));
        if (key == "name")
            out.name = text_of_value(value);
        else if (key == "display")
            out.display_name = text_of_value(value);
        else if (key == "type")
            out.type = number_of(value);
        else if (key == "start")
            out.start_type = number_of(value);
        else if (key == "error")
            out.error_control = number_of(value);
        else if (key == "command")
            out.command_line = text_of_value(value);
        else if (key == "manager")
            out.is_unit = value == "systemd";
        else if (key == "depends")
            out.dependencies.push_back(text_of_value(value));
    }
    return !out.name.empty() && !out.command_line.empty();
}

std::string directory_name_of(wide_view service_name) {
    constexpr size_t longest = 200; // the host takes 255 bytes
    constexpr size_t kept = 180;
    std::string name = folded(service_name);
    if (name.size() <= longest)
        return name;
    char number[20];
    std::snprintf(number, sizeof number, "~%016llx", static_cast<unsigned long long>(hash_of(name)));
    return name.substr(0, kept) + number;
}

bool same_service_name(wide_view one, wide_view other) {
    return equal_without_case(one, other);
}

} // namespace platform
