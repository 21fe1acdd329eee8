// A C++ program against the installed library.
#include <zu/zu.h>

int main() {
    ZU_init();
    ZU_timer* timer =
        ZU_timer_new_daily(ZU_W("2026-01-01 08:00"), nullptr, nullptr, 1, nullptr, nullptr, nullptr, nullptr);
    ZU_wchar when[20];
    const bool found = timer && ZU_write_time_t(timer->ops->next(timer), when);
    if (found)
        ZU_printf_ex(ZU_W("next at %s\n"), when);
    if (timer)
        timer->ops->destroy(timer);
    ZU_shutdown();
    return found ? 0 : 1;
}
