/* A C program against the installed library. */
#include <zu/zu.h>

int main(void) {
    ZU_s text = NULL;
    int printed;
    ZU_init();
    ZU_s_sprintf(&text, ZU_W("zu %s from C"), ZU_version());
    printed = ZU_printf_ex(ZU_W("%s, %u characters\n"), ZU_s_text(text), ZU_s_length(text));
    ZU_s_destroy(&text);
    ZU_shutdown();
    return printed > 0 ? 0 : 1;
}
