// Log configuration: the module's state, its start and stop, and the switches, filter and hooks that callers set.
#include "zu/zu_log.h"

namespace zu::log {

constinit module_state module;

namespace {

// Frees the nodes from head to tail; the ring is empty afterwards.
void free_hooks() {
    hook_node* node = module.hooks.next;
    while (node != &module.hooks) {
        hook_node* next = node->next;
        ZU_free(node);
        node = next;
    }
    module.hooks.next = module.hooks.previous = &module.hooks;
    module.hook_count.store(0, std::memory_order_relaxed);
}

hook_node* find_hook(ZU_log_hook function, const void* user_data) {
    for (hook_node* node = module.hooks.next; node != &module.hooks; node = node->next)
        if (node->function == function && node->user_data == user_data)
            return node;
    return nullptr;
}

// The directory of the executable, without its backslash; a path without a backslash is used whole.
ZU_wchar* find_exe_directory() {
    ZU_wchar* path = ZU_get_exe_path();
    if (!path)
        return nullptr;
    const size_t backslash = text_view(path).rfind(u'\\');
    if (backslash != text_view::npos)
        path[backslash] = 0;
    return path;
}

} // namespace

void start() {
    if (++module.start_count != 1)
        return;
    ZU_lock_thread_init(&module.main_lock);
    ZU_lock_thread_init(&module.another_file_lock);
    module.hooks.next = module.hooks.previous = &module.hooks;
    module.default_file = {};
    module.exe_directory = find_exe_directory();
}

void stop() {
    if (--module.start_count != 0)
        return;
    free_hooks();
    ZU_free(const_cast<ZU_wchar*>(module.default_file.file_name));
    module.default_file = {};
    ZU_free(module.exe_directory);
    module.exe_directory = nullptr;
    ZU_s_destroy(&module.prefix);
    ZU_s_destroy(&module.message);
    ZU_lock_thread_destroy(&module.main_lock);
    ZU_lock_thread_destroy(&module.another_file_lock);
}

} // namespace zu::log

using zu::held;
using zu::log::hook_node;
using zu::log::module;

uint32_t ZU_log_set_level(uint32_t mask) {
    held lock(module.main_lock);
    return module.level_mask.exchange(mask, std::memory_order_relaxed);
}

uint32_t ZU_log_get_level() {
    return zu::log::level_mask();
}

void ZU_log_add_level(uint32_t bits) {
    held lock(module.main_lock);
    module.level_mask.fetch_or(bits, std::memory_order_relaxed);
}

void ZU_log_del_level(uint32_t bits) {
    held lock(module.main_lock);
    module.level_mask.fetch_and(~bits, std::memory_order_relaxed);
}

uint32_t ZU_log_set_output(uint32_t mask) {
    held lock(module.main_lock);
    return module.output_mask.exchange(mask, std::memory_order_relaxed);
}

uint32_t ZU_log_get_output() {
    return zu::log::output_mask();
}

void ZU_log_add_output(uint32_t bits) {
    held lock(module.main_lock);
    module.output_mask.fetch_or(bits, std::memory_order_relaxed);
}

void ZU_log_del_output(uint32_t bits) {
    held lock(module.main_lock);
    module.output_mask.fetch_and(~bits, std::memory_order_relaxed);
}

ZU_bool ZU_log_add_hook(ZU_log_hook function, void* user_data) {
    held lock(module.main_lock);
    if (zu::log::find_hook(function, user_data))
        return 0;
    hook_node* node = zu::allocate<hook_node>();
    *node = {&module.hooks, module.hooks.previous, function, user_data};
    node->previous->next = node;
    node->next->previous = node;
    module.hook_count.fetch_add(1, std::memory_order_relaxed);
    return 1;
}

ZU_bool ZU_log_del_hook(ZU_log_hook function, void* user_data) {
    held lock(module.main_lock);
    hook_node* node = zu::log::find_hook(function, user_data);
    if (!node)
        return 0;
    node->previous->next = node->next;
    node->next->previous = node->previous;
    ZU_free(node);
    module.hook_count.fetch_sub(1, std::memory_order_relaxed);
    return 1;
}

int32_t ZU_log_clear_hook() {
    held lock(module.main_lock);
    const int32_t count = module.hook_count.load(std::memory_order_relaxed);
    zu::log::free_hooks();
    return count;
}

int32_t ZU_log_get_hook_count() {
    return module.hook_count.load(std::memory_order_relaxed);
}

void ZU_log_set_filter(ZU_log_filter function, void* user_data) {
    held lock(module.main_lock);
    module.filter = function;
    module.filter_user_data = user_data;
}
