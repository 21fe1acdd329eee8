// Tracing and message formatting: records whose text is built first, and then written as the one argument of "%s", so
// that it is never read as a format.
#include "zu/zu_log.h"

namespace {

using zu::scoped_string;

uint32_t write_trace(const ZU_wchar* opening, const ZU_wchar* function, const ZU_wchar* before_rest,
                     const ZU_wchar* format, va_list arguments) {
    scoped_string text;
    ZU_s_sprintf(text.address(), opening, function);
    if (format) {
        ZU_s_append_n(text.address(), before_rest, static_cast<uint32_t>(zu::text_view(before_rest).size()));
        ZU_s_append_sprintf_i(text.address(), format, arguments);
    }
    return ZU_log_write(ZU_LOG_TRACE, ZU_W("%s"), text.text());
}

bool is_tracing() {
    return (zu::log::level_mask() & ZU_LOG_TRACE) != 0;
}

} // namespace

uint32_t ZU_trace_enter(const ZU_wchar* function, const ZU_wchar* format, ...) {
    if (!is_tracing())
        return 0;
    va_list arguments;
    va_start(arguments, format);
    const uint32_t taken = write_trace(ZU_W("->>: %s()"), function, ZU_W(": "), format, arguments);
    va_end(arguments);
    return taken;
}

uint32_t ZU_trace_leave(const ZU_wchar* function, const ZU_wchar* format, ...) {
    if (!is_tracing())
        return 0;
    va_list arguments;
    va_start(arguments, format);
    const uint32_t taken = write_trace(ZU_W("<<-: %s()"), function, ZU_W(": "), format, arguments);
    va_end(arguments);
    return taken;
}

uint32_t ZU_trace(const ZU_wchar* function, const ZU_wchar* format, ...) {
    if (!is_tracing())
        return 0;
    va_list arguments;
    va_start(arguments, format);
    const uint32_t taken = write_trace(ZU_W("     %s(): "), function, ZU_W(""), format, arguments);
    va_end(arguments);
    return taken;
}

uint32_t ZU_log_format_message(uint32_t level, const ZU_wchar* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const uint32_t taken = ZU_log_format_message_i(level, format, arguments);
    va_end(arguments);
    return taken;
}

uint32_t ZU_log_format_message_i(uint32_t level, const ZU_wchar* format, va_list arguments) {
    if (!zu::log::is_wanted(level))
        return 0;
    scoped_string text;
    ZU_s_format_message_i(text.address(), format, arguments);
    return ZU_log_write(level, ZU_W("%s"), text.text());
}

uint32_t ZU_log_format_message_another_file(uint32_t level, const ZU_log_file_settings* settings,
                                            const ZU_wchar* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const uint32_t taken = ZU_log_format_message_another_file_i(level, settings, format, arguments);
    va_end(arguments);
    return taken;
}

uint32_t ZU_log_format_message_another_file_i(uint32_t level, const ZU_log_file_settings* settings,
                                              const ZU_wchar* format, va_list arguments) {
    if (!zu::log::is_wanted(level))
        return 0;
    scoped_string text;
    ZU_s_format_message_i(text.address(), format, arguments);
    return ZU_log_write_another_file(level, settings, ZU_W("%s"), text.text());
}
