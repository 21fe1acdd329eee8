// Log file management: the settings of the default file, and the output that appends one line to a file, which it has
// rotated before the size limit is passed. No file is held open between records.
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

bool append_to_file(const ZU_wchar* path, const char* line, uint32_t bytes) {
    ZU_file* file = ZU_open_file(path, ZU_FILE_WRITE | ZU_FILE_OPEN_ALWAYS | ZU_FILE_SHARE_READ, nullptr);
    if (!file)
        return false;
    uint32_t written = 0;
    const bool whole = ZU_seek_file(file, 0, nullptr, ZU_SEEK_END)
                       && ZU_write_file(file, line, bytes, &written) && written == bytes;
    ZU_close_file(file);
    return whole;
}

bool write_line(const ZU_log_file_settings& settings, text_view prefix, text_view message) {
    scoped_string wide_line, path;
    make_line(wide_line, prefix, message);
    uint32_t bytes = 0;
    const owned<char> line(ZU_wchar_2_char(settings.encoding, wide_line.text(),
                                           static_cast<int32_t>(wide_line.length()), &bytes));
    make_path(path, settings);
    ZU_stat status;
    if (ZU_stat64(path.text(), &status) == 0
        && static_cast<uint64_t>(status.st_size) + bytes > settings.max_size)
        zu::log::rotate(settings.generations, path.view());
    return append_to_file(path.text(), line.get(), bytes);
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
