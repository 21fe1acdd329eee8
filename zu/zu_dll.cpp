// Dynamic library loading.
#include "zu/zu_support.h"

HMODULE ZU_dll_load(const ZU_wchar* path) {
    return platform::LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

ZU_bool ZU_dll_unload(HMODULE module) {
    return !module || platform::FreeLibrary(module);
}

void* ZU_dll_get_proc(HMODULE module, const char* name) {
    return reinterpret_cast<void*>(platform::GetProcAddress(module, name));
}
