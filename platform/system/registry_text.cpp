// The text form of the registry:
//
//     [HKEY_LOCAL_MACHINE\Software\Zu]      a key; with - behind the bracket it is removed again
//     "name"="text, with \\ and \""         a text may go over several lines
//     @=dword:0000000a                      the default value
//     "list"=hex(7):61,00,\                 bytes of any type; plain hex is binary
//       00,00,00,00
//     "name"=-                              removed again
#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>

#include "platform/api/system.h"
#include "platform/api/text.h"
#include "platform/core/error.h"
#include "platform/system/registry.h"
#include "platform/text/case_fold.h"
#include "platform/text/utf8.h"

namespace platform {

std::u16string folded_name(wide_view name) {
    std::u16string folded(name);
    for (WCHAR& unit : folded)
        unit = static_cast<WCHAR>(fold_case(unit));
    return folded;
}

wide_view take_key_name(wide_view& path) {
    path.remove_prefix(std::min(path.find_first_not_of(u'\\'), path.size()));
    const wide_view name = path.substr(0, path.find(u'\\'));
    path.remove_prefix(name.size());
    return name;
}

const registry_node* registry_node::find(wide_view path) const {
    const registry_node* at = this;
    for (wide_view name; !(name = take_key_name(path)).empty();) {
        const auto found = at->keys.find(folded_name(name));
        if (found == at->keys.end())
            return nullptr;
        at = found->second.get();
    }
    return at;
}

namespace {

constexpr std::string_view older_heading = "REGEDIT4";

// Converts from the host's character set; false with the last-error code.
bool from_host_set(std::string_view bytes, std::u16string& text) {
    const int size = static_cast<int>(std::min<size_t>(bytes.size(), INT_MAX));
    const int units = size == 0 ? 0 : MultiByteToWideChar(CP_ACP, 0, bytes.data(), size, nullptr, 0);
    text.resize(static_cast<size_t>(units));
    return size == 0 || MultiByteToWideChar(CP_ACP, 0, bytes.data(), size, text.data(), units) != 0;
}

std::u16string from_utf16(std::string_view file, bool is_little) {
    std::u16string text(file.size() / 2 - 1, 0);
    std::memcpy(text.data(), file.data() + 2, text.size() * sizeof(WCHAR));
    if (is_little != (std::endian::native == std::endian::little)) {
        for (WCHAR& unit : text)
            unit = static_cast<WCHAR>(unit << 8 | unit >> 8);
    }
    return text;
}

int hex_digit(WCHAR unit) {
    if (unit >= u'0' && unit <= u'9')
        return unit - u'0';
    const int letter = (unit | 0x20) - u'a';
    return letter >= 0 && letter < 6 ? letter + 10 : -1;
}

// A place in the text. A take function moves on if the text matches, and otherwise stays.
class cursor {
public:
    explicit cursor(wide_view text) : rest_(text) {}

    bool at_end() const { return rest_.empty(); }
    size_t size() const { return rest_.size(); }
    void skip(size_t units) { rest_.remove_prefix(units); }

    bool take(wide_view word) {
        const bool fits = rest_.size() >= word.size()
                          && std::equal(word.begin(), word.end(), rest_.begin(),
                                        [](WCHAR wanted, WCHAR unit) { return fold_case(unit) == wanted; });
        if (fits)
            skip(word.size());
        return fits;
    }

    void skip_blanks() { skip(std::min(rest_.find_first_not_of(u" \t\r"), rest_.size())); }

    // Skips blanks, and tells whether the line ends there or a comment begins.
    bool is_at_line_end() {
        skip_blanks();
        return rest_.empty() || rest_[0] == u'\n' || rest_[0] == u';';
    }

    wide_view take_line() {
        const wide_view line = rest_.substr(0, rest_.find(u'\n'));
        skip(std::min(line.size() + 1, rest_.size()));
        return line;
    }

    // Takes up to `most` hexadecimal digits; false for none.
    bool take_hex(int most, DWORD& value) {
        value = 0;
        int taken = 0;
        for (int digit; taken < most && !at_end() && (digit = hex_digit(rest_[0])) >= 0; ++taken, skip(1))
            value = value << 4 | static_cast<DWORD>(digit);
        return taken > 0;
    }

    // Takes a text in quotation marks. A backslash escapes a backslash or a quotation mark.
    bool take_quoted(std::u16string& text, bool over_lines) {
        if (!take(u"\""))
            return false;
        for (size_t i = 0; i < rest_.size(); ++i) {
            const WCHAR unit = rest_[i];
            if (unit == u'"') {
                skip(i + 1);
                return true;
            }
            if (unit == u'\n' && !over_lines)
                return false;
            const bool escapes =
                unit == u'\\' && i + 1 < rest_.size() && (rest_[i + 1] == u'\\' || rest_[i + 1] == u'"');
            text += rest_[escapes ? ++i : i];
        }
        return false;
    }

    // Takes bytes separated by commas. A backslash at the end of a line continues the list on the next line.
    bool take_bytes(std::vector<BYTE>& bytes) {
        do {
            skip_continuation();
            if (is_at_line_end())
                return true;
            DWORD byte;
            if (!take_hex(2, byte))
                return false;
            bytes.push_back(static_cast<BYTE>(byte));
            skip_continuation();
        } while (take(u","));
        return true;
    }

private:
    void skip_continuation() {
        skip_blanks();
        while (!at_end() && rest_[0] == u'\\') {
            cursor after = *this;
            after.skip(1);
            if (!after.is_at_line_end())
                return;
            after.take_line();
            after.skip_blanks();
            *this = after;
        }
    }

    wide_view rest_;
};

bool is_text(DWORD type) {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

// The older format keeps the bytes of a text in the host's character set.
bool widen(registry_value& value) {
    std::u16string text;
    if (!from_host_set({reinterpret_cast<const char*>(value.data.data()), value.data.size()}, text))
        return false;
    const auto* bytes = reinterpret_cast<const BYTE*>(text.data());
    value.data.assign(bytes, bytes + text.size() * sizeof(WCHAR));
    return true;
}

// Takes the right side of a value's line.
bool take_data(cursor& at, registry_value& value, bool is_older) {
    std::u16string text;
    DWORD number;
    if (at.take_quoted(text, true)) {
        value.type = REG_SZ;
        const auto* bytes = reinterpret_cast<const BYTE*>(text.c_str());
        value.data.assign(bytes, bytes + (text.size() + 1) * sizeof(WCHAR));
    } else if (at.take(u"dword:")) {
        at.skip_blanks();
        if (!at.take_hex(8, number))
            return false;
        value.type = REG_DWORD;
        value.data.resize(sizeof number);
        std::memcpy(value.data.data(), &number, sizeof number);
    } else if (at.take(u"hex")) {
        value.type = REG_BINARY;
        if (at.take(u"(") && !(at.take_hex(8, value.type) && at.take(u")")))
            return false;
        if (!at.take(u":") || !at.take_bytes(value.data))
            return false;
        if (is_older && is_text(value.type) && !widen(value))
            return false;
    } else {
        return false;
    }
    return at.is_at_line_end();
}

class reader {
public:
    reader(const registry_text& text, registry_node& roots, wide_view only, registry_listener* listener)
        : text_(text), at_(text.text), roots_(roots), only_(only), listener_(listener) {}

    skipped_lines read() {
        while (!at_.at_end()) {
            pass_lines_before(at_);
            at_.skip_blanks();
            const size_t left = at_.size();
            if (!take_key() && !take_value() && !take_rest_of_line() && skipped_.count++ == 0)
                skipped_.first = line_with(left);
            at_.take_line();
        }
        return skipped_;
    }

private:
    // The number of the line that begins with so many units left.
    size_t line_with(size_t left) const {
        const wide_view before = wide_view(text_.text).substr(0, text_.text.size() - left);
        return 1 + static_cast<size_t>(std::count(before.begin(), before.end(), u'\n'));
    }

    // Counts the lines in front of the one that the cursor is in, each only once.
    void pass_lines_before(const cursor& at) {
        const size_t done = text_.text.size() - at.size();
        if (listener_)
            line_ +=
                static_cast<size_t>(std::count(text_.text.begin() + static_cast<ptrdiff_t>(counted_),
                                               text_.text.begin() + static_cast<ptrdiff_t>(done), u'\n'));
        counted_ = done;
    }

    // The lines from the current one to the one that the cursor is in.
    line_range lines_to(const cursor& last) {
        const size_t first = line_;
        pass_lines_before(last);
        return {first, line_ + 1};
    }

    // Takes the rest of an empty line, of a comment or of the heading.
    bool take_rest_of_line() {
        if (!at_.take(u"windows registry editor version 5.00"))
            at_.take(u"regedit4");
        return at_.is_at_line_end();
    }

    // Takes a line with a key. The values after a line without a usable key are skipped.
    bool take_key() {
        cursor after = at_;
        if (!after.take(u"["))
            return false;
        const wide_view line = after.take_line();
        const size_t bracket = line.rfind(u']');
        wide_view path = line.substr(0, bracket == wide_view::npos ? 0 : bracket);
        key_ = nullptr;
        const bool removes = path.starts_with(u'-');
        path.remove_prefix(removes);
        if (!is_possible(path))
            return false;
        if (listener_)
            listener_->on_key(path, removes, {line_, line_ + 1});
        if (removes)
            remove_key(path);
        else
            key_ = make_key(path);
        return true;
    }

    registry_node* make_key(wide_view path) {
        registry_node* at = &roots_;
        for (wide_view name; !(name = take_key_name(path)).empty();) {
            std::unique_ptr<registry_node>& key = at->keys[folded_name(name)];
            if (!key)
                key = std::make_unique<registry_node>();
            at = key.get();
        }
        return at;
    }

    bool is_possible(wide_view path) const {
        size_t depth = 0;
        wide_view rest = path;
        if (!only_.empty() && folded_name(take_key_name(rest)) != only_)
            return false;
        for (wide_view name; !(name = take_key_name(path)).empty(); ++depth) {
            if (name.size() > longest_key_name || depth == deepest_key)
                return false;
        }
        return depth > 0;
    }

    void remove_key(wide_view path) {
        registry_node* at = &roots_;
        for (wide_view name = take_key_name(path); !name.empty();) {
            const auto found = at->keys.find(folded_name(name));
            if (found == at->keys.end())
                return;
            name = take_key_name(path);
            if (name.empty())
                at->keys.erase(found);
            else
                at = found->second.get();
        }
    }

    bool take_value() {
        cursor after = at_;
        if (!key_ || !take_value(after))
            return false;
        at_ = after;
        return true;
    }

    bool take_value(cursor& line) {
        std::u16string name;
        if (!line.take(u"@") && !line.take_quoted(name, false))
            return false;
        line.skip_blanks();
        if (!line.take(u"="))
            return false;
        line.skip_blanks();
        registry_value value{};
        const bool removes = line.take(u"-");
        if (removes ? !line.is_at_line_end() : !take_data(line, value, text_.is_older))
            return false;
        if (listener_)
            listener_->on_value(name, removes, lines_to(line));
        if (removes)
            key_->values.erase(folded_name(name));
        else
            key_->values.insert_or_assign(folded_name(name), std::move(value));
        return true;
    }

    const registry_text& text_;
    cursor at_;
    registry_node& roots_;
    const wide_view only_;
    registry_listener* const listener_;
    size_t line_ = 0, counted_ = 0; // the current line, and the units in front of it
    registry_node* key_ = nullptr;
    skipped_lines skipped_;
};

} // namespace

DWORD registry_text::decode(std::string_view file) {
    const bool is_little = file.starts_with("\xFF\xFE");
    is_older = file.starts_with(older_heading);
    if (is_little || file.starts_with("\xFE\xFF"))
        text = from_utf16(file, is_little);
    else if (is_older && file.size() > INT_MAX)
        return ERROR_NOT_ENOUGH_MEMORY;
    else if (is_older && !from_host_set(file, text))
        return GetLastError();
    else if (!is_older)
        text = wide_from(file.starts_with("\xEF\xBB\xBF") ? file.substr(3) : file);
    return ERROR_SUCCESS;
}

skipped_lines read_registry_text(const registry_text& text, registry_node& roots, wide_view only,
                                 registry_listener* listener) {
    return reader(text, roots, only, listener).read();
}

} // namespace platform
