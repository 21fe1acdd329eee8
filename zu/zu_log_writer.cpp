// The log record writer: every record passes through here, stamped, formatted and served to the outputs in their
// order, all under the main lock.
#include <cstdio>

#include "zu/zu_log.h"

namespace {

using zu::owned;
using zu::text_view;
using zu::log::module;

// A message buffer with more capacity than this, in characters, is released after its record.
constexpr uint32_t kept_message_capacity = 0x100000;

const ZU_wchar* letter_of(uint32_t level) {
    switch (level) {
    case ZU_LOG_TRACE: return ZU_W("T");
    case ZU_LOG_DEBUG: return ZU_W("D");
    case ZU_LOG_INFO: return ZU_W("I");
    case ZU_LOG_WARNING: return ZU_W("W");
    case ZU_LOG_ERROR: return ZU_W("E");
    case ZU_LOG_ALERT: return ZU_W("A");
    default: return ZU_W("?");
    }
}

bool has_same_prefix(const ZU_log_record& record, const ZU_log_record& other) {
    return record.level == other.level && record.process_id == other.process_id
           && record.thread_id == other.thread_id
           && std::memcmp(&record.local_time, &other.local_time, sizeof(ZU_tm)) == 0;
}

// Records come in bursts, so the prefix of the last record can mostly be used again.
void format_prefix(const ZU_log_record& record) {
    if (module.prefix && has_same_prefix(record, module.prefix_source))
        return;
    module.prefix_source = record;
    const ZU_tm& local = record.local_time;
    ZU_s_sprintf(&module.prefix, ZU_W("|D:%04d-%02d-%02d %02d:%02d:%02d|P:%5lu|T:%5lu|L:%s|O:%s| "),
                 local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                 local.tm_sec, record.process_id, record.thread_id, letter_of(record.level), ZU_W("Windows"));
}

// Fills all of a record but its texts; false when the time cannot be broken down.
bool stamp(ZU_log_record& record, uint32_t level) {
    record = {};
    record.level = level;
    record.time = ZU_time();
    if (!ZU_localtime(record.time, &record.local_time))
        return false;
    record.process_id = ZU_get_current_process_id();
    record.thread_id = ZU_get_current_thread_id();
    return true;
}

void attach_texts(ZU_log_record& record) {
    record.prefix = ZU_s_text(module.prefix);
    record.prefix_length = ZU_s_length(module.prefix);
    record.message = ZU_s_text(module.message);
    record.message_length = ZU_s_length(module.message);
}

// One line on a stream; true when all of it was taken and the stream could be flushed.
bool write_line(FILE* stream, const char* prefix, const char* message, uint32_t bytes) {
    const int written = std::fprintf(stream, "%s%s\n", prefix, message);
    return written >= 0 && static_cast<uint32_t>(written) >= bytes + 1 && std::fflush(stream) == 0;
}

uint32_t write_to_streams(const ZU_log_record& record, uint32_t outputs) {
    uint32_t prefix_bytes = 0, message_bytes = 0;
    const owned<char> prefix(ZU_wchar_2_char(ZU_ENCODING_ANSI, record.prefix,
                                             static_cast<int32_t>(record.prefix_length), &prefix_bytes));
    const owned<char> message(ZU_wchar_2_char(ZU_ENCODING_ANSI, record.message,
                                              static_cast<int32_t>(record.message_length), &message_bytes));
    if (zu::log::failed_to_convert({record.prefix, record.prefix_length}, prefix_bytes)
        || zu::log::failed_to_convert({record.message, record.message_length}, message_bytes))
        return 0;
    const uint32_t bytes = prefix_bytes + message_bytes;
    uint32_t taken = 0;
    platform::quiet_pipes quiet;
    if ((outputs & ZU_LOG_OUT_STDERR) && write_line(stderr, prefix.get(), message.get(), bytes))
        taken |= ZU_LOG_OUT_STDERR;
    if ((outputs & ZU_LOG_OUT_STDOUT) && write_line(stdout, prefix.get(), message.get(), bytes))
        taken |= ZU_LOG_OUT_STDOUT;
    if (taken == (outputs & (ZU_LOG_OUT_STDERR | ZU_LOG_OUT_STDOUT)))
        quiet.all_written();
    return taken;
}

// Every hook gets the record, also after another has taken it.
uint32_t call_hooks(const ZU_log_record& record) {
    uint32_t taken = 0;
    for (const zu::log::hook_node* node = module.hooks.next; node != &module.hooks; node = node->next)
        if (node->function(node->user_data, &record))
            taken = ZU_LOG_OUT_HOOK;
    return taken;
}

void write_to_debugger(const ZU_log_record& record) {
    zu::scoped_string line;
    ZU_s_reserve(line.address(), record.prefix_length + record.message_length + 1);
    ZU_s_append_n(line.address(), record.prefix, record.prefix_length);
    ZU_s_append_n(line.address(), record.message, record.message_length);
    ZU_s_append_n(line.address(), ZU_W("\n"), 1);
    platform::OutputDebugStringW(line.text());
}

// Serves the outputs in their order. The result is the mask of those that took the record.
uint32_t serve(const ZU_log_record& record, const ZU_log_file_settings& file) {
    uint32_t outputs = zu::log::output_mask();
    if (module.filter)
        outputs = module.filter(module.filter_user_data, outputs, &record);
    uint32_t taken = 0;
    if (outputs & (ZU_LOG_OUT_STDERR | ZU_LOG_OUT_STDOUT))
        taken |= write_to_streams(record, outputs);
    if (outputs & ZU_LOG_OUT_HOOK)
        taken |= call_hooks(record);
    if (outputs & ZU_LOG_OUT_DEBUGGER)
        write_to_debugger(record);
    if ((outputs & ZU_LOG_OUT_FILE)
        && zu::log::write_to_file(file, text_view(record.prefix, record.prefix_length),
                                  text_view(record.message, record.message_length)))
        taken |= ZU_LOG_OUT_FILE;
    return taken;
}

uint32_t write_record(uint32_t level, const ZU_log_file_settings& file, const ZU_wchar* format,
                      va_list arguments) {
    if (!zu::log::is_wanted(level))
        return 0;
    ZU_log_record record;
    if (!stamp(record, level))
        return 0;
    zu::held lock(module.main_lock);
    format_prefix(record);
    ZU_s_sprintf_i(&module.message, format, arguments);
    attach_texts(record);
    const uint32_t taken = serve(record, file);
    if (module.message
        && (reinterpret_cast<ZU_s_header*>(module.message) - 1)->capacity > kept_message_capacity)
        ZU_s_destroy(&module.message);
    return taken;
}

} // namespace

uint32_t ZU_log_write(uint32_t level, const ZU_wchar* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const uint32_t taken = ZU_log_write_i(level, format, arguments);
    va_end(arguments);
    return taken;
}

uint32_t ZU_log_write_i(uint32_t level, const ZU_wchar* format, va_list arguments) {
    return write_record(level, module.default_file, format, arguments);
}

uint32_t ZU_log_write_another_file(uint32_t level, const ZU_log_file_settings* settings,
                                   const ZU_wchar* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const uint32_t taken = ZU_log_write_another_file_i(level, settings, format, arguments);
    va_end(arguments);
    return taken;
}

uint32_t ZU_log_write_another_file_i(uint32_t level, const ZU_log_file_settings* settings,
                                     const ZU_wchar* format, va_list arguments) {
    if (!zu::log::is_wanted(level))
        return 0; // before the lock, which another thread may hold while it writes
    zu::held lock(module.another_file_lock);
    return write_record(level, *settings, format, arguments);
}
