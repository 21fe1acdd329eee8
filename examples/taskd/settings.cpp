#include "settings.h"

#include "failed.h"
#include "text.h"

std::string task_file(const std::string& given) {
    if (!given.empty())
        return given;
    ZU_wchar* const registered =
        ZU_registry_get_str(HKEY_LOCAL_MACHINE, wide(settings_key).c_str(), wide(task_file_value).c_str());
    if (!registered && GetLastError() != ERROR_FILE_NOT_FOUND)
        fail(std::string("HKEY_LOCAL_MACHINE\\") + settings_key);
    const std::string path = taken(registered);
    return path.empty() ? "tasks.txt" : path;
}
