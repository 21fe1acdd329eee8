// Inside logging: the one process-wide state, and the pieces that its sources hand one another.
#pragma once

#include <atomic>

#include "zu/zu_support.h"

namespace zu::log {

struct hook_node {
    hook_node* next;
    hook_node* previous;
    ZU_log_hook function;
    void* user_data;
};

// The main lock guards everything but the three atomic words and the locks. The another-file lock serialises the writes
// to another file among themselves; it is taken before the main lock.
struct module_state {
    // Relaxed access is enough: each of the three words is a switch of its own, and publishes no other data.
    std::atomic<uint32_t> level_mask{ZU_LOG_WARNING | ZU_LOG_ERROR | ZU_LOG_ALERT};
    std::atomic<uint32_t> output_mask{ZU_LOG_OUT_STDOUT | ZU_LOG_OUT_DEBUGGER | ZU_LOG_OUT_FILE};
    ZU_log_filter filter = nullptr;
    void* filter_user_data = nullptr;
    hook_node hooks{}; // the sentinel of a ring
    std::atomic<int32_t> hook_count{0};
    ZU_log_file_settings default_file{}; // owns its file name
    ZU_wchar* exe_directory = nullptr;   // without its last backslash
    ZU_s prefix = nullptr;
    ZU_log_record prefix_source{}; // the record that the prefix was formatted from
    ZU_s message = nullptr;
    ZU_lock_thread main_lock{};
    ZU_lock_thread another_file_lock{};
    uint32_t start_count = 0;
};

extern module_state module;

inline uint32_t level_mask() {
    return module.level_mask.load(std::memory_order_relaxed);
}

inline uint32_t output_mask() {
    return module.output_mask.load(std::memory_order_relaxed);
}

// Whether a record of this level can reach any output: two unlocked reads.
inline bool is_wanted(uint32_t level) {
    return (level & level_mask()) != 0 && output_mask() != 0;
}

// Called by ZU_init and ZU_shutdown; the calls are counted.
void start();
void stop();

// Whether a conversion failed that has given so many bytes. ZU_wchar_2_char gives an empty text then, as without memory
// for a converter.
inline bool failed_to_convert(text_view text, uint32_t bytes) {
    return bytes == 0 && !text.empty() && text[0] != 0;
}

// Appends one line to the file that the settings describe; true if the whole line was written. The main lock is held.
bool write_to_file(const ZU_log_file_settings& settings, text_view prefix, text_view message);

// Makes room for a new file at the path: moves every generation one number up and deletes the oldest. A generation that
// cannot be moved stays. If that is the live file, the next line is appended to it.
void rotate(uint32_t generations, text_view path);

} // namespace zu::log
