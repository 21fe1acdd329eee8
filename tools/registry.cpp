// zu registry: what programs read from the registry, and changing it.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/api/system.h"
#include "platform/core/error.h"
#include "platform/text/utf8.h"
#include "tools/registry_edit.h"

namespace zu_tools {

namespace {

using platform::registry_value;

struct type_name {
    const char* name;
    platform::DWORD type;
};
constexpr type_name types[] = {
    {"sz", REG_SZ},       {"expand_sz", REG_EXPAND_SZ}, {"binary", REG_BINARY},
    {"dword", REG_DWORD}, {"multi_sz", REG_MULTI_SZ},   {"qword", 11},
};

std::string name_of_type(platform::DWORD type) {
    for (const type_name& known : types) {
        if (known.type == type)
            return known.name;
    }
    return "type " + std::to_string(type);
}

// The whole path of a key, with its root's own name.
std::u16string key_of(const std::string& argument) {
    constexpr std::pair<const char*, const char*> roots[] = {
        {"HKCR", "HKEY_CLASSES_ROOT"}, {"HKCU", "HKEY_CURRENT_USER"},   {"HKLM", "HKEY_LOCAL_MACHINE"},
        {"HKU", "HKEY_USERS"},         {"HKCC", "HKEY_CURRENT_CONFIG"},
    };
    const std::u16string path = platform::wide_from(argument);
    platform::wide_view rest = path;
    const std::u16string root = platform::folded_name(platform::take_key_name(rest));
    for (const auto& [shorter, longer] : roots) {
        const std::u16string name = platform::wide_from(longer);
        if (root != platform::folded_name(platform::wide_from(shorter))
            && root != platform::folded_name(name))
            continue;
        std::u16string key = name;
        size_t depth = 1;
        for (platform::wide_view part; !(part = platform::take_key_name(rest)).empty(); ++depth) {
            if (part.size() > platform::longest_key_name || depth == platform::deepest_key
                || part.find_first_of(u"\r\n") != part.npos)
                misuse("no key can have that name");
            (key += u'\\') += part;
        }
        return key;
    }
    misuse("a key begins with HKEY_LOCAL_MACHINE (HKLM), HKEY_CURRENT_USER (HKCU) or another root: "
           + argument);
}

std::u16string name_of(const std::string& argument) {
    std::u16string name = platform::wide_from(argument);
    if (name.find_first_of(u"\r\n") != name.npos || name.find(u'\0') != name.npos)
        misuse("no value can have that name");
    return name;
}

bool is_users(const std::u16string& key) {
    return platform::folded_name(key).starts_with(platform::current_user_root);
}

// Empty for a user without a home.
std::string users_file() {
    std::string path;
    check(platform::user_registry_file(path), "this user's home");
    return path;
}

// The file that a change of the key belongs to.
std::string file_of(const std::u16string& key) {
    std::string path = is_users(key) ? users_file() : platform::machine_registry_file();
    if (path.empty())
        fail("this user has no home, and so no registry of its own");
    return path;
}

// The registry as programs see it now.
platform::state_pointer current(const std::u16string& key) {
    platform::state_pointer state;
    check(platform::current_registry(is_users(key), state), "the registry");
    return state;
}

const platform::registry_node& node_of(const platform::registry_state& state, const std::u16string& key) {
    static const platform::registry_node empty;
    const platform::registry_node* node = state.roots.find(key);
    if (!node && key.find(u'\\') == key.npos)
        return empty;
    if (!node)
        fail("there is no key " + platform::utf8_of(key));
    return *node;
}

template <class Number>
Number number_in(const registry_value& value) {
    Number number = 0;
    std::memcpy(&number, value.data.data(), std::min(sizeof number, value.data.size()));
    return number;
}

std::string text_of(const registry_value& value) {
    std::u16string text(value.data.size() / sizeof(platform::WCHAR), 0);
    std::memcpy(text.data(), value.data.data(), text.size() * sizeof(platform::WCHAR));
    switch (value.type) {
    case REG_SZ:
    case REG_EXPAND_SZ: return platform::utf8_of(text.substr(0, text.find(u'\0')));
    case REG_MULTI_SZ:
        while (text.ends_with(u'\0'))
            text.pop_back();
        std::replace(text.begin(), text.end(), u'\0', u'\n');
        return platform::utf8_of(text);
    case REG_DWORD: return std::to_string(number_in<uint32_t>(value));
    case 11: return std::to_string(number_in<uint64_t>(value));
    default: break;
    }
    std::string hex;
    for (const platform::BYTE byte : value.data) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        hex += digits;
    }
    return hex;
}

// The spelling that the files have for keys and names. Programs do not see it, since case does not count.
class spellings {
public:
    explicit spellings(const std::u16string& key) {
        add(platform::machine_registry_file());
        if (const std::string users = is_users(key) ? users_file() : std::string(); !users.empty())
            add(users);
    }

    std::string key(const std::u16string& parent, const std::u16string& name) const {
        const std::u16string path = folded_path(parent + u'\\' + name);
        for (const registry_lines& lines : files_) {
            for (auto at = lines.keys.lower_bound(path);
                 at != lines.keys.end() && at->first.starts_with(path); ++at) {
                if (at->first.size() == path.size() || at->first[path.size()] == u'\\')
                    return platform::utf8_of(
                        component(at->second.path, std::count(path.begin(), path.end(), u'\\')));
            }
        }
        return platform::utf8_of(name);
    }

    std::u16string value(const std::u16string& key, const std::u16string& name) const {
        for (const registry_lines& lines : files_) {
            const auto found = lines.keys.find(folded_path(key));
            const auto at = found == lines.keys.end() ? decltype(found->second.values.end()){}
                                                      : found->second.values.find(name);
            if (found != lines.keys.end() && at != found->second.values.end() && !at->second.name.empty())
                return at->second.name;
        }
        return name;
    }

private:
    void add(const std::string& path) {
        files_.push_back(registry_file(path, registry_file::use::read).text().lines());
    }

    static platform::wide_view component(platform::wide_view path, ptrdiff_t number) {
        platform::wide_view name;
        for (; number >= 0; --number)
            name = platform::take_key_name(path);
        return name;
    }

    std::vector<registry_lines> files_;
};

int list(const arguments& given) {
    given.expect(1, 2);
    table rows({"kind", "name", "type", "data"});
    if (given.words.size() == 1) {
        for (const char* root : {"HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER", "HKEY_CLASSES_ROOT", "HKEY_USERS",
                                 "HKEY_CURRENT_CONFIG"})
            rows.add({"key", root, "", ""});
        rows.print(given);
        return done;
    }
    const std::u16string key = key_of(given.words[1]);
    const platform::state_pointer state = current(key);
    const platform::registry_node& node = node_of(*state, key);
    const spellings known(key);
    for (const auto& [name, below] : node.keys)
        rows.add({"key", known.key(key, name), "", ""});
    for (const auto& [name, value] : node.values)
        rows.add({"value", name.empty() ? "(default)" : platform::utf8_of(known.value(key, name)),
                  name_of_type(value.type), text_of(value)});
    rows.print(given);
    return done;
}

int get(const arguments& given) {
    given.expect(2, 3);
    const std::u16string key = key_of(given.words[1]);
    const std::u16string name = given.words.size() > 2 ? name_of(given.words[2]) : u"";
    const platform::state_pointer state = current(key);
    const platform::registry_node& node = node_of(*state, key);
    const auto found = node.values.find(platform::folded_name(name));
    if (found == node.values.end())
        fail(name.empty() ? "the key has no default value"
                          : "the key has no value " + platform::utf8_of(name));
    if (!given.as_json) {
        std::printf("%s\n", text_of(found->second).c_str());
        return done;
    }
    facts result;
    result.add("type", name_of_type(found->second.type));
    result.add("data", text_of(found->second));
    result.print(given);
    return done;
}

template <class Number>
void put_number(const std::string& text, unsigned long long most, registry_value& value) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long number = std::strtoull(text.c_str(), &end, 0);
    if (text.empty() || text[0] < '0' || text[0] > '9' || *end || errno || number > most)
        misuse("not a number of this type: " + text);
    const auto stored = static_cast<Number>(number);
    value.data.resize(sizeof stored);
    std::memcpy(value.data.data(), &stored, sizeof stored);
}

void put_text(const std::u16string& text, registry_value& value) {
    const auto* bytes = reinterpret_cast<const platform::BYTE*>(text.c_str());
    value.data.insert(value.data.end(), bytes, bytes + (text.size() + 1) * sizeof(platform::WCHAR));
}

void put_bytes(const std::string& text, registry_value& value) {
    std::string digits = text;
    std::erase_if(digits, [](char c) { return c == ' ' || c == ','; });
    if (digits.size() % 2 != 0 || digits.find_first_not_of("0123456789abcdefABCDEF") != digits.npos)
        misuse("not pairs of hexadecimal digits: " + text);
    for (size_t i = 0; i < digits.size(); i += 2)
        value.data.push_back(static_cast<platform::BYTE>(std::stoul(digits.substr(i, 2), nullptr, 16)));
}

registry_value value_of(const std::string& type, const std::vector<std::string>& data) {
    const auto known = std::find_if(std::begin(types), std::end(types),
                                    [&](const type_name& row) { return type == row.name; });
    if (known == std::end(types))
        misuse("there is no type " + type);
    registry_value value{known->type, {}};
    if (value.type == REG_MULTI_SZ) {
        for (const std::string& text : data) {
            if (text.empty())
                misuse("a list holds no empty text");
            put_text(platform::wide_from(text), value);
        }
        put_text(u"", value);
        return value;
    }
    if (data.size() != 1)
        misuse("this type takes one piece of data");
    if (value.type == REG_SZ || value.type == REG_EXPAND_SZ)
        put_text(platform::wide_from(data[0]), value);
    else if (value.type == REG_DWORD)
        put_number<uint32_t>(data[0], UINT32_MAX, value);
    else if (value.type == REG_BINARY)
        put_bytes(data[0], value);
    else
        put_number<uint64_t>(data[0], UINT64_MAX, value);
    return value;
}

int set(const arguments& given) {
    given.expect(4, SIZE_MAX);
    const std::u16string key = key_of(given.words[1]), name = name_of(given.words[2]);
    const registry_value value = value_of(given.words[3], {given.words.begin() + 4, given.words.end()});
    registry_file file(file_of(key), registry_file::use::write);
    file.text().set(key, name, value);
    file.replace();
    return done;
}

int remove(const arguments& given) {
    given.expect(2, 3);
    const std::u16string key = key_of(given.words[1]);
    if (key.find(u'\\') == key.npos && given.words.size() == 2)
        misuse("a root stays");
    registry_file file(file_of(key), registry_file::use::write);
    const platform::state_pointer state = current(key);
    const platform::registry_node& node = node_of(*state, key);
    if (given.words.size() == 2) {
        file.text().remove_key(key);
    } else {
        const std::u16string name = name_of(given.words[2]);
        if (!node.values.contains(platform::folded_name(name)))
            fail("the key has no value " + platform::utf8_of(name));
        file.text().remove_value(key, name);
    }
    // The machine's file may have the value as well. It stays there for other users.
    if (is_users(key)) {
        registry_file machine(platform::machine_registry_file(), registry_file::use::read);
        const platform::registry_node* others = machine.text().roots().find(key);
        const bool has_value = others && given.words.size() > 2
                               && others->values.contains(platform::folded_name(name_of(given.words[2])));
        if (others && given.words.size() == 2)
            file.text().hide(key, {});
        else if (has_value)
            file.text().hide(key, name_of(given.words[2]));
    }
    file.replace();
    return done;
}

// Copies every key below a node, with its values.
void copy(const platform::registry_node& node, const std::u16string& key, const spellings& known,
          registry_text_edit& to) {
    to.add_key(key);
    for (const auto& [name, value] : node.values)
        to.set(key, known.value(key, name), value);
    for (const auto& [name, below] : node.keys)
        copy(*below, key + u'\\' + platform::wide_from(known.key(key, name)), known, to);
}

int export_to(const arguments& given) {
    given.expect(2, 3);
    const std::string start = given.has("--utf16") ? std::string("\xFF\xFE") : std::string();
    std::string empty = "Windows Registry Editor Version 5.00\r\n";
    if (!start.empty()) {
        std::string wide = start;
        for (const char c : empty)
            (wide += c) += '\0';
        empty = wide;
    }
    registry_text_edit text(empty, given.words[1]);
    const std::u16string key = given.words.size() > 2 ? key_of(given.words[2]) : u"";
    const std::u16string seen = key.empty() ? platform::wide_from("HKEY_CURRENT_USER") : key;
    const platform::state_pointer state = current(seen);
    const spellings known(seen);
    if (key.empty()) {
        for (const char* root : {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS",
                                 "HKEY_CURRENT_CONFIG"}) {
            const std::u16string name = platform::wide_from(root);
            if (const platform::registry_node* node = state->roots.find(name))
                copy(*node, name, known, text);
        }
    } else {
        copy(node_of(*state, key), key, known, text);
    }
    const std::string& path = given.words[1];
    FILE* const file = path == "-" ? stdout : std::fopen(path.c_str(), "we");
    if (!file)
        fail(path, platform::code_of_errno(errno));
    const bool written =
        std::fwrite(text.bytes().data(), 1, text.bytes().size(), file) == text.bytes().size();
    if ((path == "-" ? std::fflush(file) : std::fclose(file)) != 0 || !written)
        fail(path, platform::code_of_errno(errno));
    return done;
}

// Applies the lines of a file in their order.
class import_lines : public platform::registry_listener {
public:
    import_lines(const platform::registry_node& result, registry_text_edit& machine, registry_text_edit& user)
        : result_(result), machine_(machine), user_(user) {}

    void on_key(platform::wide_view path, bool removes, platform::line_range) override {
        key_ = key_of(platform::utf8_of(path));
        if (removes)
            target().remove_key(key_);
        else
            target().add_key(key_);
    }
    void on_value(platform::wide_view name, bool removes, platform::line_range) override {
        const platform::registry_node* node = result_.find(key_);
        const auto found =
            node ? node->values.find(platform::folded_name(name)) : decltype(node->values.end()){};
        if (node && found != node->values.end())
            target().set(key_, std::u16string(name), found->second);
        else if (removes)
            target().remove_value(key_, std::u16string(name));
    }

private:
    registry_text_edit& target() { return is_users(key_) ? user_ : machine_; }

    const platform::registry_node& result_;
    registry_text_edit& machine_;
    registry_text_edit& user_;
    std::u16string key_;
};

// Finds out which files the lines of a text belong to.
struct files_meant : platform::registry_listener {
    bool users = false, machines = false;

    void on_key(platform::wide_view path, bool, platform::line_range) override {
        (is_users(key_of(platform::utf8_of(path))) ? users : machines) = true;
    }
    void on_value(platform::wide_view, bool, platform::line_range) override {}
};

int import_from(const arguments& given) {
    given.expect(2, 2);
    registry_file given_file(given.words[1], registry_file::use::read);
    if (access(given.words[1].c_str(), R_OK) != 0)
        fail(given.words[1], platform::code_of_errno(errno));
    platform::registry_text text;
    check(text.decode(given_file.text().bytes()), given.words[1]);
    platform::registry_node unused;
    files_meant meant;
    const platform::skipped_lines skipped = platform::read_registry_text(text, unused, {}, &meant);
    using use = registry_file::use;
    registry_file machine(platform::machine_registry_file(), meant.machines ? use::write : use::read);
    registry_file user(meant.users ? file_of(u"HKEY_CURRENT_USER") : platform::machine_registry_file(),
                       meant.users ? use::write : use::read);
    import_lines importer(given_file.text().roots(), machine.text(), user.text());
    platform::read_registry_text(text, unused, {}, &importer);
    if (meant.machines)
        machine.replace();
    if (meant.users)
        user.replace();
    if (skipped.count > 0)
        std::fprintf(stderr, "zu registry: %zu lines of %s are not understood, the first is line %zu\n",
                     skipped.count, shown(given.words[1]).c_str(), skipped.first);
    return done;
}

} // namespace

int registry(const arguments& given) {
    given.allow({"--json", "--utf16"});
    return run_order(given, {{"list", list},
                             {"get", get},
                             {"set", set},
                             {"delete", remove},
                             {"export", export_to},
                             {"import", import_from}});
}

} // namespace zu_tools
