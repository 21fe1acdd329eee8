// Changing a registry file.
#include "tools/registry_edit.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/api/system.h"
#include "platform/api/text.h"
#include "platform/core/error.h"
#include "platform/core/retry.h"
#include "platform/text/utf8.h"

namespace zu_tools {

namespace {

using platform::line_range;
using platform::wide_view;

constexpr char heading[] = "Windows Registry Editor Version 5.00";

bool is_little_endian(const std::string& bytes) {
    return bytes.starts_with("\xFF\xFE");
}

bool is_utf16(const std::string& bytes) {
    return is_little_endian(bytes) || bytes.starts_with("\xFE\xFF");
}

std::u16string quoted(wide_view text) {
    std::u16string result = u"\"";
    for (const platform::WCHAR unit : text) {
        if (unit == u'"' || unit == u'\\')
            result += u'\\';
        result += unit;
    }
    return result + u'"';
}

std::u16string hex_of(const platform::BYTE* bytes, size_t count) {
    std::u16string result;
    for (size_t i = 0; i < count; ++i) {
        constexpr char16_t digits[] = u"0123456789abcdef";
        if (i)
            result += i % 25 == 0 ? u",\\\r\n  " : u",";
        result += {digits[bytes[i] >> 4], digits[bytes[i] & 15]};
    }
    return result;
}

// Whether a text can be written between quotation marks and be read back unchanged.
bool is_plain(wide_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const platform::WCHAR unit = text[i];
        if (unit == 0 || unit == u'\r' || unit == u'\n')
            return false;
        if (platform::is_high_surrogate(unit) && i + 1 < text.size()
            && platform::is_low_surrogate(text[i + 1]))
            ++i;
        else if ((unit & 0xF800) == 0xD800)
            return false;
    }
    return true;
}

bool lies_below(const std::u16string& path, const std::u16string& key) {
    return path.starts_with(key) && (path.size() == key.size() || path[key.size()] == u'\\');
}

std::string in_host_set(const std::u16string& text) {
    const int units = static_cast<int>(text.size());
    const int size =
        platform::WideCharToMultiByte(CP_ACP, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<size_t>(std::max(size, 0)), 0);
    platform::WideCharToMultiByte(CP_ACP, 0, text.data(), units, result.data(), size, nullptr, nullptr);
    return result;
}

[[noreturn]] void fail_by_errno(const std::string& what) {
    fail(what, platform::code_of_errno(errno));
}

} // namespace

std::u16string folded_path(wide_view path) {
    std::u16string result;
    for (wide_view name; !(name = platform::take_key_name(path)).empty();)
        result += (result.empty() ? u"" : u"\\") + platform::folded_name(name);
    return result;
}

void registry_lines::on_key(wide_view path, bool removes, line_range lines) {
    const std::u16string folded = folded_path(path);
    current_ = nullptr;
    if (removes) {
        std::erase_if(keys, [&](const auto& entry) { return lies_below(entry.first, folded); });
        return;
    }
    current_ = &keys[folded];
    if (current_->headings.empty())
        current_->path = path;
    current_->headings.push_back(lines);
    current_->end = lines.end;
}

void registry_lines::on_value(wide_view name, bool removes, line_range lines) {
    if (!current_)
        return;
    value& known = current_->values[platform::folded_name(name)];
    if (!removes)
        known.name = name;
    known.lines.push_back(lines);
    current_->end = lines.end;
}

registry_text_edit::registry_text_edit(std::string bytes, const std::string& path)
    : path_(path), bytes_(std::move(bytes)) {
    if (bytes_.empty())
        bytes_ = std::string(heading) + "\r\n";
    read();
}

void registry_text_edit::read() {
    platform::registry_text text;
    check(text.decode(bytes_), path_);
    const bool is_known = text.is_older || text.text.starts_with(platform::wide_from(heading));
    if (!is_known || (is_utf16(bytes_) && bytes_.size() % 2 != 0))
        fail(path_ + " is not a registry file; it stays as it is");
    is_older_ = text.is_older;
    roots_ = {};
    lines_ = {};
    platform::read_registry_text(text, roots_, {}, &lines_);
    const size_t unit = is_utf16(bytes_) ? 2 : 1;
    starts_ = {0};
    for (size_t at = 0; at + unit <= bytes_.size(); at += unit) {
        const bool ends = unit == 1 ? bytes_[at] == '\n'
                                    : bytes_[at + !is_little_endian(bytes_)] == '\n'
                                          && bytes_[at + is_little_endian(bytes_)] == 0;
        if (ends)
            starts_.push_back(at + unit);
    }
    if (starts_.back() != bytes_.size())
        starts_.push_back(bytes_.size());
}

std::string registry_text_edit::encoded(const std::u16string& text) const {
    if (is_older_)
        return in_host_set(text);
    if (!is_utf16(bytes_))
        return platform::utf8_of(text);
    std::string result;
    for (const platform::WCHAR unit : text) {
        const char low = static_cast<char>(unit & 0xFF), high = static_cast<char>(unit >> 8);
        result += is_little_endian(bytes_) ? std::string{low, high} : std::string{high, low};
    }
    return result;
}

// A line that had no end gets one before something follows it.
void registry_text_edit::replace(line_range lines, const std::u16string& text) {
    const size_t last = starts_.size() - 1;
    const size_t begin = starts_[std::min(lines.first, last)], end = starts_[std::min(lines.end, last)];
    std::string made = encoded(text);
    const std::string line_end = encoded(u"\n");
    if (begin > 0 && begin == bytes_.size() && !std::string_view(bytes_).ends_with(line_end))
        made = encoded(u"\r\n") + made;
    bytes_.replace(begin, end - begin, made);
    read();
}

void registry_text_edit::insert_into(const std::u16string& key, const std::u16string& text) {
    const auto known = lines_.keys.find(folded_path(key));
    if (known != lines_.keys.end())
        replace({known->second.end, known->second.end}, text);
    else
        replace({starts_.size(), starts_.size()}, u"\r\n[" + key + u"]\r\n" + text);
}

std::u16string registry_text_edit::line_of(const std::u16string& name,
                                           const platform::registry_value& value) const {
    const std::u16string left = name.empty() ? u"@=" : quoted(name) + u'=';
    const auto* units = reinterpret_cast<const platform::WCHAR*>(value.data.data());
    const size_t count = value.data.size() / sizeof *units;
    if (value.type == REG_SZ && count > 0 && units[count - 1] == 0 && is_plain({units, count - 1}))
        return left + quoted({units, count - 1}) + u"\r\n";
    char prefix[24];
    if (value.type == REG_DWORD && value.data.size() == sizeof(uint32_t)) {
        uint32_t number;
        std::memcpy(&number, value.data.data(), sizeof number);
        std::snprintf(prefix, sizeof prefix, "dword:%08x", number);
        return left + platform::wide_from(prefix) + u"\r\n";
    }
    std::snprintf(prefix, sizeof prefix, value.type == REG_BINARY ? "hex:" : "hex(%x):", value.type);
    const bool is_text = value.type == REG_SZ || value.type == REG_EXPAND_SZ || value.type == REG_MULTI_SZ;
    const std::string narrow = is_older_ && is_text ? in_host_set({units, count}) : std::string();
    const std::u16string bytes =
        narrow.empty() ? hex_of(value.data.data(), value.data.size())
                       : hex_of(reinterpret_cast<const platform::BYTE*>(narrow.data()), narrow.size());
    return left + platform::wide_from(prefix) + bytes + u"\r\n";
}

void registry_text_edit::add_key(const std::u16string& key) {
    if (!roots_.find(key))
        insert_into(key, u"");
    if (!roots_.find(key))
        fail(path_ + " cannot hold this key");
}

void registry_text_edit::set(const std::u16string& key, const std::u16string& name,
                             const platform::registry_value& value) {
    const std::u16string line = line_of(name, value);
    const auto known = lines_.keys.find(folded_path(key));
    const auto* values = known == lines_.keys.end() ? nullptr : &known->second.values;
    const auto found = values ? values->find(platform::folded_name(name)) : decltype(values->end()){};
    if (values && found != values->end())
        replace(found->second.lines.back(), line);
    else
        insert_into(key, line);
    // The layer's reader decides whether the change has worked.
    const platform::registry_node* node = roots_.find(key);
    const auto made = node ? node->values.find(platform::folded_name(name)) : decltype(node->values.end()){};
    if (!node || made == node->values.end() || made->second.type != value.type
        || made->second.data != value.data)
        fail(path_ + " cannot hold this value"
             + (is_older_ ? " in the older format and this character set" : ""));
}

void registry_text_edit::remove_value(const std::u16string& key, const std::u16string& name) {
    for (;;) { // lines that a later one overrides are removed as well
        const auto known = lines_.keys.find(folded_path(key));
        if (known == lines_.keys.end())
            return;
        const auto found = known->second.values.find(platform::folded_name(name));
        if (found == known->second.values.end())
            return;
        replace(found->second.lines.back(), u"");
    }
}

void registry_text_edit::remove_key(const std::u16string& key) {
    const std::u16string folded = folded_path(key);
    for (;;) {
        const auto below = std::find_if(lines_.keys.rbegin(), lines_.keys.rend(),
                                        [&](const auto& entry) { return lies_below(entry.first, folded); });
        if (below == lines_.keys.rend())
            break;
        const registry_lines::key& found = below->second;
        line_range last = found.headings.back();
        for (const auto& [name, value] : found.values) {
            for (const line_range& lines : value.lines)
                last = lines.first > last.first ? lines : last;
        }
        replace(last, u""); // the last lines go first, so that those in front keep their numbers
    }
    if (roots_.find(key))
        hide(key, {});
}

void registry_text_edit::hide(const std::u16string& key, const std::optional<std::u16string>& name) {
    if (name)
        insert_into(key, (name->empty() ? u"@" : quoted(*name)) + u"=-\r\n");
    else
        replace({starts_.size(), starts_.size()}, u"\r\n[-" + key + u"]\r\n");
}

// ---- The file ---------------------------------------------------------------------------------------------------

namespace {

void make_folders_of(const std::string& path) {
    for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
        if (mkdir(path.substr(0, end).c_str(), 0755) != 0 && errno != EEXIST)
            fail_by_errno(path.substr(0, end));
    }
}

std::string content_of(const std::string& path, mode_t& mode) {
    const platform::descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file && errno == ENOENT)
        return {};
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0)
        fail_by_errno(path);
    if (!S_ISREG(status.st_mode))
        fail(path + " is no file");
    mode = status.st_mode & 07777;
    std::string content;
    char piece[65536];
    for (;;) {
        const ssize_t size = platform::retried([&] { return read(file.get(), piece, sizeof piece); });
        if (size < 0)
            fail_by_errno(path);
        if (size == 0)
            return content;
        content.append(piece, static_cast<size_t>(size));
    }
}

} // namespace

registry_file::registry_file(std::string path, use how) : path_(std::move(path)) {
    if (char* const real = realpath(path_.c_str(), nullptr)) { // behind a link, the file itself is replaced
        path_ = real;
        std::free(real);
    }
    if (how == use::write) {
        make_folders_of(path_);
        // Of this user alone: nobody else can lock it.
        lock_ = platform::descriptor(
            open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!lock_ || platform::retried([&] { return flock(lock_.get(), LOCK_EX); }) != 0)
            fail_by_errno(path_ + ".lock");
    }
    text_.emplace(content_of(path_, mode_), path_);
}

void registry_file::replace() {
    const std::string aside =
        path_ + ".new"; // under the lock, what is there was left by a writer that was killed
    unlink(aside.c_str());
    const platform::descriptor file(open(aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file)
        fail_by_errno(aside);
    std::string_view rest = text_->bytes();
    struct stat old, own;
    bool good = fstat(file.get(), &own) == 0;
    if (good && stat(path_.c_str(), &old) == 0 && (old.st_uid != own.st_uid || old.st_gid != own.st_gid))
        good = fchown(file.get(), old.st_uid, old.st_gid) == 0;
    good = good && fchmod(file.get(), mode_) == 0;
    while (good && !rest.empty()) {
        const ssize_t size = platform::retried([&] { return write(file.get(), rest.data(), rest.size()); });
        good = size >= 0;
        rest.remove_prefix(good ? static_cast<size_t>(size) : 0);
    }
    good = good && fsync(file.get()) == 0 && rename(aside.c_str(), path_.c_str()) == 0;
    if (!good) {
        const int error = errno;
        unlink(aside.c_str());
        errno = error;
        fail_by_errno(path_);
    }
    const platform::descriptor folder(
        open(path_.substr(0, path_.rfind('/') + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || fsync(folder.get()) != 0)
        fail_by_errno(path_);
}

} // namespace zu_tools
