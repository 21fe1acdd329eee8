// Log file management: the settings of the default file, and the output that appends one line to a file. A line that
// would pass the size limit rotates the file first. No file is held open between records.
#include "zu/zu_file.h"
#include "zu/zu_log.h"

namespace {

using zu::owned;
using zu::scoped_string;
using zu::text_view;
using zu::log::module;

void make_path(scoped_string& path, const ZU_log_file_settings& settings) {
    if (settings.relative_to_exe_dir && !zu::is_empty(module.exe_directory))
        ZU_s_sprintf(path.address(), ZU_W("%s%s%s"), module.exe_directory, ZU_W("\\"), settings.file_name);
    else
        ZU_s_append_n(path.address(), settings.file_name,
                      static_cast<uint32_t>(text_view(settings.file_name).size()));
}

void make_line(scoped_string& line, text_view prefix, text_view message) {
    ZU_s_reserve(line.address(), static_cast<uint32_t>(prefix.size() + message.size() + 2));
    ZU_s_append_n(line.address(), prefix.data(), static_cast<uint32_t>(prefix.size()));
    ZU_s_append_n(line.address(), message.data(), static_cast<uint32_t>(message.size()));
    ZU_s_append_n(line.address(), ZU_W("\r\n"), 2);
}

// The file that a path names, made if it is missing, open at its end until the end of the scope.
class live_file {
public:
    explicit live_file(const ZU_wchar* path)
        : file_(ZU_open_file(path, ZU_FILE_WRITE | ZU_FILE_OPEN_ALWAYS | ZU_FILE_SHARE_READ, nullptr)) {
        is_new_ = file_ && platform::GetLastError() != ERROR_ALREADY_EXISTS;
        is_at_end_ = file_ && zu::go_to_end_of_opened(file_, &size_);
    }
    ~live_file() { ZU_close_file(file_); }
    live_file(const live_file&) = delete;
    live_file& operator=(const live_file&) = delete;

    explicit operator bool() const { return is_at_end_; }

    // Whether a line of so many bytes keeps to the limit. A new file takes a line of any length.
    bool has_room_for(uint32_t bytes, uint32_t max_size) const {
        return is_new_ || size_ + bytes <= max_size;
    }

    bool append(const char* line, uint32_t bytes) {
        uint32_t written = 0;
        return is_at_end_ && ZU_write_file(file_, line, bytes, &written) && written == bytes;
    }

private:
    ZU_file* file_;
    uint64_t size_ = 0;
    bool is_new_, is_at_end_;
};

bool is_beyond(const ZU_wchar* path, uint32_t bytes, uint32_t max_size) {
    const zu::keep_last_error refusal;
    ZU_stat status;
    return ZU_stat64(path, &status) == 0 && static_cast<uint64_t>(status.st_size) + bytes > max_size;
}

// The file is opened first. Nearly always it has room, and then its status need not be read.
bool append_to_file(const ZU_log_file_settings& settings, text_view path, const char* line, uint32_t bytes) {
    bool was_open = false;
    if (live_file file(path.data()); file) {
        was_open = true;
        if (file.has_room_for(bytes, settings.max_size))
            return file.append(line, bytes);
    }
    if (is_beyond(path.data(), bytes, settings.max_size))
        zu::log::rotate(settings.generations, path);
    else if (!was_open)
        return false;
    return live_file(path.data()).append(line, bytes);
}

// With another encoding every line is empty text, and writing none of it succeeds.
bool is_known(uint32_t encoding) {
    return encoding == ZU_ENCODING_ANSI || encoding == ZU_ENCODING_UTF8;
}

bool write_line(const ZU_log_file_settings& settings, text_view prefix, text_view message) {
    scoped_string wide_line, path;
    make_line(wide_line, prefix, message);
    uint32_t bytes = 0;
    const owned<char> line(ZU_wchar_2_char(settings.encoding, wide_line.text(),
                                           static_cast<int32_t>(wide_line.length()), &bytes));
    if (is_known(settings.encoding) && zu::log::failed_to_convert(wide_line.view(), bytes))
        return false;
    make_path(path, settings);
    return append_to_file(settings, path.view(), line.get(), bytes);
}

} // namespace

bool zu::log::write_to_file(const ZU_log_file_settings& settings, text_view prefix, text_view message) {
    if (is_empty(settings.file_name))
        return false;
    if (settings.before_write && !settings.before_write())
        return false;
    const bool written = write_line(settings, prefix, message);
    if (settings.after_write)
        settings.after_write();
    return written;
}

void ZU_log_set_log_file(const ZU_log_file_settings* settings) {
    zu::held lock(module.main_lock);
    ZU_free(const_cast<ZU_wchar*>(module.default_file.file_name));
    module.default_file = *settings;
    module.default_file.file_name =
        zu::is_empty(settings->file_name) ? nullptr : ZU_strdup(settings->file_name);
}

void ZU_log_get_log_file(ZU_log_file_settings* settings) {
    zu::held lock(module.main_lock);
    *settings = module.default_file;
    settings->file_name = ZU_strdup(module.default_file.file_name);
}

void ZU_log_set_log_file_ex(const ZU_wchar* file_name, ZU_bool relative_to_exe_dir, uint32_t encoding,
                            uint32_t max_size, uint32_t generations, ZU_log_file_callback before_write,
                            ZU_log_file_callback after_write) {
    const ZU_log_file_settings settings = {file_name,   relative_to_exe_dir, encoding,   max_size,
                                           generations, before_write,        after_write};
    ZU_log_set_log_file(&settings);
}
