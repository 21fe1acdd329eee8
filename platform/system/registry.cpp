// Registry calls: keys that are open, and the values in them.
#include "platform/system/registry.h"

#include <cstring>
#include <new>

#include "platform/api/system.h"
#include "platform/core/error.h"
#include "platform/core/handle.h"

namespace platform {

namespace {

// ---- Keys -------------------------------------------------------------------------------------------------------

constexpr REGSAM generic_read = 0x80000000;
constexpr REGSAM generic_all = 0x10000000;
constexpr REGSAM maximum_allowed = 0x02000000;

constexpr wide_view root_names[] = {u"hkey_classes_root", current_user_root,        u"hkey_local_machine",
                                    u"hkey_users",        u"hkey_performance_data", u"hkey_current_config"};

bool is_root(HKEY key) {
    const auto first = reinterpret_cast<uintptr_t>(HKEY_CLASSES_ROOT);
    return reinterpret_cast<uintptr_t>(key) - first < std::size(root_names);
}

// A key in a state of the registry. The path finds it again in the next state.
struct key_place {
    std::u16string path;
    state_pointer state;
    const registry_node* node = nullptr;

    // Looks the key up in the newest state. The result is 0, or a code; the node is null if the key is gone. A predefined
    // root always exists.
    DWORD renew() {
        static const registry_node empty;
        const state_pointer before = state;
        wide_view rest = path;
        if (const DWORD code = current_registry(take_key_name(rest) == current_user_root, state))
            return code;
        if (state == before)
            return ERROR_SUCCESS;
        node = state->roots.find(path);
        if (!node && path.find(u'\\') == std::u16string::npos)
            node = &empty;
        return ERROR_SUCCESS;
    }
};

// The object never changes, so threads may share the handle.
struct open_key : object {
    static constexpr object_kind kind{};
    open_key(key_place found, REGSAM granted) : object(kind), where(std::move(found)), access(granted) {}

    const key_place where;
    const REGSAM access;
};

// Finds the key and the access that a handle stands for. False for a handle that is neither a root nor an open key.
bool resolve(HKEY key, key_place& where, REGSAM& access) {
    if (is_root(key)) {
        const auto first = reinterpret_cast<uintptr_t>(HKEY_CLASSES_ROOT);
        where.path = root_names[reinterpret_cast<uintptr_t>(key) - first];
        access = maximum_allowed;
        return true;
    }
    const open_key* opened = object_of<open_key>(key);
    if (!opened)
        return false;
    where = opened->where;
    access = opened->access;
    return true;
}

// Copies a value out. The result is 0, or a code. `size` becomes the value's size in both cases.
LONG copy_value(const registry_value& value, DWORD* type, BYTE* data, DWORD* size) {
    if (type)
        *type = value.type;
    if (!size)
        return ERROR_SUCCESS;
    const DWORD room = *size;
    *size = static_cast<DWORD>(value.data.size());
    if (!data)
        return ERROR_SUCCESS;
    if (room < *size)
        return ERROR_MORE_DATA;
    if (*size > 0)
        std::memcpy(data, value.data.data(), *size);
    // A text that is stored without a terminator gets one if there is room behind it.
    const bool is_text = value.type == REG_SZ || value.type == REG_EXPAND_SZ || value.type == REG_MULTI_SZ;
    if (is_text && room - *size >= sizeof(WCHAR))
        std::memset(data + *size, 0, sizeof(WCHAR));
    return ERROR_SUCCESS;
}

} // namespace

LONG RegOpenKeyExW(HKEY root, const WCHAR* subkey, DWORD, REGSAM access, HKEY* key) {
    const keep_last_error keep;
    if (!key)
        return ERROR_INVALID_PARAMETER;
    *key = nullptr;
    key_place where;
    REGSAM root_access;
    if (!resolve(root, where, root_access))
        return ERROR_INVALID_HANDLE;
    wide_view rest = subkey ? wide_view(subkey) : wide_view();
    if (rest.starts_with(u'\\'))
        return ERROR_BAD_PATHNAME;
    for (wide_view name; !(name = take_key_name(rest)).empty();)
        where.path.append(u"\\").append(name);
    where.state = nullptr; // the path is another, so its key is looked up anew
    if (const DWORD code = where.renew())
        return static_cast<LONG>(code);
    if (!where.node)
        return ERROR_FILE_NOT_FOUND;
    const HANDLE handle = new_handle(new (std::nothrow) open_key(std::move(where), access));
    if (!handle)
        return static_cast<LONG>(GetLastError());
    *key = reinterpret_cast<HKEY>(handle);
    return ERROR_SUCCESS;
}

LONG RegQueryValueExW(HKEY key, const WCHAR* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size) {
    const keep_last_error keep;
    if (reserved || (data && !size))
        return ERROR_INVALID_PARAMETER;
    key_place where;
    REGSAM access;
    if (!resolve(key, where, access))
        return ERROR_INVALID_HANDLE;
    if (!(access & (KEY_QUERY_VALUE | generic_read | generic_all | maximum_allowed)))
        return ERROR_ACCESS_DENIED;
    if (const DWORD code = where.renew())
        return static_cast<LONG>(code);
    if (!where.node)
        return ERROR_KEY_DELETED;
    const auto& values = where.node->values;
    const auto found = values.find(folded_name(name ? wide_view(name) : wide_view()));
    return found == values.end() ? ERROR_FILE_NOT_FOUND : copy_value(found->second, type, data, size);
}

LONG RegCloseKey(HKEY key) {
    const keep_last_error keep;
    if (is_root(key))
        return ERROR_SUCCESS;
    if (!object_of<open_key>(key))
        return ERROR_INVALID_HANDLE;
    return CloseHandle(reinterpret_cast<HANDLE>(key)) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

} // namespace platform
