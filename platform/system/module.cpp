// Dynamic libraries, by the host's loader.
#include "platform/system/module.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <set>

#include "platform/api/files.h"
#include "platform/api/text.h"
#include "platform/core/error.h"
#include "platform/files/place.h"

namespace platform {

namespace {

constexpr int load_mode = RTLD_NOW | RTLD_LOCAL;
constexpr wide_view library_extension = u".so";

// ---- What is loaded ---------------------------------------------------------------------------------------------

// The modules that were loaded through this layer, each with its count of loads and its first name. A module holds one
// load of the host's loader. That loader would follow any pointer, so this table refuses handles that are invented or
// freed.
struct module_table {
    struct entry {
        size_t loads = 0;
        std::u16string name;
    };
    std::mutex lock;
    std::map<void*, entry> entries;
};

module_table& table() {
    static module_table* const made =
        new module_table; // never destroyed: threads may outlive the program's end
    return *made;
}

bool is_built_in(const void* module) {
    for (const built_in_module* const* at = built_in_modules; *at; ++at) {
        if (*at == module)
            return true;
    }
    return false;
}

// Counts a load. The first load of a module sets the last-error code 0, another leaves the code alone.
HMODULE loaded(void* module, wide_view name) {
    module_table& modules = table();
    std::unique_lock hold(modules.lock);
    module_table::entry& entry = modules.entries[module];
    const bool is_first = ++entry.loads == 1;
    if (is_first)
        entry.name = name;
    hold.unlock(); // dlclose waits for loads in other threads, whose constructors may take this lock
    if (is_first)
        SetLastError(ERROR_SUCCESS);
    else if (!is_built_in(module))
        dlclose(module);
    return static_cast<HMODULE>(module);
}

HMODULE load_again(const std::u16string& name) {
    module_table& modules = table();
    const std::lock_guard hold(modules.lock);
    for (auto& [module, entry] : modules.entries) {
        if (lstrcmpiW(entry.name.c_str(), name.c_str()) == 0) {
            ++entry.loads;
            return static_cast<HMODULE>(module);
        }
    }
    return nullptr;
}

bool is_loaded(void* module) {
    module_table& modules = table();
    const std::lock_guard hold(modules.lock);
    return modules.entries.contains(module);
}

const built_in_module* find_built_in(const WCHAR* name) {
    for (const built_in_module* const* at = built_in_modules; *at && built_in_modules_offered; ++at) {
        if (lstrcmpiW((*at)->name, name) == 0)
            return *at;
    }
    return nullptr;
}

// ---- Dependencies -----------------------------------------------------------------------------------------------

bool is_there(const std::string& name) {
    void* library = dlopen(name.c_str(), load_mode | RTLD_NOLOAD);
    if (library)
        dlclose(library);
    return library != nullptr;
}

// Collects the libraries that a library needs, lie in its folder and are not loaded yet. Each comes after the libraries
// that it needs itself.
void collect_from_folder(const std::string& folder, const std::vector<std::string>& needed,
                         std::set<std::string>& seen, std::vector<std::string>& found) {
    for (const std::string& name : needed) {
        if (name.find('/') != std::string::npos || !seen.insert(name).second || is_there(name))
            continue;
        std::vector<std::string> further;
        if (inspect_library((folder + name).c_str(), further) != ERROR_SUCCESS)
            continue;
        collect_from_folder(folder, further, seen, found);
        found.push_back(name);
    }
}

// ---- Finding ----------------------------------------------------------------------------------------------------

size_t last_component(wide_view path) {
    return path.find_last_of(u"\\/:") + 1; // 0 without a separator, since npos + 1 is 0
}

std::u16string with_extension(wide_view path) {
    std::u16string complete(path);
    const wide_view name = path.substr(last_component(path));
    if (name.ends_with(u'.'))
        complete.pop_back();
    else if (!name.empty() && name.find(u'.') == wide_view::npos)
        complete += library_extension;
    return complete;
}

// A descriptor of a directory that is never closed, or -1 with errno. Only directories whose path is too long for the
// host get one; a name with the descriptor's number stands for them. The loader takes libraries of one name for the same
// library, so the number must never mean another directory.
int lasting_number(int directory) {
    static std::mutex lock;
    static auto* const numbers = new std::map<std::pair<dev_t, ino_t>, int>;
    struct stat status;
    if (fstat(directory, &status) != 0)
        return -1;
    const std::lock_guard hold(lock);
    const auto [entry, is_new] = numbers->try_emplace({status.st_dev, status.st_ino}, -1);
    if (is_new && (entry->second = fcntl(directory, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) < 0) {
        numbers->erase(entry);
        return -1;
    }
    return entry->second;
}

// Whether a code says that the path names nothing. Other codes say that it could not be looked at.
bool is_about_the_name(DWORD code) {
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND || code == ERROR_INVALID_NAME
           || code == ERROR_BAD_NETPATH || code == ERROR_BAD_NET_NAME;
}

// Finds the host path of a library's file. The result is 0, or a code.
DWORD find_library(const std::u16string& path, std::string& host_path) {
    place where;
    if (const DWORD code = where.set(path.c_str()))
        return is_about_the_name(code) ? DWORD{ERROR_MOD_NOT_FOUND} : code;
    if (where.ends_with_separator())
        return ERROR_MOD_NOT_FOUND;
    if (!where.find())
        return code_of_missing_library(errno);
    host_path = where.whole_name();
    if (where.is_too_long()) {
        const int folder = lasting_number(where.directory());
        if (folder < 0)
            return code_of_errno(errno);
        host_path = "/proc/self/fd/" + std::to_string(folder) + '/' + where.name();
    }
    return ERROR_SUCCESS;
}

// The loader tells only in words why it failed. If it has refused a file, the words begin with the file's path.
DWORD code_of_loader_failure() {
    if (const DWORD code = code_of_missing_library(errno); code != ERROR_MOD_NOT_FOUND)
        return code;
    const char* words = dlerror();
    const std::string path = words ? words : "";
    std::vector<std::string> needed;
    DWORD code = ERROR_SUCCESS;
    if (path.starts_with('/'))
        code = inspect_library(path.substr(0, path.find(": ")).c_str(), needed);
    return code != ERROR_SUCCESS ? code : ERROR_MOD_NOT_FOUND;
}

HMODULE load_file(const std::string& path, wide_view name, DWORD flags) {
    std::vector<std::string> needed;
    if (const DWORD code = inspect_library(path.c_str(), needed))
        return fail<HMODULE>(code);
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    std::set<std::string> seen;
    std::vector<std::string> wanted;
    if (flags & LOAD_WITH_ALTERED_SEARCH_PATH)
        collect_from_folder(folder, needed, seen, wanted);
    const library_folder there(wanted, folder);
    void* library = there ? open_library(path) : nullptr;
    return library ? loaded(library, name) : nullptr;
}

std::u16string beside_executable(wide_view name) {
    const keep_last_error code;
    std::u16string path(longest_path + 1, 0);
    const DWORD size = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    path.resize(std::min<size_t>(size, path.size()));
    path.resize(last_component(path));
    return path.append(name);
}

HMODULE load_bare_name(const std::u16string& name, DWORD flags) {
    if (HMODULE module = load_again(name))
        return module;
    std::string path;
    const DWORD code = find_library(beside_executable(name), path);
    if (code == ERROR_SUCCESS)
        return load_file(path, name, flags);
    std::string host_name;
    if (code != ERROR_MOD_NOT_FOUND || !append_host_name(name, host_name) || host_name.empty())
        return fail<HMODULE>(code);
    void* library = open_library(host_name);
    return library ? loaded(library, name) : nullptr;
}

// ---- Entry points -----------------------------------------------------------------------------------------------

FARPROC find_entry_point(const built_in_module& module, const char* name) {
    for (size_t i = 0; i < module.count; ++i) {
        if (std::strcmp(module.entry_points[i].name, name) == 0)
            return module.entry_points[i].address;
    }
    return nullptr;
}

bool lies_in(const link_map* library, void* address) {
    dl_find_object owner;
    return _dl_find_object(address, &owner) == 0 && owner.dlfo_link_map == library;
}

// dlsym also finds exports of the library's dependencies, which do not count.
FARPROC find_entry_point(void* library, const char* name, bool is_executable) {
    void* address = dlsym(library, name);
    link_map* own = nullptr;
    if (!address || dlinfo(library, RTLD_DI_LINKMAP, &own) != 0)
        return nullptr;
    exporter whose = lies_in(own, address) ? exporter::itself : exporter_of(*own, name);
    if (is_executable && whose == exporter::dependencies)
        whose = exporter::nobody;
    return whose == exporter::nobody ? nullptr : reinterpret_cast<FARPROC>(address);
}

void* executable() {
    static void* const handle = dlopen(nullptr, load_mode);
    return handle;
}

} // namespace

void* open_library(const std::string& name) {
    errno = 0;
    void* library = dlopen(name.c_str(), load_mode);
    return library ? library : fail<void*>(code_of_loader_failure());
}

HMODULE LoadLibraryExW(const WCHAR* path, HANDLE file, DWORD flags) {
    if (!path || file)
        return fail<HMODULE>(ERROR_INVALID_PARAMETER);
    const std::u16string complete = with_extension(path);
    if (const built_in_module* module = find_built_in(complete.c_str()))
        return loaded(const_cast<built_in_module*>(module), module->name);
    const wide_view name = wide_view(complete).substr(last_component(complete));
    if (name.size() == complete.size())
        return load_bare_name(complete, flags);
    std::string host_path;
    if (const DWORD code = find_library(complete, host_path))
        return fail<HMODULE>(code);
    return load_file(host_path, name, flags);
}

HMODULE LoadLibraryW(const WCHAR* path) {
    return LoadLibraryExW(path, nullptr, 0);
}

BOOL FreeLibrary(HMODULE module) {
    if (!module)
        return fail(ERROR_INVALID_HANDLE);
    module_table& modules = table();
    bool is_last = false;
    {
        const std::lock_guard hold(modules.lock);
        const auto found = modules.entries.find(module);
        if (found == modules.entries.end())
            return fail(ERROR_MOD_NOT_FOUND);
        is_last = --found->second.loads == 0;
        if (is_last)
            modules.entries.erase(found);
    }
    if (is_last) {
        if (!is_built_in(module))
            dlclose(module);
        SetLastError(ERROR_SUCCESS);
    }
    return TRUE;
}

FARPROC GetProcAddress(HMODULE module, const char* name) {
    constexpr uintptr_t last_ordinal =
        0xFFFF; // a smaller pointer is an ordinal, and no module here has those
    if (module && !is_loaded(module))
        return fail<FARPROC>(ERROR_MOD_NOT_FOUND);
    FARPROC found = nullptr;
    if (reinterpret_cast<uintptr_t>(name) > last_ordinal) {
        found = module && is_built_in(module)
                    ? find_entry_point(*reinterpret_cast<const built_in_module*>(module), name)
                    : find_entry_point(module ? module : executable(), name, !module);
    }
    return found ? found : fail<FARPROC>(ERROR_PROC_NOT_FOUND);
}

} // namespace platform
