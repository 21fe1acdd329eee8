#include "journal.h"

#include "failed.h"
#include "text.h"

namespace {

// The counts of a hook. It needs no lock of its own, since the log's lock is held while it runs.
struct {
    unsigned told, warned, complained;
} counts;

ZU_bool count(void*, const ZU_log_record* record) {
    if (record->level == ZU_LOG_INFO)
        ++counts.told;
    else if (record->level == ZU_LOG_WARNING)
        ++counts.warned;
    else if (record->level == ZU_LOG_ERROR)
        ++counts.complained;
    return 1;
}

wide_text error_file; // empty if there is none

void set_file(const journal_options& options) {
    const auto max_bytes = static_cast<uint32_t>(options.max_bytes);
    ZU_log_set_log_file_ex(library_path(options.file).c_str(), 0, ZU_ENCODING_UTF8, max_bytes,
                           static_cast<uint32_t>(options.keep), nullptr, nullptr);
    error_file = options.file.empty() ? wide_text() : library_path(options.file + ".errors");
}

} // namespace

journal::journal(const journal_options& options) {
    counts = {};
    ZU_log_set_level(ZU_LOG_INFO | ZU_LOG_WARNING | ZU_LOG_ERROR | ZU_LOG_ALERT);
    if (options.is_tracing)
        ZU_log_add_level(ZU_LOG_TRACE);
    ZU_log_set_output(ZU_LOG_OUT_STDOUT | ZU_LOG_OUT_HOOK | ZU_LOG_OUT_DEBUGGER | ZU_LOG_OUT_FILE);
    ZU_log_add_hook(count, nullptr);
    set_file(options);
}

journal::~journal() {
    ZU_log_clear_hook();
    ZU_log_write(ZU_LOG_INFO, ZU_W("%u told, %u warnings, %u errors"), counts.told, counts.warned,
                 counts.complained);
}

void journal::begin(const std::string& text) const {
    const uint32_t taken_by = ZU_log_write(ZU_LOG_INFO, ZU_W("%s"), wide(text).c_str());
    if (!error_file.empty() && !(taken_by & ZU_LOG_OUT_FILE))
        fail("the log");
}

void tell(const std::string& text) {
    ZU_log_write(ZU_LOG_INFO, ZU_W("%s"), wide(text).c_str());
}

void warn(const std::string& text) {
    ZU_log_write(ZU_LOG_WARNING, ZU_W("%s"), wide(text).c_str());
}

void complain(const std::string& text) {
    if (error_file.empty()) {
        ZU_log_write(ZU_LOG_ERROR, ZU_W("%s"), wide(text).c_str());
        return;
    }
    constexpr uint32_t max_bytes = 256 * 1024;
    const ZU_log_file_settings errors = {
        error_file.c_str(), 0, ZU_ENCODING_UTF8, max_bytes, 2, nullptr, nullptr};
    ZU_log_write_another_file(ZU_LOG_ERROR, &errors, ZU_W("%s"), wide(text).c_str());
}

traced::traced(const ZU_wchar* function, const std::string& what) : function_(function) {
    ZU_trace_enter(function_, ZU_W("%s"), wide(what).c_str());
}

traced::~traced() {
    ZU_trace_leave(function_, nullptr);
}
