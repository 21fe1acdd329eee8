// The actions on files: digest and clean.
#include "file_actions.h"

#include <cstdio>
#include <memory>
#include <vector>

#include "failed.h"
#include "text.h"

namespace {

struct close_file {
    void operator()(ZU_file* file) const { ZU_close_file(file); }
};
struct end_walk {
    void operator()(ZU_enum_dir* walk) const { ZU_enum_dir_end(walk); }
};

std::vector<uint8_t> content(const std::string& path) {
    const std::unique_ptr<ZU_file, close_file> file(ZU_open_file(
        library_path(path).c_str(), ZU_FILE_READ | ZU_FILE_OPEN_EXISTING | ZU_FILE_SHARE_READ, nullptr));
    if (!file)
        fail(path);
    std::vector<uint8_t> bytes;
    constexpr uint32_t block = 1 << 20;
    for (uint32_t done = block; done == block;) {
        const size_t size = bytes.size();
        bytes.resize(size + block);
        if (!ZU_read_file(file.get(), bytes.data() + size, block, &done))
            fail(path);
        bytes.resize(size + done);
    }
    return bytes;
}

std::string in_hexadecimal(const uint8_t* bytes, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

// Reads an age such as "90s", "15m", "12h" or "30d".
int64_t read_age_in_seconds(std::string_view text) {
    constexpr struct {
        char unit;
        int64_t seconds;
    } units[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};
    int32_t count = 0;
    for (const auto& each : units) {
        if (text.ends_with(each.unit) && read_number(text.substr(0, text.size() - 1), count) && count >= 0)
            return count * each.seconds;
    }
    throw failed{'"' + std::string(text) + "\" is not an age, such as 90s, 15m, 12h or 30d"};
}

} // namespace

std::string digest(const std::string& path) {
    ZU_stat status;
    if (ZU_stat64(library_path(path).c_str(), &status) != 0)
        fail(path);
    const std::vector<uint8_t> bytes = content(path);
    if (bytes.size() > UINT32_MAX)
        throw failed{path + ": too large"};
    uint8_t sum[16];
    ZU_md5_hash(bytes.data(), static_cast<uint32_t>(bytes.size()), sum);
    return path + ": " + in_hexadecimal(sum, sizeof sum) + ", " + std::to_string(bytes.size()) + " bytes of "
           + local_time(status.st_mtime);
}

std::string clean(const std::string& text) {
    const auto parts = words(text);
    if (parts.size() != 3)
        throw failed{'"' + text + "\" is not DIRECTORY PATTERN AGE"};
    const std::string directory(parts[0]);
    const wide_text pattern = wide(parts[1]);
    const int64_t latest = ZU_time() - read_age_in_seconds(parts[2]);
    const std::unique_ptr<ZU_enum_dir, end_walk> walk(
        ZU_enum_dir_begin(library_path(directory).c_str(), ZU_ENUM_DIR_TIMES | ZU_ENUM_DIR_SKIP_DOTS));
    if (!walk && GetLastError() != ERROR_NO_MORE_FILES)
        fail(directory);
    std::string gone, kept;
    for (bool is_more = walk != nullptr; is_more; is_more = ZU_enum_dir_next(walk.get())) {
        const ZU_enum_dir_entry& entry = *ZU_enum_dir_get(walk.get());
        const bool has_age = entry.modification_time != -1; // a time after 2038 is unknown, and not old
        if (!(entry.attributes & ZU_PATH_FILE) || !has_age || entry.modification_time > latest
            || !ZU_wildcard_match_win32_file(pattern.c_str(), entry.name))
            continue;
        if (ZU_delete_file(entry.path))
            gone += " " + narrow(entry.name);
        else
            kept += "; " + narrow(entry.name) + " stays: " + error_text(GetLastError());
    }
    return directory + ": " + (gone.empty() ? "nothing deleted" : "deleted" + gone) + kept;
}
