// Registry reads: one value of one key, a text or a number.
#include "zu/zu_support.h"

namespace {

constexpr uint32_t first_size = 24; // bytes, enough for a text of eleven characters
constexpr uint32_t terminator = 2 * sizeof(ZU_wchar);

bool is_text(platform::DWORD type) {
    return type == REG_SZ || type == REG_EXPAND_SZ;
}

} // namespace

ZU_wchar* ZU_registry_get_str(HKEY root, const ZU_wchar* subkey, const ZU_wchar* name) {
    platform::HKEY key;
    platform::LONG result = platform::RegOpenKeyExW(root, subkey, 0, KEY_QUERY_VALUE, &key);
    if (result != ERROR_SUCCESS) {
        platform::SetLastError(static_cast<platform::DWORD>(result));
        return nullptr;
    }
    uint8_t* data = nullptr;
    platform::DWORD size = first_size;
    platform::DWORD type = REG_NONE;
    do {
        // Leaves room for a terminator. Some writers store none, or an odd number of bytes.
        data = static_cast<uint8_t*>(ZU_realloc(data, size + terminator));
        result = platform::RegQueryValueExW(key, name, nullptr, &type, data, &size);
    } while (result == ERROR_MORE_DATA);
    if (result == ERROR_SUCCESS && !is_text(type))
        result = ERROR_FILE_NOT_FOUND;
    platform::RegCloseKey(key);
    if (result != ERROR_SUCCESS) {
        ZU_free(data);
        platform::SetLastError(static_cast<platform::DWORD>(result));
        return nullptr;
    }
    std::memset(data + size, 0, terminator);
    return reinterpret_cast<ZU_wchar*>(data);
}

ZU_bool ZU_registry_get_uint32(HKEY root, const ZU_wchar* subkey, const ZU_wchar* name, uint32_t* value) {
    *value = 0; // a number stored in fewer bytes sets only the lower ones
    platform::HKEY key;
    platform::LONG result = platform::RegOpenKeyExW(root, subkey, 0, KEY_QUERY_VALUE, &key);
    if (result == ERROR_SUCCESS) {
        platform::DWORD type = REG_NONE;
        platform::DWORD size = sizeof *value;
        result =
            platform::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<uint8_t*>(value), &size);
        platform::RegCloseKey(key);
        if (result == ERROR_SUCCESS && type == REG_DWORD)
            return 1;
        // A text has the wrong type (2), even if it is also too long (234).
        if (result == ERROR_SUCCESS || (result == ERROR_MORE_DATA && is_text(type)))
            result = ERROR_FILE_NOT_FOUND;
    }
    *value = 0;
    platform::SetLastError(static_cast<platform::DWORD>(result));
    return 0;
}
