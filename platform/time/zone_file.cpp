// Zone files, as the C library finds and reads them: a list of changes, and a rule for the time after the last.
#include "platform/time/zone_file.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/core/descriptor.h"
#include "platform/core/retry.h"
#include "platform/time/zone_rule.h"

namespace platform {

namespace {

constexpr char zone_directory[] = "/usr/share/zoneinfo/";
constexpr off_t largest_file = 256 * 1024;

// The path of a setting's zone file; empty where only the C library can tell.
std::string path_of(const zone_setting& setting) {
    if (setting.from_system)
        return system_zone_file;
    const std::string_view name =
        std::string_view(setting.text).substr(setting.text.starts_with(':') ? 1 : 0);
    if (name.empty() || name.find("..") != std::string_view::npos)
        return {};
    if (name[0] == '/')
        return getauxval(AT_SECURE) ? std::string() : std::string(name);
    return std::getenv("TZDIR") ? std::string() : zone_directory + std::string(name);
}

bool is_want_of_resources(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// False, with errno, for anything but a regular file that can be read.
bool read_whole(const std::string& path, std::string& bytes) {
    const descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0)
        return false;
    errno = EINVAL;
    if (!S_ISREG(status.st_mode) || status.st_size > largest_file)
        return false;
    bytes.resize(static_cast<size_t>(status.st_size));
    const ssize_t size = retried([&] { return pread(file.get(), bytes.data(), bytes.size(), 0); });
    bytes.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return size >= 0;
}

// Reads numbers from a file, the highest byte first. Beyond its end they are 0, and `failed` is set.
class byte_reader {
public:
    explicit byte_reader(std::string_view bytes) : rest_(bytes) {}

    bool failed() const { return failed_; }
    std::string_view rest() const { return rest_; }

    uint64_t number(size_t bytes) {
        uint64_t value = 0;
        for (const char byte : take(bytes))
            value = value << 8 | static_cast<unsigned char>(byte);
        return value;
    }

    std::string_view take(uint64_t bytes) {
        failed_ = failed_ || bytes > rest_.size();
        if (failed_)
            return {};
        const std::string_view taken = rest_.substr(0, bytes);
        rest_.remove_prefix(bytes);
        return taken;
    }

private:
    std::string_view rest_;
    bool failed_ = false;
};

struct file_head {
    bool is_zone_file;
    char version;
    uint64_t utc_marks, standard_marks, leap_seconds, changes, kinds, name_bytes;

    // The bytes of the block that follows, whose times have that many bytes.
    uint64_t size_of_block(size_t time_bytes) const {
        return changes * (time_bytes + 1) + kinds * 6 + name_bytes + leap_seconds * (time_bytes + 4)
               + standard_marks + utc_marks;
    }
};

file_head take_head(byte_reader& file) {
    file_head head{};
    head.is_zone_file = file.take(4) == "TZif";
    head.version = static_cast<char>(file.number(1));
    file.take(15);
    for (uint64_t* count : {&head.utc_marks, &head.standard_marks, &head.leap_seconds, &head.changes,
                            &head.kinds, &head.name_bytes})
        *count = file.number(4);
    return head;
}

struct kind_of_time {
    int32_t offset;
    bool daylight;
};

// Empty for numbers out of range, for which the C library refuses the file.
std::vector<kind_of_time> take_kinds(byte_reader& file, const file_head& head) {
    std::vector<kind_of_time> kinds;
    for (uint64_t i = 0; i < head.kinds && !file.failed(); ++i) {
        const int32_t offset = static_cast<int32_t>(file.number(4));
        const uint64_t daylight = file.number(1);
        const uint64_t place_of_name = file.number(1);
        if (daylight > 1 || place_of_name > head.name_bytes)
            return {};
        kinds.push_back({offset, daylight == 1});
    }
    return kinds;
}

// The first kind that is standard time holds before the first change.
size_t first_kind(const std::vector<kind_of_time>& kinds) {
    const auto standard =
        std::find_if(kinds.begin(), kinds.end(), [](kind_of_time kind) { return !kind.daylight; });
    return standard == kinds.end() ? 0 : static_cast<size_t>(standard - kinds.begin());
}

// False for a file whose meaning is left to the C library.
bool spans_of_file(std::string_view bytes, std::vector<zone_span>& spans) {
    byte_reader file(bytes);
    const file_head old_head = take_head(file);
    if (!old_head.is_zone_file || old_head.version < '2')
        return false;
    file.take(old_head.size_of_block(4));
    const file_head head = take_head(file);
    if (!head.is_zone_file || head.leap_seconds != 0)
        return false;
    byte_reader times(file.take(head.changes * 8)), kind_numbers(file.take(head.changes));
    const std::vector<kind_of_time> kinds = take_kinds(file, head);
    file.take(head.name_bytes + head.standard_marks + head.utc_marks);
    std::string_view rule_line = file.rest();
    if (file.failed() || kinds.empty() || rule_line.size() < 2 || rule_line.front() != '\n'
        || rule_line.back() != '\n')
        return false;
    rule_line = rule_line.substr(1, rule_line.size() - 2);

    int64_t begin = table_begin; // when the present kind began
    size_t kind = first_kind(kinds);
    int64_t previous = INT64_MIN;
    for (uint64_t i = 0; i < head.changes; ++i) {
        const int64_t change = static_cast<int64_t>(times.number(8));
        const int64_t at = std::clamp(change, table_begin, table_end);
        add_span({begin, at, kinds[kind].offset, kinds[kind].daylight}, spans);
        begin = at;
        kind = kind_numbers.number(1);
        if (change <= previous || kind >= kinds.size())
            return false;
        previous = change;
    }
    if (rule_line.empty() || head.changes == 0) {
        add_span({begin, table_end, kinds[kind].offset, kinds[kind].daylight}, spans);
        return rule_line.find(',') == std::string_view::npos;
    }
    const std::optional<zone_rule> rule = read_rule(rule_line);
    if (rule)
        add_spans(*rule, begin, table_end, spans);
    return rule.has_value();
}

} // namespace

bool read_spans(const zone_setting& setting, std::vector<zone_span>& spans) {
    spans.clear();
    const std::string path = path_of(setting);
    if (path.empty())
        return true;
    std::string bytes;
    if (read_whole(path, bytes)) {
        if (!spans_of_file(bytes, spans))
            spans.clear();
        return true;
    }
    if (is_want_of_resources(errno))
        return false;
    if (errno == ENOENT && !setting.from_system) {
        const std::string_view text(setting.text);
        if (const auto rule = read_rule(text.substr(text.starts_with(':') ? 1 : 0)))
            add_spans(*rule, table_begin, table_end, spans);
    }
    return true;
}

} // namespace platform
