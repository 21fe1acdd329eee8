// Registry calls over the file registry.reg of the host directory, which is read again when it has changed.
#include "platform/system/registry.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>

#include "platform/api/system.h"
#include "platform/core/descriptor.h"
#include "platform/core/error.h"
#include "platform/core/handle.h"
#include "platform/core/host_dir.h"
#include "platform/core/retry.h"

namespace platform {

namespace {

// ---- The file ---------------------------------------------------------------------------------------------------

struct file_stamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec written{}, changed{};

    file_stamp() = default;
    explicit file_stamp(const struct stat& status)
        : device(status.st_dev), inode(status.st_ino), size(status.st_size), written(status.st_mtim),
          changed(status.st_ctim) {}

    bool operator==(const file_stamp& other) const {
        return device == other.device && inode == other.inode && size == other.size
               && written.tv_sec == other.written.tv_sec && written.tv_nsec == other.written.tv_nsec
               && changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }

    // A change within the same tick of the file system's clock would leave the same stamp. A file of the future, as
    // seen after a clock was set back, is never old enough.
    bool is_settled() const {
        constexpr time_t settling_s = 2;
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        return now.tv_sec - changed.tv_sec > settling_s;
    }
};

struct registry_state {
    file_stamp stamp;
    registry_node roots;
};
using state_pointer = std::shared_ptr<const registry_state>;

// Never destroyed: threads may still read while the process ends.
struct state_cache {
    std::mutex lock; // held for the length of a copy
    state_pointer latest;
    const state_pointer nothing = std::make_shared<const registry_state>();
};

state_cache& cache() {
    static state_cache* const made = new state_cache;
    return *made;
}

// A child forked while another thread copies must find the lock free.
[[maybe_unused]] const int fork_handlers =
    pthread_atfork([] { cache().lock.lock(); }, [] { cache().lock.unlock(); }, [] { cache().lock.unlock(); });

// 0, or an errno. Files of all sizes have room; what is no file is refused.
int read_file(int number, const struct stat& status, std::string& content) {
    if (!S_ISREG(status.st_mode))
        return EACCES;
    content.resize(static_cast<size_t>(status.st_size));
    size_t filled = 0;
    for (;;) {
        if (filled == content.size())
            content.resize(content.size() + 4096);
        const ssize_t size = retried([&] { return read(number, &content[filled], content.size() - filled); });
        if (size < 0)
            return errno;
        if (size == 0)
            break;
        filled += static_cast<size_t>(size);
    }
    content.resize(filled);
    return 0;
}

// What the file says now, for this call and, once it has settled, for others. An errno on failure.
int load(const char* path, state_pointer& result) {
    constexpr int attempts = 3; // at a file that is being written
    std::string content;
    file_stamp before;
    bool steady = false;
    for (int i = 0; i < attempts && !steady; ++i) {
        const descriptor file(
            retried([&] { return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
        struct stat status;
        if (!file || fstat(file.get(), &status) != 0)
            return errno;
        before = file_stamp(status);
        if (const int error = read_file(file.get(), status, content))
            return error;
        steady = fstat(file.get(), &status) == 0 && file_stamp(status) == before;
    }
    const auto state = std::make_shared<registry_state>();
    state->stamp = before;
    read_registry_text(content, state->roots);
    result = state;
    if (steady && before.is_settled()) {
        const std::lock_guard hold(cache().lock);
        cache().latest = result;
    }
    return 0;
}

// A file that is not there is an empty registry. 0, or a code.
DWORD current_state(state_pointer& result) {
    const std::string path = in_host_directory("registry.reg");
    struct stat status;
    int error = stat(path.c_str(), &status) == 0 ? 0 : errno;
    if (error == 0) {
        {
            const std::lock_guard hold(cache().lock);
            result = cache().latest;
        }
        if (result && result->stamp == file_stamp(status))
            return ERROR_SUCCESS;
        error = load(path.c_str(), result);
    }
    if (error == ENOENT || error == ENOTDIR) {
        result = cache().nothing;
        return ERROR_SUCCESS;
    }
    return code_of_errno(error);
}

// ---- Keys -------------------------------------------------------------------------------------------------------

constexpr REGSAM generic_read = 0x80000000;
constexpr REGSAM generic_all = 0x10000000;
constexpr REGSAM maximum_allowed = 0x02000000;

constexpr wide_view root_names[] = {u"hkey_classes_root", u"hkey_current_user",     u"hkey_local_machine",
                                    u"hkey_users",        u"hkey_performance_data", u"hkey_current_config"};

bool is_root(HKEY key) {
    const auto first = reinterpret_cast<uintptr_t>(HKEY_CLASSES_ROOT);
    return reinterpret_cast<uintptr_t>(key) - first < std::size(root_names);
}

// A key in a state of the file. The path finds it again in the next.
struct key_place {
    std::u16string path;
    state_pointer state;
    const registry_node* node = nullptr;

    // 0, or a code; the node is null when the state has none for the path. A predefined root is there, whatever the
    // file holds.
    DWORD renew() {
        static const registry_node empty;
        const state_pointer before = state;
        if (const DWORD code = current_state(state))
            return code;
        if (state == before)
            return ERROR_SUCCESS;
        node = state->roots.find(path);
        if (!node && path.find(u'\\') == std::u16string::npos)
            node = &empty;
        return ERROR_SUCCESS;
    }
};

// Nothing in it changes, so threads may share the handle.
struct open_key : object {
    static constexpr object_kind kind{};
    open_key(key_place found, REGSAM granted) : object(kind), where(std::move(found)), access(granted) {}

    const key_place where;
    const REGSAM access;
};

// What a root or an open key stands for, and its access; false for anything else.
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

// 0, or a code; `size` is set to that of the value either way.
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
    // A text that is stored without a terminator gets one where it costs nothing.
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
    where.state = nullptr; // another path: found anew
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
