// Parsing of paths.
#include "platform/files/path.h"

#include <algorithm>
#include <vector>

#include "platform/files/current.h"
#include "platform/files/drives.h"
#include "platform/text/case_fold.h"

namespace platform {

namespace {

constexpr wide_view long_prefix = u"\\\\?\\";
constexpr wide_view network_name = u"UNC";

// These are objects, not functions, so that the compiler turns a search for them into a plain loop.
constexpr auto is_backslash = [](WCHAR unit) { return unit == u'\\'; };
constexpr auto is_separator = [](WCHAR unit) { return unit == u'\\' || unit == u'/'; };
constexpr auto is_wildcard = [](WCHAR unit) { return unit == u'*' || unit == u'?'; };

bool is_drive_name(wide_view text) {
    return text.size() == 2 && is_drive_letter(text[0]) && text[1] == u':';
}

bool is_never_in_patterns(WCHAR unit) {
    return unit < 0x20 || wide_view(u"\"/:<>|").find(unit) != wide_view::npos;
}

// Takes the text up to the next separator, and the separator, off the front.
template <class IsSeparator>
wide_view take_component(wide_view& rest, IsSeparator separates) {
    const size_t end = static_cast<size_t>(std::find_if(rest.begin(), rest.end(), separates) - rest.begin());
    const wide_view component = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return component;
}

// ---- Literal paths ---------------------------------------------------------------------------------------------

bool is_component(wide_view text) {
    return !text.empty() && text.size() <= longest_component && text != u"." && text != u"..";
}

// Adds components in one pass when they are as most are: of plain units, none empty or dots. False, with nothing added,
// for any others.
bool append_plain_components(wide_view rest, std::string& host) {
    const size_t before = host.size();
    host.resize(before + 1 + rest.size());
    char* out = host.data() + before;
    *out++ = '/';
    size_t start = 0; // where the component begins
    for (size_t at = 0;; ++at) {
        const bool is_end = at == rest.size();
        if (is_end || rest[at] == u'\\') {
            if (!is_component(rest.substr(start, at - start)))
                break;
            if (is_end)
                return true;
            *out++ = '/';
            start = at + 1;
        } else if (is_plain_unit(rest[at])) {
            *out++ = static_cast<char>(rest[at]);
        } else {
            break;
        }
    }
    host.resize(before);
    return false;
}

// Adds the components below the drive's directory.
DWORD append_components(wide_view rest, path_use use, parsed_path& out) {
    if (append_plain_components(rest, out.host))
        return ERROR_SUCCESS;
    out.is_root = rest.empty();
    out.ends_with_separator = !rest.empty() && rest.back() == u'\\';
    if (out.ends_with_separator)
        rest.remove_suffix(1);
    if (out.ends_with_separator && rest.empty())
        return ERROR_INVALID_NAME; // a doubled separator
    // One unit gives three bytes at most, but mostly one.
    out.host.reserve(out.host.size() + rest.size() + 16);
    while (!rest.empty()) {
        const size_t left = rest.size();
        const wide_view component = take_component(rest, is_backslash);
        const bool is_last = component.size() == left;
        if (component.empty() || component.size() > longest_component || (!is_last && rest.empty()))
            return ERROR_INVALID_NAME;
        const bool is_dots = component == u"." || component == u"..";
        if (use == path_use::search && is_last && !out.ends_with_separator
            && (is_dots || std::any_of(component.begin(), component.end(), is_wildcard))) {
            if (std::any_of(component.begin(), component.end(), is_never_in_patterns))
                return ERROR_INVALID_NAME;
            out.pattern = component;
            return ERROR_SUCCESS;
        }
        out.host += '/';
        if (is_dots || !append_host_name(component, out.host))
            return ERROR_INVALID_NAME;
    }
    return ERROR_SUCCESS;
}

DWORD parse_network(wide_view rest, path_use use, parsed_path& out) {
    const wide_view server = take_component(rest, is_backslash);
    const wide_view share = take_component(rest, is_backslash);
    out.is_network = true;
    if (const DWORD code = append_share_directory(server, share, out.host))
        return code;
    out.root_size = out.host.size();
    return append_components(rest, use, out);
}

// Parses what follows the prefix `\\?\`.
DWORD parse_literal(wide_view rest, path_use use, parsed_path& out) {
    if (rest.size() + long_prefix.size() > longest_path)
        return ERROR_PATH_NOT_FOUND;
    if (rest.empty())
        return ERROR_INVALID_NAME;
    const bool has_more = rest.find(u'\\') != wide_view::npos;
    const wide_view device = take_component(rest, is_backslash);
    if (equal_without_case(device, network_name))
        return parse_network(rest, use, out);
    if (!is_drive_name(device))
        return has_more ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND;
    if (const DWORD code = append_drive_directory(static_cast<char>(device[0]), out.host))
        return code;
    out.root_size = out.host.size();
    out.is_volume = !has_more;
    return append_components(rest, use, out);
}

// ---- Other paths -----------------------------------------------------------------------------------------------

// The beginning that a path is added to: `\\?\C:` or `\\?\UNC\srv\share`, and the current directory's components.
struct base {
    std::u16string root;
    std::vector<wide_view> components;
    std::u16string current;
};

void add_components(wide_view rest, std::vector<wide_view>& components) {
    while (!rest.empty()) {
        const wide_view component = take_component(rest, is_separator);
        if (component == u"..") {
            if (!components.empty())
                components.pop_back();
        } else if (!component.empty() && component != u".") {
            components.push_back(component);
        }
    }
}

void set_drive_root(WCHAR letter, base& out) {
    out.root = long_prefix;
    out.root.append({letter, u':'});
}

// Takes server and share off the path, which follows two separators.
void take_network_root(wide_view& path, base& out) {
    const wide_view server = take_component(path, is_separator);
    const wide_view share = take_component(path, is_separator);
    out.root = long_prefix;
    out.root.append(network_name).append(u"\\").append(server).append(u"\\").append(share);
}

// Makes the base the current directory, on a drive or a share. 0 or a code.
DWORD set_current_directory(base& out) {
    if (const DWORD code = current_directory(out.current))
        return code;
    wide_view rest = out.current;
    const bool is_network = rest[0] == u'\\';
    rest.remove_prefix(2);
    if (is_network)
        take_network_root(rest, out);
    else
        set_drive_root(out.current[0], out);
    add_components(rest, out.components);
    return ERROR_SUCCESS;
}

// The base of a path such as C:dir: the current directory where that is on the same drive, else the drive's root.
DWORD set_directory_on(WCHAR letter, base& out) {
    if (const DWORD code = set_current_directory(out))
        return code;
    if (fold_case(letter) != fold_case(out.current[0])) {
        set_drive_root(letter, out);
        out.components.clear();
    }
    return ERROR_SUCCESS;
}

// Takes the drive, the share or the leading separator off a path, and gives the base that it names. 0, or the code of
// a current directory that cannot be told.
DWORD take_base(wide_view& path, base& out) {
    const auto separator_at = [&](size_t at) { return at < path.size() && is_separator(path[at]); };
    if (separator_at(0) && separator_at(1)) {
        const bool is_device = path.size() > 3 && (path[2] == u'?' || path[2] == u'.') && separator_at(3);
        path.remove_prefix(is_device ? 4 : 2);
        if (!is_device) {
            take_network_root(path, out);
            return ERROR_SUCCESS;
        }
        const wide_view device = take_component(path, is_separator);
        if (equal_without_case(device, network_name))
            take_network_root(path, out);
        else
            out.root.append(long_prefix).append(device);
        return ERROR_SUCCESS;
    }
    if (path.size() >= 2 && is_drive_name(path.substr(0, 2))) {
        const WCHAR letter = path[0];
        path.remove_prefix(2);
        if (!separator_at(0))
            return set_directory_on(letter, out);
        set_drive_root(letter, out);
        return ERROR_SUCCESS;
    }
    const bool from_root = separator_at(0);
    const DWORD code = set_current_directory(out);
    if (from_root)
        out.components.clear();
    return code;
}

// Gives the literal form of a path that is not in long form. 0, or the code of a current directory that cannot be told.
DWORD resolve(wide_view path, std::u16string& literal) {
    base found;
    if (const DWORD code = take_base(path, found))
        return code;
    add_components(path, found.components);
    bool ends_with_separator = !path.empty() && is_separator(path.back());
    if (!ends_with_separator && !path.empty() && !found.components.empty()) {
        wide_view& last = found.components.back();
        // A pattern keeps its dots: `*.` asks for names without an extension.
        if (last.find_first_of(u"*?") == wide_view::npos)
            last = last.substr(0, last.find_last_not_of(u". ") + 1);
        if (last.empty()) {
            found.components.pop_back();
            ends_with_separator = true;
        }
    }
    literal = std::move(found.root);
    for (const wide_view component : found.components)
        literal.append(u"\\").append(component);
    if (found.components.empty() || ends_with_separator)
        literal += u'\\';
    return ERROR_SUCCESS;
}

} // namespace

bool is_long_form(wide_view path) {
    return path.starts_with(long_prefix);
}

bool is_null_device(wide_view path) {
    if (is_long_form(path))
        return false;
    const size_t start = path.find_last_of(u"\\/:");
    return equal_without_case(start == wide_view::npos ? path : path.substr(start + 1), u"nul");
}

DWORD parse_path(const WCHAR* path, path_use use, parsed_path& out) {
    const wide_view text = path ? wide_view(path) : wide_view();
    if (text.find_first_not_of(u' ') == wide_view::npos)
        return ERROR_PATH_NOT_FOUND;
    if (text == long_prefix.substr(0, long_prefix.size() - 1)) // no server has that name
        return ERROR_INVALID_NAME;
    if (is_long_form(text))
        return parse_literal(text.substr(long_prefix.size()), use, out);
    std::u16string literal;
    if (const DWORD code = resolve(text, literal))
        return code;
    return parse_literal(wide_view(literal).substr(long_prefix.size()), use, out);
}

} // namespace platform
